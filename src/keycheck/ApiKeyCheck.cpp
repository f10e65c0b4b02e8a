#include "keycheck/ApiKeyCheck.h"

#include "realtime/RealtimeProtocol.h"

#include <QNetworkAccessManager>
#include <QNetworkProxy>
#include <QNetworkReply>
#include <QNetworkRequest>
#include <QTimer>

ApiKeyCheck::ApiKeyCheck(QObject *parent)
    : QObject(parent)
    , m_network(new QNetworkAccessManager(this))
    , m_timeout(new QTimer(this))
{
    m_timeout->setSingleShot(true);
    m_timeout->setInterval(defaultTimeoutMs);
    connect(m_timeout, &QTimer::timeout, this, [this] {
        cancel();
        finish({Outcome::unreachable, tr("The service did not answer within %1 seconds. Check your connection "
                                         "and try again.").arg(m_timeout->interval() / 1000)});
    });
}

ApiKeyCheck::~ApiKeyCheck()
{
    cancel();
}

void ApiKeyCheck::setTimeout(int ms)
{
    m_timeout->setInterval(ms);
}

::Result<QUrl> ApiKeyCheck::modelsUrl(const QString &realtimeOverride)
{
    return RealtimeProtocol::httpEndpoint(realtimeOverride, QStringLiteral("/v1/models"));
}

ApiKeyCheck::Result ApiKeyCheck::fromStatus(int httpStatus)
{
    if (httpStatus >= 200 && httpStatus < 300)
        return {Outcome::works, tr("The key works: the service accepted it.")};
    if (httpStatus == 401)
        return {Outcome::rejected, tr("The service refused this key (HTTP 401). Check that you copied all of it, "
                                      "or make a new one on platform.openai.com.")};
    if (httpStatus == 403)
        return {Outcome::rejected, tr("This key may not use the service (HTTP 403). Check the key's project and "
                                      "permissions on platform.openai.com.")};
    if (httpStatus == 429)
        return {Outcome::rejected, tr("The service accepted the key but refused for now (HTTP 429): the account "
                                      "is out of credit or over its rate limit.")};
    return {Outcome::unreachable, tr("The service answered with HTTP %1, so the key could not be checked. "
                                     "Try again in a moment.").arg(httpStatus)};
}

void ApiKeyCheck::check(const QString &key)
{
    check(key, RealtimeProtocol::endpointOverride());
}

void ApiKeyCheck::check(const QString &key, const QString &realtimeOverride)
{
    cancel();
    const QString trimmed = key.trimmed();
    if (trimmed.isEmpty()) {
        // Reported after returning, like every other outcome.
        QTimer::singleShot(0, this, [this] { finish({Outcome::refused, tr("Enter a key first.")}); });
        return;
    }
    const auto address = modelsUrl(realtimeOverride);
    if (!address.ok()) {
        QTimer::singleShot(0, this, [this, error = address.error()] { finish({Outcome::refused, error}); });
        return;
    }
    const QUrl url = address.value();
    // A service on this machine (tests, the simulator) is never asked through a proxy.
    m_network->setProxy(RealtimeProtocol::isLoopbackHost(url.host()) ? QNetworkProxy(QNetworkProxy::NoProxy) : QNetworkProxy(QNetworkProxy::DefaultProxy));
    QNetworkRequest request(url);
    request.setRawHeader("Authorization", "Bearer " + trimmed.toUtf8());
    request.setAttribute(QNetworkRequest::RedirectPolicyAttribute, QNetworkRequest::ManualRedirectPolicy);
    m_reply = m_network->get(request);
    connect(m_reply, &QNetworkReply::finished, this, &ApiKeyCheck::replyFinished);
    m_timeout->start();
}

void ApiKeyCheck::cancel()
{
    m_timeout->stop();
    if (QNetworkReply *reply = m_reply) {
        m_reply = nullptr;
        reply->disconnect(this);
        reply->abort();
        reply->deleteLater();
    }
}

void ApiKeyCheck::replyFinished()
{
    QNetworkReply *reply = m_reply;
    if (!reply)
        return;
    m_reply = nullptr;
    m_timeout->stop();
    reply->deleteLater();
    const QVariant status = reply->attribute(QNetworkRequest::HttpStatusCodeAttribute);
    if (status.isValid() && status.toInt() > 0) {
        finish(fromStatus(status.toInt()));
        return;
    }
    finish({Outcome::unreachable, tr("Couldn't reach the service (%1). Check your connection and try again.")
                                      .arg(reply->errorString())});
}

void ApiKeyCheck::finish(const Result &result)
{
    emit finished(result);
}
