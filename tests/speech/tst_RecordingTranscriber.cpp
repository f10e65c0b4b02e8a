// The recording transcriber's utterances, dialogue order, output names and cancelling, with a scripted engine
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

} // namespace

class TestRecordingTranscriber : public QObject
{
    Q_OBJECT

private slots:
    void dialogueInTimeOrder()
    {
        // Three channels, 100 s. The second speaks for 55 s without a pause (cut after 30 s);
        // 01:30-01:40 is silent everywhere.
        const QString wav = m_dir.filePath(QStringLiteral("three.wav"));
        QVERIFY(writeWav(wav, kRate, {track(100, {{10, 20}}, 0.2f), track(100, {{5, 60}}, 0.4f), track(100, {{70, 80}}, 0.6f)}));

        auto engine = std::make_shared<FakeSpeechEngine>();
        RecordingTranscriber transcriber(engine);
        Run run;
        transcriber.transcribe(wav, run.onProgress(), run.onResult());
        QVERIFY(transcriber.isRunning());
        QTRY_VERIFY(run.result.has_value());
        QVERIFY(!transcriber.isRunning());
        QVERIFY(run.result->ok());
        const RecordingTranscriber::Written *written = &run.result->value();
        QCOMPARE(written->transcriptPath, m_dir.filePath(QStringLiteral("three.recording.md")));
        QFile file(written->transcriptPath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(file.readAll()),
                 QStringLiteral("# Meeting transcript\n"
                                "\n"
                                "Source: `three.wav`\n"
                                "Duration: 1 min 40 s\n"
                                "Transcribed on-device. Left channel = you, right channel = the meeting.\n"
                                "\n"
                                "**Interviewer** (00:05): Level 4\n"
                                "\n"
                                "**You** (00:10): Level 2\n"
                                "\n"
                                "**Interviewer** (00:35): Level 4\n"
                                "\n"
                                "**Interviewer** (01:10): Level 6\n"));
        QCOMPARE(engine->recognitions.load(), 4); // silence is not decoded
        QList<double> done;
        for (const auto &p : run.progress) {
            done << p.secondsDone;
            QCOMPARE(p.secondsTotal, 100.0);
        }
        QCOMPARE(done, (QList<double>{0, 35, 35, 60, 80, 100})); // after each utterance; never backwards
    }

    void silenceRuleAndMono()
    {
        // Pauses under 2 s stay inside one utterance; from 2 s on they split it.
        const QString wav = m_dir.filePath(QStringLiteral("mono.wav"));
        QVERIFY(writeWav(wav, kRate, {track(62, {{0, 3}, {4, 6}, {8, 9}, {60, 62}}, 0.5f)}));
        FakeSpeechEngine engine;
        std::atomic<bool> cancelled{false};
        const auto result = RecordingTranscriber::run(wav, engine, QLocale::c(), {}, cancelled);
        QVERIFY(result.ok());
        QFile file(m_dir.filePath(QStringLiteral("mono.recording.md")));
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QStringList lines = QString::fromUtf8(file.readAll()).split(u'\n');
        QCOMPARE(lines[3], QStringLiteral("Duration: 1 min 02 s"));
        QCOMPARE(lines.mid(6), (QStringList{QStringLiteral("**You** (00:00): Level 4"), QString(),
                                            QStringLiteral("**You** (00:08): Level 4"), QString(),
                                            QStringLiteral("**You** (01:00): Level 5"), QString()})); // no silence after it to pad with
        QCOMPARE(RecordingTranscript::timestamp(3650.7), QStringLiteral("1:00:50"));
    }

    void cancelStopsTheDecoder()
    {
        const QString wav = m_dir.filePath(QStringLiteral("long.wav"));
        QVERIFY(writeWav(wav, kRate, {track(100, {{0, 100}}, 0.5f)}));
        auto engine = std::make_shared<FakeSpeechEngine>();
        engine->setHold(true);
        RecordingTranscriber transcriber(engine);
        Run run;
        transcriber.transcribe(wav, run.onProgress(), run.onResult());
        QTRY_VERIFY(engine->holding.load()); // inside the first chunk; the decoder would never finish
        transcriber.cancel();
        QTRY_VERIFY(run.result.has_value());
        engine->release();
        QVERIFY(!run.result->ok());
        QCOMPARE(run.result->error(), RecordingTranscriber::cancelledMessage());
        QCOMPARE(engine->recognitions.load(), 1);
        QCOMPARE(run.progress.size(), 1); // the utterances were found; the first one was given up
        QCOMPARE(run.progress[0].secondsDone, 0.0);
        QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("long.recording.md"))));

        // The transcriber takes the next recording as usual.
        run = {};
        transcriber.transcribe(wav, {}, run.onResult());
        QTRY_VERIFY(run.result.has_value());
        QVERIFY(run.result->ok());
    }

    void failures()
    {
        FakeSpeechEngine engine;
        std::atomic<bool> cancelled{false};

        auto result = RecordingTranscriber::run(m_dir.filePath(QStringLiteral("missing.wav")), engine, QLocale::c(), {}, cancelled);
        QVERIFY(!result.ok());
        QVERIFY(result.error().startsWith(QStringLiteral("Could not read missing.wav: ")));

        const QString wav = m_dir.filePath(QStringLiteral("short.wav"));
        QVERIFY(writeWav(wav, kRate, {track(2, {{0, 2}}, 0.5f)}));
        engine.setAvailability(SpeechAvailability::unsupported(QStringLiteral("Speech recognition is unavailable for fr_FR.")));
        result = RecordingTranscriber::run(wav, engine, QLocale(QStringLiteral("fr_FR")), {}, cancelled);
        QCOMPARE(result.error(), QStringLiteral("Speech recognition is unavailable for fr_FR."));
    }

    void neverOverwrites()
    {
        QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/home/a/Documents/Ketterbloom/meeting_2026-01-02_10-00-00.wav")),
                 QStringLiteral("/home/a/Documents/Ketterbloom/meeting_2026-01-02_10-00-00.recording.md"));
        QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/tmp/v1.2/take.two.WAV"), 3), QStringLiteral("/tmp/v1.2/take.two.recording-3.md"));
        QCOMPARE(RecordingTranscript::outputPath(QStringLiteral("/tmp/v1.2/noext")), QStringLiteral("/tmp/v1.2/noext.recording.md"));

        // A session's transcript, events log and recording share one stamp.
        const QString stamp = QStringLiteral("meeting_2026-11-21_14-05-09");
        const QString wav = m_dir.filePath(stamp + QStringLiteral(".wav"));
        QVERIFY(writeWav(wav, kRate, {track(2, {{0, 2}}, 0.3f), track(2, {{0, 2}}, 0.5f)}));
        const QByteArray session = "# Session transcript\n\nQ: Why us?\n";
        {
            QFile f(m_dir.filePath(stamp + QStringLiteral(".transcript.md")));
            QVERIFY(f.open(QIODevice::WriteOnly));
            f.write(session);
        }
        QVERIFY(QDir(m_dir.path()).mkdir(stamp + QStringLiteral(".recording-2.md"))); // taken, even if by a folder
        FakeSpeechEngine engine;
        std::atomic<bool> cancelled{false};
        QStringList paths;
        for (int run = 0; run < 2; ++run) {
            const auto result = RecordingTranscriber::run(wav, engine, QLocale::c(), {}, cancelled);
            QVERIFY(result.ok());
            paths << result->transcriptPath;
        }
        QCOMPARE(paths, (QStringList{m_dir.filePath(stamp + QStringLiteral(".recording.md")),
                                     m_dir.filePath(stamp + QStringLiteral(".recording-3.md"))}));
        QFile f(m_dir.filePath(stamp + QStringLiteral(".transcript.md")));
        QVERIFY(f.open(QIODevice::ReadOnly));
        QCOMPARE(f.readAll(), session);
        QFile second(paths[1]);
        QVERIFY(second.open(QIODevice::ReadOnly));
        QVERIFY(second.readAll().startsWith("# Meeting transcript\n"));
    }

private:
    QTemporaryDir m_dir;
};

QTEST_GUILESS_MAIN(TestRecordingTranscriber)
#include "tst_RecordingTranscriber.moc"
