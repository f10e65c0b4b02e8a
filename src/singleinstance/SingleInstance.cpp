#include "singleinstance/SingleInstance.h"

#include <QCryptographicHash>
#include <QDeadlineTimer>
#include <QDir>
#include <QJsonDocument>
#include <QJsonObject>
#include <QLocalServer>
#include <QLocalSocket>
#include "singleinstance/SingleInstanceLogging.h"

#include <QLoggingCategory>
#include <QStandardPaths>
#include <QThread>

#include <algorithm>
#include <QTimer>


namespace {
constexpr int readTimeoutMs = 2000;

QByteArray encode(const SingleInstance::Request &request)
{
    return QJsonDocument(QJsonObject{{QStringLiteral("start"), request.start}}).toJson(QJsonDocument::Compact) + '\n';
}
} // namespace

SingleInstance::SingleInstance(const QString &directory, const QString &scope, QObject *parent)
    : QObject(parent)
    , m_directory(directory)
    , m_scope(scope)
{
}

QString SingleInstance::fileName(const char *suffix) const
{
    const QByteArray hash = QCryptographicHash::hash(m_scope.toUtf8(), QCryptographicHash::Sha1).toHex().left(12);
    return QDir(m_directory).filePath(QStringLiteral("ketterbloom-%1.%2").arg(QString::fromLatin1(hash),
                                                                             QString::fromLatin1(suffix)));
}

SingleInstance::~SingleInstance()
{
    if (m_server) {
        m_server->close();
        QLocalServer::removeServer(socketPath());
    }
}

QString SingleInstance::defaultDirectory()
{
    // $XDG_RUNTIME_DIR, private to the user; a folder under the temporary one without it.
    QString runtime = QStandardPaths::writableLocation(QStandardPaths::RuntimeLocation);
    if (runtime.isEmpty())
        runtime = QDir::tempPath() + QStringLiteral("/ketterbloom-") + qEnvironmentVariable("USER");
    return runtime;
}

QString SingleInstance::socketPath() const
{
    return fileName("socket");
}

SingleInstance::Outcome SingleInstance::claim(const Request &request, std::chrono::milliseconds timeout)
{
    if (!QDir().mkpath(m_directory))
        return {Role::alone, tr("Can't create %1 to check for a running Ketterbloom.").arg(m_directory)};
    const QDeadlineTimer deadline(timeout);
    m_lock = std::make_unique<QLockFile>(fileName("lock"));
    // A lock left by a copy that crashed is taken over at once (its process is gone).
    m_lock->setStaleLockTime(0);
    while (true) {
        if (m_lock->tryLock(0)) {
            if (const auto listening = listen(); !listening.ok())
                return {Role::alone, listening.error()};
            return {Role::primary, {}};
        }
        if (m_lock->error() != QLockFile::LockFailedError) {
            return {Role::alone,
                    tr("Can't check for a running Ketterbloom: %1 is not writable.").arg(m_directory)};
        }
        const Outcome outcome = handOver(request, std::chrono::milliseconds(deadline.remainingTime()));
        if (outcome.role == Role::handedOver || deadline.hasExpired())
            return outcome;
        // The running copy is still starting (not listening yet) or just quit: try again.
        QThread::msleep(100);
    }
}

Result<void> SingleInstance::listen()
{
    // A socket file left by a copy that crashed would block listening.
    QLocalServer::removeServer(socketPath());
    m_server = new QLocalServer(this);
    m_server->setSocketOptions(QLocalServer::UserAccessOption);
    if (!m_server->listen(socketPath()))
        return Result<void>::failure(tr("Can't listen on %1: %2").arg(socketPath(), m_server->errorString()));
    connect(m_server, &QLocalServer::newConnection, this, &SingleInstance::onConnection);
    return {};
}

Result<QJsonObject> SingleInstance::exchange(const QString &socketPath, const QByteArray &line,
                                             std::chrono::milliseconds timeout)
{
    const QDeadlineTimer deadline(timeout);
    const auto remaining = [&deadline] { return int(std::max<qint64>(deadline.remainingTime(), 0)); };
    QLocalSocket socket;
    socket.connectToServer(socketPath);
    if (!socket.waitForConnected(remaining())) {
        return Result<QJsonObject>::failure(
            tr("Ketterbloom is already running but does not answer (%1).").arg(socket.errorString()));
    }
    socket.write(line);
    socket.waitForBytesWritten(remaining());
    while (!socket.canReadLine()) {
        if (!socket.waitForReadyRead(remaining()))
            return Result<QJsonObject>::failure(
                tr("Ketterbloom is already running but did not confirm the request."));
    }
    return QJsonDocument::fromJson(socket.readLine()).object();
}

QString SingleInstance::refusedText()
{
    return tr("Ketterbloom is already running but refused the request.");
}

SingleInstance::Outcome SingleInstance::handOver(const Request &request, std::chrono::milliseconds timeout)
{
    const auto reply = exchange(socketPath(), encode(request), timeout);
    if (!reply.ok())
        return {Role::failed, reply.error()};
    if (!reply->value(QStringLiteral("ok")).toBool())
        return {Role::failed, refusedText()};
    qCInfo(lcSingleInstance) << "[Ketterbloom] handed over to the running copy";
    return {Role::handedOver, {}};
}

SingleInstance::Status SingleInstance::status(std::chrono::milliseconds timeout)
{
    QLockFile lock(fileName("lock"));
    lock.setStaleLockTime(0);
    // Free (released on return), or nowhere to be held (no folder yet): no copy runs.
    if (lock.tryLock(0) || lock.error() != QLockFile::LockFailedError)
        return {};
    Status status;
    status.running = true;
    const auto reply = exchange(socketPath(), QByteArrayLiteral("{\"status\":true}\n"), timeout);
    if (!reply.ok()) {
        status.error = reply.error();
        return status;
    }
    if (!reply->value(QStringLiteral("ok")).toBool())
        status.error = refusedText();
    status.sessionRunning = reply->value(QStringLiteral("session")).toBool();
    return status;
}

void SingleInstance::onConnection()
{
    while (QLocalSocket *socket = m_server->nextPendingConnection()) {
        connect(socket, &QLocalSocket::disconnected, socket, &QObject::deleteLater);
        // A client that never finishes its line is dropped.
        QTimer *timeout = new QTimer(socket);
        timeout->setSingleShot(true);
        connect(timeout, &QTimer::timeout, socket, &QLocalSocket::abort);
        timeout->start(readTimeoutMs);
        connect(socket, &QLocalSocket::readyRead, this, [this, socket, timeout] {
            if (!socket->canReadLine()) {
                if (socket->bytesAvailable() > 4096)
                    socket->abort();
                return;
            }
            timeout->stop();
            QJsonParseError parseError;
            const QJsonDocument document = QJsonDocument::fromJson(socket->readLine(), &parseError);
            const bool ok = parseError.error == QJsonParseError::NoError && document.isObject();
            const bool statusOnly = ok && document.object().value(QStringLiteral("status")).toBool();
            if (statusOnly) {
                const bool session = m_sessionRunning && m_sessionRunning();
                socket->write(QJsonDocument(QJsonObject{{QStringLiteral("ok"), true}, {QStringLiteral("session"), session}})
                                  .toJson(QJsonDocument::Compact)
                              + '\n');
            } else {
                socket->write(ok ? "{\"ok\":true}\n" : "{\"ok\":false}\n");
            }
            socket->flush();
            socket->disconnectFromServer();
            if (!ok) {
                qCWarning(lcSingleInstance) << "[Ketterbloom] ignored a malformed request from another launch";
                return;
            }
            if (statusOnly)
                return;
            Request request;
            request.start = document.object().value(QStringLiteral("start")).toBool();
            emit requested(request);
        });
    }
}
