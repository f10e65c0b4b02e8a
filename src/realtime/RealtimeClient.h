#pragma once

#include "realtime/ConnectionThread.h"
#include "realtime/RealtimeService.h"
#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QString>

class RealtimeConnection;

// The client of the realtime model service. Runs its connection on its own thread
// ("kb-realtime"); every operation only posts work there and returns at once, so any thread
// may call it (append() is called from an audio thread). Every event (RealtimeEvents) is
// emitted on the thread that created the client, in the order it happened; connect before the
// first start().
class RealtimeClient final : public RealtimeService
{
    Q_OBJECT
public:
    using Config = RealtimeConfig;
    using Status = RealtimeStatus;
    using Timing = RealtimeTiming;

    explicit RealtimeClient(QObject *parent = nullptr);
    explicit RealtimeClient(const Timing &timing, QObject *parent = nullptr);
    ~RealtimeClient() override;

    void start(const Config &config) override;
    void stop() override;
    void append(const QByteArray &pcm16) override;
    void updateHistory(const History &history) override;
    void updateInstructions(const QString &instructions) override;
    void regenerate(const QString &question) override;
    // Always sends the picture: returns true.
    bool askAboutImage(const QByteArray &jpeg, const QString &text) override;

private:
    ConnectionThread<RealtimeConnection> m_connection;
};
