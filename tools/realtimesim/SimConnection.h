#pragma once

#include "realtimesim/EnergyVad.h"
#include "realtimesim/SimRecord.h"
#include "realtimesim/SimScript.h"
#include "realtimesim/SimTranscriptionSession.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QQueue>
#include <QTimer>

#include <functional>
#include <memory>

class QTcpSocket;
class QWebSocket;
class RealtimeSimulator;

// The service side of one client connection.
class SimConnection : public QObject
{
    Q_OBJECT
public:
    SimConnection(RealtimeSimulator *simulator, QWebSocket *socket, QTcpSocket *tcp, int index);
    ~SimConnection() override;

    int index() const { return m_info.index; }
    const SimConnectionInfo &info() const { return m_info; }
    bool isOpen() const { return m_info.open; }

    // Runs a turn as if the speech of `turn.question` had just ended. Without audio (a turn
    // asked for by the control interface) the realistic mode first reports the speech itself.
    void runTurn(const SimTurn &turn, bool heard = true);
    void applyFault(const SimFault &fault);
    void sendText(const QString &text);
    void sendBinary(const QByteArray &data);
    // The transcription-only session of a connection opened with "intent=transcription", or null.
    SimTranscriptionSession *transcription() const { return m_transcription.get(); }

signals:
    void closed();

private:
    void handleMessage(const QString &text);
    void handleSessionUpdate(const QJsonObject &message);
    void handleAppend(const QJsonObject &message);
    void handleItemCreate(const QJsonObject &message);
    void handleResponseCreate();
    void handleCancel();
    bool checkSessionShape(const QJsonObject &session, bool current);
    void runClassicTurn(const SimTurn &turn);
    void runRealisticTurn(const SimTurn &turn);
    QJsonObject transcriptionCompleted(const QString &itemID, const QString &question) const;
    QJsonObject transcriptionFailed(const QString &itemID) const;
    QJsonObject transcriptionDelta(const QString &itemID, const QString &piece) const;
    // Sends "response.created" now and queues the answer's deltas and "response.done" on the main
    // lane; `between[i]` goes out after delta i (what is left, before "response.done").
    void startResponse(const SimTurn &turn, const QList<std::function<void()>> &between,
                       const std::function<void()> &afterDone);
    void finishResponse(const QString &status, const QJsonObject &details = {});
    QJsonObject turnDetection() const;
    void sendEvent(QJsonObject event);
    void sendError(const QString &code, const QString &message, const QString &param = {},
                   const QString &type = QStringLiteral("invalid_request_error"));
    QString nextId(const char *prefix);

    // Events go out through lanes: each runs its steps one after another, each after its delay.
    // Turns and answers use the main lane; the realistic mode transcribes a turn heard while an
    // answer streams on the side lane, so that it is not held up by that answer.
    struct Step
    {
        int delayMs;
        std::function<void()> run;
    };
    struct Lane
    {
        QQueue<Step> steps;
        QTimer *timer = nullptr;
    };
    void enqueue(int delayMs, std::function<void()> step) { enqueue(m_main, delayMs, std::move(step)); }
    void enqueue(Lane &lane, int delayMs, std::function<void()> step);
    void runNextStep(Lane &lane);
    void markClosed();
    const SimScript &script() const;

    RealtimeSimulator *m_simulator;
    QPointer<QWebSocket> m_socket;
    QPointer<QTcpSocket> m_tcp;
    SimConnectionInfo m_info;
    EnergyVad m_vad;
    std::unique_ptr<SimTranscriptionSession> m_transcription;
    bool m_configured = false;
    bool m_frozen = false;
    QJsonObject m_session;
    QString m_speechItemID;
    QString m_lastUserText;
    QString m_activeResponseID;
    bool m_responseCancelled = false;
    // Realistic mode: an answer has been decided on for a turn and not finished yet.
    bool m_responseBusy = false;
    bool m_quotaSent = false;
    int m_responseOutputChars = 0;
    quint64 m_counter = 0;

    Lane m_main;
    Lane m_side;
};
