#include "app/UpdateCommand.h"

#include "app/ConsoleText.h"
#include "settings/AppSettings.h"
#include "singleinstance/SingleInstance.h"
#include "updates/DpkgPackageDatabase.h"
#include "updates/UpdateController.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QSettings>

UpdateCommand::UpdateCommand(std::FILE *out, std::FILE *err)
    : m_out(out)
    , m_err(err)
{
}

void UpdateCommand::showBanner(const QString &text, std::optional<Action> action)
{
    Q_UNUSED(action);
    m_last = text;
}

Result<void> UpdateCommand::relaunch(const QString &)
{
    return Result<void>::failure(tr("a terminal command does not restart"));
}

int UpdateCommand::run(Mode mode, std::FILE *out, std::FILE *err)
{
    const std::unique_ptr<QSettings> store = AppSettings::openDefaultStore();
    if (mode == Mode::install) {
        SingleInstance window(SingleInstance::defaultDirectory(), store->fileName());
        const SingleInstance::Status status = window.status();
        if (status.sessionRunning || !status.error.isEmpty()) {
            ConsoleText::writeError(err, status.sessionRunning
                                             ? tr("not installing while a session is running in the open Ketterbloom "
                                                  "window. Stop it first.")
                                             : tr("not installing: %1").arg(status.error));
            return exitNotDone;
        }
    }

    UpdateCommand command(out, err);
    DpkgPackageDatabase packages;
    UpdateController controller(UpdateController::Components{command, packages, QDBusConnection::systemBus(), *store,
                                                              QCoreApplication::applicationFilePath(), {}, 2000,
                                                              QString::fromLatin1(updateSourcePath)});
    int code = exitNotDone;
    bool done = false;
    const auto finish = [&command, &code, &done](int exitCode, bool success) {
        ConsoleText::write(success ? command.m_out : command.m_err, command.m_last + QLatin1Char('\n'));
        code = exitCode;
        done = true;
        QCoreApplication::exit(0);
    };
    QObject::connect(&controller, &UpdateController::checkAnswered, &controller,
                     [&](UpdateController::CheckOutcome outcome) {
                         switch (outcome) {
                         case UpdateController::CheckOutcome::available:
                             if (mode == Mode::check)
                                 return finish(exitAvailable, true);
                             ConsoleText::write(out, command.m_last + QLatin1Char('\n'));
                             // "Installing…": the desktop's password prompt may come next.
                             controller.installUpdate();
                             ConsoleText::write(out, command.m_last + QLatin1Char('\n'));
                             return;
                         case UpdateController::CheckOutcome::upToDate: return finish(exitUpToDate, true);
                         case UpdateController::CheckOutcome::notChecked: return finish(exitNotDone, false);
                         }
                     });
    QObject::connect(&controller, &UpdateController::installAnswered, &controller,
                     [&](bool installed) { finish(installed ? exitInstalled : exitNotDone, installed); });
    controller.checkForUpdates();
    if (!done)
        QCoreApplication::exec();
    return code;
}
