#include "updates/PackageKitTransaction.h"

#include "updates/UpdatesLogging.h"

#include <QDBusError>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusServiceWatcher>

namespace {

QDBusMessage transactionCall(const QString &path, const QString &method)
{
    return QDBusMessage::createMethodCall(QString::fromLatin1(PackageKitTransaction::service), path,
                                          QString::fromLatin1(PackageKitTransaction::transactionInterface), method);
}

} // namespace

PackageKitTransaction::PackageKitTransaction(const QDBusConnection &bus, Done done, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
    , m_done(std::move(done))
{
}

void PackageKitTransaction::run(const QDBusConnection &bus, const QStringList &hints, const QString &method,
                                const QVariantList &arguments, Done done, QObject *parent)
{
    auto *transaction = new PackageKitTransaction(bus, std::move(done), parent);
    if (!bus.isConnected()) {
        transaction->fail(Problem::missing, tr("the system bus is not available"));
        return;
    }
    // A daemon that goes away before the transaction has finished will never finish it.
    transaction->m_daemonWatcher = new QDBusServiceWatcher(QString::fromLatin1(service), transaction->m_bus,
                                                           QDBusServiceWatcher::WatchForUnregistration, transaction);
    connect(transaction->m_daemonWatcher, &QDBusServiceWatcher::serviceUnregistered, transaction,
            [transaction] { transaction->fail(Problem::failed, tr("PackageKit stopped")); });

    const QDBusMessage create = QDBusMessage::createMethodCall(
        QString::fromLatin1(service), QString::fromLatin1(daemonPath), QString::fromLatin1(daemonInterface),
        QStringLiteral("CreateTransaction"));
    auto *watcher = new QDBusPendingCallWatcher(transaction->m_bus.asyncCall(create), transaction);
    connect(watcher, &QDBusPendingCallWatcher::finished, transaction,
            [transaction, hints, method, arguments](QDBusPendingCallWatcher *call) {
                call->deleteLater();
                const QDBusPendingReply<QDBusObjectPath> reply = *call;
                if (reply.isError()) {
                    transaction->fail(problemOf(reply.error().name()), reply.error().message());
                    return;
                }
                transaction->created(reply.value().path(), hints, method, arguments);
            });
}

void PackageKitTransaction::created(const QString &path, const QStringList &hints, const QString &method,
                                    const QVariantList &arguments)
{
    m_path = path;
    const QString serviceName = QString::fromLatin1(service);
    const QString interface = QString::fromLatin1(transactionInterface);
    // Subscribed before the method runs, so no signal of it is missed.
    m_bus.connect(serviceName, path, interface, QStringLiteral("Package"), this,
                  SLOT(onPackage(uint, QString, QString)));
    m_bus.connect(serviceName, path, interface, QStringLiteral("ErrorCode"), this, SLOT(onErrorCode(uint, QString)));
    m_bus.connect(serviceName, path, interface, QStringLiteral("Finished"), this, SLOT(onFinished(uint, uint)));
    m_bus.connect(serviceName, path, interface, QStringLiteral("Destroy"), this, SLOT(onDestroy()));

    // Hints are advice to the daemon; a daemon that refuses them still runs the method.
    QDBusMessage setHints = transactionCall(path, QStringLiteral("SetHints"));
    setHints << hints;
    m_bus.asyncCall(setHints);

    QDBusMessage call = transactionCall(path, method);
    call.setArguments(arguments);
    // An interactive method may wait for the user's password; the reply itself comes at once.
    call.setInteractiveAuthorizationAllowed(true);
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, method](QDBusPendingCallWatcher *pending) {
        pending->deleteLater();
        const QDBusPendingReply<> reply = *pending;
        if (reply.isError())
            fail(problemOf(reply.error().name()), method + QStringLiteral(": ") + reply.error().message());
    });
}

void PackageKitTransaction::onPackage(uint info, const QString &packageId, const QString &summary)
{
    Q_UNUSED(summary);
    m_packages.append({info & infoEnumMask, packageId});
}

void PackageKitTransaction::onErrorCode(uint code, const QString &details)
{
    m_errorCode = code;
    m_errorDetails = details;
}

void PackageKitTransaction::onFinished(uint exit, uint runtime)
{
    Q_UNUSED(runtime);
    if (exit == exitSuccess) {
        report(m_packages);
        return;
    }
    if (m_errorCode == errorNotAuthorized) {
        fail(Problem::notAuthorized, m_errorDetails);
        return;
    }
    QString details = m_errorDetails;
    if (details.isEmpty())
        details = exit == exitCancelled ? tr("cancelled") : tr("PackageKit reported a failure");
    fail(Problem::failed, details);
}

void PackageKitTransaction::onDestroy()
{
    fail(Problem::failed, tr("the transaction ended without a result"));
}

void PackageKitTransaction::fail(Problem problem, const QString &details)
{
    report(Result::failure(Failure{problem, details}));
}

void PackageKitTransaction::report(const Result &result)
{
    if (m_reported)
        return;
    m_reported = true;
    disconnectSignals();
    if (!result.ok())
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] PackageKit:" << result.error().details;
    Done done = std::move(m_done);
    deleteLater();
    if (done)
        done(result);
}

void PackageKitTransaction::disconnectSignals()
{
    if (m_daemonWatcher)
        m_daemonWatcher->disconnect(this);
    if (m_path.isEmpty())
        return;
    const QString serviceName = QString::fromLatin1(service);
    const QString interface = QString::fromLatin1(transactionInterface);
    m_bus.disconnect(serviceName, m_path, interface, QStringLiteral("Package"), this,
                     SLOT(onPackage(uint, QString, QString)));
    m_bus.disconnect(serviceName, m_path, interface, QStringLiteral("ErrorCode"), this,
                     SLOT(onErrorCode(uint, QString)));
    m_bus.disconnect(serviceName, m_path, interface, QStringLiteral("Finished"), this, SLOT(onFinished(uint, uint)));
    m_bus.disconnect(serviceName, m_path, interface, QStringLiteral("Destroy"), this, SLOT(onDestroy()));
}

PackageKitTransaction::Problem PackageKitTransaction::problemOf(const QString &dbusErrorName)
{
    const QString name = dbusErrorName;
    if (name == QLatin1String("org.freedesktop.DBus.Error.ServiceUnknown")
        || name == QLatin1String("org.freedesktop.DBus.Error.NameHasNoOwner")
        || name.startsWith(QLatin1String("org.freedesktop.DBus.Error.Spawn"))
        || name == QLatin1String("org.freedesktop.DBus.Error.Disconnected"))
        return Problem::missing;
    if (name == QLatin1String("org.freedesktop.DBus.Error.AccessDenied")
        || name.endsWith(QLatin1String(".RefusedByPolicy")) || name.endsWith(QLatin1String(".NotAuthorized")))
        return Problem::notAuthorized;
    return Problem::failed;
}
