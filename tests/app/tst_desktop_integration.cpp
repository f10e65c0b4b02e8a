// The window's desktop integration: what a global shortcut or a later launch does to the
// running window and session, and the controls where the window can't stay on top.
#include "app/AppShell.h"
#include "app/DesktopIntegration.h"
#include "session/SessionController.h"
#include "shortcuts/GlobalShortcuts.h"
#include "ui/ControlBar.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingDialog.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/SettingsDialog.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QLabel>
#include <QTabWidget>
#include <QTest>
#include <QToolButton>

namespace {
// Stands for the desktop: the test presses the shortcuts.
class PressedBackend : public ShortcutBackend
{
public:
    void bind(const QList<Binding> &bindings) override
    {
        QMap<QString, QString> triggers;
        for (const Binding &binding : bindings)
            triggers.insert(binding.id, binding.keys.toString());
        emit bound(triggers);
    }
    void press(const char *id) { emit activated(QString::fromLatin1(id)); }
};

PlatformChoice platform(bool stayOnTopWorks)
{
    PlatformChoice choice;
    choice.stayOnTopWorks = stayOnTopWorks;
    choice.xwaylandOffered = !stayOnTopWorks;
    return choice;
}
} // namespace

class DesktopIntegrationTest : public QObject
{
    Q_OBJECT

private slots:
    void shortcutsAndLaunchRequestsDriveTheWindow()
    {
        AppShell shell;
        DesktopIntegration desktop(shell, platform(true));
        auto backend = std::make_unique<PressedBackend>();
        PressedBackend *keys = backend.get();
        desktop.globalShortcuts().useBackend(std::move(backend), GlobalShortcuts::Mechanism::x11);
        bool screenAsked = false;
        QVERIFY(desktop.addAction({QStringLiteral("answer-from-screen"), QStringLiteral("Answer from screen"), {}},
                                  [&screenAsked] { screenAsked = true; }));
        shell.show();
        MainWindow &window = shell.window();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        if (window.onboardingDialog())
            window.onboardingDialog()->close();

        keys->press("toggle-window");
        QVERIFY(!window.isVisible());
        keys->press("toggle-window");
        QVERIFY(window.isVisible());

        // Start/stop without a key: the session refuses with its banner, as the button would.
        keys->press("toggle-session");
        QCOMPARE(shell.controller().banner(), QStringLiteral("Add your OpenAI API key before starting."));
        QVERIFY(!shell.controller().isSessionActive());

        keys->press("answer-from-screen");
        QVERIFY(screenAsked);
        keys->press("no-such-action");

        // A later launch with --start: the hidden window comes back and Start is tried.
        window.hide();
        shell.controller().setBannerText(std::nullopt);
        desktop.handleLaunchRequest(true);
        QVERIFY(window.isVisible());
        QCOMPARE(shell.controller().banner(), QStringLiteral("Add your OpenAI API key before starting."));
    }

    void withoutStayOnTopTheTogglesGiveWayToANote()
    {
        AppShell shell;
        DesktopIntegration desktop(shell, platform(false));
        MainWindow &window = shell.window();
        QVERIFY(!window.alwaysOnTopAction()->isVisible());
        QVERIFY(window.controlBar()->onTopToggle()->isHidden());
        window.openSettings();
        SettingsDialog *dialog = window.settingsDialog();
        QVERIFY(dialog);
        QVERIFY(dialog->generalPage()->alwaysOnTopCheck()->isHidden());
        const QString note =
            QStringLiteral("Your desktop doesn't let apps stay on top; use your window manager's 'Always on top' menu");
        int notes = 0;
        for (const QLabel *label : dialog->findChildren<QLabel *>())
            notes += label->text() == note ? 1 : 0;
        QCOMPARE(notes, 2); // on the look page, in place of the checkbox, and on the desktop page
        QCOMPARE(dialog->tabs()->tabText(dialog->tabs()->count() - 1), QStringLiteral("&Desktop"));
        dialog->close();
    }
};

QTEST_MAIN(DesktopIntegrationTest)
#include "tst_desktop_integration.moc"
