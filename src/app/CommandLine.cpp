#include "app/CommandLine.h"

#include <QCommandLineParser>
#include <QCoreApplication>
#include <QRegularExpression>

#include <cmath>

namespace {
QString usageHint()
{
    return QCoreApplication::translate("CommandLine", "Try 'ketterbloom --help' for the options.\n");
}

CommandLine::Exit usageError(const QString &message)
{
    return {2, QStringLiteral("ketterbloom: ") + message + QLatin1Char('\n') + usageHint()};
}
} // namespace

std::variant<CommandLine::Options, CommandLine::Exit> CommandLine::parse(const QStringList &arguments)
{
    QCommandLineParser parser;
    parser.setApplicationDescription(tr("Live interview copilot: listens to the meeting, shows each question with a "
                                        "drafted answer, and keeps a transcript of the session."));
    const QCommandLineOption help({QStringLiteral("h"), QStringLiteral("help")}, tr("Show this help and exit."));
    const QCommandLineOption version({QStringLiteral("v"), QStringLiteral("version")},
                                     tr("Show the version and exit."));
    const QCommandLineOption start(QStringLiteral("start"), tr("Begin a session at launch."));
    const QCommandLineOption headless(
        QStringLiteral("headless"),
        tr("Run a session without a window: each question and its answer are printed to standard "
           "output as Markdown, messages to standard error. Ctrl-C stops and saves the session."));
    const QCommandLineOption stopAfter(QStringLiteral("stop-after"),
                                       tr("Stop the session by itself after <seconds>."),
                                       QStringLiteral("seconds"));
    const QCommandLineOption printInstructions(
        QStringLiteral("print-instructions"),
        tr("Write the model instructions assembled from the saved settings to standard output."));
    const QCommandLineOption transcribe(QStringLiteral("transcribe"),
                                        tr("Transcribe a saved recording on this computer and print "
                                           "the transcript's path."),
                                        QStringLiteral("file.wav"));
    const QCommandLineOption withService(
        QStringLiteral("with-openai"),
        tr("With --transcribe: send the recording's audio (both sides of the conversation) to OpenAI's "
           "transcription service with the transcription model and key of Settings, instead of "
           "transcribing on this computer. The service charges for it."));
    const QCommandLineOption nativeWayland(
        QStringLiteral("native-wayland"),
        tr("On a Wayland desktop, show the window natively instead of through XWayland "
           "(the window then can't stay on top of others)."));
    const QCommandLineOption checkUpdates(
        QStringLiteral("check-updates"),
        tr("Ask the system's package management (PackageKit) whether a newer Ketterbloom is available "
           "and print the answer. Exit status: 0 an update is available, 1 up to date, 2 could not "
           "check."));
    const QCommandLineOption installUpdate(
        QStringLiteral("install-update"),
        tr("Install a newer Ketterbloom through PackageKit (the desktop may ask for your password); "
           "refused while the open window has a session running. Exit status: 0 installed, 1 up to "
           "date, 2 not installed."));
    const QCommandLineOption demo(
        QStringLiteral("demo"),
        tr("Run a sample interview: scripted questions and answers from a local stand-in for the "
           "service. No key, nothing sent anywhere, your settings untouched. With --headless, in this "
           "terminal."));
    const QCommandLineOption review(
        QStringLiteral("review"),
        tr("Write the review page of a saved session (its figures, timeline and answers) beside its "
           "records, from its events log or transcript, and print the page's path."),
        QStringLiteral("events.jsonl|transcript.md"));
    parser.addOptions({help, version, start, headless, stopAfter, printInstructions, transcribe, withService,
                       nativeWayland, checkUpdates, installUpdate, demo, review});

    if (!parser.parse(arguments))
        return usageError(parser.errorText());
    if (parser.isSet(help))
        // The usage line names the program as users type it, not the path it was run from.
        return Exit{0, parser.helpText().replace(QRegularExpression(QStringLiteral("^Usage: \\S+")),
                                                 QStringLiteral("Usage: ketterbloom"))};
    if (parser.isSet(version)) {
        return Exit{0, QCoreApplication::applicationName() + QLatin1Char(' ')
                           + QCoreApplication::applicationVersion() + QLatin1Char('\n')};
    }
    if (!parser.positionalArguments().isEmpty())
        return usageError(tr("unexpected argument '%1'").arg(parser.positionalArguments().first()));

    Options options;
    options.start = parser.isSet(start);
    options.headless = parser.isSet(headless);
    options.printInstructions = parser.isSet(printInstructions);
    options.nativeWayland = parser.isSet(nativeWayland);
    options.checkUpdates = parser.isSet(checkUpdates);
    options.installUpdate = parser.isSet(installUpdate);
    options.demo = parser.isSet(demo);
    if (parser.isSet(transcribe)) {
        const QString path = parser.value(transcribe);
        if (path.isEmpty())
            return usageError(tr("--transcribe needs the path of a WAV file"));
        options.transcribe = path;
    }
    if (parser.isSet(review)) {
        const QString path = parser.value(review);
        if (path.isEmpty())
            return usageError(tr("--review needs the path of a session's events log or transcript"));
        QStringList others = parser.optionNames();
        others.removeAll(QStringLiteral("review"));
        if (!others.isEmpty())
            return usageError(tr("--review can't be combined with other options"));
        options.review = path;
        return options;
    }
    options.transcribeWithService = parser.isSet(withService);
    if (options.transcribeWithService && !options.transcribe)
        return usageError(tr("--with-openai only applies with --transcribe"));
    if (parser.isSet(stopAfter)) {
        bool ok = false;
        const double seconds = parser.value(stopAfter).toDouble(&ok);
        if (!ok || !std::isfinite(seconds) || seconds <= 0)
            return usageError(tr("--stop-after needs a number of seconds above 0, not '%1'")
                                  .arg(parser.value(stopAfter)));
        if (!options.start && !options.headless && !options.demo)
            return usageError(tr("--stop-after only applies with --start, --headless or --demo"));
        options.stopAfter = seconds;
    }
    const int modes = int(options.headless) + int(options.printInstructions) + int(options.transcribe.has_value())
                      + int(options.checkUpdates) + int(options.installUpdate);
    if (modes > 1)
        return usageError(tr("--headless, --print-instructions, --transcribe, --check-updates and "
                             "--install-update can't be combined"));
    if (options.start && modes > int(options.headless))
        return usageError(tr("--start can't be combined with --print-instructions, --transcribe, "
                             "--check-updates or --install-update"));
    if (options.demo && (options.printInstructions || options.transcribe || options.checkUpdates || options.installUpdate))
        return usageError(tr("--demo can't be combined with --print-instructions, --transcribe, "
                             "--check-updates or --install-update"));
    return options;
}
