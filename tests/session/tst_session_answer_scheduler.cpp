// The answer scheduler: one request at a time and none while an answer runs, a request no
// response answers made once more and then given up, a response to a question that grew
// replaced, a refused request skipped, and the unfinished cards of a new socket asked again.

#include "ManualClock.h"

#include "session/AnswerScheduler.h"
#include "session/CardBook.h"

#include <QTest>

class AnswerSchedulerTest : public QObject
{
    Q_OBJECT

private:
    struct Rig
    {
        ManualClock clock;
        CardBook cards;
        AnswerScheduler scheduler{clock, cards};
        QStringList asked;
        QStringList givenUp;
        QStringList refuse;

        Rig()
        {
            scheduler.ask = [this](const QString &id) {
                asked << id;
                return !refuse.contains(id);
            };
            scheduler.giveUp = [this](const QString &id) { givenUp << id; };
        }
        QString card(const QString &question)
        {
            cards.append(QAPair::make(question, std::nullopt, clock.now(), clock.wallNow()));
            return cards.last().id;
        }
    };

private slots:
    void oneRequestAtATime()
    {
        Rig rig;
        AnswerScheduler &s = rig.scheduler;
        const QString first = rig.card(QStringLiteral("First?"));
        QCOMPARE(s.responseCreated(QStringLiteral("r1"), false), std::optional<QString>(first));   // the service's own
        s.attached(first);
        const QString second = rig.card(QStringLiteral("Second?"));
        const QString third = rig.card(QStringLiteral("Third?"));
        s.queue(second, false);
        s.queue(third, true);
        s.askNextIfIdle();
        QVERIFY(rig.asked.isEmpty());   // asking now would cancel the running answer
        QCOMPARE(s.responseDone(QStringLiteral("r1")), AnswerScheduler::Done::finished);
        QCOMPARE(s.responseDone(QStringLiteral("r1")), AnswerScheduler::Done::nothing);
        s.askNextIfIdle();
        QCOMPARE(rig.asked, QStringList{third});
        QVERIFY(s.isAwaited(third, false));
        QCOMPARE(s.responseCreated(QStringLiteral("r2"), true), std::optional<QString>(third));
        QCOMPARE(rig.asked, QStringList{third});   // still one request at a time

        // No response at all: asked once more after 20 s, then given up.
        QCOMPARE(s.responseDone(QStringLiteral("r2")), AnswerScheduler::Done::finished);
        s.askNextIfIdle();
        QCOMPARE(rig.asked, (QStringList{third, second}));
        rig.clock.advance(20);
        QCOMPARE(rig.asked, (QStringList{third, second, second}));
        rig.clock.advance(20);
        QCOMPARE(rig.givenUp, QStringList{second});
        QCOMPARE(s.responseDone(QStringLiteral("never-announced")), AnswerScheduler::Done::unknown);
    }

    void grownQuestionsRefusalsAndReconnects()
    {
        Rig rig;
        AnswerScheduler &s = rig.scheduler;
        const QString picture = rig.card(QStringLiteral("Screen question"));
        const QString spoken = rig.card(QStringLiteral("Why?"));
        s.addPicture(picture, "jpeg");
        rig.refuse << picture;
        s.queue(picture, false);
        s.queue(spoken, false);
        s.askNextIfIdle();
        QCOMPARE(rig.asked, (QStringList{picture, spoken}));   // refused on the spot: the next is asked
        QVERIFY(!s.hasPicture(picture));

        // The question grew after it was asked: that answer is replaced, the card asked again.
        s.askMerged(spoken, false);
        QCOMPARE(s.responseCreated(QStringLiteral("r1"), true), std::nullopt);
        QVERIFY(s.isSuperseded(QStringLiteral("r1")));
        QCOMPARE(rig.asked, (QStringList{picture, spoken, spoken}));   // a replaced answer blocks nothing
        QCOMPARE(s.responseDone(QStringLiteral("r1")), AnswerScheduler::Done::nothing);
        QCOMPARE(rig.asked.size(), 3);

        // A passing failure is retried once per card, when the failed response is done.
        QCOMPARE(s.responseCreated(QStringLiteral("r2"), true), std::optional<QString>(spoken));
        rig.cards.card(rig.cards.indexOf(spoken)).responseID = QStringLiteral("r2");
        QVERIFY(s.retryWhenDone(spoken, QStringLiteral("r2")));
        QVERIFY(!s.retryWhenDone(spoken, QStringLiteral("r2")));
        QCOMPARE(s.responseDone(QStringLiteral("r2")), AnswerScheduler::Done::retry);

        // A new socket: in-flight state goes, the unfinished cards are asked in order.
        s.reconnected({spoken});
        QVERIFY(!s.isBusy());
        QVERIFY(!s.isAnnounced(QStringLiteral("r2")));
        rig.cards.card(rig.cards.indexOf(spoken)).responseID.reset();
        s.askNextIfIdle();
        QCOMPARE(rig.asked.last(), spoken);
        s.closeAll();
        QVERIFY(!s.isBusy());
        QVERIFY(!s.isAwaited(spoken, false));
    }
};

QTEST_GUILESS_MAIN(AnswerSchedulerTest)
#include "tst_session_answer_scheduler.moc"
