// The real decoder on real speech: the live microphone path and a saved stereo recording.
#include "SpeechTestAudio.h"

#include "speech/ContextWords.h"
#include "speech/MicTranscriber.h"
#include "speech/PocketSphinxEngine.h"
#include "speech/RecordingTranscriber.h"

#include <QDir>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>

#include <atomic>
#include <thread>

using namespace std::chrono_literals;
using namespace SpeechTestAudio;

class TestSpeechDecoding : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!QFile::exists(clip(QStringLiteral("goforward.raw"))))
            QSKIP("pocketsphinx-testdata is not installed");
        if (!PocketSphinxEngine::modelInstalled(PocketSphinxEngine::defaultModelDir()))
            QSKIP("pocketsphinx-en-us is not installed");
    }

    void engineRecognisesStreamedClip()
    {
        const auto audio = readClip(clip(QStringLiteral("goforward.raw")));
        std::vector<std::int16_t> pcm;
        for (float s : audio)
            pcm.push_back(static_cast<std::int16_t>(s * 32768.0f));

        PocketSphinxEngine engine;
        QVERIFY(engine.load().ok());
        QVERIFY(engine.startUtterance().ok());
        QStringList partials;
        for (std::size_t i = 0; i < pcm.size(); i += 1600) {
            QVERIFY(engine.process(pcm.data() + i, std::min<std::size_t>(1600, pcm.size() - i)).ok());
            const QString p = engine.partialHypothesis();
            if (!p.isEmpty() && (partials.isEmpty() || partials.last() != p))
                partials << p;
        }
        const auto result = engine.endUtterance();
        QVERIFY(result.ok());
        QCOMPARE(result.value(), QStringLiteral("go forward ten meters"));
        QVERIFY2(partials.size() >= 2, qPrintable(partials.join(u'|'))); // the text grows mid-utterance
    }

    void micTranscriberRecognises48kFloat()
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

    void contextWordsFavourRareWordsTheDecoderKnows()
    {
        // Picked from a document: most frequent first, apostrophes kept inside words (typed or
        // typographic), runs under three letters dropped.
        QCOMPARE(ContextWords::fromText(QStringLiteral("Kafka, kafka and Docker; O\u2019Brien's teams' go-live")),
                 (QStringList{QStringLiteral("kafka"), QStringLiteral("and"), QStringLiteral("docker"),
                              QStringLiteral("o'brien's"), QStringLiteral("teams"), QStringLiteral("live")}));
        QCOMPARE(ContextWords::fromText(QStringLiteral("one two three"), 2).size(), 2);

        // Only words with a pronunciation that the general model finds rare are favoured.
        const auto audio = readClip(clip(QStringLiteral("goforward.raw")));
        std::vector<std::int16_t> pcm;
        for (float s : audio)
            pcm.push_back(static_cast<std::int16_t>(s * 32768.0f));
        PocketSphinxEngine engine;
        engine.setContextWords({QStringLiteral("kafka"), QStringLiteral("the"), QStringLiteral("zzqxv"), QStringLiteral("dashwood")});
        QVERIFY(engine.load().ok());
        QCOMPARE(engine.favouredWordCount(), 2);
        // Ordinary speech still decodes as before, and the words can be changed and cleared
        // between utterances.
        const auto decode = [&] {
            const auto result = engine.recogniseWhole(pcm.data(), pcm.size());
            return result.valueOr(QString());
        };
        QCOMPARE(decode(), QStringLiteral("go forward ten meters"));
        engine.setContextWords({QStringLiteral("terraform")});
        QCOMPARE(decode(), QStringLiteral("go forward ten meters"));
        QCOMPARE(engine.favouredWordCount(), 0); // not in the dictionary
        engine.setContextWords({QStringLiteral("dashwood")});
        QCOMPARE(decode(), QStringLiteral("go forward ten meters"));
        QCOMPARE(engine.favouredWordCount(), 1);
        engine.setContextWords({});
        QCOMPARE(decode(), QStringLiteral("go forward ten meters"));
        QCOMPARE(engine.favouredWordCount(), 0);
    }

    void stereoRecordingTranscript()
    {
        // A two-channel recording made here: the interviewer (right) and the user (left) take
        // turns at known times, with espeak-ng voices.
        if (QStandardPaths::findExecutable(QStringLiteral("espeak-ng")).isEmpty())
            QSKIP("espeak-ng is not installed");
        const int rate = 48000;
        struct Turn
        {
            int channel;
            double at;
            const char *text;
        };
        const Turn turns[] = {{1, 1.0, "Tell me about a project you led."},
                              {0, 5.0, "I led the migration of our payment system."},
                              {1, 11.0, "What was the hardest part?"},
                              {0, 15.0, "Moving the data without any downtime."}};
        QTemporaryDir temp;
        std::vector<std::vector<float>> tracks(2, std::vector<float>(22 * rate, 0.0f));
        for (const Turn &turn : turns) {
            const QString spoken = temp.filePath(QStringLiteral("turn.wav"));
            const int exitCode = QProcess::execute(QStringLiteral("espeak-ng"),
                                                   {QStringLiteral("-v"), turn.channel == 0 ? QStringLiteral("en-us") : QStringLiteral("en-us+f2"),
                                                    QStringLiteral("-s"), QStringLiteral("150"), QStringLiteral("-w"), spoken,
                                                    QString::fromUtf8(turn.text)});
            QCOMPARE(exitCode, 0);
            SF_INFO info{};
            SNDFILE *f = sf_open(QFile::encodeName(spoken).constData(), SFM_READ, &info);
            QVERIFY(f);
            std::vector<float> audio(static_cast<std::size_t>(info.frames));
            sf_readf_float(f, audio.data(), info.frames);
            sf_close(f);
            place(tracks[static_cast<std::size_t>(turn.channel)], resample(audio, info.samplerate, rate), turn.at, rate);
        }
        const QString dir = QDir::homePath() + QStringLiteral("/Documents/Ketterbloom");
        QVERIFY(QDir().mkpath(dir));
        const QString wav = dir + QStringLiteral("/meeting_2026-01-02_10-00-00.wav");
        QVERIFY(writeWav(wav, rate, tracks));
        // Transcripts of earlier runs are never written over; start without them.
        for (const QString &earlier : QDir(dir).entryList({QStringLiteral("meeting_2026-01-02_10-00-00.recording*.md")}, QDir::Files))
            QVERIFY(QFile::remove(dir + u'/' + earlier));

        RecordingTranscriber transcriber;
        QList<RecordingProgress> progress;
        std::optional<RecordingTranscriber::Result> result;
        transcriber.transcribe(wav, [&](const RecordingProgress &p) { progress << p; },
                               [&](const RecordingTranscriber::Result &r) { result = r; });
        QTRY_VERIFY_WITH_TIMEOUT(result.has_value(), 180000);
        QVERIFY2(result->ok(), result->ok() ? "" : qPrintable(result->error()));
        const RecordingTranscriber::Written *written = &result->value();
        QCOMPARE(written->transcriptPath, dir + QStringLiteral("/meeting_2026-01-02_10-00-00.recording.md"));

        QFile file(written->transcriptPath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString markdown = QString::fromUtf8(file.readAll());
        const QStringList lines = markdown.split(u'\n');
        QCOMPARE(lines.mid(0, 6), (QStringList{
            QStringLiteral("# Meeting transcript"), QString(),
            QStringLiteral("Source: `meeting_2026-01-02_10-00-00.wav`"),
            QStringLiteral("Duration: 0 min 22 s"),
            QStringLiteral("Transcribed on-device. Left channel = you, right channel = the meeting."), QString()}));
        // One paragraph per turn, in the order spoken, each with its speaker and start time.
        const QStringList prefixes{QStringLiteral("**Interviewer** (00:01): "), QStringLiteral("**You** (00:05): "),
                                   QStringLiteral("**Interviewer** (00:11): "), QStringLiteral("**You** (00:15): ")};
        QCOMPARE(lines.size(), 6 + 2 * prefixes.size());
        for (int i = 0; i < prefixes.size(); ++i) {
            const QString line = lines[6 + 2 * i];
            QVERIFY2(line.startsWith(prefixes[i]) && line.size() > prefixes[i].size(), qPrintable(markdown));
            QVERIFY(lines[7 + 2 * i].isEmpty());
        }
        // The words themselves, as loosely as this recogniser hears synthetic voices: the
        // interviewer's second question is heard as one ("What was …"), on its own line. Which
        // other words come through varies with the synthesiser's version.
        QVERIFY2(lines[6 + 2 * 2].mid(prefixes[2].size()).startsWith(QStringLiteral("what"), Qt::CaseInsensitive),
                 qPrintable(markdown));

        QVERIFY(!progress.isEmpty());
        for (int i = 1; i < progress.size(); ++i)
            QVERIFY(progress[i].secondsDone >= progress[i - 1].secondsDone);
        QCOMPARE(progress.last().secondsDone, progress.last().secondsTotal);
    }

private:
    QString clip(const QString &name) const { return dataDir() + u'/' + name; }
};

QTEST_GUILESS_MAIN(TestSpeechDecoding)
#include "tst_SpeechDecoding.moc"
