#pragma once

#include "realtime/RealtimeEvents.h"
#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"
#include "realtime/ServiceSocket.h"

#include <QAbstractSocket>
#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <optional>

// The realtime client's state machine over its ServiceSocket: the session configuration, the
// event dispatch, history seeding, audio batching, reconnects and session cycling.
// Lives on the client's thread and is only ever called there; what it reports is emitted by
// `events()` on that same thread (RealtimeClient relays it to the owner's thread).
class RealtimeConnection : public QObject
{
    Q_OBJECT
public:
    explicit RealtimeConnection(const RealtimeTiming &timing, QObject *parent = nullptr);
    ~RealtimeConnection() override;

    void start(const RealtimeConfig &config);
    void stop();
    void append(const QByteArray &pcm16);
    void updateHistory(const History &history);
    void updateInstructions(const QString &instructions);
    void regenerate(const QString &question);
    // A picture of the screen (JPEG) and a question about it; a response is asked for. Before
    // the session is configured it waits and is sent right after the history.
    void askAboutImage(const QByteArray &jpeg, const QString &text);

    // What this connection reports, emitted on its thread.
    RealtimeEvents &events() { return m_events; }

    // One frame of text from the service. Public so the fuzz target can drive it without a socket.
    void handleText(const QString &text);

private:
    void openSocket();
    void connectSocket();
    void scheduleReconnect(const QString &reason);
    // Stops for good: no reconnect until the next start(); `message` becomes the failed status.
    void fail(const QString &message, const QString &reason);
    void handleClose(int code, const QString &closeReason);
    void handleSocketError(QAbstractSocket::SocketError error, const QString &host, const QString &errorString);
    // Reopens the connection on the service's beta interface (legacy shape, "text" content).
    void switchToBetaInterface(const QString &reason);
    void teardown();
    // The keep-alive and the next session cycle, once the socket is configured.
    void startTimers();
    void cycle();

    void sendSessionUpdate(bool legacy);
    void seedHistory();
    void send(const QJsonObject &message);
    void handleError(const QJsonObject &event);
    // True when the error was one the client works around (another transcription model, the
    // beta interface).
    bool handleFallback(const QJsonObject &event);
    void handleConfigured();
    void handleTranscription(const QString &type, const QJsonObject &event);
    void handleResponseCreated(const QJsonObject &event);
    void handleResponseDone(const QJsonObject &event);
    bool betaInterface() const;
    void sendImageQuestion(const QByteArray &jpeg, const QString &text);
    void sendPendingImage();

    void report(const RealtimeStatus &status);
    void log(const QString &line);
    void trace(const QString &line);
    QString redact(const QString &text) const { return m_socket.redact(text); }

    const RealtimeTiming m_timing;
    RealtimeEvents m_events;

    std::optional<RealtimeConfig> m_config;
    ServiceSocket m_socket;
    QByteArray m_pending;
    bool m_isConfigured = false;
    bool m_shouldRun = false;
    QTimer m_cycleTimer;

    // The beta interface: both switches are set together, and reset by start().
    bool m_usedLegacyShape = false;
    QString m_assistantContentType = QStringLiteral("output_text");
    // The transcription model was refused; the configuration names whisper-1 until the next start().
    bool m_transcribeFallback = false;
    // 3000-4999 closes since a socket was last configured.
    int m_serviceClosesInARow = 0;
    // The last reason told to the user through the notice, so a retry loop says it once.
    QString m_lastNotice;
    std::optional<QString> m_activeResponseID;
    bool m_seededThisSocket = false;
    History m_history;

    // Regeneration: a cancelled response that has not ended yet, whether the next
    // "response.created" answers our own "response.create", and whether the service refused it
    // because of the cancelled one (then it is asked again once that one ends).
    std::optional<QString> m_cancelledResponseID;
    bool m_awaitingRegeneratedResponse = false;
    bool m_sentAssistantItems = false; // on this socket
    bool m_retryCreateOnDone = false;
    int m_createRetries = 0;

    struct PendingImage
    {
        QByteArray jpeg;
        QString text;
    };
    std::optional<PendingImage> m_pendingImage;
};
