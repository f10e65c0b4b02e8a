#include "realtime/ServiceSocket.h"

#include "realtime/RealtimeProtocol.h"

#include <QNetworkRequest>
#include <QWebSocket>

namespace {

QString secondsText(int ms)
{
    return QString::number(ms / 1000.0, 'g', 6);
}

// Lets go of a WebSocket nobody listens to any more. A healthy one is closed with "going
// away"; one the network already broke (an error, a reset, a close by the peer) is aborted,
// since a close frame written to it only makes Qt warn about an invalid socket. The socket is
// deleted once it is closed, or after 2 s.
void retire(QWebSocket *socket, bool broken)
{
    if (broken || socket->state() != QAbstractSocket::ConnectedState) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    QObject::connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(2000, socket, &QObject::deleteLater);
    socket->close(QWebSocketProtocol::CloseCodeGoingAway);
}

} // namespace

ServiceSocket::ServiceSocket(const RealtimeTiming &timing, QObject *parent)
    : QObject(parent),
      m_timing(timing),
      // Parented, so that they move to the owner's thread with this object.
      m_retryTimer(this),
      m_connectTimer(this),
      m_configureTimer(this),
      m_pingTimer(this),
      m_pongTimer(this)
{
    for (QTimer *timer : {&m_retryTimer, &m_connectTimer, &m_configureTimer, &m_pingTimer, &m_pongTimer}) {
        timer->setTimerType(Qt::PreciseTimer);
        timer->setSingleShot(timer != &m_pingTimer);
    }
    connect(&m_retryTimer, &QTimer::timeout, this, [this] {
        m_retryPending = false;
        emit retryDue();
    });
    connect(&m_connectTimer, &QTimer::timeout, this, [this] {
        emit timedOut(QStringLiteral("connection timed out after %1 s").arg(secondsText(m_timing.connectTimeoutMs)));
    });
    connect(&m_configureTimer, &QTimer::timeout, this, [this] {
        emit timedOut(QStringLiteral("no session configuration within %1 s").arg(secondsText(m_timing.configTimeoutMs)));
    });
    connect(&m_pingTimer, &QTimer::timeout, this, &ServiceSocket::ping);
    connect(&m_pongTimer, &QTimer::timeout, this, [this] {
        emit timedOut(QStringLiteral("ping failed: no pong within %1 s").arg(secondsText(m_timing.pongTimeoutMs)));
    });
}

ServiceSocket::~ServiceSocket()
{
    close();
}

void ServiceSocket::setKey(const QString &key)
{
    m_key = key;
}

// The key must never reach a log line, a trace line or a message, whatever the service or the
// network stack puts into an error text.
QString ServiceSocket::redact(QString text) const
{
    if (m_key.size() >= 4)
        text.replace(m_key, QStringLiteral("[key]"));
    return text;
}

void ServiceSocket::setConfigureTimeout(bool enabled)
{
    m_configureTimeout = enabled;
}

void ServiceSocket::open(const QNetworkRequest &request)
{
    cancelRetry();
    close();
    m_opened = false;
    m_broken = false;

    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setMaxAllowedIncomingMessageSize(64 * 1024 * 1024);
    m_socket = socket;

    connect(socket, &QWebSocket::textMessageReceived, this, [this, socket](const QString &text) {
        if (socket == m_socket)
            emit textReceived(text);
    });
    connect(socket, &QWebSocket::binaryMessageReceived, this, [this, socket](const QByteArray &data) {
        if (socket == m_socket)
            emit textReceived(QString::fromUtf8(data));
    });
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    connect(socket, &QWebSocket::errorOccurred, this,
            [this, socket](QAbstractSocket::SocketError error) { reportFailure(socket, error); });
#else
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [this, socket](QAbstractSocket::SocketError error) { reportFailure(socket, error); });
#endif
    connect(socket, &QWebSocket::disconnected, this, [this, socket] { handleDisconnected(socket); });
    connect(socket, &QWebSocket::connected, this, [this, socket] {
        if (socket != m_socket)
            return;
        m_opened = true;
        m_connectTimer.stop();
        if (m_configureTimeout)
            m_configureTimer.start(m_timing.configTimeoutMs);
        emit opened();
    });
    connect(socket, &QWebSocket::pong, this, [this, socket] {
        if (socket == m_socket)
            m_pongTimer.stop();
    });
    m_connectTimer.start(m_timing.connectTimeoutMs);
    socket->open(request);
}

void ServiceSocket::close()
{
    m_connectTimer.stop();
    m_configureTimer.stop();
    m_pingTimer.stop();
    m_pongTimer.stop();
    if (QWebSocket *socket = m_socket) {
        m_socket = nullptr;
        disconnect(socket, nullptr, this, nullptr);
        retire(socket, std::exchange(m_broken, false));
    }
}

void ServiceSocket::configured()
{
    m_configureTimer.stop();
    m_pingTimer.start(m_timing.pingIntervalMs);
}

void ServiceSocket::send(const QJsonObject &message)
{
    if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->sendTextMessage(QString::fromUtf8(RealtimeProtocol::serialize(message)));
}

int ServiceSocket::scheduleRetry()
{
    if (m_retryPending)
        return -1;
    m_retryPending = true;
    close();
    const int seconds = RealtimeProtocol::backoffSeconds(m_attempt);
    ++m_attempt;
    m_retryTimer.start(seconds * m_timing.backoffUnitMs);
    return seconds;
}

void ServiceSocket::cancelRetry()
{
    m_retryPending = false;
    m_retryTimer.stop();
}

void ServiceSocket::ping()
{
    if (!m_socket)
        return;
    m_socket->ping();
    if (!m_pongTimer.isActive())
        m_pongTimer.start(m_timing.pongTimeoutMs);
}

void ServiceSocket::reportFailure(QWebSocket *socket, QAbstractSocket::SocketError error)
{
    if (socket != m_socket)
        return;
    m_broken = true;
    emit failed(error, socket->requestUrl().host(), socket->errorString());
}

void ServiceSocket::handleDisconnected(QWebSocket *socket)
{
    if (socket != m_socket)
        return;
    m_broken = true;
    // A socket that never opened was not closed by anyone: the network or TLS failed first.
    // Its error signal may come just after this one, so the error is read a moment later.
    if (!m_opened) {
        QTimer::singleShot(0, this, [this, guarded = QPointer<QWebSocket>(socket)] {
            if (guarded && guarded == m_socket)
                reportFailure(guarded, guarded->error());
        });
        return;
    }
    emit closed(int(socket->closeCode()), socket->closeReason());
}
