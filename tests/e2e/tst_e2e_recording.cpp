// Recordings end to end with no sound server: the real program plays a WAV of spoken
// questions into the local realtime simulator, which answers each one; and it transcribes a
// saved session recording.

#include "E2eHarness.h"
#include "SoundServer.h"
#include "TestSignals.h"

#include <QJsonArray>
#include <QJsonObject>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace e2e;

namespace {

const QStringList kQuestions{QStringLiteral("Tell me about a project you led."),
                             QStringLiteral("What was the hardest bug you fixed?"),
                             QStringLiteral("Why do you want this role?")};
const QStringList kAnswers{QStringLiteral("I led the billing migration with no downtime."),
                           QStringLiteral("A race in the cache that only showed under load."),
                           QStringLiteral("It is the product I already use every day.")};

// The environment of a machine without a sound server.
void withoutSoundServer(App &app, const QString &runtimeDir)
{
    app.setEnvironment(QStringLiteral("XDG_RUNTIME_DIR"), runtimeDir);
    app.setEnvironment(QStringLiteral("PULSE_SERVER"), QStringLiteral("unix:") + runtimeDir + QStringLiteral("/none"));
}

} // namespace

class RecordingSourceTest : public QObject
{
    Q_OBJECT

private slots:
    void recordingIsTheMeeting()
    {
        QTemporaryDir dir;
        QVERIFY(dir.isValid());
        const auto path = [&dir](const QString &name) { return dir.filePath(name); };
        // Three spoken questions, each followed by two seconds of silence.
        QStringList parts;
        QVERIFY(kbtest::makeSilence(path(QStringLiteral("gap.wav")), 2.0));
        for (int i = 0; i < kQuestions.size(); ++i) {
            const QString name = path(QStringLiteral("q%1.wav").arg(i));
            QVERIFY(kbtest::makeSpeech(name, kQuestions.at(i)));
            parts << name << path(QStringLiteral("gap.wav"));
        }
        const QString meeting = path(QStringLiteral("meeting.wav"));
        QVERIFY(kbtest::run(QStringLiteral("sox"), parts + QStringList{meeting}).ok());
        const kbtest::WavData file = kbtest::readWav(meeting);
        QVERIFY(file.ok);
        QCOMPARE(file.sampleRate, 48000);

        QJsonArray turns;
        for (int i = 0; i < kQuestions.size(); ++i)
            turns.append(QJsonObject{{QStringLiteral("question"), kQuestions.at(i)}, {QStringLiteral("answer"), kAnswers.at(i)}});
        Simulator sim;
        QVERIFY(sim.start(QJsonObject{{QStringLiteral("loop"), false}, {QStringLiteral("turns"), turns}}, dir.path()));

        App app(path(QStringLiteral("home")));
        withoutSoundServer(app, path(QStringLiteral("run")));
        app.writeSettings(QJsonObject{{QStringLiteral("hasCompletedOnboarding"), true},
                                      {QStringLiteral("meetingSource"), QStringLiteral("recording")},
                                      {QStringLiteral("recordingFile"), meeting},
                                      {QStringLiteral("saveAudio"), true}});
        // It stops by itself at the recording's end.
        QVERIFY(app.start({QStringLiteral("--headless")}, sim.url()));
        QVERIFY2(app.wait(120000), qPrintable(app.err()));
        QCOMPARE(app.exitCode(), 0);
        for (int i = 0; i < kQuestions.size(); ++i) {
            const QString card = QStringLiteral("**Interviewer:** ") + kQuestions.at(i)
                + QStringLiteral("\n\n**Copilot:** ") + kAnswers.at(i);
            QVERIFY2(app.out().contains(card), qPrintable(app.out() + app.err()));
        }

        // The service heard the file at 24 kHz, to within one batch.
        qint64 bytes = 0;
        for (const QJsonObject &record : sim.records(QStringLiteral("input_audio_buffer.append")))
            bytes += record.value(QStringLiteral("message")).toObject().value(QStringLiteral("audio_bytes")).toInteger();
        const qint64 expected = file.frames / 2 * 2;
        QVERIFY2(std::abs(bytes - expected) <= 4800, qPrintable(QStringLiteral("%1 bytes for %2").arg(bytes).arg(expected)));

        // The archive: a silent left (no microphone), the file on the right.
        const kbtest::WavData archive = kbtest::readWav(app.newestFile(QStringLiteral(".wav")));
        QVERIFY(archive.ok);
        QCOMPARE(archive.channels, 2);
        const std::vector<float> left = archive.channel(0);
        const std::vector<float> right = archive.channel(1);
        const std::vector<float> source = file.channel(0);
        QVERIFY2(std::abs(qint64(right.size()) - qint64(source.size())) <= 48000 / 10,
                 qPrintable(QStringLiteral("%1 frames for %2").arg(right.size()).arg(source.size())));
        float leftPeak = 0.0f;
        float worst = 0.0f;
        for (float sample : left)
            leftPeak = std::max(leftPeak, std::fabs(sample));
        for (size_t i = 0; i < std::min(right.size(), source.size()); ++i)
            worst = std::max(worst, std::fabs(right[i] - source[i]));
        QCOMPARE(leftPeak, 0.0f);
        QVERIFY2(worst <= 2.0f / 32768.0f, qPrintable(QString::number(worst)));
    }

    // A saved session recording (`--transcribe`), decoded on the device.
    void savedRecordingIsTranscribed()
    {
        QTemporaryDir dir;
        const auto path = [&dir](const char *name) { return dir.filePath(QLatin1String(name)); };
        // A recorded human voice the on-device recogniser knows well.
        const QString clip = QStringLiteral("/usr/share/pocketsphinx/test/data/goforward.raw");
        QVERIFY2(QFile::exists(clip), "pocketsphinx-testdata is not installed");
        const QStringList raw = QStringLiteral("-t raw -r 16000 -e signed -b 16 -c 1").split(QLatin1Char(' '));
        QVERIFY(kbtest::run(QStringLiteral("sox"), raw + QStringList{clip, QStringLiteral("-r"), QStringLiteral("48000"),
                                                                     path("answer.wav")}).ok());
        // The user's voice on the left, the meeting on the right, as the app records it.
        QVERIFY(kbtest::makeSilence(path("pad.wav"), 3));
        QVERIFY(kbtest::run(QStringLiteral("sox"), {path("answer.wav"), path("pad.wav"), path("left.wav")}).ok());
        QVERIFY(kbtest::run(QStringLiteral("sox"), {path("pad.wav"), path("answer.wav"), path("right.wav")}).ok());
        QVERIFY(kbtest::mergeToStereo(path("left.wav"), path("right.wav"), path("meeting_saved.wav")));
        App app(path("home-transcribe"));
        QVERIFY(app.start({QStringLiteral("--transcribe"), path("meeting_saved.wav")}, QString()));
        QVERIFY2(app.wait(120000) && app.exitCode() == 0, qPrintable(app.err()));
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
};

QTEST_GUILESS_MAIN(RecordingSourceTest)
#include "tst_e2e_recording.moc"
