#include "realtimesim/RealtimeSimulator.h"

#include "realtimesim/SimAudioTranscriptions.h"
#include "realtimesim/SimConnection.h"
#include "realtimesim/SimHttpConnection.h"

#include <QHostAddress>
#include <QTcpServer>
#include <QTcpSocket>
#include <QWebSocket>
#include <QWebSocketServer>

RealtimeSimulator::RealtimeSimulator(QObject *parent)
    : QObject(parent),
      m_tcpServer(new QTcpServer(this)),
      m_wsServer(new QWebSocketServer(QStringLiteral("ketterbloom-sim"), QWebSocketServer::NonSecureMode, this)),
      m_script(SimScript::builtin()),
      m_transcriptions(std::make_unique<SimAudioTranscriptions>(this))
{
    connect(m_tcpServer, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket *tcp = m_tcpServer->nextPendingConnection())
            route(tcp);
    });
    connect(m_wsServer, &QWebSocketServer::newConnection, this, &RealtimeSimulator::acceptWebSocket);
}

RealtimeSimulator::~RealtimeSimulator()
{
    close();
}

bool RealtimeSimulator::listen(quint16 port)
{
    if (m_tcpServer->isListening())
        return true;
    if (!m_tcpServer->listen(QHostAddress::LocalHost, port))
        return false;
    m_port = m_tcpServer->serverPort();
    return true;
}

void RealtimeSimulator::route(QTcpSocket *tcp)
{
    // Until its first bytes tell, a connection is neither; one that goes away meanwhile is dropped.
    connect(tcp, &QTcpSocket::disconnected, this, [tcp] { tcp->deleteLater(); });
    auto decide = [this, tcp] {
        if (tcp->bytesAvailable() < 4)
            return;
        disconnect(tcp, nullptr, this, nullptr);
        if (tcp->peek(4) == "GET ") {
            // A WebSocket handshake (or a stray GET, which the WebSocket server refuses).
            m_tcpSockets.append(tcp);
            m_wsServer->handleConnection(tcp);
            return;
        }
        auto *http = new SimHttpConnection(tcp, [this](const SimHttpRequest &request) {
            return m_transcriptions->answer(request);
        }, this);
        ++m_httpConnectionCount;
        m_httpConnections.removeAll(nullptr);
        m_httpConnections.append(http);
        connect(http, &SimHttpConnection::closed, http, &QObject::deleteLater);
    };
    connect(tcp, &QTcpSocket::readyRead, this, decide);
    decide();
}

int RealtimeSimulator::openHttpConnectionCount() const
{
    int count = 0;
    for (const QPointer<SimHttpConnection> &connection : m_httpConnections)
        count += connection && connection->isOpen();
    return count;
}

QUrl RealtimeSimulator::transcriptionsUrl() const
{
    return QUrl(QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(QLatin1String(SimAudioTranscriptions::path)));
}

void RealtimeSimulator::setAudioTranscriptions(const QList<SimAudioTranscription> &steps)
{
    m_script.audioTranscriptions = steps;
    m_nextAudioTranscription = 0;
}

SimAudioTranscription RealtimeSimulator::nextAudioTranscription()
{
    if (m_nextAudioTranscription < m_script.audioTranscriptions.size())
        return m_script.audioTranscriptions.at(m_nextAudioTranscription++);
    return {};
}

void RealtimeSimulator::close()
{
    m_tcpServer->close();
    for (const QPointer<SimHttpConnection> &connection : std::as_const(m_httpConnections)) {
        if (connection)
            connection->abort();
    }
    for (const QPointer<SimConnection> &connection : std::as_const(m_connections)) {
        if (connection && connection->isOpen())
            connection->applyFault(SimFault::of(SimFault::Kind::drop));
    }
}

bool RealtimeSimulator::isListening() const
{
    return m_tcpServer->isListening();
}

quint16 RealtimeSimulator::port() const
{
    return m_port;
}

QUrl RealtimeSimulator::url() const
{
    return QUrl(QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(m_port));
}

void RealtimeSimulator::setScript(const SimScript &script)
{
    m_script = script;
    m_nextTurn = 0;
    m_nextAudioTranscription = 0;
    if (!script.transcriptionTexts.isEmpty())
        setTranscriptionTexts(script.transcriptionTexts);
}

QList<QJsonObject> RealtimeSimulator::received(const QString &type, int connection) const
{
    QList<QJsonObject> result;
    for (const SimRecord &record : m_records) {
        if (record.type == type && (connection == 0 || record.connection == connection))
            result.append(record.message);
    }
    return result;
}

QList<SimConnectionInfo> RealtimeSimulator::connections() const
{
    QList<SimConnectionInfo> result;
    for (int i = 0; i < m_connections.size(); ++i)
        result.append(m_connections[i] ? m_connections[i]->info() : m_closedInfo.value(i));
    return result;
}

int RealtimeSimulator::openConnectionCount() const
{
    int count = 0;
    for (const QPointer<SimConnection> &connection : m_connections)
        count += connection && connection->isOpen();
    return count;
}

void RealtimeSimulator::acceptWebSocket()
{
    while (QWebSocket *socket = m_wsServer->nextPendingConnection()) {
        // The socket is read through its TCP socket; keep that one too, so that a "freeze" can stop
        // reading without closing anything.
        QTcpSocket *tcp = nullptr;
        m_tcpSockets.removeAll(nullptr);
        for (const QPointer<QTcpSocket> &candidate : std::as_const(m_tcpSockets)) {
            if (candidate->peerPort() == socket->peerPort())
                tcp = candidate;
        }
        m_tcpSockets.removeAll(tcp);
        const int index = int(m_connections.size()) + 1;
        auto *connection = new SimConnection(this, socket, tcp, index);
        m_connections.append(connection);
        m_closedInfo.append(connection->info());
        connect(connection, &SimConnection::closed, this, [this, connection, index] {
            m_closedInfo[index - 1] = connection->info();
            connection->deleteLater(); // a long-running simulator keeps only what it recorded
            emit connectionClosed(index);
        });
        emit connectionOpened(index);
    }
}

SimConnection *RealtimeSimulator::current() const
{
    for (auto it = m_connections.crbegin(); it != m_connections.crend(); ++it) {
        if (*it && (*it)->isOpen())
            return *it;
    }
    return nullptr;
}

bool RealtimeSimulator::withCurrent(const std::function<void(SimConnection *)> &action)
{
    SimConnection *connection = current();
    if (!connection)
        return false;
    action(connection);
    return true;
}

bool RealtimeSimulator::triggerTurn(const QString &question)
{
    SimTurn turn;
    if (question.isEmpty()) {
        turn = nextTurn();
    } else {
        turn.question = question;
        turn.answer = answerFor(question);
    }
    return triggerTurn(turn);
}

bool RealtimeSimulator::triggerTurn(const SimTurn &turn)
{
    return withCurrent([&turn](SimConnection *c) { c->runTurn(turn, false); });
}

bool RealtimeSimulator::withholdsSessionCreated(int connection) const
{
    return m_script.withholdSessionCreated < 0 || connection <= m_script.withholdSessionCreated;
}

bool RealtimeSimulator::closeConnection(int code, const QString &reason)
{
    SimFault fault = SimFault::of(SimFault::Kind::close);
    fault.code = code;
    fault.reason = reason;
    return withCurrent([&fault](SimConnection *c) { c->applyFault(fault); });
}

bool RealtimeSimulator::dropConnection()
{
    return withCurrent([](SimConnection *c) { c->applyFault(SimFault::of(SimFault::Kind::drop)); });
}

bool RealtimeSimulator::freeze()
{
    return withCurrent([](SimConnection *c) { c->applyFault(SimFault::of(SimFault::Kind::freeze)); });
}

bool RealtimeSimulator::sendMalformed()
{
    return withCurrent([](SimConnection *c) { c->applyFault(SimFault::of(SimFault::Kind::malformed)); });
}

bool RealtimeSimulator::sendError(const QString &code, const QString &message)
{
    SimFault fault = SimFault::of(SimFault::Kind::error);
    fault.errorCode = code;
    fault.message = message;
    return withCurrent([&fault](SimConnection *c) { c->applyFault(fault); });
}

bool RealtimeSimulator::expireSession()
{
    return withCurrent([](SimConnection *c) { c->applyFault(SimFault::of(SimFault::Kind::sessionExpired)); });
}

bool RealtimeSimulator::sendInsufficientQuota()
{
    return withCurrent([](SimConnection *c) { c->applyFault(SimFault::of(SimFault::Kind::insufficientQuota)); });
}

bool RealtimeSimulator::sendText(const QString &text)
{
    return withCurrent([&text](SimConnection *c) { c->sendText(text); });
}

bool RealtimeSimulator::sendBinary(const QByteArray &data)
{
    return withCurrent([&data](SimConnection *c) { c->sendBinary(data); });
}

SimTurn RealtimeSimulator::nextTurn()
{
    if (m_script.turns.isEmpty()) {
        SimTurn turn;
        turn.question = QStringLiteral("Question %1?").arg(++m_nextTurn);
        turn.answer = answerFor(turn.question);
        return turn;
    }
    if (m_nextTurn >= m_script.turns.size()) {
        if (!m_script.loop) {
            SimTurn turn;
            turn.question = QStringLiteral("Question %1?").arg(++m_nextTurn);
            turn.answer = answerFor(turn.question);
            return turn;
        }
        m_nextTurn = 0;
    }
    return m_script.turns.at(m_nextTurn++);
}

QString RealtimeSimulator::answerFor(const QString &question) const
{
    for (const SimTurn &turn : m_script.turns) {
        if (turn.question == question)
            return turn.answer;
    }
    return QStringLiteral("A short answer to: %1").arg(question);
}

void RealtimeSimulator::record(const SimRecord &record)
{
    m_records.append(record);
    emit recorded(record);
}

QString RealtimeSimulator::nextTranscriptionText()
{
    if (m_transcriptionTexts.isEmpty())
        return QStringLiteral("(inaudible)");
    return m_transcriptionTexts[m_nextTranscription++ % m_transcriptionTexts.size()];
}

bool RealtimeSimulator::triggerTranscription(const QString &text)
{
    for (auto it = m_connections.crbegin(); it != m_connections.crend(); ++it) {
        if (*it && (*it)->isOpen() && (*it)->transcription()) {
            (*it)->transcription()->transcribe(text);
            return true;
        }
    }
    return false;
}
