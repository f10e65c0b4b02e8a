#include "app/AppUpdates.h"

#include "app/UpdateCommand.h"
#include "session/SessionSnapshot.h"
#include "ui/MainWindow.h"

#include <QCoreApplication>
#include <QDBusConnection>

AppUpdates::AppUpdates(SessionController &controller, MainWindow &window, QSettings &store)
    : m_host(controller, window)
    , m_updates(UpdateController::Components{m_host, m_packages, QDBusConnection::systemBus(), store,
                                             QCoreApplication::applicationFilePath(), {}, 2000,
                                             QString::fromLatin1(UpdateCommand::updateSourcePath)})
{
    QObject::connect(&window, &MainWindow::checkForUpdatesRequested, &m_updates, &UpdateController::checkForUpdates);
    QObject::connect(&window, &MainWindow::installUpdateRequested, &m_updates, &UpdateController::installUpdate);
    QObject::connect(&window, &MainWindow::restartRequested, &m_updates, &UpdateController::restartNow);
    QObject::connect(&SessionEvents::instance(), &SessionEvents::sessionEnded, &m_updates,
                     &UpdateController::sessionEnded);
}
