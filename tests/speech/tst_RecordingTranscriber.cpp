// The recording transcriber's chunks, channels, output and cancelling, with a scripted engine
// that "recognises" the loudness of what it hears.
#include "FakeSpeechEngine.h"
#include "SpeechTestAudio.h"

#include "speech/RecordingTranscriber.h"
#include "speech/RecordingTranscript.h"

#include <QDir>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

using namespace SpeechTestAudio;

namespace {

constexpr int kRate = 8000;

// A sine of `amplitude` in [from, to) seconds of a `seconds`-long track.
std::vector<float> track(int seconds, std::initializer_list<std::pair<int, int>> spans, float amplitude)
{
    std::vector<float> t(static_cast<std::size_t>(seconds) * kRate, 0.0f);
    for (auto [from, to] : spans)
        for (std::size_t i = std::size_t(from) * kRate; i < std::size_t(to) * kRate; ++i)
            t[i] = amplitude * std::sin(static_cast<float>(i) * 0.3f);
    return t;
}

struct Run
{
    QList<RecordingProgress> progress;
    std::optional<RecordingTranscriber::Result> result;
};

} // namespace

class TestRecordingTranscriber : public QObject
{
    Q_OBJECT

private slots:
    void channelsAndChunks();
    void monoIsAllYou();
    void cancelStopsBeforeNextChunk();
    void failures();
    void outputPath();

private:
    QTemporaryDir m_dir;
};

void TestRecordingTranscriber::channelsAndChunks()
{
    // Three channels, 100 s: chunks at 00:00 and 00:45 have sound, 01:30 is silent.
    const QString wav = m_dir.filePath(QStringLiteral("three.wav"));
    QVERIFY(writeWav(wav, kRate, {track(100, {{10, 20}}, 0.2f), track(100, {{5, 60}}, 0.4f), track(100, {{70, 80}}, 0.6f)}));

    auto engine = std::make_shared<FakeSpeechEngine>();
    RecordingTranscriber transcriber(engine);
    Run run;
    transcriber.transcribe(wav, [&](const RecordingProgress &p) { run.progress << p; },
                           [&](const RecordingTranscriber::Result &r) { run.result = r; });
    QVERIFY(transcriber.isRunning());
    QTRY_VERIFY(run.result.has_value());
    QVERIFY(!transcriber.isRunning());
    const auto *written = std::get_if<RecordingTranscriber::Written>(&*run.result);
    QVERIFY(written);
    QCOMPARE(written->transcriptPath, m_dir.filePath(QStringLiteral("three.transcript.md")));
    QFile file(written->transcriptPath);
    QVERIFY(file.open(QIODevice::ReadOnly));
    QCOMPARE(QString::fromUtf8(file.readAll()),
             QStringLiteral("# Meeting transcript\n"
                            "\n"
                            "Source: `three.wav`\n"
                            "Duration: 1 min 40 s\n"
                            "Transcribed on-device. Left channel = you, right channel = the meeting.\n"
                            "\n"
                            "### 00:00\n"
                            "**You:** Level 2\n"
                            "**Interviewer:** Level 4\n"
                            "\n"
                            "### 00:45\n"
                            "**Interviewer:** Level 4\n"
                            "**Interviewer:** Level 6\n"));
    QCOMPARE(engine->recognitions.load(), 4); // silent channels and chunks are not decoded
    QCOMPARE(run.progress.size(), 3);
    QCOMPARE(run.progress[0].secondsDone, 45.0);
    QCOMPARE(run.progress[1].secondsDone, 90.0);
    QCOMPARE(run.progress[2].secondsDone, 100.0);
    QCOMPARE(run.progress[2].secondsTotal, 100.0);
}

void TestRecordingTranscriber::monoIsAllYou()
{
    const QString wav = m_dir.filePath(QStringLiteral("mono.wav"));
    QVERIFY(writeWav(wav, kRate, {track(59, {{0, 3}, {50, 52}}, 0.5f)}));
    FakeSpeechEngine engine;
    std::atomic<bool> cancelled{false};
    const auto result = RecordingTranscriber::run(wav, engine, QLocale::c(), {}, cancelled);
    QVERIFY(std::holds_alternative<RecordingTranscriber::Written>(result));
    QFile file(m_dir.filePath(QStringLiteral("mono.transcript.md")));
    QVERIFY(file.open(QIODevice::ReadOnly));
    const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
    QCOMPARE(lines[3], QStringLiteral("Duration: 0 min 59 s"));
    QCOMPARE(lines.mid(6), (QStringList{QStringLiteral("### 00:00"), QStringLiteral("**You:** Level 5"), QString(),
                                        QStringLiteral("### 00:45"), QStringLiteral("**You:** Level 5"), QString()}));
}

void TestRecordingTranscriber::cancelStopsBeforeNextChunk()
{
    const QString wav = m_dir.filePath(QStringLiteral("long.wav"));
    QVERIFY(writeWav(wav, kRate, {track(100, {{0, 100}}, 0.5f)}));
    auto engine = std::make_shared<FakeSpeechEngine>();
    engine->setHold(true);
    RecordingTranscriber transcriber(engine);
    Run run;
    transcriber.transcribe(wav, [&](const RecordingProgress &p) { run.progress << p; },
                           [&](const RecordingTranscriber::Result &r) { run.result = r; });
    QTRY_VERIFY(engine->holding.load()); // inside the first chunk
    transcriber.cancel();
    engine->release();
    QTRY_VERIFY(run.result.has_value());
    const auto *failed = std::get_if<RecordingTranscriber::Failed>(&*run.result);
    QVERIFY(failed);
    QCOMPARE(failed->message, RecordingTranscriber::cancelledMessage());
    QCOMPARE(engine->recognitions.load(), 1);
    QCOMPARE(run.progress.size(), 1); // the chunk under way finishes and reports
    QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("long.transcript.md"))));

    // The transcriber takes the next recording as usual.
    run = {};
    transcriber.transcribe(wav, {}, [&](const RecordingTranscriber::Result &r) { run.result = r; });
    QTRY_VERIFY(run.result.has_value());
    QVERIFY(std::holds_alternative<RecordingTranscriber::Written>(*run.result));
}

void TestRecordingTranscriber::failures()
{
    FakeSpeechEngine engine;
    std::atomic<bool> cancelled{false};

    auto result = RecordingTranscriber::run(m_dir.filePath(QStringLiteral("missing.wav")), engine, QLocale::c(), {}, cancelled);
    QVERIFY(std::holds_alternative<RecordingTranscriber::Failed>(result));
    QVERIFY(std::get<RecordingTranscriber::Failed>(result).message.startsWith(QStringLiteral("Could not read missing.wav: ")));

    const QString wav = m_dir.filePath(QStringLiteral("short.wav"));
    QVERIFY(writeWav(wav, kRate, {track(2, {{0, 2}}, 0.5f)}));
    engine.setAvailability(SpeechAvailability::unsupported(QStringLiteral("Speech recognition is unavailable for fr_FR.")));
    result = RecordingTranscriber::run(wav, engine, QLocale(QStringLiteral("fr_FR")), {}, cancelled);
    QCOMPARE(std::get<RecordingTranscriber::Failed>(result).message, QStringLiteral("Speech recognition is unavailable for fr_FR."));

    // The transcript cannot be written: its path is taken by a folder.
    engine.setAvailability(SpeechAvailability::ready());
    QVERIFY(QDir(m_dir.path()).mkdir(QStringLiteral("short.transcript.md")));
    result = RecordingTranscriber::run(wav, engine, QLocale::c(), {}, cancelled);
    QVERIFY(std::get<RecordingTranscriber::Failed>(result).message.startsWith(QStringLiteral("Could not write short.transcript.md: ")));
}

void TestRecordingTranscriber::outputPath()
{
    QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/home/a/Documents/Ketterbloom/meeting_2026-01-02_10-00-00.wav")),
             QStringLiteral("/home/a/Documents/Ketterbloom/meeting_2026-01-02_10-00-00.transcript.md"));
    QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/tmp/v1.2/take.two.WAV")), QStringLiteral("/tmp/v1.2/take.two.transcript.md"));
    QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/tmp/v1.2/noext")), QStringLiteral("/tmp/v1.2/noext.transcript.md"));
}

QTEST_GUILESS_MAIN(TestRecordingTranscriber)
#include "tst_RecordingTranscriber.moc"
