// A press of Start on its own: an audio start that returns for an older press is not the
// current one's and leaves the newer start in flight; the watchdogs fire at 8 s and 25 s
// unless cancelled. The capture watch clears only the banner it showed itself.

#include "ManualClock.h"
#include "session/CaptureWatch.h"
#include "session/StartSequence.h"

#include <QTest>

class StartSequenceTest : public QObject
{
    Q_OBJECT

private slots:
    void olderAudioStartIsNotTheCurrentOne()
    {
        ManualClock clock;
        StartSequence start(clock);
        const quint64 first = start.begin([] {}, [] {});
        const quint64 second = start.begin([] {}, [] {});
        QVERIFY(first != second);
        QVERIFY(!start.audioStartReturned(first));
        QVERIFY(start.audioStartInFlight());   // the newer start still runs
        clock.advance(1.5);
        QVERIFY(start.audioStartReturned(second));
        QVERIFY(!start.audioStartInFlight());
        QCOMPARE(start.elapsed(), 1.5);
    }

    void watchdogsFireUntilCancelled()
    {
        ManualClock clock;
        StartSequence start(clock);
        int still = 0;
        int tooLong = 0;
        start.begin([&] { ++still; }, [&] { ++tooLong; });
        clock.advance(8);
        QCOMPARE(still, 1);
        QCOMPARE(tooLong, 0);
        start.cancelWatchdogs();
        clock.advance(30);
        QCOMPARE(tooLong, 0);

        start.begin([&] { ++still; }, [&] { ++tooLong; });
        clock.advance(25);
        QCOMPARE(still, 2);
        QCOMPARE(tooLong, 1);
    }

    void captureWatchClearsOnlyItsOwnBanner()
    {
        ManualClock clock;
        CaptureWatch watch(clock);
        std::optional<QString> banner;
        watch.shownBanner = [&] { return banner; };
        watch.showBanner = [&](const std::optional<QString> &text) { banner = text; };

        CaptureHealth lost;
        lost.meetingOutput = false;
        QVERIFY(!watch.update(lost));
        watch.refreshBanner();
        QCOMPARE(banner, std::nullopt);   // an output is often replaced within seconds
        clock.advance(CaptureWatch::outputLostBannerDelay);
        QCOMPARE(banner, std::optional<QString>(CaptureWatch::outputLostBanner));

        watch.update(CaptureHealth{});
        watch.refreshBanner();
        QCOMPARE(banner, std::nullopt);

        lost = CaptureHealth{};
        lost.microphone = false;
        QVERIFY(watch.update(lost));   // the microphone was just lost
        watch.refreshBanner();
        banner = QStringLiteral("Someone else's");
        watch.end();
        QCOMPARE(banner, std::optional<QString>(QStringLiteral("Someone else's")));
    }
};

QTEST_GUILESS_MAIN(StartSequenceTest)
#include "tst_session_start_sequence.moc"
