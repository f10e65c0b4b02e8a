// The whole program against a real private sound server and the local realtime simulator:
// questions are spoken into the "speakers" sink, the user's answer into a virtual
// microphone, and the test reads what a user would find afterwards.

#include "E2eHarness.h"
#include "SoundServer.h"
#include "TestSignals.h"

#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QScopeGuard>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <algorithm>

#include <signal.h>
#include <unistd.h>

using namespace e2e;

namespace {

const QString kQ1 = QStringLiteral("Tell me about a project you led.");
const QString kA1 = QStringLiteral("I led the billing migration: twelve services moved with no downtime.");
const QString kQ2 = QStringLiteral("and how did you measure its success?");
const QString kQ3 = QStringLiteral("What would you do in your first ninety days?");
const QString kA3 = QStringLiteral("Listen first, ship one small fix in week two, then propose a roadmap.");
const QString kQ4 = QStringLiteral("What would you change about your last team?");
const QString kA4 = QStringLiteral("Fewer meetings and a written design review for every change.");
// An answer long enough to still be streaming when the next question ends.
const QString kLongAnswer = QStringLiteral(
    "First I would meet every engineer one to one, then read the incident reports of the last year, then pick "
    "the two slowest parts of the release process and fix them with the team, and only after that write down a "
    "plan for the quarter that everyone has seen before it is final.");
// Streams that answer slowly: one delta every 400 ms.
const QJsonObject kSlow{{QStringLiteral("delta_delay_ms"), 400}};
// The answer to a follow-up's first part, which the merged question replaces.
const QString kUnused = QStringLiteral("Not used.");

// A turn of the simulator's script; `extra` adds to it (its transcript after the answer, a
// slow or failing answer ...).
QJsonObject turn(const QString &question, const QString &answer, QJsonObject extra = {})
{
    extra.insert(QStringLiteral("question"), question);
    extra.insert(QStringLiteral("answer"), answer);
    return extra;
}

// The block of one card in a transcript.
QString card(const QString &question, const QString &answer)
{
    return QStringLiteral("**Interviewer:** ") + question + QStringLiteral("\n\n**Copilot:** ") + answer + QLatin1Char('\n');
}

// Seconds of audio in 100 ms windows where one channel is loud and the other quiet.
struct ChannelActivity { int leftOnly = 0; int rightOnly = 0; };

ChannelActivity channelActivity(const kbtest::WavData &wav)
{
    ChannelActivity activity;
    const std::vector<float> left = wav.channel(0);
    const std::vector<float> right = wav.channel(1);
    const int window = wav.sampleRate / 10;
    for (size_t start = 0; start + size_t(window) <= left.size(); start += size_t(window)) {
        const double l = kbtest::rms(left.data() + start, window);
        const double r = kbtest::rms(right.data() + start, window);
        if (l > 0.01 && r < 0.002)
            ++activity.leftOnly;
        if (r > 0.01 && l < 0.002)
            ++activity.rightOnly;
    }
    return activity;
}

} // namespace

class EndToEndTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        QVERIFY2(kbtest::soundServerAvailable(), "the private sound server of the test fixture is not running");
        QVERIFY(m_dir.isValid());
        QVERIFY(kbtest::makeSpeech(path("q1.wav"), kQ1));
        QVERIFY(kbtest::makeSpeech(path("q2.wav"), kQ2));
        QVERIFY(kbtest::makeSpeech(path("q3.wav"), kQ3));
        QVERIFY(kbtest::makeSpeech(path("q4.wav"), kQ4));
        // The user's answer: a recorded human voice the on-device recogniser knows well.
        const QString clip = QStringLiteral("/usr/share/pocketsphinx/test/data/goforward.raw");
        QVERIFY2(QFile::exists(clip), "pocketsphinx-testdata is not installed");
        const QStringList raw = QStringLiteral("-t raw -r 16000 -e signed -b 16 -c 1").split(QLatin1Char(' '));
        QVERIFY(kbtest::run(QStringLiteral("sox"), raw + QStringList{clip, QStringLiteral("-r"), QStringLiteral("48000"),
                                                                     path("answer.wav")}).ok());
        QVERIFY(m_modules.virtualMic(QStringLiteral("e2e_mic"), QStringLiteral("Interview Mic")));
        QVERIFY(kbtest::setDefaultSource(QStringLiteral("e2e_mic")));
        QVERIFY(kbtest::waitForDefaultSink(QStringLiteral("speakers")));
    }

    void headlessSession()
    {
        Simulator sim;
        App app(path("home-headless"));
        const QJsonObject transcriptAfter{{QStringLiteral("transcript"), QStringLiteral("after")}};
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ2, kUnused), turn(kQ3, kA3, transcriptAfter)}, 40,
                       recordingSettings()));

        play("q1.wav", 5);
        play("q2.wav", 4);    // a follow-up within the window
        play("answer.wav", 6, "e2e_mic_feed");   // the user answers
        play("q3.wav", 5);    // answer streams before its transcript

        QVERIFY2(app.wait(90000) && app.exitCode() == 0, qPrintable(app.err()));

        // Standard output: the cards as Markdown.
        const QString out = app.out();
        QVERIFY2(out.contains(QStringLiteral("**Interviewer:** ") + kQ1), qPrintable(out));
        QVERIFY2(out.contains(QStringLiteral("**Interviewer:** ") + kQ3 + QStringLiteral("\n\n**Copilot:** ") + kA3), qPrintable(out));
        QVERIFY2(out.contains(QStringLiteral("(question extended)")), qPrintable(out));
        QVERIFY2(app.err().contains(QStringLiteral("Session saved — transcript and recording")), qPrintable(app.err()));

        // The Markdown transcript.
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.startsWith(QStringLiteral("# Meeting transcript — ")), qPrintable(transcript));
        QVERIFY2(transcript.contains(QStringLiteral(" (question extended)\n**Interviewer:** ") + kQ1 + QLatin1Char(' ') + kQ2),
                 qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kA3)), qPrintable(transcript));
        const QRegularExpression you(QStringLiteral("\\*\\*You:\\*\\* .*\\b(go|forward|ten|meters)\\b"),
                                     QRegularExpression::CaseInsensitiveOption);
        QVERIFY2(you.match(transcript).hasMatch(), qPrintable(transcript));

        // The events log.
        QStringList names;
        for (const QJsonObject &event : app.events())
            names.append(event.value(QStringLiteral("event")).toString());
        for (const char *expected : {"session_started", "config", "question", "question_extended", "answer_started",
                                     "answer_done", "usage", "you_started", "you_stopped", "session_cost", "session_ended"})
            QVERIFY2(names.contains(QLatin1String(expected)), expected);
        const QList<QJsonObject> started = app.events(QStringLiteral("answer_started"));
        QVERIFY(std::any_of(started.begin(), started.end(), [](const QJsonObject &event) {
            return event.contains(QStringLiteral("latency_after_question_s"));
        }));

        // The recording: left the microphone, right the meeting.
        const QString wavPath = app.newestFile(QStringLiteral(".wav"));
        const QHash<QString, QString> info = kbtest::soxInfo(wavPath);
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        const ChannelActivity activity = channelActivity(kbtest::readWav(wavPath));
        QVERIFY2(activity.leftOnly >= 10, qPrintable(QString::number(activity.leftOnly)));
        QVERIFY2(activity.rightOnly >= 20, qPrintable(QString::number(activity.rightOnly)));

        // The key went to the service as a header only.
        QVERIFY(!out.contains(QStringLiteral("sk-e2e-test-key")));
        QVERIFY(!app.err().contains(QStringLiteral("sk-e2e-test-key")));
    }

    void reconnectsAndReseeds()
    {
        Simulator sim;
        App app(path("home-reconnect"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ3, kA3)}, 25));

        play("q1.wav", 3);
        // The connection is cut without a close frame; the client comes back by itself.
        QCOMPARE(sim.command(QStringLiteral("drop")), QStringLiteral("ok"));
        QVERIFY(sim.waitForConnections(2, 15000));
        QThread::sleep(2);
        play("q3.wav", 5);

        QVERIFY2(app.wait(60000) && app.exitCode() == 0, qPrintable(app.err()));
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ1, kA1)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kA3)), qPrintable(transcript));

        // The second connection was seeded with the first question and its answer.
        bool seeded = false;
        QString seen;
        for (const QJsonObject &record : sim.records(QStringLiteral("conversation.item.create"))) {
            const QString text = QString::fromUtf8(QJsonDocument(record).toJson(QJsonDocument::Compact));
            seen += text + QLatin1Char('\n');
            if (record.value(QStringLiteral("connection")).toInt() == 2 && text.contains(kQ1))
                seeded = true;
        }
        QVERIFY2(seeded, qPrintable(seen));
        // A connection the network broke is no cause for Qt's own warnings.
        QVERIFY2(!app.err().contains(QStringLiteral("QSocketNotifier")), qPrintable(app.err()));
    }

    void windowStartsSession()
    {
        Simulator sim;
        App app(path("home-window"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1)}, 15, onboarded(), QStringLiteral("--start")));
        play("q1.wav", 4);
        QVERIFY2(app.wait(60000) && app.exitCode() == 0, qPrintable(app.err()));
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ1, kA1)), qPrintable(transcript));
    }

    void narrowsToTheChosenAppOnceItPlays()
    {
        // A meeting app that is not playing yet when the session starts, and a radio that
        // plays all along and must not be heard once the session has narrowed to the app.
        const QString meetApp = QStringLiteral("org.example.Meet");
        QVERIFY(kbtest::makeTone(path("radio.wav"), 440, 60));

        Simulator sim;
        App app(path("home-narrow"));
        QJsonObject settings = onboarded();
        settings.insert(QStringLiteral("meetingSource"), QStringLiteral("singleApp"));
        settings.insert(QStringLiteral("tappedBundleID"), meetApp);
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ3, kA3)}, 30, settings, QStringLiteral("--headless"), 8));

        // The app starts playing 10 s in; the radio starts at the same time, from another app.
        const auto radio = kbtest::Player::start(path("radio.wav"), QStringLiteral("speakers"),
                                                 {QStringLiteral("application.id=org.example.Radio")});
        QVERIFY(radio);
        // Its stream closes when the question ends, as a browser tab's does.
        const auto meeting = kbtest::Player::start(path("q3.wav"), QStringLiteral("speakers"),
                                                   {QStringLiteral("application.id=") + meetApp});
        QVERIFY(meeting);
        QVERIFY2(app.wait(60000) && app.exitCode() == 0, qPrintable(app.err()));
        QVERIFY2(app.err().contains(QStringLiteral("Started, listening to all of this computer's audio. ") + meetApp
                                    + QStringLiteral(" isn't playing anything yet; I'll narrow to it alone as soon as it does.")),
                 qPrintable(app.err()));
        QVERIFY2(app.err().contains(QStringLiteral("Now listening to ")), qPrintable(app.err()));
        const QList<QJsonObject> narrowed = app.events(QStringLiteral("tap_narrowed"));
        QVERIFY(!narrowed.isEmpty() && narrowed.last().value(QStringLiteral("app")).toString() == meetApp);
        // The app's question still made it into a card, over the radio.
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(QStringLiteral("**Interviewer:** ") + kQ3), qPrintable(transcript));
    }

    void killedProgramKeepsItsCompletedCards()
    {
        // Killed without warning (SIGKILL) after two cards completed: both are in the
        // transcript on disk.
        Simulator sim;
        App app(path("home-killed"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ3, kA3)}, 300));
        play("q1.wav", 3);
        play("q3.wav", 1);
        QVERIFY2(app.waitForEvents(QStringLiteral("answer_done"), 2, 30000),
                 qPrintable(readText(app.newestFile(QStringLiteral(".events.jsonl")))));

        QVERIFY(::kill(pid_t(app.pid()), SIGKILL) == 0);
        app.wait(10000);
        QCOMPARE(app.exitCode(), -1);   // it did not exit by itself
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ1, kA1)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kA3)), qPrintable(transcript));
        // Nothing half-written was left beside it.
        QCOMPARE(QDir(app.sessionFolder()).entryList({QStringLiteral("*.transcript.md*")}, QDir::Files).size(), 1);
    }

    // Against the service's real order (the simulator's realistic mode): answers start
    // before their question's transcript completes, and a turn that ends while an answer
    // streams gets no answer of its own.
    void realisticFollowUpAndQuestionDuringAnAnswer()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        Simulator sim;
        App app(path("home-realistic"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ2, kUnused), turn(kQ3, kLongAnswer, kSlow), turn(kQ4, kA4)}, 50));

        play("q1.wav", 1);
        play("q2.wav", 6);    // a follow-up within the window
        play("q3.wav", 1);    // its answer streams for ~15 s
        play("q4.wav", 0);    // asked while it streams
        QVERIFY2(app.wait(90000) && app.exitCode() == 0, qPrintable(app.err()));

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        const QString merged = kQ1 + QLatin1Char(' ') + kQ2;
        // One card for the question and its follow-up, with the answer to the whole of it.
        QVERIFY2(transcript.contains(QStringLiteral(" (question extended)\n") + card(merged, QStringLiteral("A short answer to: ") + merged)),
                 qPrintable(transcript));
        QVERIFY2(!transcript.contains(kUnused), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kLongAnswer)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ4, kA4)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 3);
        QVERIFY2(!transcript.contains(QStringLiteral("**Interviewer:** —")), qPrintable(transcript));

        // The meeting transcription was priced and counted.
        const QList<QJsonObject> costs = app.events(QStringLiteral("session_cost"));
        QVERIFY(!costs.isEmpty() && costs.last().value(QStringLiteral("transcription_cost_usd")).toDouble() > 0);
    }

    void realisticConnectionCutMidAnswer()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        Simulator sim;
        App app(path("home-cut"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ3, kLongAnswer, kSlow)}, 45));
        play("q3.wav", 4);   // the answer is streaming
        QCOMPARE(sim.command(QStringLiteral("drop")), QStringLiteral("ok"));
        QVERIFY(sim.waitForConnections(2, 20000));
        QVERIFY2(app.wait(90000) && app.exitCode() == 0, qPrintable(app.err()));

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ3, kLongAnswer)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 1);
        QVERIFY(!app.events(QStringLiteral("answers_reasked")).isEmpty());
    }

    // Text for a response the service never announced arrives between two cards, and an
    // answer fails with a server error: both cards stay right, the failed one is asked again
    // once and its answer lands on its own card.
    void realisticStrayTextAndRetriedAnswer()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        const QJsonObject failing = turn(kQ3, kA3, {{QStringLiteral("stray_delta"), QStringLiteral("stray text")},
                                                    {QStringLiteral("response_status"), QStringLiteral("failed")}});
        Simulator sim;
        App app(path("home-stray"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), failing}, 25));
        play("q1.wav", 4);
        play("q3.wav", 6);
        QVERIFY2(app.wait(60000) && app.exitCode() == 0, qPrintable(app.err()));

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ1, kA1)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kA3)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 2);
        QVERIFY2(!transcript.contains(QStringLiteral("stray text")), qPrintable(transcript));
        QVERIFY2(app.out().indexOf(kA1) < app.out().indexOf(kA3), qPrintable(app.out()));
        const QList<QJsonObject> dropped = app.events(QStringLiteral("delta_dropped"));
        QCOMPARE(dropped.size(), 1);
        QCOMPARE(dropped.first().value(QStringLiteral("reason")).toString(), QStringLiteral("unknown_response"));
        QCOMPARE(app.events(QStringLiteral("answer_retried")).size(), 1);
        QCOMPARE(sim.records(QStringLiteral("response.create")).size(), 1);
    }

    // The records' file system fills up mid-session, with the recording on and off: a banner
    // says so at once, the session goes on, and Stop names what is incomplete and calls
    // nothing saved that is not complete. A file size limit stands in for a full disk; as
    // root, a tiny tmpfs is the real thing.
    void recordsFillUpMidSession_data()
    {
        QTest::addColumn<bool>("recording");
        QTest::addColumn<bool>("tmpfs");
        QTest::addColumn<qint64>("bytes");
        QTest::newRow("size limit, recording on") << true << false << qint64(600 * 1024);
        QTest::newRow("size limit, recording off") << false << false << qint64(8000);
        QTest::newRow("tiny tmpfs, recording on") << true << true << qint64(600 * 1024);
        QTest::newRow("tiny tmpfs, recording off") << false << true << qint64(32 * 1024);
    }

    void recordsFillUpMidSession()
    {
        QFETCH(bool, recording);
        QFETCH(bool, tmpfs);
        QFETCH(qint64, bytes);
        if (tmpfs && ::geteuid() != 0)
            QSKIP("mounting a tmpfs needs root");
        // The second answer alone is larger than what fits.
        const QJsonObject big = turn(kQ3, QString(30000, QLatin1Char('w')), {{QStringLiteral("delta_count"), 10}});
        App app(path(QStringLiteral("home-full-%1-%2").arg(recording).arg(tmpfs)));
        QVERIFY(QDir().mkpath(app.sessionFolder()));
        if (tmpfs) {
            const QStringList options = QStringLiteral("-t tmpfs -o size=%1 tmpfs").arg(bytes).split(QLatin1Char(' '));
            QVERIFY(kbtest::run(QStringLiteral("mount"), options + QStringList{app.sessionFolder()}).ok());
        } else {
            app.setFileSizeLimit(bytes);
        }
        const auto unmount = qScopeGuard([&] {
            if (tmpfs)
                kbtest::run(QStringLiteral("umount"), {app.sessionFolder()});
        });
        Simulator sim;
        const QJsonObject settings{{QStringLiteral("hasCompletedOnboarding"), true}, {QStringLiteral("saveAudio"), recording}};
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), big}, 22, settings));
        play("q1.wav", 4);
        play("q3.wav", 5);
        QVERIFY2(app.wait(60000) && app.exitCode() == 0, qPrintable(app.err()));

        const QString err = app.err();
        const QString why = tmpfs ? QStringLiteral("the disk is full (") : QStringLiteral("the file size limit was reached (");
        // Told at once: the recording first when there is one, else the transcript or the log.
        qsizetype told = err.indexOf(QStringLiteral("Recording stopped: ") + why);
        if (!recording) {
            const qsizetype events = err.indexOf(QStringLiteral("The events log stopped: ") + why);
            const qsizetype transcript = err.indexOf(QStringLiteral("The transcript could not be saved: ") + why);
            told = events < 0 || transcript < 0 ? std::max(events, transcript) : std::min(events, transcript);
        }
        const qsizetype stopped = err.indexOf(QStringLiteral("Copy the cards with Copy Transcript."));
        QVERIFY2(told >= 0 && stopped > told, qPrintable(err));
        QVERIFY2(err.contains(QStringLiteral(". The session goes on")), qPrintable(err));
        const QString summary = err.mid(err.lastIndexOf(QLatin1Char('\n'), stopped) + 1);
        if (recording) {
            QVERIFY2(summary.contains(QRegularExpression(QStringLiteral("The recording meeting_[0-9_-]+\\.wav is incomplete: ")
                                                         + QRegularExpression::escape(why))),
                     qPrintable(summary));
            QVERIFY2(!summary.contains(QStringLiteral("Recording saved")) && !summary.contains(QStringLiteral("Session saved")),
                     qPrintable(summary));
            // What reached the file stays readable.
            QVERIFY(kbtest::soxInfo(app.newestFile(QStringLiteral(".wav"))).value(QStringLiteral("channels")) == QStringLiteral("2"));
        } else {
            const QRegularExpression named(QStringLiteral("The (events log meeting_[0-9_-]+\\.events\\.jsonl is incomplete|"
                                                          "transcript meeting_[0-9_-]+\\.transcript\\.md was not saved): ")
                                           + QRegularExpression::escape(why));
            QVERIFY2(summary.contains(named), qPrintable(summary));
        }
        // A transcript called saved is whole; one that is not is named and not linked.
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        if (summary.contains(QStringLiteral("Transcript saved")) || summary.contains(QStringLiteral("Session saved"))) {
            QVERIFY2(transcript.contains(card(kQ3, QString(30000, QLatin1Char('w')))), qPrintable(summary));
        } else {
            QVERIFY2(summary.contains(QStringLiteral(".transcript.md was not saved: ") + why), qPrintable(summary));
            QVERIFY2(!err.contains(QStringLiteral("Transcript: ")), qPrintable(err));
        }
        // The cards went on to the end.
        QVERIFY2(app.out().contains(QStringLiteral("**Interviewer:** ") + kQ3), qPrintable(app.out().left(2000)));
    }

    void realisticBadKeyGivesOneBanner()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        Simulator sim;
        QVERIFY(sim.start(QJsonObject{{QStringLiteral("api_key"), QStringLiteral("sk-the-right-key")},
                                      {QStringLiteral("turns"), QJsonArray{turn(kQ1, kA1)}}},
                          m_dir.path()));
        App app(path("home-badkey"));
        app.writeSettings(QJsonObject{{QStringLiteral("hasCompletedOnboarding"), true}});
        QVERIFY(app.start({QStringLiteral("--headless"), QStringLiteral("--stop-after"), QStringLiteral("60")}, sim.url()));
        // The session ends by itself, once, with the service's reason.
        QVERIFY2(app.wait(40000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 1);
        const QString err = app.err();
        QCOMPARE(err.count(QStringLiteral("The service refused the API key")), 1);
        QVERIFY2(!err.contains(QStringLiteral("sk-e2e-test-key")), qPrintable(err));
        QThread::sleep(3);
        QVERIFY(!sim.waitForConnections(2, 1000));   // no retry loop
    }

    void cleanupTestCase()
    {
        m_modules.unloadAll();
    }

private:
    QString path(const QString &name) const { return m_dir.filePath(name); }

    // The run uses the ordered simulator throughout; tests of the real service's order of
    // events then have nothing to test.
    static bool classicSimulator()
    {
        return qEnvironmentVariable("KETTERBLOOM_E2E_SIM_MODE") == QLatin1String("classic");
    }

    static QJsonObject recordingSettings()
    {
        return {{QStringLiteral("hasCompletedOnboarding"), true},
                {QStringLiteral("saveAudio"), true},
                {QStringLiteral("transcribeMyAnswers"), true}};
    }

    static QJsonObject onboarded() { return {{QStringLiteral("hasCompletedOnboarding"), true}}; }

    // Starts the simulator with `turns` and the program with `settings` (in `mode`, stopping
    // after `stopAfter` s); true once it is connected and, `settle` s later, its audio flows.
    bool launch(Simulator &sim, App &app, const QJsonArray &turns, int stopAfter, const QJsonObject &settings = onboarded(),
                const QString &mode = QStringLiteral("--headless"), int settle = 2)
    {
        if (!sim.start(QJsonObject{{QStringLiteral("loop"), false}, {QStringLiteral("turns"), turns}}, m_dir.path()))
            return false;
        app.writeSettings(settings);
        if (!app.start({mode, QStringLiteral("--stop-after"), QString::number(stopAfter)}, sim.url())
            || !sim.waitForConnections(1, 20000))
            return false;
        QThread::sleep(settle);
        return true;
    }

    // Plays a file to its end on `device`, then waits `pauseSeconds` more.
    void play(const QString &file, int pauseSeconds, const QString &device = QStringLiteral("speakers"))
    {
        const kbtest::CommandResult played =
            kbtest::run(QStringLiteral("paplay"), {QStringLiteral("--device=") + device, path(file)}, 30000);
        QVERIFY2(played.ok(), qPrintable(played.err));
        QThread::sleep(pauseSeconds);
    }

    QTemporaryDir m_dir;
    kbtest::ServerModules m_modules;
};

QTEST_GUILESS_MAIN(EndToEndTest)
#include "tst_e2e_session.moc"
