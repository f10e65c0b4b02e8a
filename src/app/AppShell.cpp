#include "app/AppShell.h"

#include "app/AppUpdates.h"
#include "app/SessionStack.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"

struct AppShell::Parts
{
    SessionStack stack;
    std::unique_ptr<MainWindow> window;
    std::unique_ptr<AppUpdates> updates;
};

AppShell::AppShell()
    : m_parts(std::make_unique<Parts>())
{
    Theme::install();
    SessionStack &stack = m_parts->stack;
    m_parts->window = std::make_unique<MainWindow>(
        stack.settings, stack.controller,
        MainWindow::Services{stack.fileRevealer, stack.components.taps(), stack.components.audioEnvironment()});
    stack.recordingPicker.setParentWindow(m_parts->window.get());
    stack.recordingPrompt.setParentWindow(m_parts->window.get());
    m_parts->updates = std::make_unique<AppUpdates>(stack.controller, *m_parts->window, stack.settings.store());
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
