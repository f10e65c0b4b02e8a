// The microphone transcriber's segment logic, driven with a scripted engine.
#include "FakeSpeechEngine.h"

#include "speech/MicTranscriber.h"
#include "speech/PocketSphinxEngine.h"

#include <QDir>
#include <QTest>

#include <chrono>
#include <memory>
#include <vector>

using namespace std::chrono_literals;

namespace {

std::vector<float> tone(int frames)
{
    std::vector<float> v(static_cast<std::size_t>(frames));
    for (int i = 0; i < frames; ++i)
        v[static_cast<std::size_t>(i)] = 0.3f * std::sin(i * 0.05f);
    return v;
}

// A transcriber on a scripted engine, and what it hands out.
struct Transcribing
{
    std::shared_ptr<FakeSpeechEngine> engine = std::make_shared<FakeSpeechEngine>();
    MicTranscriber t{engine};
    QStringList partials;
    QStringList finals;
    QStringList failures;
    // A second of a tone at 48 kHz; feed() hands its first `frames` to the transcriber.
    std::vector<float> audio = tone(48000);
    void feed(int frames) { t.appendMicBuffer(audio.data(), frames); }

    explicit Transcribing(std::chrono::milliseconds fallback)
    {
        t.setFinalFallbackInterval(fallback);
        t.onPartial = [this](const QString &s) { partials << s; };
        t.onFinal = [this](const QString &s) { finals << s; };
        t.onFailure = [this](const QString &s) { failures << s; };
    }
};


} // namespace

class TestMicTranscriber : public QObject
{
    Q_OBJECT

private slots:
    void coldSegmentsDecodedTwice()
    {
        // The first segments after loading: the final text is the segment decoded a second time.
        Transcribing r(std::chrono::seconds(30));
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(QStringLiteral("so i thing"));
        engine->setSecondPassText(QStringLiteral("so i think"));
        t.begin();
        r.feed(48000);
        QTRY_COMPARE(r.partials, QStringList{QStringLiteral("So I thing")});
        t.end();
        QTRY_COMPARE(r.finals, QStringList{QStringLiteral("So I think")});
        QCOMPARE(engine->secondPasses.load(), 1);
        QCOMPARE(engine->lastSecondPassSamples.load(), engine->lastUtteranceSamples.load()); // all of the segment

        // Once the decoder has heard 20 s, it is warm: the live final text stands.
        for (int i = 0; i < 25; ++i) {
            t.begin();
            r.feed(48000);
            t.end();
            QTRY_COMPARE(r.finals.size(), 2 + i);
        }
        QCOMPARE(r.finals.last(), QStringLiteral("So I thing"));
        QVERIFY(engine->secondPasses.load() < 25);
    }

    void partialsThenOneFinal()
    {
        Transcribing r(150ms);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(QStringLiteral("so i think"));
        t.begin();
        QVERIFY(t.isSegmentRunning());
        r.feed(2048);
        QTRY_COMPARE(r.partials, QStringList{QStringLiteral("So I think")});
        // The partial is the whole text so far, not what was added.
        engine->setHypothesis(QStringLiteral("so i think we shipped"));
        r.feed(2048);
        QTRY_COMPARE(r.partials.size(), 2);
        QCOMPARE(r.partials.last(), QStringLiteral("So I think we shipped"));

        engine->setHypothesis(QStringLiteral("so i think we shipped it"));
        t.end();
        t.end(); // a second end() while waiting changes nothing
        QTRY_COMPARE(r.finals, QStringList{QStringLiteral("So I think we shipped it")});
        QCOMPARE(r.partials.last(), QStringLiteral("So I think we shipped it"));
        QVERIFY(!t.isSegmentRunning());
        QTest::qWait(400); // past the fallback: it finds the segment finished
        QCOMPARE(r.finals.size(), 1);
        QVERIFY(r.failures.isEmpty());
    }

    void secondBeginCancelsFirstSilently()
    {
        Transcribing r(150ms);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(QStringLiteral("first words"));
        t.begin();
        r.feed(2048);
        QTRY_COMPARE(r.partials.size(), 1);
        t.begin();
        QCOMPARE(t.segmentId(), 3); // one number for the cancelled segment, one for the new one
        QCOMPARE(t.latest(), QString());
        engine->setHypothesis(QStringLiteral("second words"));
        r.feed(2048);
        t.end();
        QTRY_COMPARE(r.finals, QStringList{QStringLiteral("Second words")});
        QCOMPARE(engine->cancels.load(), 1);
        QCOMPARE(engine->starts.load(), 2);
        QCOMPARE(r.partials.first(), QStringLiteral("First words"));
        QVERIFY(!r.partials.mid(1).contains(QStringLiteral("First words")));

        // A silent stop drops whatever the segment still had to say.
        engine->setHypothesis(QStringLiteral("third words"));
        t.begin();
        r.feed(2048);
        t.stopTask(true);
        QTest::qWait(300);
        QCOMPARE(r.finals.size(), 1);
        QVERIFY(!r.partials.contains(QStringLiteral("Third words")));
        QVERIFY(r.failures.isEmpty());
    }

    // begin() twice while the worker is still busy: the first segment's audio is dropped, the
    // second's is decoded in full.
    void busyWorkerKeepsNewSegmentAudio()
    {
        Transcribing r(5s);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(QStringLiteral("second"));
        engine->setHoldStart(true);
        t.begin();
        QTRY_VERIFY(engine->holding.load());
        r.feed(48000); // one second for the first segment
        t.begin();
        r.feed(24000); // half a second for the second
        t.end();
        engine->release();
        QTRY_COMPARE(r.finals, QStringList{QStringLiteral("Second")});
        QVERIFY2(std::abs(engine->lastUtteranceSamples.load() - 8000) <= 16,
                 qPrintable(QString::number(engine->lastUtteranceSamples.load())));
    }

    void fallbackDeliversLastPartial()
    {
        Transcribing r(200ms);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(QStringLiteral("still talking"));
        engine->setHold(true);
        t.begin();
        r.feed(2048);
        QTRY_COMPARE(r.partials.size(), 1);
        t.end();
        QTRY_VERIFY(engine->holding.load());
        QTRY_COMPARE(r.finals, QStringList{QStringLiteral("Still talking")});
        QVERIFY(!t.isSegmentRunning());

        // The recogniser finishes late: its result belongs to a finished segment.
        engine->setHypothesis(QStringLiteral("still talking late"));
        engine->release();
        QTRY_VERIFY(!engine->holding.load());
        QTest::qWait(200);
        QCOMPARE(r.finals.size(), 1);

        // The next segment works as usual.
        t.begin();
        r.feed(2048);
        t.end();
        QTRY_COMPARE(r.finals.size(), 2);
        QCOMPARE(r.finals.last(), QStringLiteral("Still talking late"));
    }

    void errors_data()
    {
        QTest::addColumn<QString>("heard");
        QTest::addColumn<int>("code");
        QTest::addColumn<QStringList>("finals");
        QTest::addColumn<QStringList>("failures");

        QTest::newRow("nothing recognised") << QString() << SpeechEngine::kNothingRecognised << QStringList() << QStringList();
        QTest::newRow("no match") << QString() << SpeechEngine::kNoMatch << QStringList() << QStringList();
        QTest::newRow("cancelled") << QString() << SpeechEngine::kCancelled << QStringList() << QStringList();
        QTest::newRow("failure, nothing heard") << QString() << 7 << QStringList()
                                                << QStringList{QStringLiteral("On-device transcription failed: decoder broke")};
        QTest::newRow("failure after words") << QStringLiteral("we grew revenue") << 7
                                             << QStringList{QStringLiteral("We grew revenue")} << QStringList();
    }

    void errors()
    {
        QFETCH(QString, heard);
        QFETCH(int, code);
        QFETCH(QStringList, finals);
        QFETCH(QStringList, failures);

        Transcribing r(150ms);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        engine->setHypothesis(heard);
        engine->setEndError(SpeechEngine::Error{code, QStringLiteral("decoder broke")});
        t.begin();
        r.feed(2048);
        if (!heard.isEmpty())
            QTRY_COMPARE(r.partials.size(), 1);
        t.end();
        QTRY_COMPARE(engine->ends.load(), 1);
        QTRY_VERIFY(!t.isSegmentRunning());
        QTest::qWait(300); // past the fallback
        QCOMPARE(r.finals, finals);
        QCOMPARE(r.failures, failures);
    }

    void audioCountedOnlyWhileListening()
    {
        Transcribing r(150ms);
        const auto &engine = r.engine;
        MicTranscriber &t = r.t;
        r.feed(4800); // no segment: dropped
        QCOMPARE(t.appendedFrames(), 0);
        t.begin();
        r.feed(48000);
        QCOMPARE(t.appendedFrames(), 48000);
        t.end();
        r.feed(4800); // after end(): dropped
        QCOMPARE(t.appendedFrames(), 48000);
        QTRY_COMPARE(engine->ends.load(), 1);
        // One second at 48 kHz reaches the engine as one second at 16 kHz.
        QVERIFY2(std::abs(engine->samplesProcessed.load() - 16000) <= 16,
                 qPrintable(QString::number(engine->samplesProcessed.load())));
    }

    void availability()
    {
        const QString modelDir = PocketSphinxEngine::defaultModelDir();
        auto real = std::make_shared<PocketSphinxEngine>(modelDir);
        QCOMPARE(real->availability(QLocale(QStringLiteral("de_DE"))),
                 SpeechAvailability::unsupported(QStringLiteral("Speech recognition is unavailable for de_DE.")));
        if (PocketSphinxEngine::modelInstalled(modelDir)) {
            QCOMPARE(real->availability(QLocale(QStringLiteral("en_GB"))), SpeechAvailability::ready());
            QCOMPARE(real->availability(QLocale::c()), SpeechAvailability::ready());
        }
        PocketSphinxEngine missing(QDir::tempPath() + QStringLiteral("/no-such-model"));
        QCOMPARE(missing.availability(QLocale(QStringLiteral("en_US"))),
                 SpeechAvailability::unsupported(QStringLiteral(
                     "On-device speech recognition is not installed for en_US. Install the pocketsphinx-en-us package.")));

        // The answer comes through the event loop; an unavailable recogniser opens no segment.
        auto engine = std::make_shared<FakeSpeechEngine>();
        engine->setAvailability(SpeechAvailability::unsupported(QStringLiteral("nope")));
        MicTranscriber t(engine);
        std::optional<SpeechAvailability> answer;
        t.requestAuthorization([&](const SpeechAvailability &a) { answer = a; });
        QVERIFY(!answer);
        QTRY_VERIFY(answer.has_value());
        QCOMPARE(*answer, SpeechAvailability::unsupported(QStringLiteral("nope")));
        t.begin();
        QVERIFY(!t.isSegmentRunning());
        QCOMPARE(t.segmentId(), 0);
    }
};

QTEST_GUILESS_MAIN(TestMicTranscriber)
#include "tst_MicTranscriber.moc"
