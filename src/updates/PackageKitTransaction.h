#pragma once

#include "common/Result.h"

#include <QDBusConnection>
#include <QList>
#include <QObject>
#include <QString>
#include <QStringList>
#include <QVariantList>

#include <functional>

class QDBusServiceWatcher;

// One PackageKit transaction over D-Bus: asks the daemon for a new transaction, gives it its
// hints, runs one method on it, collects the packages it reports, and reports once when it
// has finished, failed, or the daemon went away. Everything runs asynchronously on the GUI
// thread. The transaction deletes itself after reporting, or with its parent.
class PackageKitTransaction : public QObject
{
    Q_OBJECT
public:
    static constexpr const char *service = "org.freedesktop.PackageKit";
    static constexpr const char *daemonPath = "/org/freedesktop/PackageKit";
    static constexpr const char *daemonInterface = "org.freedesktop.PackageKit";
    static constexpr const char *transactionInterface = "org.freedesktop.PackageKit.Transaction";

    // PackageKit's own numbers (its exit, error and info enumerations).
    static constexpr uint exitSuccess = 1;
    static constexpr uint exitCancelled = 3;
    static constexpr uint errorNotAuthorized = 48;
    static constexpr uint infoBlocked = 9;
    // The daemon packs more into a package's info: the enum is the lower 16 bits, an update's
    // severity (itself an info value) the upper 16 — a normal update arrives as 0x50005.
    static constexpr uint infoEnumMask = 0xffff;

    enum class Problem {
        missing,        // no PackageKit on the bus (or no bus at all)
        notAuthorized,  // the user or the policy refused
        failed,         // anything else; `details` says what
    };

    struct Package
    {
        uint info = 0;  // the info enum alone (unpacked)
        QString id;  // "name;version;arch;data"
        friend bool operator==(const Package &, const Package &) = default;
    };

    // Why a transaction did not succeed.
    struct Failure
    {
        Problem problem = Problem::failed;
        QString details;
    };
    // The packages the transaction reported, or why it failed.
    using Result = ::Result<QList<Package>, Failure>;
    using Done = std::function<void(const Result &)>;

    // Starts a transaction; `done` is called exactly once unless `parent` goes first.
    static void run(const QDBusConnection &bus, const QStringList &hints, const QString &method,
                    const QVariantList &arguments, Done done, QObject *parent);

private slots:
    // Signals of the transaction object, delivered by QtDBus.
    void onPackage(uint info, const QString &packageId, const QString &summary);
    void onErrorCode(uint code, const QString &details);
    void onFinished(uint exit, uint runtime);
    void onDestroy();

private:
    PackageKitTransaction(const QDBusConnection &bus, Done done, QObject *parent);

    void created(const QString &path, const QStringList &hints, const QString &method, const QVariantList &arguments);
    void fail(Problem problem, const QString &details);
    void report(const Result &result);
    void disconnectSignals();
    static Problem problemOf(const QString &dbusErrorName);

    QDBusConnection m_bus;
    Done m_done;
    QString m_path;
    QDBusServiceWatcher *m_daemonWatcher = nullptr;
    QList<Package> m_packages;
    uint m_errorCode = 0;
    QString m_errorDetails;
    bool m_reported = false;
};
