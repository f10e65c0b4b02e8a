#pragma once

#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>
#include <QVariantMap>

#include <functional>
#include <optional>

class QWebSocket;

// The realtime client's state machine: one WebSocket at a time, its configuration, the event
// dispatch, history seeding, audio batching, keep-alive, reconnects and session cycling.
// Lives on the client's thread and is only ever called there; what it reports goes to the
// `Sink`, called on that same thread (RealtimeClient forwards it to the owner's thread).
class RealtimeConnection : public QObject
{
    Q_OBJECT
public:
    struct Sink
    {
        std::function<void(const RealtimeStatus &)> status;
        std::function<void(const QString &itemID, const QString &transcript)> transcript;
        std::function<void(const QString &responseID, const QString &delta)> delta;
        std::function<void(const QString &responseID)> responseDone;
        std::function<void(const QVariantMap &usage)> usage;
        std::function<void(const QString &line)> log;
        std::function<void(const QString &line)> trace;
    };

    RealtimeConnection(const RealtimeTiming &timing, Sink sink, QObject *parent = nullptr);
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

    // One frame of text from the service. Public so the fuzz target can drive it without a socket.
    void handleText(const QString &text);

private:
    void openSocket();
    void connectSocket();
    void scheduleReconnect(const QString &reason);
    void teardown();
    void startTimers();
    void ping();
    void cycle();

    void sendSessionUpdate(bool legacy);
    void seedHistory();
    void send(const QJsonObject &message);
    void handleError(const QJsonObject &event);
    void handleResponseDone(const QJsonObject &event);
    void sendImageQuestion(const QByteArray &jpeg, const QString &text);
    void sendPendingImage();

    void report(const RealtimeStatus &status);
    void log(const QString &line);
    void trace(const QString &line);
    QString redact(QString text) const;

    const RealtimeTiming m_timing;
    const Sink m_sink;

    std::optional<RealtimeConfig> m_config;
    QPointer<QWebSocket> m_socket;
    QByteArray m_pending;
    bool m_isConfigured = false;
    bool m_shouldRun = false;
    int m_reconnectAttempt = 0;
    bool m_reconnectPending = false;
    QTimer m_reconnectTimer;
    QTimer m_connectTimer;
    QTimer m_pingTimer;
    QTimer m_pongTimer;
    QTimer m_cycleTimer;

    bool m_usedLegacyShape = false;
    std::optional<QString> m_activeResponseID;
    QString m_assistantContentType = QStringLiteral("output_text");
    bool m_seededThisSocket = false;
    History m_history;

    // Regeneration: a cancelled response that has not ended yet, and whether the service
    // refused our "response.create" because of it (then it is asked again once that one ends).
    std::optional<QString> m_cancelledResponseID;
    bool m_awaitingRegeneratedResponse = false;
    bool m_retryCreateOnDone = false;
    int m_createRetries = 0;

    struct PendingImage
    {
        QByteArray jpeg;
        QString text;
    };
    std::optional<PendingImage> m_pendingImage;
};
