// A recording transcribed with the service's transcription endpoint, against the simulator over
// real HTTP: the same utterances and dialogue as on the device, each utterance's text in its
// place, at most two requests at once; a refused key and a cancel write nothing.
#include "SpeechTestAudio.h"

#include "app/ServiceUtteranceRecogniser.h"
#include "realtime/RealtimeFailure.h"
#include "realtimesim/RealtimeSimulator.h"
#include "speech/RecordingTranscriber.h"

#include <QDir>
#include <QJsonObject>
#include <QTemporaryDir>
#include <QTest>

#include <algorithm>
#include <cmath>

using namespace SpeechTestAudio;

namespace {

constexpr int kRate = 8000;
constexpr int kWait = 15000;
const QString kKey = QStringLiteral("sk-test-recording");

} // namespace

class TestRecordingService : public QObject
{
    Q_OBJECT

private:
    // Transcribes `wav` with the service; `run` collects what comes back.
    static void transcribe(RecordingTranscriber &transcriber, const QString &wav, Run &run)
    {
        run = {};
        const AudioTranscriptionConfig config{kKey, QStringLiteral("gpt-4o-transcribe"), QStringLiteral("en")};
        transcriber.transcribe(
            wav, [config] { return std::make_unique<ServiceUtteranceRecogniser>(config); },
            run.onProgress(), run.onResult());
    }
    QList<QJsonObject> requests() const { return m_sim->received(QStringLiteral("POST /v1/audio/transcriptions")); }

    QTemporaryDir m_dir;
    std::unique_ptr<RealtimeSimulator> m_sim;

private slots:
    void init()
    {
        m_sim = std::make_unique<RealtimeSimulator>();
        QVERIFY(m_sim->listen());
        qputenv("KQ_REALTIME_URL", m_sim->url().toString().toUtf8());
    }
    void cleanup()
    {
        m_sim.reset();
        qunsetenv("KQ_REALTIME_URL");
    }

    void dialogueInTimeOrder()
    {
        // You 0-1 s and 9-11 s, the interviewer 3-6 s: three utterances of different lengths.
        const QString wav = m_dir.filePath(QStringLiteral("meeting.wav"));
        QVERIFY(writeWav(wav, kRate, {track(14, {{0, 1}, {9, 11}}), track(14, {{3, 6}})}));
        m_sim->setTranscriptionTexts({QStringLiteral("First answer."), QStringLiteral("A question?"),
                                      QStringLiteral("Second answer.")});
        RecordingTranscriber transcriber;
        Run run;
        transcribe(transcriber, wav, run);
        QTRY_VERIFY_WITH_TIMEOUT(run.result.has_value(), kWait);
        if (!run.result->ok())
            QFAIL(qPrintable(run.result->error()));
        const RecordingTranscriber::Written *written = &run.result->value();
        QCOMPARE(written->transcriptPath, m_dir.filePath(QStringLiteral("meeting.recording.md")));

        // Requests may be answered in any order: each text belongs to the utterance whose
        // audio it answered, told apart by length (shortest: 00:00, longest: the interviewer's).
        QList<QJsonObject> sent = requests();
        QCOMPARE(sent.size(), 3);
        std::sort(sent.begin(), sent.end(), [](const QJsonObject &a, const QJsonObject &b) {
            return a.value("file").toObject().value("seconds").toDouble() < b.value("file").toObject().value("seconds").toDouble();
        });
        for (const QJsonObject &request : sent) {
            QCOMPARE(request.value("model").toString(), QStringLiteral("gpt-4o-transcribe"));
            QCOMPARE(request.value("language").toString(), QStringLiteral("en"));
        }
        const auto textOf = [&sent](int i) { return sent[i].value("text").toString(); };
        QFile file(written->transcriptPath);
        QVERIFY(file.open(QIODevice::ReadOnly));
        QCOMPARE(QString::fromUtf8(file.readAll()),
                 QStringLiteral("# Meeting transcript\n\nSource: `meeting.wav`\nDuration: 0 min 14 s\n"
                                "Transcribed with OpenAI (gpt-4o-transcribe). Left channel = you, right channel = the meeting.\n\n"
                                "**You** (00:00): %1\n\n**Interviewer** (00:03): %2\n\n**You** (00:09): %3\n")
                     .arg(textOf(0), textOf(2), textOf(1)));

        // Two at a time: the client never needed a third connection. None was a WebSocket.
        QVERIFY(m_sim->httpConnectionCount() <= ServiceUtteranceRecogniser::kInFlight);
        QCOMPARE(m_sim->connectionCount(), 0);
        // The usage of the three, and progress after each utterance up to the end.
        QCOMPARE(written->usage.value("type").toString(), QStringLiteral("tokens"));
        QVERIFY(written->usage.value("input_tokens").toInt() >= 70); // about 7 s of audio
        QVERIFY(written->secondsSent > 7 && written->secondsSent < 8.5);
        QCOMPARE(run.progress.size(), 5);
        QCOMPARE(run.progress.first().secondsDone, 0.0);
        QCOMPARE(run.progress.last().secondsDone, 14.0);
    }

    void refusedKeyAndCancelWriteNothing()
    {
        const QString wav = m_dir.filePath(QStringLiteral("refused.wav"));
        QVERIFY(writeWav(wav, kRate, {track(12, {{0, 2}, {6, 8}}), track(12, {{3, 5}})}));
        m_sim->setExpectedKey(QStringLiteral("sk-the-right-one"));
        RecordingTranscriber transcriber;
        Run run;
        transcribe(transcriber, wav, run);
        QTRY_VERIFY_WITH_TIMEOUT(run.result.has_value(), kWait);
        QCOMPARE(run.result->error(), RealtimeFailure::keyMessage());
        QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("refused.recording.md"))));

        // Cancel while two requests are under way: they are aborted and nothing is written.
        m_sim->setExpectedKey(QString());
        SimAudioTranscription slow;
        slow.delayMs = 60000;
        m_sim->setAudioTranscriptions({slow, slow, slow});
        const qsizetype before = requests().size();
        transcribe(transcriber, wav, run);
        QTRY_COMPARE_WITH_TIMEOUT(requests().size(), before + 2, kWait);
        QVERIFY(transcriber.isRunning());
        transcriber.cancel();
        QTRY_VERIFY_WITH_TIMEOUT(run.result.has_value(), kWait);
        QCOMPARE(run.result->error(), RecordingTranscriber::cancelledMessage());
        QTRY_COMPARE_WITH_TIMEOUT(m_sim->openHttpConnectionCount(), 0, kWait);
        QCOMPARE(requests().size(), before + 2); // the third utterance was never sent
        QVERIFY(!QFile::exists(m_dir.filePath(QStringLiteral("refused.recording.md"))));
        QVERIFY(!transcriber.isRunning());
    }
};

QTEST_GUILESS_MAIN(TestRecordingService)
#include "tst_RecordingService.moc"
