#include "realtime/RealtimeConnection.h"

#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QUuid>
#include <QWebSocket>

Q_LOGGING_CATEGORY(lcRealtime, "ketterbloom.realtime")

namespace {

const QString kNoKeyMessage = QStringLiteral("No API key set — open Settings and paste your OpenAI key.");
const QString kActiveResponseCode = QStringLiteral("conversation_already_has_active_response");
const QString kSessionExpiredCode = QStringLiteral("session_expired");
constexpr int kMaxCreateRetries = 3;

QString stringOr(const QJsonObject &object, const char *key, const QString &fallback = {})
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : fallback;
}

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
      m_pingTimer(this),
      m_pongTimer(this),
      m_cycleTimer(this)
{
    m_reconnectTimer.setSingleShot(true);
    m_connectTimer.setSingleShot(true);
    m_pongTimer.setSingleShot(true);
    m_cycleTimer.setSingleShot(true);
    for (QTimer *timer : {&m_reconnectTimer, &m_connectTimer, &m_pingTimer, &m_pongTimer, &m_cycleTimer})
        timer->setTimerType(Qt::PreciseTimer);

    connect(&m_reconnectTimer, &QTimer::timeout, this, [this] {
        m_reconnectPending = false;
        if (m_shouldRun)
            openSocket();
    });
    connect(&m_connectTimer, &QTimer::timeout, this, [this] {
        scheduleReconnect(QStringLiteral("connection timed out after %1 s").arg(secondsText(m_timing.connectTimeoutMs)));
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
    // An empty variable counts as unset.
    const QString value = qEnvironmentVariable(RealtimeProtocol::endpointVariable);
    const QString override = value.trimmed().isEmpty() ? QString() : value;
    const RealtimeProtocol::Endpoint endpoint = RealtimeProtocol::resolveEndpoint(override, m_config->model);
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

    m_isConfigured = false;
    m_seededThisSocket = false;
    m_reconnectPending = false;
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
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this,
            [this, socket](QAbstractSocket::SocketError) {
                if (socket == m_socket)
                    scheduleReconnect(socket->errorString());
            });
    connect(socket, &QWebSocket::disconnected, this, [this, socket] {
        if (socket != m_socket)
            return;
        const QString reason = socket->closeReason().isEmpty()
                                   ? QStringLiteral("code %1").arg(int(socket->closeCode()))
                                   : socket->closeReason();
        scheduleReconnect(QStringLiteral("socket closed (%1)").arg(reason));
    });
    connect(socket, &QWebSocket::connected, this, [this, socket] {
        if (socket == m_socket)
            m_connectTimer.stop();
    });
    connect(socket, &QWebSocket::pong, this, [this, socket] {
        if (socket == m_socket)
            m_pongTimer.stop();
    });
    m_connectTimer.start(m_timing.connectTimeoutMs);
    socket->open(request);
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
    m_pingTimer.stop();
    m_pongTimer.stop();
    m_cycleTimer.stop();
    if (QWebSocket *socket = m_socket) {
        m_socket = nullptr;
        disconnect(socket, nullptr, this, nullptr);
        connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
        QTimer::singleShot(2000, socket, &QObject::deleteLater);
        socket->close(QWebSocketProtocol::CloseCodeGoingAway);
    }
    m_isConfigured = false;
    m_pending.clear();
    m_activeResponseID.reset();
    m_cancelledResponseID.reset();
    m_awaitingRegeneratedResponse = false;
    m_retryCreateOnDone = false;
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
        if (!pair.answer.isEmpty())
            send(RealtimeProtocol::assistantItem(pair.answer, m_assistantContentType));
    }
    log(QStringLiteral("Seeded %1 earlier Q&A pair(s) into the new session").arg(selected.size()));
}

void RealtimeConnection::send(const QJsonObject &message)
{
    if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->sendTextMessage(QString::fromUtf8(RealtimeProtocol::serialize(message)));
}

// MARK: - Incoming events

void RealtimeConnection::handleText(const QString &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject())
        return;
    const QJsonObject event = document.object();
    const QJsonValue typeValue = event.value(QLatin1String("type"));
    if (!typeValue.isString())
        return;
    const QString type = typeValue.toString();

    if (type == QLatin1String("session.created")) {
        sendSessionUpdate(m_usedLegacyShape);
    } else if (type == QLatin1String("session.updated")) {
        if (m_isConfigured)
            return;
        m_isConfigured = true;
        m_reconnectAttempt = 0;
        seedHistory();
        sendPendingImage();
        startTimers();
        report(RealtimeStatus::connected());
    } else if (type == QLatin1String("conversation.item.input_audio_transcription.completed")) {
        const QString itemID = stringOr(event, "item_id", QUuid::createUuid().toString(QUuid::WithoutBraces));
        const QString transcript = stringOr(event, "transcript").trimmed();
        if (!transcript.isEmpty() && m_sink.transcript)
            m_sink.transcript(itemID, transcript);
    } else if (type == QLatin1String("response.created")) {
        const QJsonValue response = event.value(QLatin1String("response"));
        const QJsonValue id = response.toObject().value(QLatin1String("id"));
        if (!response.isObject() || !id.isString())
            return;
        m_activeResponseID = id.toString();
        m_awaitingRegeneratedResponse = false;
        if (m_sink.delta)
            m_sink.delta(id.toString(), QString());
    } else if (type == QLatin1String("response.output_text.delta") || type == QLatin1String("response.text.delta")) {
        const QString responseID = stringOr(event, "response_id", QStringLiteral("current"));
        const QString delta = stringOr(event, "delta");
        if (!delta.isEmpty() && m_sink.delta)
            m_sink.delta(responseID, delta);
    } else if (type == QLatin1String("response.done")) {
        handleResponseDone(event);
    } else if (type == QLatin1String("error")) {
        handleError(event);
    }
}

void RealtimeConnection::handleResponseDone(const QJsonObject &event)
{
    const QJsonValue responseValue = event.value(QLatin1String("response"));
    const QJsonObject response = responseValue.toObject();
    const QString responseID = responseValue.isObject() ? stringOr(response, "id", QStringLiteral("current"))
                                                        : QStringLiteral("current");
    if (m_activeResponseID == responseID)
        m_activeResponseID.reset();
    if (m_cancelledResponseID == responseID)
        m_cancelledResponseID.reset();
    const QJsonValue usage = response.value(QLatin1String("usage"));
    if (usage.isObject() && m_sink.usage)
        m_sink.usage(usage.toObject().toVariantMap());
    if (m_sink.responseDone)
        m_sink.responseDone(responseID);

    if (m_retryCreateOnDone && !m_cancelledResponseID && !m_activeResponseID) {
        m_retryCreateOnDone = false;
        ++m_createRetries;
        log(QStringLiteral("Previous answer ended; asking again for the extended question"));
        send(RealtimeProtocol::typed("response.create"));
    }
}

void RealtimeConnection::handleError(const QJsonObject &event)
{
    const QJsonValue errorValue = event.value(QLatin1String("error"));
    const QJsonObject error = errorValue.toObject();
    const QString message = errorValue.isObject() ? stringOr(error, "message", QStringLiteral("unknown realtime error"))
                                                  : QStringLiteral("unknown realtime error");
    const QString code = stringOr(error, "code");

    if (code == kSessionExpiredCode) {
        log(QStringLiteral("Session expired: %1").arg(redact(message)));
        scheduleReconnect(QStringLiteral("session expired"));
        return;
    }
    if (code == kActiveResponseCode && m_awaitingRegeneratedResponse && m_createRetries < kMaxCreateRetries) {
        if (m_cancelledResponseID || m_activeResponseID) {
            m_retryCreateOnDone = true;
            log(QStringLiteral("Previous answer still active; asking again when it ends"));
        } else {
            ++m_createRetries;
            send(RealtimeProtocol::typed("response.create"));
        }
        return;
    }

    const QString lower = message.toLower();
    if (!m_isConfigured && !m_usedLegacyShape
        && (lower.contains(QLatin1String("unknown parameter")) || lower.contains(QLatin1String("invalid_value"))
            || lower.contains(QLatin1String("additional properties")))) {
        m_usedLegacyShape = true;
        log(QStringLiteral("Falling back to legacy session shape"));
        sendSessionUpdate(true);
        return;
    }
    if (message.contains(QLatin1String("output_text")) && m_assistantContentType == QLatin1String("output_text")) {
        m_assistantContentType = QStringLiteral("text");
        m_seededThisSocket = false;
        log(QStringLiteral("Re-seeding history with legacy assistant content type"));
        seedHistory();
        return;
    }
    log(QStringLiteral("API error: %1").arg(message));
    if (!m_isConfigured)
        report(RealtimeStatus::failed(redact(message)));
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
