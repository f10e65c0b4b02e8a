// The real decoder on real speech: the live microphone path and a saved stereo recording.
#include "SpeechTestAudio.h"

#include "speech/MicTranscriber.h"
#include "speech/PocketSphinxEngine.h"
#include "speech/RecordingTranscriber.h"

#include <QDir>
#include <QTest>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using namespace SpeechTestAudio;

class TestSpeechDecoding : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase();
    void engineRecognisesStreamedClip();
    void micTranscriberRecognises48kFloat();
    void stereoRecordingTranscript();

private:
    QString clip(const QString &name) const { return dataDir() + u'/' + name; }
};

void TestSpeechDecoding::initTestCase()
{
    if (!QFile::exists(clip(QStringLiteral("goforward.raw"))))
        QSKIP("pocketsphinx-testdata is not installed");
    if (!PocketSphinxEngine::modelInstalled(PocketSphinxEngine::defaultModelDir()))
        QSKIP("pocketsphinx-en-us is not installed");
}

void TestSpeechDecoding::engineRecognisesStreamedClip()
{
    const auto audio = readClip(clip(QStringLiteral("goforward.raw")));
    std::vector<std::int16_t> pcm;
    for (float s : audio)
        pcm.push_back(static_cast<std::int16_t>(s * 32768.0f));

    PocketSphinxEngine engine;
    QCOMPARE(engine.load(), std::nullopt);
    QCOMPARE(engine.startUtterance(), std::nullopt);
    QStringList partials;
    for (std::size_t i = 0; i < pcm.size(); i += 1600) {
        QCOMPARE(engine.process(pcm.data() + i, std::min<std::size_t>(1600, pcm.size() - i)), std::nullopt);
        const QString p = engine.partialHypothesis();
        if (!p.isEmpty() && (partials.isEmpty() || partials.last() != p))
            partials << p;
    }
    const auto result = engine.endUtterance();
    QVERIFY(std::holds_alternative<QString>(result));
    QCOMPARE(std::get<QString>(result), QStringLiteral("go forward ten meters"));
    QVERIFY2(partials.size() >= 2, qPrintable(partials.join(u'|'))); // the text grows mid-utterance
}

void TestSpeechDecoding::micTranscriberRecognises48kFloat()
{
    const auto audio = resample(readClip(clip(QStringLiteral("goforward.raw"))), 16000, 48000);
    MicTranscriber t;
    t.setFinalFallbackInterval(60s); // a loaded machine must not turn this into the fallback
    QStringList partials, finals, failures;
    t.onPartial = [&](const QString &s) { partials << s; };
    t.onFinal = [&](const QString &s) { finals << s; };
    t.onFailure = [&](const QString &s) { failures << s; };
    std::optional<SpeechAvailability> answer;
    t.requestAuthorization([&](const SpeechAvailability &a) { answer = a; });
    QTRY_VERIFY(answer.has_value());
    QCOMPARE(answer->kind, SpeechAvailability::Kind::ready);

    // Blocks of 2048 frames from another thread, as the audio thread delivers them, at about
    // four times real time.
    t.begin();
    std::atomic<bool> fed{false};
    std::thread audioThread([&] {
        for (std::size_t i = 0; i < audio.size(); i += 2048) {
            t.appendMicBuffer(audio.data() + i, static_cast<int>(std::min<std::size_t>(2048, audio.size() - i)));
            std::this_thread::sleep_for(10ms);
        }
        fed = true;
    });
    QTRY_VERIFY_WITH_TIMEOUT(fed.load(), 30000);
    audioThread.join();
    QCOMPARE(t.appendedFrames(), qint64(audio.size()));
    t.end();
    QTRY_COMPARE_WITH_TIMEOUT(finals, QStringList{QStringLiteral("Go forward ten meters")}, 60000);
    QVERIFY(!partials.isEmpty());
    QVERIFY(failures.isEmpty());
}

void TestSpeechDecoding::stereoRecordingTranscript()
{
    // 100 s at 48 kHz: the user at 00:01 and 00:50, the interviewer at 00:02; 01:30-01:40 silent.
    const int rate = 48000;
    const auto you = resample(readClip(clip(QStringLiteral("goforward.raw"))), 16000, rate);
    const auto them = resample(readClip(clip(QStringLiteral("librivox/sense_and_sensibility_01_austen_64kb-0880.wav"))), 16000, rate);
    QVERIFY(!you.empty() && !them.empty());
    std::vector<std::vector<float>> tracks(2, std::vector<float>(100 * rate, 0.0f));
    place(tracks[0], you, 1.0, rate);
    place(tracks[1], them, 2.0, rate);
    place(tracks[0], you, 50.0, rate);
    const QString dir = QDir::homePath() + QStringLiteral("/Documents/Ketterbloom");
    QVERIFY(QDir().mkpath(dir));
    const QString wav = dir + QStringLiteral("/meeting_2026-01-02_10-00-00.wav");
    QVERIFY(writeWav(wav, rate, tracks));

    RecordingTranscriber transcriber;
    QList<RecordingProgress> progress;
    std::optional<RecordingTranscriber::Result> result;
    transcriber.transcribe(wav, [&](const RecordingProgress &p) { progress << p; },
                           [&](const RecordingTranscriber::Result &r) { result = r; });
    QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 120000);
    const auto *written = std::get_if<RecordingTranscriber::Written>(&*result);
    QVERIFY2(written, written ? "" : qPrintable(std::get<RecordingTranscriber::Failed>(*result).message));
    QCOMPARE(written->transcriptPath, dir + QStringLiteral("/meeting_2026-01-02_10-00-00.transcript.md"));

    QFile file(written->transcriptPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    QCOMPARE(lines.size(), 13);
    QCOMPARE(lines.mid(0, 8), (QStringList{
        QStringLiteral("# Meeting transcript"), QString(),
        QStringLiteral("Source: `meeting_2026-01-02_10-00-00.wav`"),
        QStringLiteral("Duration: 1 min 40 s"),
        QStringLiteral("Transcribed on-device. Left channel = you, right channel = the meeting."), QString(),
        QStringLiteral("### 00:00"),
        QStringLiteral("**You:** Go forward ten meters")}));
    // The interviewer's line: "he was not an ill disposed young man", as this model hears it.
    QVERIFY2(lines[8].startsWith(QStringLiteral("**Interviewer:** He was not")) && lines[8].endsWith(QStringLiteral("young man")),
             qPrintable(lines[8]));
    QCOMPARE(lines.mid(9), (QStringList{QString(), QStringLiteral("### 00:45"), QStringLiteral("**You:** Go forward ten meters"),
                                        QString()}));

    QCOMPARE(progress.size(), 3);
    QCOMPARE(progress[0].secondsDone, 45.0);
    QCOMPARE(progress[1].secondsDone, 90.0);
    QCOMPARE(progress[2].secondsDone, 100.0);
    QCOMPARE(progress[2].secondsTotal, 100.0);
}

QTEST_GUILESS_MAIN(TestSpeechDecoding)
#include "tst_SpeechDecoding.moc"
