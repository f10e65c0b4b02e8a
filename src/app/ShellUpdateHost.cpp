#include "app/ShellUpdateHost.h"

#include "session/SessionController.h"
#include "ui/MainWindow.h"
#include "updates/Relaunch.h"

#include <QCoreApplication>
#include <QTimer>

ShellUpdateHost::ShellUpdateHost(SessionController &controller, MainWindow &window)
    : m_controller(controller)
    , m_window(window)
{
}

bool ShellUpdateHost::isSessionActive() const
{
    return m_controller.isSessionActive();
}

void ShellUpdateHost::showBanner(const QString &text, std::optional<Action> action)
{
    if (!action) {
        // Cleared first so that no button of an earlier banner stays beside this line.
        m_controller.setBannerText(std::nullopt);
        m_controller.setBannerText(text);
        return;
    }
    m_controller.setBanner(text, *action == Action::installUpdate ? SessionController::BannerAction::installUpdate
                                                                  : SessionController::BannerAction::restartNow);
}

void ShellUpdateHost::clearBanner(const QString &text)
{
    if (m_controller.bannerText() == text)
        m_controller.setBannerText(std::nullopt);
}

Result<void> ShellUpdateHost::relaunch(const QString &executable)
{
    // The next launch restores the frame written now.
    m_window.saveFrame();
    if (auto started = Relaunch::afterExit(QCoreApplication::applicationPid(), executable, {}); !started.ok())
        return started;
    QTimer::singleShot(0, qApp, [] { QCoreApplication::quit(); });
    return {};
}
