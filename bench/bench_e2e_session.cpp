// bench_e2e_session: a whole scripted interview through the real program, timed.
//
// Brings up a private sound server, the realtime simulator behind a timing relay, and
// `ketterbloom --headless` with recording and the transcription of the user's answers on. A
// question is spoken into the "speakers" sink every 20-30 s and a recorded voice answers into a
// virtual microphone. Prints the app's CPU time per minute of session, its peak memory, the
// latency from the end of each question's audio to its transcript and first answer text as the
// simulator sent them and as the app logged them, and the meeting audio that never reached
// the simulator.
//
//   bench_e2e_session [--seconds N]          (or KETTERBLOOM_BENCH_SECONDS; default 600)
//   KETTERBLOOM_BENCH_KEEP=1 keeps the temporary folder with the session's records.

#include "E2eHarness.h"
#include "EventsLogWatch.h"
#include "PrivateSoundServer.h"
#include "ProcessSampler.h"
#include "SessionStats.h"
#include "SoundServer.h"
#include "TestSignals.h"
#include "TimingRelay.h"

#include <QCoreApplication>
#include <QDir>
#include <QFile>
#include <QJsonArray>
#include <QJsonObject>
#include <QPointer>
#include <QProcess>
#include <QTemporaryDir>
#include <QThread>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <optional>
#include <thread>
#include <vector>

#include <time.h>

using namespace e2e;
using namespace benchstats;

namespace {

const char *const kQuestions[] = {
    "Can you tell us a little about yourself?",
    "Why do you want to work here?",
    "Tell me about a project you led.",
    "What was the hardest bug you ever fixed?",
    "How do you handle a disagreement with a colleague?",
    "What would you do in your first ninety days?",
    "Describe a time you missed a deadline.",
    "How do you decide what to test?",
    "What is your experience with distributed systems?",
    "How do you keep a large code base healthy?",
    "Tell me about a time you changed your mind.",
    "What does good code review look like to you?",
    "How do you mentor junior engineers?",
    "Describe a system you designed from scratch.",
    "How do you estimate the size of a task?",
    "What would your last manager say about you?",
    "How do you deal with an outage at night?",
    "What is a technology you would rather avoid?",
    "How do you learn a new programming language?",
    "Tell me about a failure and what you learned.",
    "How do you balance speed and quality?",
    "What kind of team do you work best in?",
    "How would you improve our product?",
    "Where do you see yourself in five years?",
    "What questions do you have for us?",
    "How do you measure the success of a feature?",
    "Describe your ideal working day.",
    "How do you handle vague requirements?",
    "What motivates you at work?",
    "Why should we hire you?",
};
constexpr int kQuestionCount = int(sizeof(kQuestions) / sizeof(kQuestions[0]));

const char *const kAnswers[] = {
    "I have eight years of backend experience and most recently led the billing platform team through a migration "
    "that moved twelve services to a new data store with no downtime and a forty percent cost saving.",
    "Start from the user's problem, agree on one measurable goal with the team, ship the smallest useful slice in "
    "two weeks, then review the numbers together and decide what to keep and what to drop.",
    "I would listen first, read the incident history and the roadmap, ship one small fix in the second week to "
    "learn the release path, and then propose a short plan with the team's own priorities at the top.",
};

std::int64_t monotonicNs()
{
    return TimingRelay::monotonicNs();
}

void sleepUntil(std::int64_t monotonic)
{
    const std::int64_t left = monotonic - monotonicNs();
    if (left > 0)
        std::this_thread::sleep_for(std::chrono::nanoseconds(left));
}

void sleepSeconds(double seconds)
{
    sleepUntil(monotonicNs() + std::int64_t(seconds * 1e9));
}

// Plays a file to its end. paplay exits once its stream has drained, i.e. when the server has
// played its last sample into the sink; returns that moment (monotonic), or 0 on failure.
std::int64_t play(const QString &wav, const QString &device)
{
    QProcess player;
    player.start(QStringLiteral("paplay"), {QStringLiteral("--device=") + device, wav});
    if (!player.waitForStarted(5000))
        return 0;
    if (!player.waitForFinished(60000)) {
        player.kill();
        player.waitForFinished(2000);
        return 0;
    }
    const std::int64_t end = monotonicNs();
    return player.exitStatus() == QProcess::NormalExit && player.exitCode() == 0 ? end : 0;
}

// The first number found under `key` anywhere in a JSON tree.
QString firstLine(const QString &program, const QStringList &args, const QString &containing = {})
{
    const kbtest::CommandResult result = kbtest::run(program, args, 5000);
    for (const QString &line : (result.out + result.err).split(QLatin1Char('\n'))) {
        if (line.contains(containing))
            return line.trimmed();
    }
    return {};
}

struct Question
{
    QString text;
    QString wav;
    std::int64_t playedNs = 0;   // paplay drained
};

struct Row
{
    QString text;
    std::optional<double> simCard, appCard, simText, appText;   // seconds after the end of speech
};

int fail(const char *what)
{
    std::fprintf(stderr, "bench_e2e_session: %s\n", what);
    return 1;
}

} // namespace

int main(int argc, char *argv[])
{
    QCoreApplication application(argc, argv);

    int seconds = 600;
    if (qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_SECONDS"))
        seconds = qEnvironmentVariableIntValue("KETTERBLOOM_BENCH_SECONDS");
    const QStringList args = application.arguments();
    const int at = int(args.indexOf(QStringLiteral("--seconds")));
    if (at > 0 && at + 1 < args.size())
        seconds = args.at(at + 1).toInt();
    if (seconds < 40)
        return fail("the session must last at least 40 seconds (--seconds N)");
    if (!qEnvironmentVariableIsSet("KETTERBLOOM_EXE"))
        qputenv("KETTERBLOOM_EXE", KB_BENCH_APP_EXE);
    if (!qEnvironmentVariableIsSet("KETTERBLOOM_SIM_EXE"))
        qputenv("KETTERBLOOM_SIM_EXE", KB_BENCH_SIM_EXE);

    QTemporaryDir dir(QDir::tempPath() + QStringLiteral("/kb-bench-XXXXXX"));
    if (!dir.isValid())
        return fail("no temporary folder");
    dir.setAutoRemove(!qEnvironmentVariableIsSet("KETTERBLOOM_BENCH_KEEP"));   // keep the session's files to look at
    PrivateSoundServer server(dir.filePath(QStringLiteral("sound")));
    if (dir.autoRemove())
        PrivateSoundServer::removeOnSignal(dir.path());
    std::fprintf(stderr, "Starting a private sound server in %s ...\n", qPrintable(dir.path()));
    if (!server.start())
        return fail("the private sound server did not start");

    // Test audio: the questions, spoken, and the user's answer, a recorded voice said three times.
    std::vector<Question> questions;
    for (int i = 0; i < kQuestionCount; ++i) {
        Question q{QString::fromLatin1(kQuestions[i]), dir.filePath(QStringLiteral("q%1.wav").arg(i)), 0};
        if (!kbtest::makeSpeech(q.wav, q.text))
            return fail("espeak-ng could not make the questions");
        questions.push_back(q);
    }
    const QString clip = QStringLiteral("/usr/share/pocketsphinx/test/data/goforward.raw");
    const QString answerWav = dir.filePath(QStringLiteral("answer.wav"));
    if (!kbtest::run(QStringLiteral("sox"), {QStringLiteral("-t"), QStringLiteral("raw"), QStringLiteral("-r"), QStringLiteral("16000"),
                                             QStringLiteral("-e"), QStringLiteral("signed"), QStringLiteral("-b"), QStringLiteral("16"),
                                             QStringLiteral("-c"), QStringLiteral("1"), clip, QStringLiteral("-r"), QStringLiteral("48000"),
                                             answerWav, QStringLiteral("pad"), QStringLiteral("0"), QStringLiteral("0.7"),
                                             QStringLiteral("repeat"), QStringLiteral("2")})
             .ok())
        return fail("sox could not make the user's answer (is pocketsphinx-testdata installed?)");

    kbtest::ServerModules modules;
    if (!modules.virtualMic(QStringLiteral("bench_mic"), QStringLiteral("Interview Mic")) ||
        !kbtest::setDefaultSource(QStringLiteral("bench_mic")) || !kbtest::waitForDefaultSink(QStringLiteral("speakers")))
        return fail("could not set up the virtual microphone and the speakers");

    // The simulator answers every question in the order they are asked.
    QJsonArray turns;
    for (int i = 0; i < kQuestionCount; ++i)
        turns.append(QJsonObject{{QStringLiteral("question"), questions[size_t(i)].text},
                                 {QStringLiteral("answer"), QString::fromLatin1(kAnswers[i % 3])}});
    Simulator sim;
    // The ordered mode: the figures measure from each question's transcript to its first answer text.
    if (!sim.start(QJsonObject{{QStringLiteral("loop"), true}, {QStringLiteral("turns"), turns}}, dir.path(),
                   Simulator::Mode::classic))
        return fail("the simulator did not start");
    PrivateSoundServer::setChildren(0, pid_t(sim.pid()));

    QThread relayThread;
    relayThread.setObjectName(QStringLiteral("bench-relay"));
    TimingRelay relay{QUrl(sim.url())};
    relay.moveToThread(&relayThread);
    relayThread.start();
    struct StopThread
    {
        QThread &thread;
        TimingRelay &relay;
        ~StopThread()
        {
            // The relay's sockets are its children: delete them on their own thread.
            QMetaObject::invokeMethod(&relay, [this] {
                QList<QPointer<QObject>> children;
                for (QObject *child : relay.children())
                    children.append(child);
                for (const QPointer<QObject> &child : children)
                    delete child.data();
            }, Qt::BlockingQueuedConnection);
            thread.quit();
            thread.wait();
        }
    } stopRelay{relayThread, relay};
    bool listening = false;
    QMetaObject::invokeMethod(&relay, &TimingRelay::listen, Qt::BlockingQueuedConnection, &listening);
    if (!listening)
        return fail("the timing relay could not listen");

    App app(dir.filePath(QStringLiteral("home")));
    app.writeSettings({{QStringLiteral("hasCompletedOnboarding"), true},
                       {QStringLiteral("saveAudio"), true},
                       {QStringLiteral("transcribeMyAnswers"), true}});
    const QString outPath = dir.filePath(QStringLiteral("app.out"));
    const QString errPath = dir.filePath(QStringLiteral("app.err"));
    app.setOutputFiles(outPath, errPath);

    // The app's events log gives times as "t", seconds on its monotonic session clock; the
    // watch places that clock's zero on ours (see EventsLogWatch).
    QDir().mkpath(app.sessionFolder());
    EventsLogWatch logWatch;
    if (!logWatch.start(app.sessionFolder().toStdString()))
        return fail("cannot watch the session folder");

    std::fprintf(stderr, "Running a %d s session ...\n", seconds);
    const std::int64_t launched = monotonicNs();
    if (!app.start({QStringLiteral("--headless"), QStringLiteral("--stop-after"), QString::number(seconds)}, relay.url().toString()))
        return fail("ketterbloom did not start");
    PrivateSoundServer::setChildren(pid_t(app.pid()), pid_t(sim.pid()));
    ProcessSampler sampler;
    sampler.start(app.pid());

    const std::int64_t connectDeadline = monotonicNs() + 30'000'000'000LL;
    while (relay.configured().isEmpty() && monotonicNs() < connectDeadline)
        sleepSeconds(0.05);
    if (relay.configured().isEmpty())
        return fail("the app never configured a connection");
    sleepSeconds(2.0);   // capture running, audio flowing

    // The interview: a question, a moment, the user's answer, then quiet until the next one
    // 20-30 s after the previous began. No question starts in the last 20 s.
    const std::int64_t stopAt = launched + std::int64_t(seconds) * 1'000'000'000LL;
    int asked = 0;
    while (monotonicNs() + 20'000'000'000LL < stopAt) {
        Question &q = questions[size_t(asked % kQuestionCount)];
        const std::int64_t began = monotonicNs();
        const std::int64_t played = play(q.wav, QStringLiteral("speakers"));
        if (!played)
            return fail("paplay failed on the speakers");
        q.playedNs = played;
        ++asked;
        std::fprintf(stderr, "  question %d at %.1f s\n", asked, double(played - launched) / 1e9);
        sleepSeconds(1.5);
        if (!play(answerWav, QStringLiteral("bench_mic_feed")))
            return fail("paplay failed on the microphone");
        const double period = 20.0 + double((asked * 7) % 11);
        sleepUntil(std::min(stopAt, began + std::int64_t(period * 1e9)));
        if (asked == kQuestionCount)
            break;   // every question text is unique, which is how the figures are matched
    }

    if (!app.wait((seconds + 120) * 1000))
        return fail("ketterbloom did not stop by itself");
    const std::int64_t exited = monotonicNs();
    PrivateSoundServer::setChildren(0, pid_t(sim.pid()));
    sampler.stop();
    const ProcessSampler::Figures cpu = sampler.figures();

    // --- What the run left ---
    const QString eventsPath = app.newestFile(QStringLiteral(".events.jsonl"));
    const QString wavPath = app.newestFile(QStringLiteral(".wav"));
    if (eventsPath.isEmpty() || wavPath.isEmpty())
        return fail("the session left no events log or recording");
    const QList<QJsonObject> events = readJsonLines(eventsPath);
    logWatch.stop();
    const std::int64_t sessionZero = logWatch.zero();
    if (!sessionZero)
        return fail("never saw the events log being written");
    auto appTime = [&](const QJsonObject &event) {
        return sessionZero + std::int64_t(event.value(QStringLiteral("t")).toDouble() * 1e9);
    };

    const QList<QJsonObject> appends = sim.records(QStringLiteral("input_audio_buffer.append"));
    const QList<QJsonObject> updates = sim.records(QStringLiteral("session.update"));
    double threshold = 0.5;
    double silenceMs = 0;
    if (!updates.isEmpty()) {
        const QJsonValue message = updates.first().value(QStringLiteral("message"));
        threshold = findNumber(message, QStringLiteral("threshold")).value_or(0.5);
        silenceMs = findNumber(message, QStringLiteral("silence_duration_ms")).value_or(0);
    }

    // Match each question asked to the simulator's transcript, the app's card, and the answer's
    // first text on both sides. Question texts are unique.
    const QList<TimingRelay::Stamp> simTranscripts = relay.transcripts();
    const QList<TimingRelay::Stamp> simDeltas = relay.firstDeltas();
    std::vector<Row> rows;
    std::vector<double> simCard, appCard, appCardShare, simText, appText, appTextShare;
    for (int i = 0; i < asked; ++i) {
        const Question &q = questions[size_t(i)];
        const auto [voiced, length] = voicedEnd(q.wav, threshold);
        const std::int64_t speechEnd = q.playedNs - std::int64_t((length - voiced) * 1e9);
        auto after = [&](std::int64_t t) { return double(t - speechEnd) / 1e9; };
        Row row{q.text, {}, {}, {}, {}};
        for (const TimingRelay::Stamp &s : simTranscripts) {
            if (s.text == q.text) {
                row.simCard = after(s.ns);
                break;
            }
        }
        QString pair;
        for (const QJsonObject &e : events) {
            if (e.value(QStringLiteral("event")).toString() == QLatin1String("question") &&
                e.value(QStringLiteral("text")).toString() == q.text) {
                row.appCard = after(appTime(e));
                pair = e.value(QStringLiteral("pair")).toString();
                break;
            }
        }
        for (const QJsonObject &e : events) {
            if (pair.isEmpty() || e.value(QStringLiteral("event")).toString() != QLatin1String("answer_started") ||
                e.value(QStringLiteral("pair")).toString() != pair)
                continue;
            row.appText = after(appTime(e));
            const QString response = e.value(QStringLiteral("response")).toString();
            for (const TimingRelay::Stamp &s : simDeltas) {
                if (s.text == response)
                    row.simText = after(s.ns);
            }
            break;
        }
        if (row.simCard)
            simCard.push_back(*row.simCard);
        if (row.appCard)
            appCard.push_back(*row.appCard);
        if (row.simCard && row.appCard)
            appCardShare.push_back(*row.appCard - *row.simCard);
        if (row.simText)
            simText.push_back(*row.simText);
        if (row.appText)
            appText.push_back(*row.appText);
        if (row.simText && row.appText)
            appTextShare.push_back(*row.appText - *row.simText);
        rows.push_back(row);
    }

    // Session length and capture start, from the app's own log.
    double sessionSeconds = 0;
    double audioStarted = -1;
    for (const QJsonObject &e : events) {
        sessionSeconds = std::max(sessionSeconds, e.value(QStringLiteral("t")).toDouble());
        if (audioStarted < 0 && e.value(QStringLiteral("event")).toString() == QLatin1String("audio_started"))
            audioStarted = e.value(QStringLiteral("t")).toDouble();
    }
    if (audioStarted < 0) {
        // Without the event, the start-up trace says when capture went live, in seconds since
        // the start was requested (which is when the session log opens).
        const QString trace = readText(app.sessionFolder() + QStringLiteral("/startup.log"));
        for (const QString &traceLine : trace.split(QLatin1Char('\n'))) {
            if (traceLine.contains(QStringLiteral("capture live")))
                audioStarted = traceLine.section(QLatin1Char('s'), 0, 0).section(QLatin1Char(' '), -1).toDouble();
        }
    }

    // Audio bytes lost. The meeting side goes to the service as 24 kHz mono 16-bit PCM, i.e.
    // 24000 samples/s x 2 bytes = 48000 bytes per second of captured audio. The recording holds
    // the same capture at 48 kHz, so its length in frames / 48000 is the seconds captured, and
    // the bytes the app should have sent are seconds x 48000 (numerically, the frame count).
    // The simulator records the decoded size of every "input_audio_buffer.append" it received;
    // their sum is what arrived. Two shares of the difference are by design: audio captured
    // before the connection was configured is not sent (the app logs "audio_started" when
    // capture runs, or its start-up trace says "capture live"; the relay saw the simulator's
    // "session.updated"), and the last batch, shorter than 4800 bytes (100 ms), is not sent
    // when the session stops. Whatever the difference holds beyond those two is loss.
    const qint64 wavFrames = kbtest::soxInfo(wavPath).value(QStringLiteral("samples")).toLongLong();
    const double capturedSeconds = double(wavFrames) / 48000.0;
    const qint64 expectedBytes = qint64(std::llround(capturedSeconds * 48000.0));
    qint64 receivedBytes = 0;
    for (const QJsonObject &record : appends)
        receivedBytes += record.value(QStringLiteral("message")).toObject().value(QStringLiteral("audio_bytes")).toInteger();
    const QList<std::int64_t> configured = relay.configured();
    double beforeConfigured = 0;
    if (audioStarted >= 0 && !configured.isEmpty())
        beforeConfigured = std::max(0.0, double(configured.first() - sessionZero) / 1e9 - audioStarted);
    const qint64 beforeConfiguredBytes = qint64(std::llround(beforeConfigured * 48000.0)) & ~qint64(1);
    const qint64 missing = expectedBytes - receivedBytes;
    const qint64 remaining = missing - beforeConfiguredBytes;
    const qint64 lost = std::max<qint64>(0, remaining - 4799);

    // --- Report ---
    const QString cores = QString::number(QThread::idealThreadCount());
    const QString debian = QString::fromLatin1(QFile(QStringLiteral("/etc/debian_version")).exists()
                                                   ? readText(QStringLiteral("/etc/debian_version")).trimmed().toLatin1()
                                                   : QByteArray("?"));
    QString pipewire = firstLine(QStringLiteral("pipewire"), {QStringLiteral("--version")}, QStringLiteral("libpipewire"));
    pipewire = pipewire.section(QLatin1Char(' '), -1);
    const double minutes = sessionSeconds / 60.0;

    std::printf("\n== bench_e2e_session: %d s scripted session, real audio path, local simulator ==\n", seconds);
    std::printf("host: %s cores, Debian %s, PipeWire %s\n", qPrintable(cores), qPrintable(debian), qPrintable(pipewire));
    std::printf("questions asked %d, answered in the log %d; user answers on the microphone %d; connections %lld\n",
                asked, int(appText.size()), asked, static_cast<long long>(configured.size()));
    std::printf("\n%-44s %12s\n", "ketterbloom process", "value");
    std::printf("%-44s %12.1f\n", "session length (s, from its events log)", sessionSeconds);
    std::printf("%-44s %12.1f\n", "process lifetime (s)", double(exited - launched) / 1e9);
    std::printf("%-44s %12.2f\n", "CPU time, user + system (s)", cpu.cpuSeconds);
    std::printf("%-44s %12.2f\n", "  of which user (s)", cpu.userSeconds);
    std::printf("%-44s %12.3f\n", "CPU seconds per minute of session", minutes > 0 ? cpu.cpuSeconds / minutes : 0.0);
    std::printf("%-44s %11.1f%%\n", "average load of one core", sessionSeconds > 0 ? 100.0 * cpu.cpuSeconds / sessionSeconds : 0.0);
    std::printf("%-44s %12.1f\n", "peak memory, VmHWM (MiB)", double(cpu.peakKiB) / 1024.0);
    std::printf("%-44s %12lld\n", "threads (last sample)", static_cast<long long>(cpu.threads));
    std::printf("%-44s %12d\n", "/proc samples (every 200 ms)", cpu.samples);

    std::printf("\nLatency after the end of a question's speech (ms); simulator: VAD silence %.0f ms, threshold %.2f\n",
                silenceMs, threshold);
    std::printf("(the app's times: its events log's t, placed on this clock from %d lines as they were written)\n",
                logWatch.linesSeen());
    std::printf("%-44s %6s %8s %8s %8s %8s %8s\n", "", "n", "median", "mean", "p90", "min", "max");
    auto line = [](const char *label, const std::vector<double> &values) {
        const Stats s = stats(values);
        std::printf("%-44s %6d %8.1f %8.1f %8.1f %8.1f %8.1f\n", label, s.count, s.median * 1e3, s.mean * 1e3, s.p90 * 1e3,
                    s.min * 1e3, s.max * 1e3);
    };
    line("transcript sent by the simulator", simCard);
    line("question card in the app", appCard);
    line("  the app's share (card - sent)", appCardShare);
    line("first answer text sent by the simulator", simText);
    line("first answer text in the app", appText);
    line("  the app's share (text - sent)", appTextShare);
    std::vector<double> upload;
    for (double v : simCard)
        upload.push_back(v - silenceMs / 1000.0);
    line("capture + upload (sent - VAD silence)", upload);

    std::printf("\nPer question (ms after the end of speech): sim transcript / app card / sim text / app text\n");
    auto cell = [](const std::optional<double> &v) {
        return v ? QString::asprintf("%7.1f", *v * 1e3) : QStringLiteral("      -");
    };
    for (size_t i = 0; i < rows.size(); ++i)
        std::printf("  %2zu %-44s %s %s %s %s\n", i + 1, qPrintable(rows[i].text.left(44)), qPrintable(cell(rows[i].simCard)),
                    qPrintable(cell(rows[i].appCard)), qPrintable(cell(rows[i].simText)), qPrintable(cell(rows[i].appText)));

    std::printf("\nMeeting audio to the service (24 kHz mono 16-bit = 48000 bytes/s)\n");
    std::printf("%-44s %14.2f\n", "captured (s, from the recording)", capturedSeconds);
    std::printf("%-44s %14.3f\n", "capture running at (session s)", audioStarted);
    std::printf("%-44s %14.3f\n", "first connection configured at (session s)",
                configured.isEmpty() ? -1.0 : double(configured.first() - sessionZero) / 1e9);
    std::printf("%-44s %14lld\n", "bytes expected (captured s x 48000)", static_cast<long long>(expectedBytes));
    std::printf("%-44s %14lld\n", "bytes the simulator received", static_cast<long long>(receivedBytes));
    std::printf("%-44s %14lld\n", "difference", static_cast<long long>(missing));
    std::printf("%-44s %14lld\n", "  before the connection was configured", static_cast<long long>(beforeConfiguredBytes));
    std::printf("%-44s %14lld\n", "  the rest (the last batch, < 4800, is unsent)", static_cast<long long>(remaining));
    std::printf("%-44s %14lld\n", "bytes lost", static_cast<long long>(lost));
    std::printf("\n");
    std::fflush(stdout);
    return 0;
}
