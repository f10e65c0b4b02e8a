// The command line as a user types it: what each option turns into, and the message and
// exit code 2 for everything that can't be run.
#include "app/CommandLine.h"
#include "app/ReviewCommand.h"
#include "app/TranscribeCommand.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

namespace {

// What a command run gave: its exit code, standard output and standard error.
struct Ran
{
    int code = -1;
    QString out;
    QString err;
};

// All that was written to `file`; closes it.
QString readBack(std::FILE *file)
{
    std::rewind(file);
    QByteArray bytes;
    char buffer[512];
    while (const size_t read = std::fread(buffer, 1, sizeof buffer, file))
        bytes.append(buffer, qsizetype(read));
    std::fclose(file);
    return QString::fromUtf8(bytes);
}

// Runs the review command.
Ran review(const QString &path)
{
    std::FILE *out = std::tmpfile();
    std::FILE *err = std::tmpfile();
    Ran ran;
    ran.code = ReviewCommand::run(path, {60, 120}, out, err);
    ran.out = readBack(out);
    ran.err = readBack(err);
    return ran;
}

} // namespace

class CommandLineTest : public QObject
{
    Q_OBJECT

private:
    static CommandLine::Options options(const QStringList &arguments)
    {
        const auto parsed = CommandLine::parse(QStringList{QStringLiteral("ketterbloom")} + arguments);
        if (const auto *exit = std::get_if<CommandLine::Exit>(&parsed))
            qWarning("unexpected exit %d: %s", exit->code, qPrintable(exit->text));
        return std::get<CommandLine::Options>(parsed);
    }

private slots:
    void validCombinations()
    {
        const CommandLine::Options none = options({});
        QVERIFY(!none.start && !none.headless && !none.stopAfter);

        const CommandLine::Options headless = options({QStringLiteral("--headless"), QStringLiteral("--stop-after"),
                                                       QStringLiteral("2.5")});
        QVERIFY(headless.headless);
        QCOMPARE(headless.stopAfter, std::optional<double>(2.5));

        const CommandLine::Options window = options({QStringLiteral("--start"), QStringLiteral("--stop-after=30")});
        QVERIFY(window.start && !window.headless);
        QCOMPARE(window.stopAfter, std::optional<double>(30));

        QCOMPARE(options({QStringLiteral("--transcribe"), QStringLiteral("a b.wav")}).transcribe,
                 std::optional<QString>(QStringLiteral("a b.wav")));
        QVERIFY(options({QStringLiteral("--print-instructions")}).printInstructions);
        const CommandLine::Options service = options({QStringLiteral("--transcribe=a.wav"), QStringLiteral("--with-openai")});
        QVERIFY(service.transcribeWithService);
        QVERIFY(!options({QStringLiteral("--transcribe=a.wav")}).transcribeWithService);
        QCOMPARE(options({QStringLiteral("--review"), QStringLiteral("meeting_x.events.jsonl")}).review,
                 std::optional<QString>(QStringLiteral("meeting_x.events.jsonl")));
    }

    void helpAndVersionExitCleanly()
    {
        const auto help = CommandLine::parse({QStringLiteral("ketterbloom"), QStringLiteral("--help")});
        QCOMPARE(std::get<CommandLine::Exit>(help).code, 0);
        const QString text = std::get<CommandLine::Exit>(help).text;
        QVERIFY(text.startsWith(QStringLiteral("Usage: ketterbloom [options]")));
        for (const char *option : {"--start", "--headless", "--stop-after <seconds>", "--print-instructions",
                                   "--transcribe <file.wav>", "--version"})
            QVERIFY2(text.contains(QLatin1String(option)), option);
        const auto version = CommandLine::parse({QStringLiteral("ketterbloom"), QStringLiteral("-v")});
        QCOMPARE(std::get<CommandLine::Exit>(version).code, 0);
    }

    void refusedWithExitCode2_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<QString>("message");
        QTest::newRow("unknown option") << QStringList{QStringLiteral("--bogus")}
                                        << QStringLiteral("ketterbloom: Unknown option 'bogus'.");
        QTest::newRow("stray argument") << QStringList{QStringLiteral("notes.txt")}
                                        << QStringLiteral("ketterbloom: unexpected argument 'notes.txt'");
        QTest::newRow("missing value") << QStringList{QStringLiteral("--headless"), QStringLiteral("--stop-after")}
                                       << QStringLiteral("ketterbloom: Missing value after '--stop-after'.");
        QTest::newRow("not a number") << QStringList{QStringLiteral("--headless"), QStringLiteral("--stop-after"),
                                                     QStringLiteral("soon")}
                                      << QStringLiteral("ketterbloom: --stop-after needs a number of seconds above 0, not 'soon'");
        QTest::newRow("zero") << QStringList{QStringLiteral("--headless"), QStringLiteral("--stop-after=0")}
                              << QStringLiteral("ketterbloom: --stop-after needs a number of seconds above 0, not '0'");
        QTest::newRow("infinite") << QStringList{QStringLiteral("--headless"), QStringLiteral("--stop-after=inf")}
                                  << QStringLiteral("ketterbloom: --stop-after needs a number of seconds above 0, not 'inf'");
        QTest::newRow("no session to stop") << QStringList{QStringLiteral("--stop-after=5")}
                                            << QStringLiteral("ketterbloom: --stop-after only applies with --start, --headless or --demo");
        QTest::newRow("two modes") << QStringList{QStringLiteral("--headless"), QStringLiteral("--print-instructions")}
                                   << QStringLiteral("ketterbloom: --headless, --print-instructions, --transcribe, "
                                                     "--check-updates and --install-update can't be combined");
        QTest::newRow("check and install") << QStringList{QStringLiteral("--check-updates"), QStringLiteral("--install-update")}
                                           << QStringLiteral("ketterbloom: --headless, --print-instructions, --transcribe, "
                                                             "--check-updates and --install-update can't be combined");
        QTest::newRow("sample interview with a file") << QStringList{QStringLiteral("--demo"), QStringLiteral("--transcribe=a.wav")}
                                                      << QStringLiteral("ketterbloom: --demo can't be combined with --print-instructions, "
                                                                        "--transcribe, --check-updates or --install-update");
        QTest::newRow("service without a recording")
            << QStringList{QStringLiteral("--with-openai")}
            << QStringLiteral("ketterbloom: --with-openai only applies with --transcribe");
        QTest::newRow("review and a session") << QStringList{QStringLiteral("--review=a.events.jsonl"), QStringLiteral("--headless")}
                                              << QStringLiteral("ketterbloom: --review can't be combined with other options");
        QTest::newRow("review of nothing") << QStringList{QStringLiteral("--review=")}
                                           << QStringLiteral("ketterbloom: --review needs the path of a session's events log or transcript");
        QTest::newRow("start and transcribe")
            << QStringList{QStringLiteral("--start"), QStringLiteral("--transcribe=x.wav")}
            << QStringLiteral("ketterbloom: --start can't be combined with --print-instructions, --transcribe, "
                              "--check-updates or --install-update");
    }

    void refusedWithExitCode2()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, message);
        const auto parsed = CommandLine::parse(QStringList{QStringLiteral("ketterbloom")} + arguments);
        QVERIFY(std::holds_alternative<CommandLine::Exit>(parsed));
        const CommandLine::Exit exit = std::get<CommandLine::Exit>(parsed);
        QCOMPARE(exit.code, 2);
        QCOMPARE(exit.text, message + QStringLiteral("\nTry 'ketterbloom --help' for the options.\n"));
    }

    void transcribeProgressBar()
    {
        QCOMPARE(TranscribeCommand::progressLine(0, 90, 10), QStringLiteral("[··········]   0% (0s of 90s)"));
        QCOMPARE(TranscribeCommand::progressLine(45, 90, 10), QStringLiteral("[#####·····]  50% (45s of 90s)"));
        QCOMPARE(TranscribeCommand::progressLine(90.7, 90.7, 10), QStringLiteral("[##########] 100% (90s of 90s)"));
        // A file shorter than a second never divides by less than one.
        QCOMPARE(TranscribeCommand::progressLine(0.4, 0.4, 10), QStringLiteral("[####······]  40% (0s of 0s)"));
    }

    void transcribeRefusesAMissingFile()
    {
        std::FILE *out = std::tmpfile();
        std::FILE *err = std::tmpfile();
        QCOMPARE(TranscribeCommand::run(QStringLiteral("/nonexistent/meeting.wav"), out, err), 2);
        QCOMPARE(readBack(out), QString());
        QCOMPARE(readBack(err), QStringLiteral("ketterbloom: /nonexistent/meeting.wav: no such file\n"));
    }

    // --review writes the page beside the records and prints its path; a missing file or one
    // that is not a session's records is refused with exit code 2, an unwritable page with 1.
    void reviewCommand()
    {
        QTemporaryDir dir;
        const QString events = dir.filePath(QStringLiteral("meeting_2026-11-20_10-00-00.events.jsonl"));
        QVERIFY(QFile::copy(qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR")
                                + QStringLiteral("/tests/review/data/meeting_2026-11-20_10-00-00.events.jsonl"),
                            events));
        const QString page = dir.filePath(QStringLiteral("meeting_2026-11-20_10-00-00.review.html"));
        const Ran written = review(events);
        QCOMPARE(written.code, 0);
        QCOMPARE(written.out, page + QLatin1Char('\n'));
        QVERIFY(QFile::exists(page));

        const Ran missing = review(dir.filePath(QStringLiteral("gone.events.jsonl")));
        QCOMPARE(missing.code, 2);
        QCOMPARE(missing.err, QStringLiteral("ketterbloom: %1: no such file\n").arg(dir.filePath(QStringLiteral("gone.events.jsonl"))));
        QVERIFY(missing.out.isEmpty());

        const QString notes = dir.filePath(QStringLiteral("notes.txt"));
        QFile file(notes);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.close();
        QCOMPARE(review(notes).code, 2);

        QVERIFY(QFile::remove(page));
        QVERIFY(QDir(dir.path()).mkdir(QStringLiteral("meeting_2026-11-20_10-00-00.review.html")));
        const Ran unwritable = review(events);
        QCOMPARE(unwritable.code, 1);
        QVERIFY(unwritable.err.startsWith(QStringLiteral("ketterbloom: could not write the review page: ")));
    }
};

QTEST_GUILESS_MAIN(CommandLineTest)
#include "tst_app_commandline.moc"
