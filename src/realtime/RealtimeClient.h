#pragma once

#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QThread>
#include <QVariantMap>

#include <functional>

class RealtimeConnection;

// The client of the realtime model service. Runs its connection on its own thread
// ("kb-realtime"); every operation only posts work there and returns at once, so any thread
// may call it (append() is called from an audio thread). Every callback is delivered on the
// thread that created the client, in the order the events happened; install them before the
// first start().
class RealtimeClient : public QObject
{
    Q_OBJECT
public:
    using Config = RealtimeConfig;
    using Status = RealtimeStatus;
    using Timing = RealtimeTiming;

    explicit RealtimeClient(QObject *parent = nullptr);
    explicit RealtimeClient(const Timing &timing, QObject *parent = nullptr);
    ~RealtimeClient() override;

    void start(const Config &config);
    // Safe to call when not started.
    void stop();
    // 24 kHz mono little-endian 16-bit PCM.
    void append(const QByteArray &pcm16);
    void updateHistory(const History &history);
    void updateInstructions(const QString &instructions);
    // Asks for a fresh answer to `question`, cancelling the answer in progress.
    void regenerate(const QString &question);
    // Sends a picture of the screen (JPEG bytes) with `text` and asks for a response.
    void askAboutImage(const QByteArray &jpeg, const QString &text);

    std::function<void(const RealtimeStatus &)> onStatus;
    std::function<void(const QString &itemID, const QString &transcript)> onTranscript;
    std::function<void(const QString &responseID, const QString &delta)> onDelta;
    std::function<void(const QString &responseID)> onResponseDone;
    std::function<void(const QVariantMap &usage)> onUsage;
    std::function<void(const QString &message)> onLog;
    // Connection lines for the start-up trace ("        websocket open", "        connection lost ...").
    std::function<void(const QString &line)> onTrace;

private:
    template<typename Fn>
    void post(Fn &&fn);

    QThread m_thread;
    RealtimeConnection *m_connection = nullptr;
};
