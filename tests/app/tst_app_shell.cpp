// The application as a user starts it: the command line's terminal-only options, and the
// window that opens with no arguments and works without an API key.
#include "app/AppShell.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "ui/BannerView.h"
#include "ui/ControlBar.h"
#include "ui/MainWindow.h"
#include "ui/OnboardingDialog.h"
#include "ui/SettingsDialog.h"

#include <QApplication>
#include <QProcess>
#include <QPushButton>
#include <QTest>

class AppShellTest : public QObject
{
    Q_OBJECT

private:
    static QString binary()
    {
        return qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/bin/ketterbloom");
    }

    // Runs the program with no display at all: a GUI application could not start like that.
    static QByteArray runHeadless(const QStringList &arguments, int *exitCode)
    {
        QProcess process;
        QProcessEnvironment env = QProcessEnvironment::systemEnvironment();
        env.insert(QStringLiteral("QT_QPA_PLATFORM"), QStringLiteral("xcb"));
        env.remove(QStringLiteral("DISPLAY"));
        env.remove(QStringLiteral("WAYLAND_DISPLAY"));
        process.setProcessEnvironment(env);
        process.start(binary(), arguments);
        if (!process.waitForFinished(30000))
            return {};
        *exitCode = process.exitCode();
        return process.readAllStandardOutput();
    }

private slots:
    void terminalOptionsNeedNoDisplay()
    {
        if (!QFile::exists(binary()))
            QSKIP("the ketterbloom program is not built");
        int code = -1;
        QCOMPARE(runHeadless({QStringLiteral("--version")}, &code).trimmed(), QByteArray("Ketterbloom " KETTERBLOOM_VERSION));
        QCOMPARE(code, 0);
        const QByteArray instructions = runHeadless({QStringLiteral("--print-instructions")}, &code);
        QCOMPARE(code, 0);
        QVERIFY(instructions.contains("CONTEXT"));
    }

    // The answer style is part of what --print-instructions shows.
    void printInstructionsShowsTheAnswerStyle()
    {
        if (!QFile::exists(binary()))
            QSKIP("the ketterbloom program is not built");
        {
            const auto store = AppSettings::openDefaultStore();
            store->setValue(QStringLiteral("answerLength"), QStringLiteral("brief"));
            store->setValue(QStringLiteral("answerLanguage"), QStringLiteral("Spanish"));
        }
        int code = -1;
        const QByteArray instructions = runHeadless({QStringLiteral("--print-instructions")}, &code);
        {
            const auto store = AppSettings::openDefaultStore();
            store->remove(QStringLiteral("answerLength"));
            store->remove(QStringLiteral("answerLanguage"));
        }
        QCOMPARE(code, 0);
        QVERIFY(instructions.endsWith("what is new instead of restating it.\n\n"
                                      "Keep every answer brief: two or three sentences that can be said aloud as they stand.\n"
                                      "Always answer in Spanish, whatever language the question is asked in."));
    }

    void windowOpensAndWorksWithoutAKey()
    {
        AppShell shell;
        QVERIFY(shell.settings().apiKey().isEmpty());
        shell.show();
        MainWindow &window = shell.window();
        QVERIFY(QTest::qWaitForWindowExposed(&window));
        QCOMPARE(window.windowTitle(), QStringLiteral("Ketterbloom"));
        // First run: the onboarding asks for the key.
        QTRY_VERIFY(window.onboardingDialog() && window.onboardingDialog()->isVisible());
        window.onboardingDialog()->close();

        window.controlBar()->startStopButton()->click();
        QCOMPARE(shell.controller().banner(), QStringLiteral("Add your OpenAI API key before starting."));
        QCOMPARE(window.bannerView()->buttonLabels(), QStringList{QStringLiteral("Open Settings")});
        emit window.bannerView()->actionTriggered();
        QTRY_VERIFY(window.settingsDialog() && window.settingsDialog()->isVisible());
        QVERIFY(!shell.controller().isSessionActive());
        QCOMPARE(window.controlBar()->startStopButton()->text(), QStringLiteral("Start"));
    }
};

QTEST_MAIN(AppShellTest)
#include "tst_app_shell.moc"
