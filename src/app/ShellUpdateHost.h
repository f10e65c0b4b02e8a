#pragma once

#include "updates/UpdateHost.h"

class MainWindow;
class SessionController;

// The updater's view of the running application: the session controller's banner and
// session flag, and a relaunch that keeps the window's frame for the next launch.
class ShellUpdateHost final : public UpdateHost
{
public:
    ShellUpdateHost(SessionController &controller, MainWindow &window);

    bool isSessionActive() const override;
    void showBanner(const QString &text, std::optional<Action> action) override;
    void clearBanner(const QString &text) override;
    Result<void> relaunch(const QString &executable) override;

private:
    SessionController &m_controller;
    MainWindow &m_window;
};
