#pragma once

#include "realtimesim/SimRecord.h"
#include "realtimesim/SimScript.h"

#include <QList>
#include <QObject>
#include <QPointer>
#include <QUrl>

#include <memory>

class QTcpServer;
class QTcpSocket;
class QWebSocketServer;
class SimAudioTranscriptions;
class SimConnection;
class SimHttpConnection;

// A stand-in for the realtime model service on 127.0.0.1: accepts connections on
// /v1/realtime?model=..., checks the Bearer key, validates the session configuration, detects
// turns in the uploaded audio, answers from a script, injects faults on request, and records
// every message the client sent. On the same port it answers the transcription endpoint,
// POST /v1/audio/transcriptions (SimAudioTranscriptions); those requests are not connections.
// Runs on the thread that creates it.
class RealtimeSimulator : public QObject
{
    Q_OBJECT
public:
    explicit RealtimeSimulator(QObject *parent = nullptr);
    ~RealtimeSimulator() override;

    // Listens on 127.0.0.1; port 0 picks a free port. Calling it again after close() reopens.
    bool listen(quint16 port = 0);
    // Stops accepting connections and drops the open ones.
    void close();
    bool isListening() const;
    quint16 port() const;
    // ws://127.0.0.1:<port>/v1/realtime, the value for KQ_REALTIME_URL.
    QUrl url() const;
    // http://127.0.0.1:<port>/v1/audio/transcriptions.
    QUrl transcriptionsUrl() const;

    void setScript(const SimScript &script);
    const SimScript &script() const { return m_script; }
    void setRejectCurrentShape(bool reject) { m_script.rejectCurrentShape = reject; }
    void setRejectOutputText(bool reject) { m_script.rejectOutputText = reject; }
    void setExpectedKey(const QString &key) { m_script.apiKey = key; }
    // Behave as the service does (see tools/README.md); off: the simpler, ordered behaviour.
    void setRealistic(bool realistic) { m_script.realistic = realistic; }
    // The first `count` connections (counted from the first ever) get no "session.created"; -1: all.
    void setWithholdSessionCreated(int count) { m_script.withholdSessionCreated = count; }
    bool withholdsSessionCreated(int connection) const;
    void setInsufficientQuotaAfterConfiguration(bool on) { m_script.insufficientQuotaAfterConfiguration = on; }
    void setRefusedTranscribeModels(const QStringList &models) { m_script.refusedTranscribeModels = models; }

    // What the clients sent, in arrival order.
    QList<SimRecord> records() const { return m_records; }
    QList<QJsonObject> received(const QString &type, int connection = 0) const;
    QList<SimConnectionInfo> connections() const;
    int connectionCount() const { return m_connections.size(); }
    int openConnectionCount() const;

    // Control, acting on the newest open connection; false when there is none.
    // A turn with the next scripted question, or with `question` and the answer scripted for it.
    bool triggerTurn(const QString &question = {});
    // A turn exactly as given (its answer, status, faults ...).
    bool triggerTurn(const SimTurn &turn);
    bool closeConnection(int code, const QString &reason);
    bool dropConnection();
    bool freeze();      // stop reading: no pongs, no answers, socket left open
    bool sendMalformed();
    bool sendError(const QString &code, const QString &message);
    bool expireSession();
    bool sendInsufficientQuota();
    bool sendText(const QString &text);
    bool sendBinary(const QByteArray &data);

    // What transcription-only connections and the transcription endpoint answer, in turn (cycling).
    void setTranscriptionTexts(const QStringList &texts) { m_transcriptionTexts = texts; m_nextTranscription = 0; }
    // What the transcription endpoint answers to the next requests, in order (then the texts above).
    void setAudioTranscriptions(const QList<SimAudioTranscription> &steps);
    // HTTP connections (to the transcription endpoint) accepted so far, and those still open.
    int httpConnectionCount() const { return m_httpConnectionCount; }
    int openHttpConnectionCount() const;
    // An item with `text` on the newest open transcription-only connection.
    bool triggerTranscription(const QString &text);

    // Used by the connections.
    QString nextTranscriptionText();
    SimAudioTranscription nextAudioTranscription();
    SimTurn nextTurn();
    QString answerFor(const QString &question) const;
    void record(const SimRecord &record);

signals:
    void recorded(const SimRecord &record);
    void connectionOpened(int index);
    void connectionClosed(int index);

private:
    void acceptWebSocket();
    // Hands a new TCP connection to the WebSocket server (a GET: the handshake) or answers it
    // as HTTP, once its first bytes have arrived.
    void route(QTcpSocket *tcp);
    SimConnection *current() const;
    bool withCurrent(const std::function<void(SimConnection *)> &action);

    QTcpServer *m_tcpServer;
    QWebSocketServer *m_wsServer;
    quint16 m_port = 0;
    SimScript m_script;
    int m_nextTurn = 0;
    QStringList m_transcriptionTexts{QStringLiteral("I led the migration of our billing system.")};
    int m_nextTranscription = 0;
    QList<QPointer<SimConnection>> m_connections;
    QList<SimConnectionInfo> m_closedInfo;
    QList<SimRecord> m_records;
    QList<QPointer<QTcpSocket>> m_tcpSockets; // accepted, handshake not yet complete
    std::unique_ptr<SimAudioTranscriptions> m_transcriptions;
    int m_nextAudioTranscription = 0;
    int m_httpConnectionCount = 0;
    QList<QPointer<SimHttpConnection>> m_httpConnections;
};
