// A recording as the meeting, end to end with no sound server: the real program plays a WAV
// of spoken questions into the local realtime simulator, which answers each one.

#include "E2eHarness.h"
#include "SoundServer.h"
#include "TestSignals.h"

#include <QJsonArray>
#include <QJsonObject>
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
};

QTEST_GUILESS_MAIN(RecordingSourceTest)
#include "tst_e2e_recording.moc"
