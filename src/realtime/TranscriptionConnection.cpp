#include "realtime/TranscriptionConnection.h"

#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"
#include "realtime/SocketRetire.h"

#include <QJsonDocument>
#include <QNetworkRequest>
#include <QUrlQuery>
#include <QWebSocket>

namespace {

const QString kNoKeyMessage = QStringLiteral("No API key set — open Settings and paste your OpenAI key.");

QString stringOr(const QJsonObject &object, const char *key, const QString &fallback = {})
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : fallback;
}

} // namespace

TranscriptionConnection::TranscriptionConnection(const RealtimeTiming &timing, Sink sink, QObject *parent)
    : QObject(parent)
    , m_timing(timing)
    , m_sink(std::move(sink))
    , m_reconnectTimer(this)
    , m_connectTimer(this)
    , m_pingTimer(this)
    , m_pongTimer(this)
{
    m_reconnectTimer.setSingleShot(true);
    m_connectTimer.setSingleShot(true);
    m_pongTimer.setSingleShot(true);
    connect(&m_reconnectTimer, &QTimer::timeout, this, [this] {
        m_reconnectPending = false;
        if (m_shouldRun)
            openSocket();
    });
    connect(&m_connectTimer, &QTimer::timeout, this, [this] {
        scheduleReconnect(QStringLiteral("connection timed out"));
    });
    connect(&m_pingTimer, &QTimer::timeout, this, [this] {
        if (!m_socket)
            return;
        m_socket->ping();
        if (!m_pongTimer.isActive())
            m_pongTimer.start(m_timing.pongTimeoutMs);
    });
    connect(&m_pongTimer, &QTimer::timeout, this, [this] { scheduleReconnect(QStringLiteral("ping failed: no pong")); });
}

TranscriptionConnection::~TranscriptionConnection()
{
    m_shouldRun = false;
    teardown();
}

QJsonObject TranscriptionConnection::sessionUpdate(const TranscriptionConfig &config)
{
    const QJsonObject format{{QStringLiteral("type"), QStringLiteral("audio/pcm")}, {QStringLiteral("rate"), 24000}};
    const QJsonObject transcription{{QStringLiteral("model"), config.model}};
    const QJsonObject turnDetection{{QStringLiteral("type"), QStringLiteral("server_vad")},
                                    {QStringLiteral("threshold"), config.vadThreshold},
                                    {QStringLiteral("prefix_padding_ms"), config.prefixPaddingMs},
                                    {QStringLiteral("silence_duration_ms"), config.silenceDurationMs}};
    const QJsonObject input{{QStringLiteral("format"), format},
                            {QStringLiteral("transcription"), transcription},
                            {QStringLiteral("turn_detection"), turnDetection}};
    const QJsonObject session{{QStringLiteral("type"), QStringLiteral("transcription")},
                              {QStringLiteral("audio"), QJsonObject{{QStringLiteral("input"), input}}}};
    return {{QStringLiteral("type"), QStringLiteral("session.update")}, {QStringLiteral("session"), session}};
}

TranscriptionConnection::Endpoint TranscriptionConnection::endpoint(const QString &override)
{
    // The same address rules as the main connection; only the query differs.
    RealtimeProtocol::Endpoint checked = RealtimeProtocol::resolveEndpoint(override, QString());
    if (!checked.error.isEmpty())
        return {{}, checked.error};
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("intent"), QStringLiteral("transcription"));
    checked.url.setQuery(query);
    return {checked.url, {}};
}

void TranscriptionConnection::start(const TranscriptionConfig &config)
{
    m_reconnectTimer.stop();
    m_reconnectPending = false;
    teardown();
    m_config = config;
    m_shouldRun = true;
    m_reconnectAttempt = 0;
    openSocket();
}

void TranscriptionConnection::stop()
{
    m_shouldRun = false;
    m_reconnectPending = false;
    m_reconnectTimer.stop();
    teardown();
    report(RealtimeStatus::idle());
}

void TranscriptionConnection::openSocket()
{
    if (!m_config)
        return;
    report(m_reconnectAttempt != 0 ? RealtimeStatus::reconnecting() : RealtimeStatus::connecting());
    if (m_config->apiKey.isEmpty()) {
        m_shouldRun = false;
        report(RealtimeStatus::failed(kNoKeyMessage));
        return;
    }
    const Endpoint target = endpoint(RealtimeProtocol::endpointOverride());
    if (!target.error.isEmpty()) {
        log(target.error);
        m_shouldRun = false;
        report(RealtimeStatus::failed(target.error));
        return;
    }

    QNetworkRequest request(target.url);
    request.setRawHeader("Authorization", "Bearer " + m_config->apiKey.toUtf8());
    m_isConfigured = false;
    m_pending.clear();

    auto *socket = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
    m_socket = socket;
    m_socketBroken = false;
    connect(socket, &QWebSocket::textMessageReceived, this, [this, socket](const QString &text) {
        if (socket == m_socket)
            handleText(text);
    });
#if QT_VERSION >= QT_VERSION_CHECK(6, 5, 0)
    connect(socket, &QWebSocket::errorOccurred, this, [this, socket](QAbstractSocket::SocketError) {
#else
    connect(socket, qOverload<QAbstractSocket::SocketError>(&QWebSocket::error), this, [this, socket](QAbstractSocket::SocketError) {
#endif
        if (socket != m_socket)
            return;
        m_socketBroken = true;
        scheduleReconnect(socket->errorString());
    });
    connect(socket, &QWebSocket::disconnected, this, [this, socket] {
        if (socket != m_socket)
            return;
        m_socketBroken = true;
        const QString reason = socket->closeReason().isEmpty() ? QStringLiteral("code %1").arg(int(socket->closeCode()))
                                                               : socket->closeReason();
        scheduleReconnect(QStringLiteral("socket closed (%1)").arg(reason));
    });
    connect(socket, &QWebSocket::connected, this, [this, socket] {
        if (socket != m_socket)
            return;
        m_connectTimer.stop();
        if (m_config)
            send(sessionUpdate(*m_config));
    });
    connect(socket, &QWebSocket::pong, this, [this, socket] {
        if (socket == m_socket)
            m_pongTimer.stop();
    });
    m_connectTimer.start(m_timing.connectTimeoutMs);
    socket->open(request);
}

void TranscriptionConnection::scheduleReconnect(const QString &reason)
{
    if (!m_shouldRun || m_reconnectPending)
        return;
    m_reconnectPending = true;
    teardown();
    const int seconds = RealtimeProtocol::backoffSeconds(m_reconnectAttempt);
    ++m_reconnectAttempt;
    QString shown = reason;
    if (m_config && !m_config->apiKey.isEmpty())
        shown.replace(m_config->apiKey, QStringLiteral("[key]"));
    log(QStringLiteral("Answer transcription: reconnecting in %1s — %2").arg(seconds).arg(shown));
    report(RealtimeStatus::reconnecting());
    m_reconnectTimer.start(seconds * m_timing.backoffUnitMs);
}

void TranscriptionConnection::teardown()
{
    m_connectTimer.stop();
    m_pingTimer.stop();
    m_pongTimer.stop();
    if (QWebSocket *socket = m_socket) {
        m_socket = nullptr;
        disconnect(socket, nullptr, this, nullptr);
        RealtimeSockets::retire(socket, std::exchange(m_socketBroken, false));
    }
    m_isConfigured = false;
    m_pending.clear();
}

void TranscriptionConnection::append(const QByteArray &pcm16)
{
    if (!m_shouldRun || !m_isConfigured)
        return;
    m_pending.append(pcm16);
    if (m_pending.size() >= RealtimeProtocol::chunkBytes)
        send(RealtimeProtocol::audioAppend(std::exchange(m_pending, QByteArray())));
}

void TranscriptionConnection::send(const QJsonObject &message)
{
    if (m_socket && m_socket->state() == QAbstractSocket::ConnectedState)
        m_socket->sendTextMessage(QString::fromUtf8(RealtimeProtocol::serialize(message)));
}

void TranscriptionConnection::handleText(const QString &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject())
        return;
    const QJsonObject event = document.object();
    const QString type = stringOr(event, "type");
    const QString itemID = stringOr(event, "item_id");

    if (type == QLatin1String("session.updated") || type == QLatin1String("transcription_session.updated")) {
        if (m_isConfigured)
            return;
        m_isConfigured = true;
        m_reconnectAttempt = 0;
        m_pingTimer.start(m_timing.pingIntervalMs);
        report(RealtimeStatus::connected());
    } else if (type == QLatin1String("conversation.item.input_audio_transcription.delta")) {
        const QString delta = stringOr(event, "delta");
        if (!delta.isEmpty() && m_sink.delta)
            m_sink.delta(itemID, delta);
    } else if (type == QLatin1String("conversation.item.input_audio_transcription.completed")) {
        if (m_sink.completed)
            m_sink.completed(itemID, stringOr(event, "transcript").trimmed());
        const QJsonValue usage = event.value(QLatin1String("usage"));
        if (usage.isObject() && m_sink.usage)
            m_sink.usage(usage.toObject().toVariantMap());
    } else if (type == QLatin1String("conversation.item.input_audio_transcription.failed")) {
        const QString message = stringOr(event.value(QLatin1String("error")).toObject(), "message",
                                         QStringLiteral("the service could not transcribe this part"));
        log(QStringLiteral("Answer transcription failed: %1").arg(message));
        if (m_sink.failed)
            m_sink.failed(itemID, message);
    } else if (type == QLatin1String("error")) {
        const QString message = stringOr(event.value(QLatin1String("error")).toObject(), "message",
                                         QStringLiteral("unknown error"));
        log(QStringLiteral("Answer transcription: service error: %1").arg(message));
        if (!m_isConfigured) {
            // The configuration was refused: retrying would be refused again.
            m_shouldRun = false;
            teardown();
            report(RealtimeStatus::failed(QStringLiteral("The transcription service refused the session: ") + message));
        }
    }
}

void TranscriptionConnection::report(const RealtimeStatus &status)
{
    if (m_sink.status)
        m_sink.status(status);
}

void TranscriptionConnection::log(const QString &line)
{
    qCInfo(lcRealtime, "[Ketterbloom] %s", qUtf8Printable(line));
    if (m_sink.log)
        m_sink.log(line);
}
