#pragma once

#include "common/Result.h"
#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"
#include "realtime/ServiceSocket.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QUrl>
#include <QVariantMap>

#include <functional>
#include <optional>

// What the session hands the transcription client when a session starts.
struct TranscriptionConfig
{
    QString apiKey;
    QString model;       // the transcription model, e.g. "gpt-4o-transcribe"
    double vadThreshold = 0.5;
    int prefixPaddingMs = 300;
    int silenceDurationMs = 500;

    friend bool operator==(const TranscriptionConfig &, const TranscriptionConfig &) = default;
};

// A second connection to the realtime service, opened for transcription only: the service's
// transcription session (no answers), fed with the user's microphone. The same socket rules as
// the main connection (ServiceSocket): the key only over wss:// (or ws:// on this computer),
// reconnects with back-off for as long as it should run. Lives on the client's thread and is only called
// there; what it reports goes to the `Sink` on that thread.
class TranscriptionConnection : public QObject
{
    Q_OBJECT
public:
    struct Sink
    {
        std::function<void(const RealtimeStatus &)> status;
        // A piece of an item's text (appended to what came before for that item).
        std::function<void(const QString &itemID, const QString &delta)> delta;
        // An item's whole text.
        std::function<void(const QString &itemID, const QString &transcript)> completed;
        std::function<void(const QString &itemID, const QString &message)> failed;
        // {"type":"tokens",...} or {"type":"duration","seconds":...}, billed by the transcription model.
        std::function<void(const QVariantMap &usage)> usage;
        std::function<void(const QString &line)> log;
    };

    TranscriptionConnection(const RealtimeTiming &timing, Sink sink, QObject *parent = nullptr);
    ~TranscriptionConnection() override;

    void start(const TranscriptionConfig &config);
    void stop();
    // 24 kHz mono little-endian 16-bit PCM; dropped while not configured.
    void append(const QByteArray &pcm16);

    // {"type":"session.update","session":{"type":"transcription",...}}.
    static QJsonObject sessionUpdate(const TranscriptionConfig &config);
    // The address with "intent=transcription", or why it may not be used (nothing is sent then).
    // `override` is KQ_REALTIME_URL, or a null string when it is unset or empty.
    static Result<QUrl> endpoint(const QString &override);

    void handleText(const QString &text);

private:
    void openSocket();
    void scheduleReconnect(const QString &reason);
    void teardown();
    void send(const QJsonObject &message);
    void report(const RealtimeStatus &status);
    void log(const QString &line);

    const Sink m_sink;
    std::optional<TranscriptionConfig> m_config;
    ServiceSocket m_socket;
    QByteArray m_pending;
    bool m_isConfigured = false;
    bool m_shouldRun = false;
};
