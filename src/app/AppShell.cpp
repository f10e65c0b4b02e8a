#include "app/AppShell.h"

#include "app/AppUpdates.h"
#include "app/DemoService.h"
#include "app/SessionStack.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"

#include <QCoreApplication>
#include <QProcess>

struct AppShell::Parts
{
    explicit Parts(DemoService *demo)
        : stackOwner(demo ? std::make_unique<SessionStack>(demo->settingsStore(), demo->secrets())
                          : std::make_unique<SessionStack>())
        , stack(*stackOwner)
    {
    }

    std::unique_ptr<SessionStack> stackOwner;
    SessionStack &stack;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<AppUpdates> updates;
};

AppShell::AppShell(DemoService *demo)
    : m_parts(std::make_unique<Parts>(demo))
{
    Theme::install();
    SessionStack &stack = m_parts->stack;
    m_parts->window = std::make_unique<MainWindow>(
        stack.settings, stack.controller,
        MainWindow::Services{stack.fileRevealer, stack.components.taps(), stack.components.audioEnvironment()});
    stack.recordingPicker.setParentWindow(m_parts->window.get());
    stack.recordingPrompt.setParentWindow(m_parts->window.get());
    m_parts->updates = std::make_unique<AppUpdates>(stack.controller, *m_parts->window, stack.settings.store());
    // The sample interview runs as a program of its own, with its own settings; "Add your key"
    // goes back to the real one, which opens its welcome while there is no key.
    MainWindow *window = m_parts->window.get();
    QObject::connect(window, &MainWindow::sampleInterviewRequested, window, [] {
        QProcess::startDetached(QCoreApplication::applicationFilePath(), {QStringLiteral("--demo")});
    });
    if (demo) {
        stack.controller.setDemo(true);
        window->showDemoRibbon();
        QObject::connect(window, &MainWindow::addKeyRequested, window, [demo] {
            QProcess ketterbloom;
            ketterbloom.setProgram(QCoreApplication::applicationFilePath());
            ketterbloom.setProcessEnvironment(demo->environmentBefore());
            ketterbloom.startDetached();
            QCoreApplication::quit();
        });
    }
}

// The window goes first, then the stack, whose controller stops a session still running.
AppShell::~AppShell() = default;

AppSettings &AppShell::settings() { return m_parts->stack.settings; }
SessionController &AppShell::controller() { return m_parts->stack.controller; }
MainWindow &AppShell::window() { return *m_parts->window; }

void AppShell::show()
{
    m_parts->window->show();
    m_parts->updates->start();
}
