#include "realtime/RealtimeFailure.h"

#include <QCoreApplication>

namespace RealtimeFailure {

namespace {

QString stringOf(const QJsonObject &object, const char *key)
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : QString();
}

bool namesModelUnavailable(const QString &message)
{
    const QString lower = message.toLower();
    return lower.contains(QLatin1String("model"))
           && (lower.contains(QLatin1String("does not exist")) || lower.contains(QLatin1String("not available"))
               || lower.contains(QLatin1String("do not have access")));
}

QString quotaMessage()
{
    return QCoreApplication::translate("RealtimeFailure",
                                       "Your OpenAI account has no quota left — add credit, then press Start again.");
}

QString modelMessage(const QString &model)
{
    return QCoreApplication::translate("RealtimeFailure",
                                       "The model %1 isn't available to your OpenAI account (model_not_found). "
                                       "Choose another model in Settings.")
        .arg(model);
}

} // namespace

QString keyMessage()
{
    return QCoreApplication::translate("RealtimeFailure",
                                       "The service refused the API key (invalid_api_key). Check it in Settings.");
}

ServiceError ServiceError::fromObject(const QJsonObject &error)
{
    ServiceError result;
    result.type = stringOf(error, "type");
    result.code = stringOf(error, "code");
    result.message = stringOf(error, "message");
    result.param = stringOf(error, "param");
    if (result.message.isEmpty() && !error.value(QLatin1String("message")).isString())
        result.message = QStringLiteral("unknown realtime error");
    return result;
}

ServiceError ServiceError::fromEvent(const QJsonObject &event)
{
    const QJsonValue error = event.value(QLatin1String("error"));
    if (!error.isObject())
        return fromObject({});
    return fromObject(error.toObject());
}

bool isServiceCloseCode(int code)
{
    return code >= 3000 && code <= 4999;
}

std::optional<QString> finalMessage(const ServiceError &error, const QString &model)
{
    if (error.code == QLatin1String("invalid_api_key"))
        return keyMessage();
    if (error.code == QLatin1String("insufficient_quota") || error.type == QLatin1String("insufficient_quota"))
        return quotaMessage();
    if (error.code == QLatin1String("model_not_found") || namesModelUnavailable(error.message))
        return modelMessage(model);
    return std::nullopt;
}

std::optional<QString> finalCloseMessage(const QString &closeReason, const QString &model)
{
    if (closeReason.contains(QLatin1String("invalid_api_key")))
        return keyMessage();
    if (closeReason.contains(QLatin1String("insufficient_quota")))
        return quotaMessage();
    if (closeReason.contains(QLatin1String("model_not_found")))
        return modelMessage(model);
    return std::nullopt;
}

QString repeatedCloseMessage(const QString &lastReason)
{
    return QCoreApplication::translate("RealtimeFailure",
                                       "The service closed the connection %1 times in a row (%2). Press Start to try again.")
        .arg(QString::number(maxServiceClosesInARow), lastReason);
}

bool isTransient(const ServiceError &error)
{
    return error.type == QLatin1String("server_error") || error.code == QLatin1String("server_error");
}

bool isRateLimit(const ServiceError &error)
{
    return error.code == QLatin1String("rate_limit_exceeded") || error.type == QLatin1String("rate_limit_exceeded");
}

QString rateLimitNotice()
{
    return QCoreApplication::translate("RealtimeFailure",
                                       "OpenAI is rate-limiting this account (rate_limit_exceeded); answers may pause for a moment.");
}

std::optional<QString> unreachableReason(QAbstractSocket::SocketError error, const QString &host,
                                         const QString &errorString)
{
    switch (error) {
    case QAbstractSocket::HostNotFoundError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: host not found").arg(host);
    case QAbstractSocket::ConnectionRefusedError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: connection refused").arg(host);
    case QAbstractSocket::NetworkError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: network unreachable").arg(host);
    case QAbstractSocket::SocketTimeoutError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: timed out").arg(host);
    case QAbstractSocket::ProxyConnectionRefusedError:
    case QAbstractSocket::ProxyConnectionClosedError:
    case QAbstractSocket::ProxyConnectionTimeoutError:
    case QAbstractSocket::ProxyNotFoundError:
    case QAbstractSocket::ProxyProtocolError:
    case QAbstractSocket::ProxyAuthenticationRequiredError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: proxy failed (%2)").arg(host, errorString);
    case QAbstractSocket::SslHandshakeFailedError:
    case QAbstractSocket::SslInternalError:
    case QAbstractSocket::SslInvalidUserDataError:
        return QCoreApplication::translate("RealtimeFailure", "can't reach %1: TLS handshake failed (%2)")
            .arg(host, errorString);
    default:
        return std::nullopt;
    }
}

} // namespace RealtimeFailure
