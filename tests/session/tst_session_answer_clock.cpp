// The answer clock: the voice threshold and the 2.0 s silence rule, the answer running
// through pauses, its kept length when the other side takes over, and a new answer.

#include "ManualClock.h"

#include "session/AnswerClock.h"

#include <QTest>

class AnswerClockTest : public QObject
{
    Q_OBJECT

private slots:
    void thresholdAndSilenceEdges()
    {
        ManualClock clock;
        AnswerClock answer(clock);
        using Voice = AnswerClock::Voice;

        QCOMPARE(answer.hear(0.0449f).voice, Voice::unchanged);
        QVERIFY(!answer.isAnswering());
        const AnswerClock::Heard first = answer.hear(0.045f);   // exactly the threshold is voice
        QVERIFY(first.answerStarted);
        QCOMPARE(first.voice, Voice::started);
        QVERIFY(answer.isSpeaking());
        QCOMPARE(answer.hear(0.3f).voice, Voice::goesOn);

        clock.advance(1.9);
        QCOMPARE(answer.hear(0.01f).voice, Voice::unchanged);
        QVERIFY(answer.isSpeaking());
        clock.advance(0.1);   // 2.0 s since the last voice
        QCOMPARE(answer.hear(0.01f).voice, Voice::ended);
        QVERIFY(!answer.isSpeaking());
        QVERIFY(answer.isAnswering());   // the answer runs through the pause
        QCOMPARE(answer.speakingElapsed(), 2.0);

        // Voice after a pause goes on with the same answer.
        clock.advance(0.5);
        const AnswerClock::Heard again = answer.hear(0.2f);
        QVERIFY(!again.answerStarted);
        QCOMPARE(again.voice, Voice::started);
        QCOMPARE(answer.answerSeconds(), std::optional<double>(2.5));
    }

    void keptLengthAndANewAnswer()
    {
        ManualClock clock;
        AnswerClock answer(clock);
        QVERIFY(!answer.keepAnswerDuration());   // no answer: nothing kept
        QCOMPARE(answer.answerSeconds(), std::nullopt);

        answer.hear(0.5f);
        clock.advance(3.0);
        QVERIFY(answer.keepAnswerDuration());
        answer.end();
        QVERIFY(!answer.isAnswering());
        QVERIFY(!answer.isSpeaking());
        QCOMPARE(answer.lastAnswerDuration(), std::optional<double>(3.0));
        QCOMPARE(answer.speakingElapsed(), 0.0);
        clock.advance(1.0);
        QCOMPARE(answer.speakingElapsed(), 0.0);   // the ticker stopped with the answer

        // Voice again starts a new answer and clears the last duration.
        QVERIFY(answer.hear(0.5f).answerStarted);
        QCOMPARE(answer.lastAnswerDuration(), std::nullopt);
        answer.end();
        answer.forgetLastAnswer();
        QCOMPARE(answer.lastAnswerDuration(), std::nullopt);
    }
};

QTEST_GUILESS_MAIN(AnswerClockTest)
#include "tst_session_answer_clock.moc"
