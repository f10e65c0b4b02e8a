#include "realtime/RealtimeConnection.h"

#include "realtime/RealtimeFailure.h"
#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"
#include "realtime/SocketRetire.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QUuid>
#include <QWebSocket>

Q_LOGGING_CATEGORY(lcRealtime, "ketterbloom.realtime")

namespace {

const QString kNoKeyMessage = QStringLiteral("No API key set — open Settings and paste your OpenAI key.");

QString secondsText(int ms)
{
    return QString::number(ms / 1000.0, 'g', 6);
}

} // namespace

RealtimeConnection::RealtimeConnection(const RealtimeTiming &timing, Sink sink, QObject *parent)
    : QObject(parent),
      m_timing(timing),
      m_sink(std::move(sink)),
      // Parented, so that they move to the client's thread with this object.
      m_reconnectTimer(this),
      m_connectTimer(this),
      m_configTimer(this),
      m_pingTimer(this),
      m_pongTimer(this),
      m_cycleTimer(this)
{
    m_reconnectTimer.setSingleShot(true);
    m_connectTimer.setSingleShot(true);
    m_configTimer.setSingleShot(true);
    m_pongTimer.setSingleShot(true);
    m_cycleTimer.setSingleShot(true);
    for (QTimer *timer : {&m_reconnectTimer, &m_connectTimer, &m_configTimer, &m_pingTimer, &m_pongTimer, &m_cycleTimer})
        timer->setTimerType(Qt::PreciseTimer);

    connect(&m_reconnectTimer, &QTimer::timeout, this, [this] {
        m_reconnectPending = false;
        if (m_shouldRun)
            openSocket();
    });
    connect(&m_connectTimer, &QTimer::timeout, this, [this] {
        scheduleReconnect(QStringLiteral("connection timed out after %1 s").arg(secondsText(m_timing.connectTimeoutMs)));
    });
    connect(&m_configTimer, &QTimer::timeout, this, [this] {
        scheduleReconnect(QStringLiteral("no session configuration within %1 s").arg(secondsText(m_timing.configTimeoutMs)));
    });
    connect(&m_pingTimer, &QTimer::timeout, this, &RealtimeConnection::ping);
    connect(&m_pongTimer, &QTimer::timeout, this, [this] {
        scheduleReconnect(QStringLiteral("ping failed: no pong within %1 s").arg(secondsText(m_timing.pongTimeoutMs)));
    });
    connect(&m_cycleTimer, &QTimer::timeout, this, &RealtimeConnection::cycle);
}

RealtimeConnection::~RealtimeConnection()
{
    m_shouldRun = false;
    teardown();
}

// MARK: - Lifecycle

void RealtimeConnection::start(const RealtimeConfig &config)
{
    m_reconnectTimer.stop();
    m_reconnectPending = false;
    teardown();
    m_config = config;
    m_pendingImage.reset();
    m_shouldRun = true;
    m_reconnectAttempt = 0;
    trace(QStringLiteral("        websocket open"));
    m_usedLegacyShape = false;
    m_assistantContentType = QStringLiteral("output_text");
    m_transcribeFallback = false;
    m_serviceClosesInARow = 0;
    m_lastNotice.clear();
    openSocket();
}

void RealtimeConnection::stop()
{
    m_shouldRun = false;
    m_reconnectPending = false;
    m_reconnectTimer.stop();
    m_pendingImage.reset();
    teardown();
    report(RealtimeStatus::idle());
}

void RealtimeConnection::openSocket()
{
    if (!m_config)
        return;
    report(m_reconnectAttempt != 0 ? RealtimeStatus::reconnecting() : RealtimeStatus::connecting());
    if (m_config->apiKey.isEmpty()) {
        report(RealtimeStatus::failed(kNoKeyMessage));
        return;
    }
    connectSocket();
}

void RealtimeConnection::connectSocket()
{
    const RealtimeProtocol::Endpoint endpoint = RealtimeProtocol::resolveEndpoint(RealtimeProtocol::endpointOverride(),
                                                                                  m_config->model);
    if (!endpoint.error.isEmpty()) {
        // Not retried: the address will not change while the process runs.
        log(endpoint.error);
        m_shouldRun = false;
        report(RealtimeStatus::failed(endpoint.error));
        return;
    }

    QNetworkRequest request(endpoint.url);
    request.setTransferTimeout(60000);
    request.setRawHeader("Authorization", "Bearer " + m_config->apiKey.toUtf8());
    // The legacy session shape and the "text" content type exist only on the beta interface.
    if (betaInterface())
        request.setRawHeader(RealtimeProtocol::betaHeaderName, RealtimeProtocol::betaHeaderValue);

    m_isConfigured = false;
    m_seededThisSocket = false;
    m_reconnectPending = false;
    m_socketOpened = false;
    m_socketBroken = false;
    m_pending.clear();

    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    socket->setMaxAllowedIncomingMessageSize(64 * 1024 * 1024);
    m_socket = socket;

    connect(socket, &QWebSocket::textMessageReceived, this, [this, socket](const QString &text) {
        if (socket == m_socket)
            handleText(text);
    });
    connect(socket, &QWebSocket::binaryMessageReceived, this, [this, socket](const QByteArray &data) {
        if (socket == m_socket)
            handleText(QString::fromUtf8(data));
    });
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    connect(socket, &QWebSocket::errorOccurred, this,
            [this, socket](QAbstractSocket::SocketError error) { handleSocketError(socket, error); });
#else
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [this, socket](QAbstractSocket::SocketError error) { handleSocketError(socket, error); });
#endif
    connect(socket, &QWebSocket::disconnected, this, [this, socket] { handleClose(socket); });
    connect(socket, &QWebSocket::connected, this, [this, socket] {
        if (socket != m_socket)
            return;
        m_socketOpened = true;
        m_connectTimer.stop();
        m_configTimer.start(m_timing.configTimeoutMs);
    });
    connect(socket, &QWebSocket::pong, this, [this, socket] {
        if (socket == m_socket)
            m_pongTimer.stop();
    });
    m_connectTimer.start(m_timing.connectTimeoutMs);
    socket->open(request);
}

void RealtimeConnection::handleSocketError(QWebSocket *socket, QAbstractSocket::SocketError error)
{
    if (socket != m_socket)
        return;
    m_socketBroken = true;
    const std::optional<QString> unreachable =
        RealtimeFailure::unreachableReason(error, socket->requestUrl().host(), socket->errorString());
    if (!unreachable) {
        scheduleReconnect(error == QAbstractSocket::UnknownSocketError
                              ? QStringLiteral("the connection closed during the WebSocket handshake")
                              : socket->errorString());
        return;
    }
    // Said once per cause, not on every attempt of a retry loop.
    if (m_shouldRun && *unreachable != m_lastNotice && m_sink.notice) {
        m_lastNotice = *unreachable;
        m_sink.notice(redact(unreachable->at(0).toUpper() + unreachable->mid(1) + QStringLiteral(". Reconnecting…")));
    }
    scheduleReconnect(*unreachable);
}

void RealtimeConnection::handleClose(QWebSocket *socket)
{
    if (socket != m_socket || !m_shouldRun)
        return;
    m_socketBroken = true;
    // A socket that never opened was not closed by anyone: the network or TLS failed first.
    // Its error signal may come just after this one, so the reason is read a moment later.
    if (!m_socketOpened) {
        QTimer::singleShot(0, this, [this, guarded = QPointer<QWebSocket>(socket)] {
            if (guarded && guarded == m_socket)
                handleSocketError(guarded, guarded->error());
        });
        return;
    }
    const int code = int(socket->closeCode());
    const QString reason = socket->closeReason().isEmpty() ? QStringLiteral("code %1").arg(code) : socket->closeReason();
    const QString description = QStringLiteral("socket closed (%1)").arg(reason);
    if (const auto message = RealtimeFailure::finalCloseMessage(socket->closeReason(), m_config->model)) {
        fail(*message, description);
        return;
    }
    if (RealtimeFailure::isServiceCloseCode(code)
        && ++m_serviceClosesInARow >= RealtimeFailure::maxServiceClosesInARow) {
        fail(RealtimeFailure::repeatedCloseMessage(reason), description);
        return;
    }
    scheduleReconnect(description);
}

void RealtimeConnection::fail(const QString &message, const QString &reason)
{
    if (!m_shouldRun)
        return;
    m_shouldRun = false;
    m_reconnectPending = false;
    m_reconnectTimer.stop();
    teardown();
    log(QStringLiteral("Not reconnecting — %1").arg(reason));
    trace(QStringLiteral("        connection refused by the service — %1").arg(redact(reason)));
    report(RealtimeStatus::failed(redact(message)));
}

void RealtimeConnection::switchToBetaInterface(const QString &reason)
{
    m_usedLegacyShape = true;
    m_assistantContentType = QStringLiteral("text");
    scheduleReconnect(reason);
}

bool RealtimeConnection::betaInterface() const
{
    return m_usedLegacyShape || m_assistantContentType != QLatin1String("output_text");
}

void RealtimeConnection::scheduleReconnect(const QString &rawReason)
{
    if (!m_shouldRun || m_reconnectPending)
        return;
    const QString reason = redact(rawReason);
    m_reconnectPending = true;
    teardown();
    const int seconds = RealtimeProtocol::backoffSeconds(m_reconnectAttempt);
    ++m_reconnectAttempt;
    log(QStringLiteral("Reconnecting in %1s — %2").arg(seconds).arg(reason));
    trace(QStringLiteral("        connection lost (attempt %1) — %2").arg(m_reconnectAttempt).arg(reason));
    report(RealtimeStatus::reconnecting());
    m_reconnectTimer.start(seconds * m_timing.backoffUnitMs);
}

void RealtimeConnection::teardown()
{
    m_connectTimer.stop();
    m_configTimer.stop();
    m_pingTimer.stop();
    m_pongTimer.stop();
    m_cycleTimer.stop();
    if (QWebSocket *socket = m_socket) {
        m_socket = nullptr;
        disconnect(socket, nullptr, this, nullptr);
        RealtimeSockets::retire(socket, std::exchange(m_socketBroken, false));
    }
    m_isConfigured = false;
    m_pending.clear();
    m_activeResponseID.reset();
    m_cancelledResponseID.reset();
    m_awaitingRegeneratedResponse = false;
    m_retryCreateOnDone = false;
    m_sentAssistantItems = false;
}

void RealtimeConnection::startTimers()
{
    m_pingTimer.start(m_timing.pingIntervalMs);
    const int minutes = RealtimeProtocol::cycleMinutes(m_config ? m_config->reconnectMinutes : 0);
    m_cycleTimer.start(m_timing.cycleMs > 0 ? m_timing.cycleMs : minutes * 60 * 1000);
}

void RealtimeConnection::ping()
{
    if (!m_socket)
        return;
    m_socket->ping();
    if (!m_pongTimer.isActive())
        m_pongTimer.start(m_timing.pongTimeoutMs);
}

void RealtimeConnection::cycle()
{
    if (!m_shouldRun || !m_config)
        return;
    log(QStringLiteral("Cycling session (%1 min limit)").arg(m_config->reconnectMinutes));
    m_reconnectAttempt = 0;
    teardown();
    openSocket();
}

// MARK: - Operations

void RealtimeConnection::append(const QByteArray &pcm16)
{
    if (!m_shouldRun || !m_isConfigured)
        return;
    m_pending.append(pcm16);
    if (m_pending.size() >= RealtimeProtocol::chunkBytes) {
        const QByteArray batch = std::exchange(m_pending, QByteArray());
        send(RealtimeProtocol::audioAppend(batch));
    }
}

void RealtimeConnection::updateHistory(const History &history)
{
    m_history = history;
}

void RealtimeConnection::updateInstructions(const QString &instructions)
{
    if (!m_config)
        return;
    m_config->instructions = instructions;
    if (m_isConfigured) {
        sendSessionUpdate(m_usedLegacyShape);
        log(QStringLiteral("Instructions updated live"));
    }
}

void RealtimeConnection::regenerate(const QString &question)
{
    if (!m_isConfigured)
        return;
    if (m_activeResponseID) {
        send(RealtimeProtocol::typed("response.cancel"));
        m_cancelledResponseID = m_activeResponseID;
        m_activeResponseID.reset();
    }
    send(RealtimeProtocol::userItem(question));
    send(RealtimeProtocol::typed("response.create"));
    m_awaitingRegeneratedResponse = true;
    m_retryCreateOnDone = false;
    m_createRetries = 0;
    log(QStringLiteral("Regenerating answer for the extended question"));
}

void RealtimeConnection::sendSessionUpdate(bool legacy)
{
    if (m_config)
        send(RealtimeProtocol::sessionUpdate(*m_config, legacy));
}

void RealtimeConnection::seedHistory()
{
    if (m_seededThisSocket)
        return;
    m_seededThisSocket = true;
    const History selected = RealtimeProtocol::selectHistory(m_history);
    if (selected.isEmpty())
        return;
    for (const HistoryEntry &pair : selected) {
        if (!pair.question.isEmpty())
            send(RealtimeProtocol::userItem(pair.question));
        if (!pair.answer.isEmpty()) {
            send(RealtimeProtocol::assistantItem(pair.answer, m_assistantContentType));
            m_sentAssistantItems = true;
        }
    }
    log(QStringLiteral("Seeded %1 earlier Q&A pair(s) into the new session").arg(selected.size()));
}

void RealtimeConnection::send(const QJsonObject &message)
{
    if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->sendTextMessage(QString::fromUtf8(RealtimeProtocol::serialize(message)));
}

// MARK: - Reporting

void RealtimeConnection::report(const RealtimeStatus &status)
{
    if (m_sink.status)
        m_sink.status(status);
}

void RealtimeConnection::log(const QString &rawLine)
{
    const QString line = redact(rawLine);
    qCInfo(lcRealtime, "[Ketterbloom] %s", qUtf8Printable(line));
    if (m_sink.log)
        m_sink.log(line);
}

void RealtimeConnection::trace(const QString &line)
{
    if (m_sink.trace)
        m_sink.trace(redact(line));
}

// The key must never reach a log or trace line, whatever the service or the network stack
// puts into an error text.
QString RealtimeConnection::redact(QString text) const
{
    if (m_config && m_config->apiKey.size() >= 4)
        text.replace(m_config->apiKey, QStringLiteral("[key]"));
    return text;
}
