#pragma once

#include "realtimesim/EnergyVad.h"
#include "realtimesim/SimRecord.h"
#include "realtimesim/SimScript.h"

#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QQueue>
#include <QTimer>

#include <functional>

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

    // Runs a turn as if the speech of `turn.question` had just ended.
    void runTurn(const SimTurn &turn);
    void applyFault(const SimFault &fault);
    void sendText(const QString &text);
    void sendBinary(const QByteArray &data);

signals:
    void closed();

private:
    void handleMessage(const QString &text);
    void handleSessionUpdate(const QJsonObject &message);
    void handleAppend(const QJsonObject &message);
    void handleItemCreate(const QJsonObject &message);
    void handleResponseCreate();
    void handleCancel();
    void startResponse(const QString &answer, int deltaDelayMs, int deltaCount, const std::function<void()> &afterDone);
    void finishResponse(const QString &status);
    void sendEvent(QJsonObject event);
    void sendError(const QString &code, const QString &message, const QString &param = {});
    QString nextId(const char *prefix);
    void enqueue(int delayMs, std::function<void()> step);
    void runNextStep();
    void markClosed();

    RealtimeSimulator *m_simulator;
    QPointer<QWebSocket> m_socket;
    QPointer<QTcpSocket> m_tcp;
    SimConnectionInfo m_info;
    EnergyVad m_vad;
    bool m_configured = false;
    bool m_frozen = false;
    QJsonObject m_session;
    QString m_speechItemID;
    QString m_lastUserText;
    int m_lastUserImages = 0; // pictures in the last user item
    QString m_activeResponseID;
    bool m_responseCancelled = false;
    int m_responseOutputChars = 0;
    quint64 m_counter = 0;

    struct Step
    {
        int delayMs;
        std::function<void()> run;
    };
    QQueue<Step> m_steps;
    QTimer m_stepTimer;
};
