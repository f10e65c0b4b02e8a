#include "app/AppShell.h"
#include "app/CommandLine.h"
#include "app/ConsoleText.h"
#include "app/DemoService.h"
#include "app/DesktopIntegration.h"
#include "app/HeadlessRunner.h"
#include "app/PlatformChoice.h"
#include "app/ReviewCommand.h"
#include "app/SessionStack.h"
#include "app/TerminationSignals.h"
#include "app/TranscribeCommand.h"
#include "app/UpdateCommand.h"
#include "session/QAPair.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "settings/StoreReader.h"
#include "singleinstance/SingleInstance.h"
#include "ui/MainWindow.h"
#include "ui/ScreenQuestionFlow.h"

#include <QAction>
#include <QApplication>
#include <QCoreApplication>
#include <QFileInfo>
#include <QLibraryInfo>
#include <QLoggingCategory>
#include <QTimer>

#include <cstdio>
#include <memory>
#include <vector>

namespace {

constexpr const char *demoNotice =
    QT_TRANSLATE_NOOP("main", "A sample interview: the questions and answers are scripted, from a local stand-in for "
                              "the service (no key, nothing sent anywhere). About two minutes; Ctrl-C stops it.");

int printInstructions(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    const AppSettings settings;
    ConsoleText::write(stdout, settings.instructions());
    return 0;
}

int transcribe(int argc, char *argv[], const CommandLine::Options &options)
{
    QCoreApplication app(argc, argv);
    std::optional<AudioTranscriptionConfig> service;
    if (options.transcribeWithService) {
        const AppSettings settings;
        service = AudioTranscriptionConfig{settings.apiKey().trimmed(), settings.transcribeModel(),
                                           settings.transcriptionLanguage()};
    }
    return TranscribeCommand::run(*options.transcribe, stdout, stderr, service);
}

int review(int argc, char *argv[], const QString &path)
{
    QCoreApplication app(argc, argv);
    const AppSettings settings;
    return ReviewCommand::run(path, {settings.answerTargetMinSeconds(), settings.answerTargetMaxSeconds()}, stdout, stderr);
}

int updates(int argc, char *argv[], UpdateCommand::Mode mode)
{
    QCoreApplication app(argc, argv);
    // The outcome is printed; the updater's diagnostics only when asked for.
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("ketterbloom.*.info=false"));
    return UpdateCommand::run(mode, stdout, stderr);
}

int runHeadless(int argc, char *argv[], const CommandLine::Options &options)
{
    QCoreApplication app(argc, argv);
    // Standard error carries the banners; diagnostics only when asked for.
    if (qEnvironmentVariableIsEmpty("QT_LOGGING_RULES"))
        QLoggingCategory::setFilterRules(QStringLiteral("ketterbloom.*.info=false"));
    // The sample interview's stand-in goes after the session that talks to it.
    DemoService demo;
    std::unique_ptr<SessionStack> stackOwner;
    if (options.demo) {
        if (const std::optional<QString> error = demo.start()) {
            ConsoleText::writeError(stderr, *error);
            return 1;
        }
        stackOwner = std::make_unique<SessionStack>(demo.settingsStore(), demo.secrets());
        stackOwner->controller.setDemo(true);
        ConsoleText::write(stderr, QCoreApplication::translate("main", demoNotice) + QLatin1Char('\n'));
    } else {
        stackOwner = std::make_unique<SessionStack>();
    }
    SessionStack &stack = *stackOwner;
    HeadlessRunner runner(stack.controller, stdout, stderr, options.stopAfter);
    stack.recordingEnd.setStop([&runner] { runner.requestStop(); });
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::terminationRequested, &runner, &HeadlessRunner::requestStop);
    QObject::connect(&runner, &HeadlessRunner::finished, &app, [](int code) { QCoreApplication::exit(code); });
    QTimer::singleShot(0, &runner, &HeadlessRunner::run);
    return QCoreApplication::exec();
}

// Decided before the QApplication exists, since it picks the display connection.
PlatformChoice choosePlatform(const CommandLine::Options &options)
{
    PlatformChoice::Inputs inputs;
    inputs.waylandDisplay = qgetenv("WAYLAND_DISPLAY");
    inputs.x11Display = qgetenv("DISPLAY");
    inputs.qpaPlatform = qgetenv("QT_QPA_PLATFORM");
    const std::unique_ptr<QSettings> store = AppSettings::openDefaultStore();
    inputs.useXWaylandSetting = StoreReader::boolean(*store, QLatin1String(PlatformChoice::settingKey)).value_or(true);
    inputs.nativeWaylandFlag = options.nativeWayland;
    inputs.waylandPluginInstalled = PlatformChoice::waylandPluginIn(qgetenv("QT_PLUGIN_PATH"),
                                                                    QLibraryInfo::path(QLibraryInfo::PluginsPath));
    return PlatformChoice::choose(inputs);
}

// The sample interview in a window of its own (beside the user's own window, if one is open):
// it starts at once, and the session stops at the recording's end.
int runDemoWindow(const CommandLine::Options &options)
{
    DemoService demo;
    if (const std::optional<QString> error = demo.start()) {
        ConsoleText::writeError(stderr, *error);
        return 1;
    }
    AppShell shell(&demo);
    shell.show();
    SessionController &controller = shell.controller();
    QTimer::singleShot(0, &controller, &SessionController::start);
    // Tests: a picture of the window mid-interview, once the fourth answer is complete.
    const QString picture = qEnvironmentVariable("KETTERBLOOM_DEMO_PICTURE");
    if (!picture.isEmpty()) {
        MainWindow &window = shell.window();
        QObject::connect(&controller.cards(), &QAbstractItemModel::dataChanged, &window, [&window, &controller, picture] {
            int complete = 0;
            for (const QAPair &pair : controller.pairs())
                complete += pair.isComplete ? 1 : 0;
            if (complete == 4 && !QFileInfo::exists(picture))
                window.grab().save(picture);
        });
    }
    if (options.stopAfter) {
        QTimer::singleShot(qRound64(*options.stopAfter * 1000.0), &controller, [&controller] {
            controller.stop();
            QCoreApplication::quit();
        });
    }
    TerminationSignals termination;
    QObject::connect(&termination, &TerminationSignals::terminationRequested, qApp, [] { QCoreApplication::quit(); });
    return QApplication::exec();
}

int runWindow(int argc, char *argv[], const CommandLine::Options &options)
{
    const PlatformChoice platform = choosePlatform(options);
    if (platform.noDisplay) {
        ConsoleText::write(stderr, QCoreApplication::translate("PlatformChoice", PlatformChoice::noDisplayMessage)
                                       + QLatin1Char('\n'));
        return 1;
    }
    if (platform.waylandPluginMissing)
        ConsoleText::writeError(stderr, QCoreApplication::translate("PlatformChoice", PlatformChoice::waylandPluginMissingMessage));
    // "-platform <name>" on the QApplication's own command line, so that programs started
    // from the window (file manager, browser) don't inherit the choice.
    std::vector<char *> arguments(argv, argv + argc);
    QByteArray platformOption("-platform");
    QByteArray platformName = platform.platform;
    if (!platformName.isEmpty()) {
        arguments.push_back(platformOption.data());
        arguments.push_back(platformName.data());
    }
    arguments.push_back(nullptr);
    int count = int(arguments.size()) - 1;
    QApplication app(count, arguments.data());
    QApplication::setApplicationDisplayName(QStringLiteral("Ketterbloom"));
    QApplication::setDesktopFileName(QStringLiteral("ketterbloom"));

    if (options.demo)
        return runDemoWindow(options);

    // One window per user: a later launch brings this one forward (and starts a session).
    // One per settings file, so that a copy run with a home of its own (tests) stays apart.
    SingleInstance instance(SingleInstance::defaultDirectory(), AppSettings::openDefaultStore()->fileName());
    const SingleInstance::Outcome claim = instance.claim({options.start});
    switch (claim.role) {
    case SingleInstance::Role::handedOver: return 0;
    case SingleInstance::Role::failed:
        ConsoleText::writeError(stderr, claim.error);
        return 1;
    case SingleInstance::Role::alone:
        ConsoleText::writeError(stderr, QCoreApplication::translate("main", "%1 Another launch will open a second window.")
                                            .arg(claim.error));
        break;
    case SingleInstance::Role::primary: break;
    }

    AppShell shell;
    // `ketterbloom --install-update` asks first, and waits while a session runs.
    instance.setSessionQuery([&shell] { return shell.controller().isSessionActive(); });
    DesktopIntegration desktop(shell, platform);
    QObject::connect(&instance, &SingleInstance::requested, &desktop,
                     [&desktop](const SingleInstance::Request &request) { desktop.handleLaunchRequest(request.start); });
    // Answer from screen: the window's own action, which says why when no session runs.
    MainWindow &window = shell.window();
    desktop.addAction({QStringLiteral("answer-from-screen"), ScreenQuestionFlow::actionText(),
                       QKeySequence(Qt::CTRL | Qt::ALT | Qt::SHIFT | Qt::Key_A)},
                      [&window] {
                          ScreenQuestionFlow &screen = *window.screenQuestion();
                          if (!screen.action()->isEnabled()) {
                              window.show();
                              window.raise();
                              window.activateWindow();
                          }
                          screen.start();
                      });
    shell.show();
    desktop.start();
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
        return transcribe(argc, argv, options);
    if (options.review)
        return review(argc, argv, *options.review);
    if (options.headless)
        return runHeadless(argc, argv, options);
    if (options.checkUpdates || options.installUpdate)
        return updates(argc, argv, options.checkUpdates ? UpdateCommand::Mode::check : UpdateCommand::Mode::install);
    return runWindow(argc, argv, options);
}
