// The updater against a stand-in PackageKit daemon on a private bus (a real dbus-daemon):
// every banner it shows, the once-a-day check, and the rule that nothing about an update
// shows and nothing restarts while a session runs — until it ends, and then exactly once.
#include "FakePackageKit.h"
#include "PrivateBus.h"
#include "FakeUpdateParts.h"

#include "updates/UpdateController.h"
#include "updates/UpdateTexts.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>
#include <QTimeZone>

using Action = UpdateHost::Action;

namespace {
const QDateTime kNow = QDateTime(QDate(2026, 11, 22), QTime(9, 30), QTimeZone::utc());
constexpr int kSettleMs = 40;
} // namespace

class UpdatesControllerTest : public QObject
{
    Q_OBJECT

private:
    PrivateBus m_bus;

    // Per test.
    std::unique_ptr<QTemporaryDir> m_dir;
    std::unique_ptr<QSettings> m_store;
    std::unique_ptr<FakePackageKit> m_daemon;
    std::unique_ptr<FakeUpdateHost> m_host;
    std::unique_ptr<FakePackageDatabase> m_packages;
    std::unique_ptr<UpdateController> m_controller;
    QString m_executable;
    QDateTime m_now;

    static QDBusConnection client() { return QDBusConnection(QStringLiteral("client")); }

    // The controller for a package install whose last check was `lastCheck` ago (none: never).
    UpdateController &make(std::optional<qint64> lastCheckSecondsAgo, const QString &updateSource = {})
    {
        if (lastCheckSecondsAgo)
            m_store->setValue(QLatin1String(UpdateController::lastCheckKey),
                              m_now.addSecs(-*lastCheckSecondsAgo).toString(Qt::ISODate));
        m_controller = std::make_unique<UpdateController>(UpdateController::Components{
            *m_host, *m_packages, client(), *m_store, m_executable, [this] { return m_now; }, kSettleMs, updateSource});
        return *m_controller;
    }

    // Starts it and waits until the launch (and any daily check) has come to rest.
    void launch(UpdateController &controller)
    {
        controller.start();
        QTRY_VERIFY(controller.origin() != UpdateController::Origin::unknown);
        QTRY_VERIFY(!controller.isChecking());
    }

    // What dpkg does on upgrade: a new file renamed over the old one, and a new version.
    void replaceExecutable(const QString &version)
    {
        m_packages->version = version;
        const QString next = m_executable + QStringLiteral(".dpkg-new");
        QFile file(next);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\necho " + version.toUtf8() + "\n");
        file.close();
        QVERIFY(::rename(QFile::encodeName(next).constData(), QFile::encodeName(m_executable).constData()) == 0);
    }

    // Lets watchers and queued work run for a while; used to show that nothing happens.
    static void quietPeriod() { QTest::qWait(kSettleMs * 6); }

private slots:
    void initTestCase()
    {
        if (!m_bus.start())
            QSKIP("dbus-daemon could not be started (scripts/install-deps --tests installs it)");
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("client")).isConnected());
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("packagekit")).isConnected());
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("packagekit"));
        m_bus.stop();
    }

    void init()
    {
        m_dir = std::make_unique<QTemporaryDir>();
        QVERIFY(m_dir->isValid());
        m_store = std::make_unique<QSettings>(m_dir->filePath(QStringLiteral("settings.ini")), QSettings::IniFormat);
        m_daemon = std::make_unique<FakePackageKit>(QDBusConnection(QStringLiteral("packagekit")));
        m_host = std::make_unique<FakeUpdateHost>();
        m_packages = std::make_unique<FakePackageDatabase>();
        m_executable = m_dir->filePath(QStringLiteral("ketterbloom"));
        QFile file(m_executable);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("#!/bin/sh\necho 0.1.0-1\n");
        m_now = kNow;
        // Installs replace the executable, as dpkg does.
        m_daemon->installed = [this](const QString &packageId) {
            replaceExecutable(packageId.section(QLatin1Char(';'), 1, 1));
        };
    }

    void cleanup()
    {
        m_controller.reset();
        m_daemon.reset();
        m_host.reset();
        m_packages.reset();
        m_store.reset();
        m_dir.reset();
    }

    // Neither a copy built from source nor a package built without an update source has
    // anything to ask PackageKit; each says why when asked, and a terminal gets "not checked".
    void nothingToCheckNeverGoesToPackageKit_data()
    {
        QTest::addColumn<bool>("fromPackage");
        QTest::addColumn<QString>("banner");
        QTest::newRow("built from source")
            << false << QStringLiteral("This copy was built from source; update it with git pull and scripts/run.");
        QTest::newRow("package without a source")
            << true << QStringLiteral("This package was built without an update source, so no updates arrive by "
                                      "themselves. To update, install a newer package by hand: sudo apt install "
                                      "./ketterbloom_<version>_amd64.deb");
    }

    void nothingToCheckNeverGoesToPackageKit()
    {
        QFETCH(bool, fromPackage);
        QFETCH(QString, banner);
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        if (!fromPackage)
            m_packages->owningPackage.reset();
        UpdateController &c = make(std::nullopt, m_dir->filePath(QStringLiteral("ketterbloom.sources")));
        launch(c);
        QCOMPARE(c.origin(), fromPackage ? UpdateController::Origin::package : UpdateController::Origin::buildFolder);
        QSignalSpy answered(&c, &UpdateController::checkAnswered);
        c.checkForUpdates();
        QCOMPARE(m_host->last(), banner);
        QCOMPARE(m_host->lastAction(), std::nullopt);
        QCOMPARE(answered.size(), 1);
        QCOMPARE(answered.at(0).at(0).value<UpdateController::CheckOutcome>(), UpdateController::CheckOutcome::notChecked);
        quietPeriod();
        QCOMPARE(m_daemon->calls, QStringList());
        QCOMPARE(m_host->shown.size(), 1);
    }

    void manualCheck_data()
    {
        // The stand-in packs each update's severity into the upper bits of its info, as
        // PackageKit does.
        QTest::addColumn<bool>("daemonRuns");
        QTest::addColumn<QString>("update");
        QTest::addColumn<bool>("blocked");
        QTest::addColumn<QString>("refreshError");
        QTest::addColumn<QString>("banner");
        QTest::addColumn<bool>("offersInstall");
        QTest::newRow("nothing new") << true << QString() << false << QString()
                                     << QStringLiteral("Ketterbloom is up to date (0.1.0).") << false;
        QTest::newRow("newer package") << true << QStringLiteral("0.2.0-1") << false << QString()
                                       << QStringLiteral("Ketterbloom 0.2.0 is available.") << true;
        QTest::newRow("newer package, blocked") << true << QStringLiteral("0.2.0-1") << true << QString()
                                                << QStringLiteral("Ketterbloom is up to date (0.1.0).") << false;
        QTest::newRow("PackageKit fails")
            << true << QString() << false << QStringLiteral("Cannot download\n  repository metadata.")
            << QStringLiteral("Checking for updates failed (Cannot download repository metadata). Update from a "
                              "terminal instead: sudo apt update && sudo apt install --only-upgrade ketterbloom")
            << false;
        QTest::newRow("no PackageKit")
            << false << QString() << false << QString()
            << QStringLiteral("Can't check for updates: PackageKit isn't available on this computer. Update from a "
                              "terminal instead: sudo apt update && sudo apt install --only-upgrade ketterbloom")
            << false;
    }

    void manualCheck()
    {
        QFETCH(bool, daemonRuns);
        QFETCH(QString, update);
        QFETCH(bool, blocked);
        QFETCH(QString, refreshError);
        QFETCH(QString, banner);
        QFETCH(bool, offersInstall);
        if (daemonRuns)
            QVERIFY(m_daemon->publish());
        if (!update.isEmpty())
            m_daemon->script.update = update;
        m_daemon->script.updateBlocked = blocked;
        m_daemon->script.refreshError = refreshError;

        UpdateController &c = make(60);  // checked a minute ago: no check at launch
        launch(c);
        QCOMPARE(c.origin(), UpdateController::Origin::package);
        QCOMPARE(m_daemon->calls, QStringList());

        c.checkForUpdates();
        QCOMPARE(m_host->last(), QStringLiteral("Checking for updates…"));
        QTRY_COMPARE(m_host->last(), banner);
        QCOMPARE(m_host->shown.size(), 2);
        QCOMPARE(m_host->lastAction(), offersInstall ? std::optional(Action::installUpdate) : std::nullopt);
        if (daemonRuns) {
            QCOMPARE(m_daemon->calls.value(0), QStringLiteral("RefreshCache"));
            QCOMPARE(m_daemon->calls.size(), refreshError.isEmpty() ? 2 : 1);
            // The user asked: PackageKit may ask for a password.
            QVERIFY(m_daemon->hints.value(0).contains(QStringLiteral("interactive=true")));
        }
    }

    void checksAtLaunchAtMostOnceADay_data()
    {
        QTest::addColumn<std::optional<qint64>>("lastCheckSecondsAgo");
        QTest::addColumn<bool>("checks");
        QTest::newRow("never checked") << std::optional<qint64>() << true;
        QTest::newRow("23 hours ago") << std::optional<qint64>(23 * 3600) << false;
        QTest::newRow("a day ago") << std::optional<qint64>(24 * 3600) << true;
        QTest::newRow("clock set back") << std::optional<qint64>(-3600) << true;
    }

    void checksAtLaunchAtMostOnceADay()
    {
        QFETCH(std::optional<qint64>, lastCheckSecondsAgo);
        QFETCH(bool, checks);
        QVERIFY(m_daemon->publish());
        launch(make(lastCheckSecondsAgo));
        QTRY_COMPARE(m_daemon->calls.size(), checks ? 2 : 0);
        quietPeriod();
        // A check that finds nothing says nothing, and never asks for a password.
        QCOMPARE(m_host->shown.size(), 0);
        if (checks) {
            QVERIFY(m_daemon->hints.value(0).contains(QStringLiteral("interactive=false")));
            QCOMPARE(QDateTime::fromString(m_store->value(QLatin1String(UpdateController::lastCheckKey)).toString(),
                                           Qt::ISODate),
                     kNow);
            // Launched again an hour later: no second check that day.
            m_controller.reset();
            m_now = m_now.addSecs(3600);
            launch(make(std::nullopt));
            quietPeriod();
            QCOMPARE(m_daemon->calls.size(), 2);
        }
    }

    void updateFoundAtLaunchInstallsAndOffersRestart()
    {
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        UpdateController &c = make(std::nullopt);
        launch(c);
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::installUpdate));
        QCOMPARE(m_host->shown.size(), 1);

        c.installUpdate();
        QCOMPARE(m_host->last(), QStringLiteral("Installing Ketterbloom 0.2.0… your computer may ask for your password."));
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::restartNow));
        QCOMPARE(m_daemon->calls.constLast(), QStringLiteral("UpdatePackages ketterbloom;0.2.0-1;amd64;stand-in"));
        QVERIFY(m_daemon->hints.constLast().contains(QStringLiteral("interactive=true")));
        // The install also replaced the executable; the watcher must not announce it twice.
        quietPeriod();
        QCOMPARE(m_host->count(QStringLiteral("Ketterbloom was updated to 0.2.0.")), 1);
        QCOMPARE(c.installedVersion(), std::optional(QStringLiteral("0.2.0")));

        c.restartNow();
        c.restartNow();
        QCOMPARE(m_host->relaunched, QStringList{m_executable});
    }

    void installRefusedOrBroken_data()
    {
        QTest::addColumn<bool>("refuse");
        QTest::addColumn<QString>("banner");
        QTest::addColumn<bool>("offersRetry");
        QTest::newRow("authorisation refused")
            << true
            << QStringLiteral("Ketterbloom 0.2.0 wasn't installed: permission was refused. Try again, or update from "
                              "a terminal: sudo apt update && sudo apt install --only-upgrade ketterbloom")
            << true;
        QTest::newRow("daemon stops")
            << false
            << QStringLiteral("Ketterbloom 0.2.0 couldn't be installed (PackageKit stopped). Try again, or update "
                              "from a terminal: sudo apt update && sudo apt install --only-upgrade ketterbloom")
            << true;
    }

    void installRefusedOrBroken()
    {
        QFETCH(bool, refuse);
        QFETCH(QString, banner);
        QFETCH(bool, offersRetry);
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        m_daemon->script.refuseAuthorisation = refuse;
        m_daemon->script.stopOnInstall = !refuse;
        UpdateController &c = make(std::nullopt);
        launch(c);
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        c.installUpdate();
        QTRY_COMPARE(m_host->last(), banner);
        QCOMPARE(m_host->lastAction(), offersRetry ? std::optional(Action::installUpdate) : std::nullopt);
        QVERIFY(!c.isInstalling());
        QCOMPARE(c.installedVersion(), std::nullopt);
        QCOMPARE(c.availableVersion(), std::optional(QStringLiteral("0.2.0")));
        c.restartNow();
        QCOMPARE(m_host->relaunched, QStringList());
    }

    // The point of it all: nothing about an update shows, and nothing restarts, during a
    // session; when it ends, one banner says what happened.
    void updateFoundDuringSessionWaitsForItsEnd()
    {
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        m_host->sessionActive = true;
        UpdateController &c = make(std::nullopt);
        launch(c);
        QTRY_COMPARE(m_daemon->calls.size(), 2);
        QTRY_COMPARE(c.availableVersion(), std::optional(QStringLiteral("0.2.0")));
        quietPeriod();
        QCOMPARE(m_host->shown.size(), 0);

        m_host->sessionActive = false;
        c.sessionEnded();
        QTRY_COMPARE(m_host->shown.size(), 1);
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::installUpdate));
        // A second stop shows nothing more.
        c.sessionEnded();
        quietPeriod();
        QCOMPARE(m_host->shown.size(), 1);
    }

    void updateInstalledDuringSessionRestartsOnlyAfterIt()
    {
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        m_daemon->script.holdInstall = true;
        UpdateController &c = make(std::nullopt);
        launch(c);
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        c.installUpdate();
        QTRY_VERIFY(m_daemon->heldInstall);
        const qsizetype before = m_host->shown.size();

        // The user starts a session while the password prompt is still up, then the install ends.
        m_host->sessionActive = true;
        m_daemon->heldInstall->finishInstall();
        QTRY_COMPARE(c.installedVersion(), std::optional(QStringLiteral("0.2.0")));
        // A second upgrade from outside arrives mid-session.
        replaceExecutable(QStringLiteral("0.3.0-1"));
        QTRY_COMPARE(c.installedVersion(), std::optional(QStringLiteral("0.3.0")));
        c.restartNow();
        quietPeriod();
        QCOMPARE(m_host->shown.size(), before);
        QCOMPARE(m_host->relaunched, QStringList());
        // The progress line did not linger into the session.
        QCOMPARE(m_host->current, std::nullopt);

        m_host->sessionActive = false;
        c.sessionEnded();
        QTRY_COMPARE(m_host->shown.size(), before + 1);
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.3.0."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::restartNow));
        quietPeriod();
        QCOMPARE(m_host->shown.size(), before + 1);
        c.restartNow();
        QCOMPARE(m_host->relaunched, QStringList{m_executable});
    }

    void executableReplacedDuringSession()
    {
        // PackageKit plays no part: apt or the software centre upgrades the package.
        UpdateController &c = make(60);
        launch(c);
        // The running program keeps its executable open, as the kernel does with a mapped one.
        QFile running(m_executable);
        QVERIFY(running.open(QIODevice::ReadOnly));

        // Rewritten without a new version (a reinstall): nothing to say.
        replaceExecutable(QStringLiteral("0.1.0-1"));
        QTRY_VERIFY(m_packages->versionReads >= 1);
        quietPeriod();
        QCOMPARE(c.installedVersion(), std::nullopt);

        m_host->sessionActive = true;
        replaceExecutable(QStringLiteral("0.2.0-1"));
        QTRY_COMPARE(c.installedVersion(), std::optional(QStringLiteral("0.2.0")));
        c.restartNow();
        quietPeriod();
        QCOMPARE(m_host->shown.size(), 0);
        QCOMPARE(m_host->relaunched, QStringList());

        m_host->sessionActive = false;
        c.sessionEnded();
        QTRY_COMPARE(m_host->shown.size(), 1);
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::restartNow));

        // Outside a session the banner comes at once.
        replaceExecutable(QStringLiteral("0.2.1-1"));
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.1."));
        QCOMPARE(m_host->shown.size(), 2);
    }

    void newExecutableBeforeDpkgRecordsTheVersion()
    {
        UpdateController &c = make(60);
        launch(c);
        // dpkg has unpacked the new files but not yet configured the package.
        replaceExecutable(QStringLiteral("0.2.0-1"));
        m_packages->version.reset();
        QTRY_VERIFY(m_packages->versionReads >= 2);
        QCOMPARE(m_host->shown.size(), 0);
        // Configured a moment later, with no further change to the file.
        m_packages->version = QStringLiteral("0.2.0-1");
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        QCOMPARE(m_host->shown.size(), 1);
    }

    void manualCheckAfterAnInstallOffersTheRestart()
    {
        QVERIFY(m_daemon->publish());
        UpdateController &c = make(60);
        launch(c);
        replaceExecutable(QStringLiteral("0.2.0-1"));
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        c.checkForUpdates();
        QTRY_COMPARE(m_host->shown.size(), 3);
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        QCOMPARE(m_host->lastAction(), std::optional(Action::restartNow));

        // Asked during a session: the news, but no button that would restart now.
        m_host->sessionActive = true;
        c.checkForUpdates();
        QTRY_COMPARE(m_host->shown.size(), 5);
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom was updated to 0.2.0. Restart it after this session to "
                                                "use the new version."));
        QCOMPARE(m_host->lastAction(), std::nullopt);
    }

    void backgroundCheckUsesTheSystemsListsWhenItMayNotRefresh()
    {
        QVERIFY(m_daemon->publish());
        m_daemon->script.update = QStringLiteral("0.2.0-1");
        m_daemon->script.refreshRefused = true;
        launch(make(std::nullopt));
        QTRY_COMPARE(m_host->last(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        QCOMPARE(m_daemon->calls, (QStringList{QStringLiteral("RefreshCache"), QStringLiteral("GetUpdates")}));
    }

    void failedRelaunchSaysSo()
    {
        UpdateController &c = make(60);
        launch(c);
        replaceExecutable(QStringLiteral("0.2.0-1"));
        QTRY_COMPARE(c.installedVersion(), std::optional(QStringLiteral("0.2.0")));
        m_host->relaunchError = QStringLiteral("/bin/sh could not be started");
        c.restartNow();
        QCOMPARE(m_host->last(), QStringLiteral("Ketterbloom couldn't restart (/bin/sh could not be started). Quit "
                                                "and open it again to use version 0.2.0."));
    }
};

QTEST_GUILESS_MAIN(UpdatesControllerTest)
#include "tst_updates_controller.moc"
