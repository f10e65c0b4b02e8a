#pragma once

#include "realtime/ConnectionThread.h"
#include "realtime/RealtimeTiming.h"
#include "realtime/TranscriptionConnection.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

// The client of the service's transcription session, used for the user's own answers when
// the user opts in. Runs its connection on its own thread ("kb-transcribe"); every operation
// only posts work there, so any thread may call it (append() is called from the audio thread).
// Callbacks arrive on the thread that created the client, in order; install them before start().
class TranscriptionClient : public QObject
{
    Q_OBJECT
public:
    explicit TranscriptionClient(QObject *parent = nullptr);
    explicit TranscriptionClient(const RealtimeTiming &timing, QObject *parent = nullptr);
    ~TranscriptionClient() override;

    void start(const TranscriptionConfig &config);
    // Safe to call when not started.
    void stop();
    // 24 kHz mono little-endian 16-bit PCM.
    void append(const QByteArray &pcm16);

    std::function<void(const RealtimeStatus &)> onStatus;
    std::function<void(const QString &itemID, const QString &delta)> onDelta;
    std::function<void(const QString &itemID, const QString &transcript)> onCompleted;
    std::function<void(const QString &itemID, const QString &message)> onFailed;
    std::function<void(const QVariantMap &usage)> onUsage;
    std::function<void(const QString &line)> onLog;

private:
    ConnectionThread<TranscriptionConnection> m_connection;
};
