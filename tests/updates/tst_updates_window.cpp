// The updater as the user meets it in the window: the menu command, the banner's two buttons,
// and the restart banner arriving after a real session controller's Stop.
#include "FakeUpdateParts.h"
#include "UiRig.h"

#include "app/ShellUpdateHost.h"
#include "session/SessionSnapshot.h"
#include "ui/BannerView.h"
#include "updates/UpdateController.h"

#include <QAction>
#include <QFile>
#include <QMenu>
#include <QMenuBar>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QToolButton>

using Action = UpdateHost::Action;

namespace {

QToolButton *bannerButton(MainWindow &window, const QString &label)
{
    for (QToolButton *button : window.bannerView()->findChildren<QToolButton *>()) {
        if (button->text() == label)
            return button;
    }
    return nullptr;
}

} // namespace

class UpdatesWindowTest : public QObject
{
    Q_OBJECT

private slots:
    void menuCommandAndBannerButtons()
    {
        UiRig rig;
        QAction *check = rig.window->checkForUpdatesAction();
        QVERIFY(check);
        QCOMPARE(check->text(), QStringLiteral("Check for Updates…"));
        bool inAMenu = false;
        for (QAction *entry : rig.window->menuBar()->actions())
            inAMenu = inAMenu || (entry->menu() && entry->menu()->actions().contains(check));
        QVERIFY(inAMenu);
        QSignalSpy checks(rig.window.get(), &MainWindow::checkForUpdatesRequested);
        check->trigger();
        QCOMPARE(checks.count(), 1);

        SessionController &controller = *rig.session.controller;
        ShellUpdateHost host(controller, *rig.window);
        QSignalSpy installs(rig.window.get(), &MainWindow::installUpdateRequested);
        QSignalSpy restarts(rig.window.get(), &MainWindow::restartRequested);

        host.showBanner(QStringLiteral("Ketterbloom 0.2.0 is available."), Action::installUpdate);
        QCOMPARE(controller.banner(), QStringLiteral("Ketterbloom 0.2.0 is available."));
        QToolButton *install = bannerButton(*rig.window, QStringLiteral("Install Update"));
        QVERIFY(install);
        install->click();
        QCOMPARE(installs.count(), 1);

        host.showBanner(QStringLiteral("Ketterbloom was updated to 0.2.0."), Action::restartNow);
        QToolButton *restart = bannerButton(*rig.window, QStringLiteral("Restart Now"));
        QVERIFY(restart);
        restart->click();
        QCOMPARE(restarts.count(), 1);

        // A line without a button drops the button of the one before.
        host.showBanner(QStringLiteral("Checking for updates…"), std::nullopt);
        QCOMPARE(controller.bannerAction(), std::nullopt);
        QVERIFY(!bannerButton(*rig.window, QStringLiteral("Restart Now")));

        host.clearBanner(QStringLiteral("Transcript saved"));
        QCOMPARE(controller.banner(), QStringLiteral("Checking for updates…"));
        host.clearBanner(QStringLiteral("Checking for updates…"));
        QCOMPARE(controller.bannerText(), std::nullopt);
    }

    void relaunchKeepsTheFrameForTheNextLaunch()
    {
        UiRig rig;
        rig.window->show();
        QVERIFY(QTest::qWaitForWindowExposed(rig.window.get()));
        rig.window->setGeometry(QRect(120, 80, 520, 640));
        ShellUpdateHost host(*rig.session.controller, *rig.window);
        // Nothing to start: the program keeps running, and says why.
        const auto relaunched = host.relaunch(QStringLiteral("/nonexistent/ketterbloom"));
        QVERIFY(!relaunched.ok());
        QVERIFY(relaunched.error().contains(QStringLiteral("not an executable file")));
        QCOMPARE(rig.session.settings.store().value(QLatin1String(MainWindow::frameKey)).toRect(),
                 rig.window->geometry());
    }

    // An upgrade from outside during a real session: nothing until Stop, then the restart
    // banner in place of the saved-files line, whatever order the stop sets things in.
    void restartBannerAfterStop()
    {
        UiRig rig;
        SessionController &controller = *rig.session.controller;
        ShellUpdateHost host(controller, *rig.window);
        FakePackageDatabase packages;
        QTemporaryDir dir;
        QSettings store(dir.filePath(QStringLiteral("updates.ini")), QSettings::IniFormat);
        store.setValue(QLatin1String(UpdateController::lastCheckKey),
                       QDateTime::currentDateTimeUtc().toString(Qt::ISODate));
        const QString executable = dir.filePath(QStringLiteral("ketterbloom"));
        QFile file(executable);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("0.1.0-1");
        file.close();
        // No PackageKit is asked: the check is not due and no one asks for one.
        UpdateController updates(UpdateController::Components{host, packages, QDBusConnection(QStringLiteral("none")),
                                                              store, executable, {}, 40});
        QObject::connect(&SessionEvents::instance(), &SessionEvents::sessionEnded, &updates,
                         &UpdateController::sessionEnded);
        updates.start();
        QTRY_COMPARE(updates.origin(), UpdateController::Origin::package);

        QVERIFY(rig.session.startSession());
        packages.version = QStringLiteral("0.2.0-1");
        QVERIFY(QFile::remove(executable));
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write("0.2.0-1");
        file.close();
        QTRY_COMPARE(updates.installedVersion(), std::optional(QStringLiteral("0.2.0")));
        QVERIFY(!controller.banner().contains(QStringLiteral("Ketterbloom was updated")));

        controller.stop();
        QTRY_COMPARE(controller.banner(), QStringLiteral("Ketterbloom was updated to 0.2.0."));
        QCOMPARE(controller.bannerAction(), std::optional(SessionController::BannerAction::restartNow));
        QVERIFY(bannerButton(*rig.window, QStringLiteral("Restart Now")));
    }
};

QTEST_MAIN(UpdatesWindowTest)
#include "tst_updates_window.moc"
