#include "app/AppShell.h"
#include "app/CommandLine.h"
#include "app/ConsoleText.h"
#include "app/HeadlessRunner.h"
#include "app/SessionStack.h"
#include "app/TerminationSignals.h"
#include "app/TranscribeCommand.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"

#include <QApplication>
#include <QCoreApplication>
#include <QLoggingCategory>
#include <QTimer>

#include <cstdio>

namespace {

int printInstructions(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const AppSettings settings;
    ConsoleText::write(stdout, settings.instructions());
    return 0;
}

int transcribe(int argc, char *argv[], const QString &wavPath)
{
    QCoreApplication app(argc, argv);
    return TranscribeCommand::run(wavPath, stdout, stderr);
}

int runHeadless(int argc, char *argv[], const CommandLine::Options &options)
{
    QCoreApplication app(argc, argv);
    // Standard error carries the banners; diagnostics only when asked for.
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("ketterbloom.*.info=false"));
    SessionStack stack;
    HeadlessRunner runner(stack.controller, stdout, stderr, options.stopAfter);
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::terminationRequested, &runner, &HeadlessRunner::requestStop);
    QObject::connect(&runner, &HeadlessRunner::finished, &app, [](int code) { QCoreApplication::exit(code); });
    QTimer::singleShot(0, &runner, &HeadlessRunner::run);
    return QCoreApplication::exec();
}

int runWindow(int argc, char *argv[], const CommandLine::Options &options)
{
    QApplication app(argc, argv);
    QApplication::setApplicationDisplayName(QStringLiteral("Ketterbloom"));
    QApplication::setDesktopFileName(QStringLiteral("ketterbloom"));
    AppShell shell;
    shell.show();
    SessionController &controller = shell.controller();
    if (options.start)
        QTimer::singleShot(0, &controller, &SessionController::start);
    if (options.stopAfter) {
        QTimer::singleShot(qRound64(*options.stopAfter * 1000.0), &controller, [&controller] {
            controller.stop();
            QCoreApplication::quit();
        });
    }
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::terminationRequested, &app, [] { QCoreApplication::quit(); });
    return QApplication::exec();
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication::setApplicationName(QStringLiteral("Ketterbloom"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KETTERBLOOM_VERSION));

    QStringList arguments;
    for (int i = 0; i < argc; ++i)
        arguments.append(QString::fromLocal8Bit(argv[i]));
    const auto parsed = CommandLine::parse(arguments);
    if (const auto *exit = std::get_if<CommandLine::Exit>(&parsed)) {
        ConsoleText::write(exit->code == 0 ? stdout : stderr, exit->text);
        return exit->code;
    }
    const auto &options = std::get<CommandLine::Options>(parsed);
    if (options.printInstructions)
        return printInstructions(argc, argv);
    if (options.transcribe)
        return transcribe(argc, argv, *options.transcribe);
    if (options.headless)
        return runHeadless(argc, argv, options);
    return runWindow(argc, argv, options);
}
