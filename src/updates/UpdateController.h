#pragma once

#include "updates/PackageKitTransaction.h"
#include "updates/UpdateHost.h"
#include "updates/Updater.h"

#include <QDBusConnection>
#include <QDateTime>
#include <QObject>
#include <QString>
#include <QTimer>

#include <functional>
#include <memory>
#include <optional>

class ExecutableWatcher;
class PackageDatabase;
class PackageKitClient;
class QSettings;

// Keeps this copy of Ketterbloom up to date without ever interrupting an interview. One
// instance, created at launch by the shell, on the GUI thread.
//
// A copy installed from the `ketterbloom` package is checked through PackageKit at launch (at
// most once a day, never asking first) and when the user asks. A newer version found is
// offered in the banner ("Install Update"); once a newer version is on disk — installed from
// here or from outside (apt, the software centre), noticed by watching the executable — the
// banner offers "Restart Now". While a session is active nothing of this is shown and
// nothing restarts: the banner waits for the session to end. A copy run from a build folder
// has nothing to update through packages and says so when asked.
class UpdateController : public QObject, public Updater
{
    Q_OBJECT
public:
    enum class Origin { unknown, package, buildFolder };

    struct Components
    {
        UpdateHost &host;
        PackageDatabase &packages;
        // The bus PackageKit is on: the system bus, or a test's private one.
        QDBusConnection bus;
        // Where the time of the last check is kept.
        QSettings &store;
        // The running program's executable, as it was at launch.
        QString executablePath;
        // The wall clock; the system's when empty.
        std::function<QDateTime()> now = {};
        // Quiet time after the executable changed before the package version is read again.
        int settleMs = 2000;
        // The apt source the package installs when it was built with one; a package install
        // without it has nowhere to get updates from. Empty: not looked at.
        QString updateSource = {};
    };

    // The answer to a check the user asked for.
    enum class CheckOutcome { available, upToDate, notChecked };
    Q_ENUM(CheckOutcome)

    static constexpr const char *packageName = "ketterbloom";
    static constexpr const char *lastCheckKey = "updates/lastCheck";
    static constexpr qint64 checkIntervalSeconds = 24 * 60 * 60;
    // After the executable changed, how many more times (one settle time apart) the installed
    // version is read while it is not new yet: dpkg replaces files before it records the
    // package as installed.
    static constexpr int versionRereads = 60;

    explicit UpdateController(const Components &components, QObject *parent = nullptr);
    ~UpdateController() override;

    // At launch: finds out how this copy was installed; for a package install, starts
    // watching the executable and checks for updates when the last check is a day old.
    void start();

    // Every banner line is also logged ("banner: …").
    void checkForUpdates() override;
    void installUpdate() override;
    void restartNow() override;

    // To be called when a session has stopped ("ketterbloom.session.ended"): shows what was
    // held back while it ran.
    void sessionEnded();

    Origin origin() const { return m_origin; }
    // The installed version this process runs (package installs); empty otherwise.
    QString runningVersion() const { return m_runningVersion; }
    // A newer version PackageKit offers, as shown to users.
    std::optional<QString> availableVersion() const;
    // A newer version installed on disk since launch: a restart is due.
    std::optional<QString> installedVersion() const { return m_installedVersion; }
    bool isChecking() const { return m_checking; }
    bool isInstalling() const { return m_installing; }

signals:
    // A check the user asked for has its answer (also shown in the banner).
    void checkAnswered(UpdateController::CheckOutcome outcome);
    // An install asked for has ended: installed (and the new version read), or not.
    void installAnswered(bool installed);

private:
    struct Banner
    {
        QString text;
        std::optional<UpdateHost::Action> action;
    };

    void installationKnown(const QString &package, const QString &version);
    bool checkIsDue() const;
    void runCheck(bool manual);
    void checkFinished(const PackageKitTransaction::Result &result, const std::optional<QString> &packageId);
    void installFinished(const PackageKitTransaction::Result &result, const QString &version);
    // Reads the installed version after an install (`fallback`: the version installed) or a
    // change of the executable (no fallback).
    void readInstalledVersion(const QString &fallback);
    void executableReplaced();
    void installedVersionRead(const std::optional<QString> &version, const QString &fallback);
    void newVersionOnDisk(const QString &version);
    // Shows now when the user asked or no session runs; otherwise keeps it for the session's end.
    void deliver(const Banner &banner, bool userAsked);
    void show(const Banner &banner);
    QDateTime now() const;

    Components m_components;
    std::unique_ptr<PackageKitClient> m_packageKit;
    std::unique_ptr<ExecutableWatcher> m_watcher;
    Origin m_origin = Origin::unknown;
    bool m_hasSource = true;
    QString m_runningVersion;
    bool m_lookingUp = false;
    bool m_checkRequested = false;
    bool m_checking = false;
    bool m_checkIsManual = false;
    bool m_installing = false;
    bool m_restarting = false;
    std::optional<QString> m_availableId;
    std::optional<QString> m_installedVersion;
    std::optional<Banner> m_heldBack;
    QTimer m_reread;
    int m_rereadsLeft = 0;
};
