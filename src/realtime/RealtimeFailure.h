#pragma once

#include <QAbstractSocket>
#include <QJsonObject>
#include <QString>

#include <optional>

// How the client reads what went wrong: the service's "error" events and close frames, and the
// network's own failures. Pure functions, so every rule can be checked without a socket.
namespace RealtimeFailure {

// The "error" object of an "error" event (or of a failed transcription / response).
struct ServiceError
{
    QString type;
    QString code;
    QString message; // "unknown realtime error" when the service gave none
    QString param;

    static ServiceError fromEvent(const QJsonObject &event);
    static ServiceError fromObject(const QJsonObject &error);
};

// Close codes the service uses for its own reasons (RFC 6455 leaves 3000-4999 to applications).
bool isServiceCloseCode(int code);

// The one-line message for a problem the user must fix before a session can work: a refused
// key, an exhausted quota, a model the account cannot use. Nothing for any other error.
// `model` is the realtime model of the session, named in the message.
std::optional<QString> finalMessage(const ServiceError &error, const QString &model);
// "The service refused the API key (invalid_api_key). Check it in Settings."
QString keyMessage();
// The same for a close frame: its reason text names the code ("invalid_request_error.invalid_api_key").
std::optional<QString> finalCloseMessage(const QString &closeReason, const QString &model);
// After this many 3000-4999 closes in a row without a configured socket, the client gives up.
inline constexpr int maxServiceClosesInARow = 3;
QString repeatedCloseMessage(const QString &lastReason);

// A passing fault of the service (its "server_error"): the same request may well work when
// made again.
bool isTransient(const ServiceError &error);

// A rate limit: the session goes on, the user is told.
bool isRateLimit(const ServiceError &error);
QString rateLimitNotice();

// "can't reach <host>: host not found" and the like for failures before any WebSocket exists;
// nothing for errors that are better told by the socket's own text.
std::optional<QString> unreachableReason(QAbstractSocket::SocketError error, const QString &host,
                                         const QString &errorString);

} // namespace RealtimeFailure
