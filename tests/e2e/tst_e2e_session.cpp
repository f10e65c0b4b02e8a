// The whole program against a real private sound server and the local realtime simulator:
// questions are spoken into the "speakers" sink, the user's answer into a virtual
// microphone, and the test reads what a user would find afterwards.

#include "E2eHarness.h"
#include "SoundServer.h"
#include "TestSignals.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QJsonArray>
#include <QJsonDocument>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>
#include <QThread>

#include <QScopeGuard>

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

QJsonObject turn(const QString &question, const QString &answer, bool transcriptAfter = false)
{
    QJsonObject object{{QStringLiteral("question"), question}, {QStringLiteral("answer"), answer}};
    if (transcriptAfter)
        object.insert(QStringLiteral("transcript"), QStringLiteral("after"));
    return object;
}

// A turn whose answer streams slowly: one delta every `delayMs`.
QJsonObject slowTurn(const QString &question, const QString &answer, int delayMs)
{
    QJsonObject object = turn(question, answer);
    object.insert(QStringLiteral("delta_delay_ms"), delayMs);
    return object;
}

// The block of one card in a transcript.
QString card(const QString &question, const QString &answer)
{
    return QStringLiteral("**Interviewer:** ") + question + QStringLiteral("\n\n**Copilot:** ") + answer + QLatin1Char('\n');
}

// Seconds of audio in 100 ms windows where one channel is loud and the other quiet.
struct ChannelActivity
{
    int leftOnly = 0;
    int rightOnly = 0;
};

// Waits until the events log in `folder` holds `count` lines of `event`.
bool waitForEvents(const App &app, const QString &event, int count, int timeoutMs)
{
    QDeadlineTimer deadline(timeoutMs);
    while (!deadline.hasExpired()) {
        int seen = 0;
        const QString events = app.newestFile(QStringLiteral(".events.jsonl"));
        if (!events.isEmpty()) {
            for (const QJsonObject &line : readJsonLines(events))
                seen += line.value(QStringLiteral("event")).toString() == event ? 1 : 0;
        }
        if (seen >= count)
            return true;
        QThread::msleep(100);
    }
    return false;
}

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
        QVERIFY(kbtest::run(QStringLiteral("sox"), {QStringLiteral("-t"), QStringLiteral("raw"), QStringLiteral("-r"),
                                                    QStringLiteral("16000"), QStringLiteral("-e"), QStringLiteral("signed"),
                                                    QStringLiteral("-b"), QStringLiteral("16"), QStringLiteral("-c"),
                                                    QStringLiteral("1"), clip, QStringLiteral("-r"),
                                                    QStringLiteral("48000"), path("answer.wav")})
                    .ok());
        QVERIFY(m_modules.virtualMic(QStringLiteral("e2e_mic"), QStringLiteral("Interview Mic")));
        QVERIFY(kbtest::setDefaultSource(QStringLiteral("e2e_mic")));
        QVERIFY(kbtest::waitForDefaultSink(QStringLiteral("speakers")));
    }

    void headlessSession()
    {
        Simulator sim;
        App app(path("home-headless"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ2, QStringLiteral("Not used.")), turn(kQ3, kA3, true)}, 40,
                       recordingSettings()));

        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 5);
        play(QStringLiteral("q2.wav"), QStringLiteral("speakers"), 4);    // a follow-up within the window
        play(QStringLiteral("answer.wav"), QStringLiteral("e2e_mic_feed"), 6);   // the user answers
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 5);    // answer streams before its transcript

        QVERIFY2(app.wait(90000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);

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
        const QList<QJsonObject> events = readJsonLines(app.newestFile(QStringLiteral(".events.jsonl")));
        QStringList names;
        bool latencyLogged = false;
        for (const QJsonObject &event : events) {
            names.append(event.value(QStringLiteral("event")).toString());
            if (names.last() == QStringLiteral("answer_started") && event.contains(QStringLiteral("latency_after_question_s")))
                latencyLogged = true;
        }
        for (const char *expected : {"session_started", "config", "question", "question_extended", "answer_started",
                                     "answer_done", "usage", "you_started", "you_stopped", "session_cost", "session_ended"})
            QVERIFY2(names.contains(QLatin1String(expected)), expected);
        QVERIFY(latencyLogged);

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

        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 3);
        // The connection is cut without a close frame; the client comes back by itself.
        QCOMPARE(sim.command(QStringLiteral("drop")), QStringLiteral("ok"));
        QVERIFY(sim.waitForConnections(2, 15000));
        QThread::sleep(2);
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 5);

        QVERIFY2(app.wait(60000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);
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
        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 4);
        QVERIFY2(app.wait(60000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);
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
        QVERIFY2(app.wait(60000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);
        QVERIFY2(app.err().contains(QStringLiteral("Started, listening to all of this computer's audio. ") + meetApp
                                    + QStringLiteral(" isn't playing anything yet; I'll narrow to it alone as soon as it does.")),
                 qPrintable(app.err()));
        QVERIFY2(app.err().contains(QStringLiteral("Now listening to ")), qPrintable(app.err()));
        const QList<QJsonObject> events = readJsonLines(app.newestFile(QStringLiteral(".events.jsonl")));
        bool narrowed = false;
        for (const QJsonObject &event : events) {
            if (event.value(QStringLiteral("event")).toString() == QStringLiteral("tap_narrowed"))
                narrowed = event.value(QStringLiteral("app")).toString() == meetApp;
        }
        QVERIFY(narrowed);
        // The app's question still made it into a card, over the radio.
        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(QStringLiteral("**Interviewer:** ") + kQ3), qPrintable(transcript));
    }

    void transcribesASavedRecording()
    {
        // The user's voice on the left, the meeting on the right, as the app records it.
        QVERIFY(kbtest::makeSilence(path("pad.wav"), 3));
        QVERIFY(kbtest::run(QStringLiteral("sox"), {path("answer.wav"), path("pad.wav"), path("left.wav")}).ok());
        QVERIFY(kbtest::run(QStringLiteral("sox"), {path("pad.wav"), path("answer.wav"), path("right.wav")}).ok());
        QVERIFY(kbtest::mergeToStereo(path("left.wav"), path("right.wav"), path("meeting_saved.wav")));
        App app(path("home-transcribe"));
        QVERIFY(app.start({QStringLiteral("--transcribe"), path("meeting_saved.wav")}, QString()));
        QVERIFY2(app.wait(120000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);
        // Written beside the recording under a name no session file uses.
        QCOMPARE(app.out(), path("meeting_saved.recording.md") + QLatin1Char('\n'));
        QVERIFY2(app.err().contains(QStringLiteral("100% (")), qPrintable(app.err()));
        const QString transcript = readText(path("meeting_saved.recording.md"));
        QVERIFY2(transcript.startsWith(QStringLiteral("# Meeting transcript\n\nSource: `meeting_saved.wav`\n")),
                 qPrintable(transcript));
        // A dialogue in time order: the user first, the interviewer three seconds later.
        const QRegularExpression dialogue(QStringLiteral(
            "\\*\\*You\\*\\* \\(00:0[0-2]\\): Go forward ten meters[^\\n]*\\n\\n\\*\\*Interviewer\\*\\* \\(00:0[2-4]\\): Go forward ten meters"));
        QVERIFY2(dialogue.match(transcript).hasMatch(), qPrintable(transcript));
    }

    void killedProgramKeepsItsCompletedCards()
    {
        // Killed without warning (SIGKILL) after two cards completed: both are in the
        // transcript on disk.
        Simulator sim;
        App app(path("home-killed"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ3, kA3)}, 300));
        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 3);
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 1);
        QVERIFY2(waitForEvents(app, QStringLiteral("answer_done"), 2, 30000),
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
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), turn(kQ2, QStringLiteral("Not used.")), slowTurn(kQ3, kLongAnswer, 400),
                                            turn(kQ4, kA4)},
                       50));

        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 1);
        play(QStringLiteral("q2.wav"), QStringLiteral("speakers"), 6);    // a follow-up within the window
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 1);    // its answer streams for ~15 s
        play(QStringLiteral("q4.wav"), QStringLiteral("speakers"), 0);    // asked while it streams
        QVERIFY2(app.wait(90000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        const QString merged = kQ1 + QLatin1Char(' ') + kQ2;
        // One card for the question and its follow-up, with the answer to the whole of it.
        QVERIFY2(transcript.contains(QStringLiteral(" (question extended)\n") + card(merged, QStringLiteral("A short answer to: ") + merged)),
                 qPrintable(transcript));
        QVERIFY2(!transcript.contains(QStringLiteral("Not used.")), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kLongAnswer)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ4, kA4)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 3);
        QVERIFY2(!transcript.contains(QStringLiteral("**Interviewer:** —")), qPrintable(transcript));

        // The meeting transcription was priced and counted.
        bool transcriptionPriced = false;
        for (const QJsonObject &event : readJsonLines(app.newestFile(QStringLiteral(".events.jsonl")))) {
            if (event.value(QStringLiteral("event")).toString() == QStringLiteral("session_cost"))
                transcriptionPriced = event.value(QStringLiteral("transcription_cost_usd")).toDouble() > 0;
        }
        QVERIFY(transcriptionPriced);
    }

    void realisticConnectionCutMidAnswer()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        Simulator sim;
        App app(path("home-cut"));
        QVERIFY(launch(sim, app, QJsonArray{slowTurn(kQ3, kLongAnswer, 400)}, 45));
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 4);   // the answer is streaming
        QCOMPARE(sim.command(QStringLiteral("drop")), QStringLiteral("ok"));
        QVERIFY(sim.waitForConnections(2, 20000));
        QVERIFY2(app.wait(90000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ3, kLongAnswer)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 1);
        bool reasked = false;
        for (const QJsonObject &event : readJsonLines(app.newestFile(QStringLiteral(".events.jsonl"))))
            reasked = reasked || event.value(QStringLiteral("event")).toString() == QStringLiteral("answers_reasked");
        QVERIFY(reasked);
    }

    // Text for a response the service never announced arrives between two cards, and an
    // answer fails with a server error: both cards stay right, the failed one is asked again
    // once and its answer lands on its own card.
    void realisticStrayTextAndRetriedAnswer()
    {
        if (classicSimulator())
            QSKIP("needs the simulator's realistic mode");
        QJsonObject failing = turn(kQ3, kA3);
        failing.insert(QStringLiteral("stray_delta"), QStringLiteral("stray text"));
        failing.insert(QStringLiteral("response_status"), QStringLiteral("failed"));
        Simulator sim;
        App app(path("home-stray"));
        QVERIFY(launch(sim, app, QJsonArray{turn(kQ1, kA1), failing}, 25));
        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 4);
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 6);
        QVERIFY2(app.wait(60000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);

        const QString transcript = readText(app.newestFile(QStringLiteral(".transcript.md")));
        QVERIFY2(transcript.contains(card(kQ1, kA1)), qPrintable(transcript));
        QVERIFY2(transcript.contains(card(kQ3, kA3)), qPrintable(transcript));
        QCOMPARE(transcript.count(QStringLiteral("### ")), 2);
        QVERIFY2(!transcript.contains(QStringLiteral("stray text")), qPrintable(transcript));
        QVERIFY2(app.out().indexOf(kA1) < app.out().indexOf(kA3), qPrintable(app.out()));
        QStringList names;
        for (const QJsonObject &event : readJsonLines(app.newestFile(QStringLiteral(".events.jsonl")))) {
            names << event.value(QStringLiteral("event")).toString();
            if (names.last() == QStringLiteral("delta_dropped"))
                QCOMPARE(event.value(QStringLiteral("reason")).toString(), QStringLiteral("unknown_response"));
        }
        QCOMPARE(names.count(QStringLiteral("delta_dropped")), 1);
        QCOMPARE(names.count(QStringLiteral("answer_retried")), 1);
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
        QJsonObject big = turn(kQ3, QString(30000, QLatin1Char('w')));
        big.insert(QStringLiteral("delta_count"), 10);
        Simulator sim;
        QVERIFY(sim.start(QJsonObject{{QStringLiteral("loop"), false},
                                      {QStringLiteral("turns"), QJsonArray{turn(kQ1, kA1), big}}},
                          m_dir.path()));
        const QString home = path(QStringLiteral("home-full-%1-%2").arg(recording).arg(tmpfs));
        App app(home);
        QJsonObject settings{{QStringLiteral("hasCompletedOnboarding"), true}, {QStringLiteral("saveAudio"), recording}};
        app.writeSettings(settings);
        QVERIFY(QDir().mkpath(app.sessionFolder()));
        if (tmpfs) {
            QVERIFY(kbtest::run(QStringLiteral("mount"), {QStringLiteral("-t"), QStringLiteral("tmpfs"), QStringLiteral("-o"),
                                                          QStringLiteral("size=%1").arg(bytes), QStringLiteral("tmpfs"),
                                                          app.sessionFolder()})
                        .ok());
        } else {
            app.setFileSizeLimit(bytes);
        }
        const auto unmount = qScopeGuard([&] {
            if (tmpfs)
                kbtest::run(QStringLiteral("umount"), {app.sessionFolder()});
        });
        QVERIFY(app.start({QStringLiteral("--headless"), QStringLiteral("--stop-after"), QStringLiteral("22")}, sim.url()));
        QVERIFY(sim.waitForConnections(1, 20000));
        QThread::sleep(2);
        play(QStringLiteral("q1.wav"), QStringLiteral("speakers"), 4);
        play(QStringLiteral("q3.wav"), QStringLiteral("speakers"), 5);
        QVERIFY2(app.wait(60000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);

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

    // What a newcomer sees when something basic is missing: no key in a terminal, no display.
    void firstMinuteMessages()
    {
        App noKey(path("home-nokey"));
        noKey.setEnvironment(QStringLiteral("OPENAI_API_KEY"), QString());
        QVERIFY(noKey.start({QStringLiteral("--headless"), QStringLiteral("--stop-after"), QStringLiteral("5")},
                            QStringLiteral("ws://127.0.0.1:9/v1/realtime")));
        QVERIFY(noKey.wait(20000));
        QCOMPARE(noKey.exitCode(), 1);
        QVERIFY2(noKey.err().contains(QStringLiteral("Add your OpenAI API key before starting.")), qPrintable(noKey.err()));
        QVERIFY2(noKey.err().contains(path("home-nokey") + QStringLiteral("/.local/share/Ketterbloom/openai.key")),
                 qPrintable(noKey.err()));
        QVERIFY(noKey.err().contains(QStringLiteral("OPENAI_API_KEY")));

        App noDisplay(path("home-nodisplay"));
        for (const char *name : {"QT_QPA_PLATFORM", "DISPLAY", "WAYLAND_DISPLAY"})
            noDisplay.setEnvironment(QString::fromLatin1(name), QString());
        QVERIFY(noDisplay.start({}, QStringLiteral("ws://127.0.0.1:9/v1/realtime")));
        QVERIFY(noDisplay.wait(20000));
        QCOMPARE(noDisplay.exitCode(), 1);
        QCOMPARE(noDisplay.err(),
                 QStringLiteral("No display: start Ketterbloom from your desktop session, or use --headless\n"));
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

    // Plays a file to its end, then waits `pauseSeconds` more.
    void play(const QString &file, const QString &device, int pauseSeconds)
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
