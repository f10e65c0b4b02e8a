#include "realtime/AudioTranscriptionClient.h"

#include "realtime/RealtimeFailure.h"
#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"

#include <QHttpMultiPart>
#include <QJsonDocument>
#include <QJsonObject>
#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

#include <algorithm>
#include <chrono>
#include <cmath>

namespace {

const QString kPath = QStringLiteral("/v1/audio/transcriptions");

QString stringAt(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : QString();
}

QHttpPart formField(const QString &name, const QByteArray &value)
{
    QHttpPart part;
    part.setHeader(QNetworkRequest::ContentDispositionHeader, QStringLiteral("form-data; name=\"%1\"").arg(name));
    part.setBody(value);
    return part;
}

} // namespace

AudioTranscriptionClient::AudioTranscriptionClient(const AudioTranscriptionConfig &config, const QString &realtimeOverride,
                                                   const Timing &timing, QObject *parent)
    : QObject(parent)
    , m_config(config)
    , m_timing(timing)
    , m_network(new QNetworkAccessManager(this))
{
    const Result<QUrl> endpoint = RealtimeProtocol::httpEndpoint(realtimeOverride, kPath);
    if (endpoint.ok())
        m_url = endpoint.value();
    else
        m_addressError = endpoint.error();
    // A service on this machine (tests, the simulator) is never asked through a proxy.
    if (!m_url.isEmpty() && RealtimeProtocol::isLoopbackHost(m_url.host()))
        m_network->setProxy(QNetworkProxy(QNetworkProxy::NoProxy));
}

AudioTranscriptionClient::AudioTranscriptionClient(const AudioTranscriptionConfig &config, QObject *parent)
    : AudioTranscriptionClient(config, RealtimeProtocol::endpointOverride(), Timing{}, parent)
{
}

AudioTranscriptionClient::~AudioTranscriptionClient()
{
    cancel();
}

Result<void> AudioTranscriptionClient::usable() const
{
    if (m_config.apiKey.trimmed().isEmpty())
        return Result<void>::failure(tr("No API key set — open Settings and paste your OpenAI key."));
    if (!m_addressError.isEmpty())
        return Result<void>::failure(m_addressError);
    return Result<void>::success();
}

void AudioTranscriptionClient::transcribe(const QByteArray &wav, Completion completion)
{
    const quint64 id = ++m_nextId;
    Request &request = m_requests[id];
    request.wav = wav;
    request.completion = std::move(completion);
    if (const Result<void> checked = usable(); !checked.ok()) {
        // Reported after returning, like every other outcome.
        QTimer::singleShot(0, this, [this, id, message = checked.error()] { finish(id, Outcome::failure(message)); });
        return;
    }
    send(id);
}

void AudioTranscriptionClient::send(quint64 id)
{
    Request &request = m_requests.at(id);
    // multipart/form-data: the clip as a file, then the fields.
    auto *multipart = new QHttpMultiPart(QHttpMultiPart::FormDataType);
    QHttpPart file;
    file.setHeader(QNetworkRequest::ContentDispositionHeader,
                   QStringLiteral("form-data; name=\"file\"; filename=\"utterance.wav\""));
    file.setHeader(QNetworkRequest::ContentTypeHeader, QStringLiteral("audio/wav"));
    file.setBody(request.wav);
    multipart->append(file);
    multipart->append(formField(QStringLiteral("model"), m_config.model.toUtf8()));
    multipart->append(formField(QStringLiteral("response_format"), "json"));
    if (!m_config.language.trimmed().isEmpty())
        multipart->append(formField(QStringLiteral("language"), m_config.language.trimmed().toUtf8()));

    QNetworkRequest http(m_url);
    http.setRawHeader("Authorization", "Bearer " + m_config.apiKey.trimmed().toUtf8());
    http.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
#if QT_VERSION >= QT_VERSION_CHECK(6, 7, 0)
    http.setTransferTimeout(std::chrono::milliseconds(m_timing.transferTimeoutMs));
#else
    http.setTransferTimeout(m_timing.transferTimeoutMs);
#endif
    QNetworkReply *reply = m_network->post(http, multipart);
    multipart->setParent(reply);
    request.reply = reply;
    connect(reply, &QNetworkReply::finished, this, [this, id] { replyFinished(id); });
}

void AudioTranscriptionClient::replyFinished(quint64 id)
{
    const auto found = m_requests.find(id);
    if (found == m_requests.end() || !found->second.reply)
        return;
    QNetworkReply *reply = found->second.reply;
    found->second.reply = nullptr;
    reply->deleteLater();
    const int status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt();
    if (status <= 0) {
        const QString message = unreachableMessage(reply->error(), m_url.host(), reply->errorString());
        qCWarning(lcRealtime, "[Ketterbloom] recording transcription: %s", qUtf8Printable(message));
        finish(id, Outcome::failure(message));
        return;
    }
    const QByteArray body = reply->readAll();
    if (status >= 200 && status < 300) {
        const QJsonObject answer = QJsonDocument::fromJson(body).object();
        if (!answer.value(QLatin1String("text")).isString()) {
            finish(id, Outcome::failure(tr("The service's answer (HTTP %1) could not be read.").arg(status)));
            return;
        }
        finish(id, Text{answer.value(QLatin1String("text")).toString().trimmed(),
                         answer.value(QLatin1String("usage")).toObject().toVariantMap()});
        return;
    }
    const QJsonObject error = QJsonDocument::fromJson(body).object().value(QLatin1String("error")).toObject();
    qCWarning(lcRealtime, "[Ketterbloom] recording transcription: HTTP %d (%s)", status,
              qUtf8Printable(stringAt(error, "code").isEmpty() ? stringAt(error, "type") : stringAt(error, "code")));
    // A rate limit passes; an account without quota stays so.
    const bool noQuota = stringAt(error, "code") == QLatin1String("insufficient_quota")
                         || stringAt(error, "type") == QLatin1String("insufficient_quota");
    if (status == 429 && !noQuota && retryLater(id, reply))
        return;
    finish(id, Outcome::failure(failureMessage(status, body, m_config.model)));
}

bool AudioTranscriptionClient::retryLater(quint64 id, QNetworkReply *reply)
{
    Request &request = m_requests.at(id);
    const std::optional<double> asked = retryAfterSeconds(reply->rawHeader("retry-after-ms"), reply->rawHeader("retry-after"));
    // Without a Retry-After: 1, 2, 4 … seconds.
    const double wait = asked.value_or(double(1 << std::min(request.rateLimitRetries, 5)));
    if (request.rateLimitRetries >= m_timing.maxRateLimitRetries || wait > m_timing.maxRetryWaitSeconds)
        return false;
    ++request.rateLimitRetries;
    qCInfo(lcRealtime, "[Ketterbloom] recording transcription: rate-limited; retrying in %.1f s", wait);
    request.retryTimer = new QTimer(this);
    request.retryTimer->setSingleShot(true);
    connect(request.retryTimer, &QTimer::timeout, this, [this, id] {
        const auto found = m_requests.find(id);
        if (found == m_requests.end())
            return;
        found->second.retryTimer->deleteLater();
        found->second.retryTimer = nullptr;
        send(id);
    });
    request.retryTimer->start(int(std::lround(wait * m_timing.secondMs)));
    return true;
}

void AudioTranscriptionClient::finish(quint64 id, const Outcome &outcome)
{
    const auto found = m_requests.find(id);
    if (found == m_requests.end())
        return;
    // Taken out first: the completion may send or cancel.
    const Completion completion = std::move(found->second.completion);
    m_requests.erase(found);
    if (completion)
        completion(outcome);
}

void AudioTranscriptionClient::cancel()
{
    std::map<quint64, Request> requests;
    requests.swap(m_requests);
    for (auto &[id, request] : requests) {
        delete request.retryTimer;
        if (QNetworkReply *reply = request.reply) {
            reply->disconnect(this);
            if (!reply->isFinished()) // one that already ended has nothing to abort
                reply->abort();
            reply->deleteLater();
        }
    }
}

QString AudioTranscriptionClient::failureMessage(int httpStatus, const QByteArray &body, const QString &model)
{
    const QJsonObject error = QJsonDocument::fromJson(body).object().value(QLatin1String("error")).toObject();
    const QString code = stringAt(error, "code");
    const QString type = stringAt(error, "type");
    QString text = stringAt(error, "message").simplified();
    if (text.size() > 300)
        text = text.left(300) + QStringLiteral("…");

    if (httpStatus == 401 && (code.isEmpty() || code == QLatin1String("invalid_api_key")))
        return RealtimeFailure::keyMessage();
    if (code == QLatin1String("insufficient_quota") || type == QLatin1String("insufficient_quota"))
        return tr("Your OpenAI account has no quota left (insufficient_quota) — add credit, then "
                  "transcribe the recording again.");
    if (httpStatus == 429)
        return tr("OpenAI is rate-limiting this account (rate_limit_exceeded) — try again in a minute.");
    const QString lower = text.toLower();
    if (code == QLatin1String("model_not_found")
        || (lower.contains(QLatin1String("model")) && (lower.contains(QLatin1String("does not exist"))
                                                       || lower.contains(QLatin1String("not supported"))
                                                       || lower.contains(QLatin1String("do not have access")))))
        return tr("The transcription model %1 can't be used for recordings (%2). Choose another "
                  "transcription model in Settings.")
            .arg(model, code.isEmpty() ? QStringLiteral("HTTP %1").arg(httpStatus) : code);
    if (text.isEmpty())
        return tr("The service answered HTTP %1.").arg(httpStatus);
    return tr("The service answered HTTP %1: %2").arg(QString::number(httpStatus), text);
}

QString AudioTranscriptionClient::unreachableMessage(int networkError, const QString &host, const QString &errorString)
{
    QString reason;
    switch (QNetworkReply::NetworkError(networkError)) {
    case QNetworkReply::ConnectionRefusedError:
        reason = tr("connection refused");
        break;
    case QNetworkReply::HostNotFoundError:
        reason = tr("host not found");
        break;
    case QNetworkReply::TimeoutError:
    case QNetworkReply::OperationCanceledError: // only the transfer timeout aborts a request we still want
        reason = tr("timed out");
        break;
    case QNetworkReply::RemoteHostClosedError:
        reason = tr("the connection was closed before an answer came");
        break;
    case QNetworkReply::TemporaryNetworkFailureError:
    case QNetworkReply::NetworkSessionFailedError:
        reason = tr("network unreachable");
        break;
    case QNetworkReply::SslHandshakeFailedError:
        reason = tr("TLS handshake failed (%1)").arg(errorString);
        break;
    case QNetworkReply::ProxyConnectionRefusedError:
    case QNetworkReply::ProxyConnectionClosedError:
    case QNetworkReply::ProxyNotFoundError:
    case QNetworkReply::ProxyTimeoutError:
    case QNetworkReply::ProxyAuthenticationRequiredError:
    case QNetworkReply::UnknownProxyError:
        reason = tr("proxy failed (%1)").arg(errorString);
        break;
    default:
        reason = errorString;
        break;
    }
    return tr("can't reach %1: %2").arg(host, reason);
}

std::optional<double> AudioTranscriptionClient::retryAfterSeconds(const QByteArray &retryAfterMs, const QByteArray &retryAfter)
{
    bool ok = false;
    const double ms = retryAfterMs.trimmed().toDouble(&ok);
    if (ok && std::isfinite(ms) && ms >= 0)
        return ms / 1000.0;
    const double seconds = retryAfter.trimmed().toDouble(&ok);
    if (ok && std::isfinite(seconds) && seconds >= 0)
        return seconds;
    return std::nullopt;
}
