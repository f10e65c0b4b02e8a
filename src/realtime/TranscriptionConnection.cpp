#include "realtime/TranscriptionConnection.h"

#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"

#include <QJsonDocument>
#include <QNetworkRequest>
#include <QUrlQuery>

namespace {


QString stringOr(const QJsonObject &object, const char *key, const QString &fallback = {})
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : fallback;
}

} // namespace

TranscriptionConnection::TranscriptionConnection(const RealtimeTiming &timing, Sink sink, QObject *parent)
    : QObject(parent)
    , m_sink(std::move(sink))
    , m_socket(timing, this) // parented, so that it moves to the client's thread with this object
{
    connect(&m_socket, &ServiceSocket::retryDue, this, [this] {
        if (m_shouldRun)
            openSocket();
    });
    connect(&m_socket, &ServiceSocket::timedOut, this, &TranscriptionConnection::scheduleReconnect);
    connect(&m_socket, &ServiceSocket::failed, this,
            [this](QAbstractSocket::SocketError, const QString &, const QString &errorString) {
                scheduleReconnect(errorString);
            });
    connect(&m_socket, &ServiceSocket::closed, this, [this](int code, const QString &reason) {
        scheduleReconnect(QStringLiteral("socket closed (%1)").arg(reason.isEmpty() ? QStringLiteral("code %1").arg(code) : reason));
    });
    connect(&m_socket, &ServiceSocket::opened, this, [this] {
        if (m_config)
            send(sessionUpdate(*m_config));
    });
    connect(&m_socket, &ServiceSocket::textReceived, this, &TranscriptionConnection::handleText);
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

Result<QUrl> TranscriptionConnection::endpoint(const QString &override)
{
    // The same address rules as the main connection; only the query differs.
    const Result<QUrl> checked = RealtimeProtocol::resolveEndpoint(override, QString());
    if (!checked.ok())
        return checked;
    QUrl url = checked.value();
    QUrlQuery query;
    query.addQueryItem(QStringLiteral("intent"), QStringLiteral("transcription"));
    url.setQuery(query);
    return url;
}

void TranscriptionConnection::start(const TranscriptionConfig &config)
{
    m_socket.cancelRetry();
    teardown();
    m_config = config;
    m_socket.setKey(config.apiKey);
    m_shouldRun = true;
    m_socket.resetBackoff();
    openSocket();
}

void TranscriptionConnection::stop()
{
    m_shouldRun = false;
    m_socket.cancelRetry();
    teardown();
    report(RealtimeStatus::idle());
}

void TranscriptionConnection::openSocket()
{
    if (!m_config)
        return;
    report(m_socket.attempt() != 0 ? RealtimeStatus::reconnecting() : RealtimeStatus::connecting());
    if (m_config->apiKey.isEmpty()) {
        m_shouldRun = false;
        report(RealtimeStatus::failed(tr("No API key set — open Settings and paste your OpenAI key.")));
        return;
    }
    const Result<QUrl> target = endpoint(RealtimeProtocol::endpointOverride());
    if (!target.ok()) {
        log(target.error());
        m_shouldRun = false;
        report(RealtimeStatus::failed(target.error()));
        return;
    }

    QNetworkRequest request(target.value());
    request.setTransferTimeout(60000);
    request.setRawHeader("Authorization", "Bearer " + m_config->apiKey.toUtf8());
    m_isConfigured = false;
    m_pending.clear();
    m_socket.open(request);
}

void TranscriptionConnection::scheduleReconnect(const QString &reason)
{
    if (!m_shouldRun || m_socket.retryPending())
        return;
    teardown();
    const int seconds = m_socket.scheduleRetry();
    log(QStringLiteral("Answer transcription: reconnecting in %1s — %2").arg(seconds).arg(reason));
    report(RealtimeStatus::reconnecting());
}

void TranscriptionConnection::teardown()
{
    m_socket.close();
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
    m_socket.send(message);
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
        m_socket.resetBackoff();
        m_socket.configured();
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
                                         tr("the service could not transcribe this part"));
        log(QStringLiteral("Answer transcription failed: %1").arg(message));
        if (m_sink.failed)
            m_sink.failed(itemID, message);
    } else if (type == QLatin1String("error")) {
        const QString message = stringOr(event.value(QLatin1String("error")).toObject(), "message",
                                         tr("unknown error"));
        log(QStringLiteral("Answer transcription: service error: %1").arg(message));
        if (!m_isConfigured) {
            // The configuration was refused: retrying would be refused again.
            m_shouldRun = false;
            teardown();
            report(RealtimeStatus::failed(tr("The transcription service refused the session: %1").arg(message)));
        }
    }
}

void TranscriptionConnection::report(const RealtimeStatus &status)
{
    if (m_sink.status)
        m_sink.status(status);
}

void TranscriptionConnection::log(const QString &rawLine)
{
    const QString line = m_socket.redact(rawLine);
    qCInfo(lcRealtime, "[Ketterbloom] %s", qUtf8Printable(line));
    if (m_sink.log)
        m_sink.log(line);
}
