// Question and answer cards: answers that overtake their question, follow-up merges,
// superseded responses, removal of empty cards, history handed to the realtime link.

#include "SessionRig.h"

#include <QSignalSpy>
#include <QTest>

class SessionCardsTest : public QObject
{
    Q_OBJECT

private slots:
    void answerOvertakesItsQuestion()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QSignalSpy inserted(&c.cards(), &CardBook::rowsInserted);
        QSignalSpy changed(&c.cards(), &CardBook::dataChanged);

        rig.client.delta(QStringLiteral("r1"), QStringLiteral("We moved "));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("to Postgres."));
        QCOMPARE(rig.questions(), QStringList{QString()});
        QCOMPARE(c.pairs()[0].answer, QStringLiteral("We moved to Postgres."));
        QCOMPARE(c.pairs()[0].responseID, std::optional<QString>(QStringLiteral("r1")));
        QCOMPARE(inserted.count(), 1);
        QCOMPARE(changed.count(), 2);   // one per delta, carrying the card's index
        QCOMPARE(changed.last().at(0).toModelIndex().row(), 0);

        rig.client.transcript(QStringLiteral("Which database did you pick?"));
        QCOMPARE(rig.questions(), QStringList{QStringLiteral("Which database did you pick?")});
        QCOMPARE(inserted.count(), 1);

        // A further new question opens its own card, and its answer lands there.
        rig.client.done(QStringLiteral("r1"));
        rig.clock.advance(30);
        rig.client.transcript(QStringLiteral("How long did it take?"));
        rig.client.delta(QStringLiteral("r2"), QStringLiteral("Six weeks."));
        QCOMPARE(rig.questions(), (QStringList{QStringLiteral("Which database did you pick?"), QStringLiteral("How long did it take?")}));
        QCOMPARE(c.pairs()[1].answer, QStringLiteral("Six weeks."));
        QCOMPARE(c.pairs()[1].responseID, std::optional<QString>(QStringLiteral("r2")));
        QVERIFY(c.pairs()[0].isComplete);
        QVERIFY(!c.pairs()[1].isComplete);
    }

    void followUpsMergeWithinTheWindow_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<double>("window");
        QTest::addColumn<double>("after");
        QTest::addColumn<QString>("second");
        QTest::addColumn<QString>("merged");   // empty: a new card

        // Which text follows up on a question: tst_session_card_book. Here: what a merge does.
        const QString project = QStringLiteral("Tell me about the project.");
        QTest::newRow("opener") << project << 10.0 << 5.0 << QStringLiteral("And what about the budget?")
                                << QStringLiteral("Tell me about the project. And what about the budget?");
        QTest::newRow("after the window") << project << 10.0 << 11.0 << QStringLiteral("And what about the budget?") << QString();
        QTest::newRow("blank transcript") << QStringLiteral("Tell me about the project") << 10.0 << 1.0 << QStringLiteral("  \n") << QString();
        QTest::newRow("blank runs collapse in one pass") << QStringLiteral("Walk me  through it,") << 10.0 << 1.0
                                              << QStringLiteral("and   then") << QStringLiteral("Walk me through it, and  then");
    }

    void followUpsMergeWithinTheWindow()
    {
        QFETCH(QString, first);
        QFETCH(double, window);
        QFETCH(double, after);
        QFETCH(QString, second);
        QFETCH(QString, merged);

        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setFollowUpWindow(window);
        rig.client.exchange(first, QStringLiteral("r1"), QStringLiteral("An answer."));
        rig.clock.advance(after);
        rig.client.transcript(second);

        if (second.trimmed().isEmpty()) {
            QCOMPARE(c.pairs().size(), 1);   // nothing was said: no card
            QVERIFY(rig.client.regenerated.isEmpty());
            return;
        }
        if (merged.isEmpty()) {
            QCOMPARE(c.pairs().size(), 2);
            QCOMPARE(c.pairs()[1].question, second);
            QVERIFY(rig.client.regenerated.isEmpty());
            return;
        }
        QCOMPARE(c.pairs().size(), 1);
        const QAPair &pair = c.pairs()[0];
        QCOMPARE(pair.question, merged);
        QVERIFY(pair.wasExtended);
        QCOMPARE(pair.answer, QString());
        QVERIFY(!pair.isComplete);
        QCOMPARE(pair.responseID, std::nullopt);
        QCOMPARE(pair.lastQuestionAt, rig.clock.now());
        QCOMPARE(rig.client.regenerated, QStringList{merged});
    }

    void supersededResponseIsSwallowed()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setFollowUpWindow(10);
        rig.client.transcript(QStringLiteral("Tell me about the project."));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("It was a "));
        const QString id = c.pairs()[0].id;
        const QString stamp = c.pairs()[0].timestamp;
        rig.clock.advance(5);
        rig.client.transcript(QStringLiteral("And what about the budget?"));
        const int historiesBefore = int(rig.client.histories.size());

        // The replaced answer keeps streaming: its deltas and its end change nothing.
        rig.client.answer(QStringLiteral("r1"), QStringLiteral("payments rewrite."));
        QCOMPARE(c.pairs()[0].answer, QString());
        QVERIFY(!c.pairs()[0].isComplete);
        QCOMPARE(rig.client.histories.size(), historiesBefore);

        // The regenerated answer fills the same card.
        rig.client.answer(QStringLiteral("r2"), QStringLiteral("Budget held."));
        QCOMPARE(c.pairs().size(), 1);
        QCOMPARE(c.pairs()[0].id, id);
        QCOMPARE(c.pairs()[0].timestamp, stamp);
        QCOMPARE(c.pairs()[0].answer, QStringLiteral("Budget held."));
        QVERIFY(c.pairs()[0].isComplete);
        QCOMPARE(rig.client.histories.last(),
                 (History{{QStringLiteral("Tell me about the project. And what about the budget?"), QStringLiteral("Budget held.")}}));
    }

    void emptyCompletedCardsAreRemoved()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.client.exchange(QStringLiteral("Hi, can you hear me?"), QStringLiteral("r1"), QStringLiteral("Yes."));
        QSignalSpy reset(&c.cards(), &CardBook::modelReset);

        // A response that says nothing to no question leaves no card.
        rig.client.created(QStringLiteral("r2"));
        rig.client.delta(QStringLiteral("r2"), QString());
        QCOMPARE(c.pairs().size(), 2);
        rig.client.done(QStringLiteral("r2"));
        QCOMPARE(rig.answers(), QStringList{QStringLiteral("Yes.")});
        QCOMPARE(reset.count(), 1);
    }

    void completionForAnUnknownResponse()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setFollowUpWindow(0);
        rig.client.transcript(QStringLiteral("First?"));
        rig.client.transcript(QStringLiteral("Second?"));
        rig.client.done(QStringLiteral("nobody1"));
        QVERIFY(!c.pairs()[0].isComplete);
        QVERIFY(c.pairs()[1].isComplete);
        rig.client.done(QStringLiteral("nobody1"));   // the same end twice counts once
        QVERIFY(!c.pairs()[0].isComplete);
        rig.client.done(QStringLiteral("nobody2"));
        QVERIFY(c.pairs()[0].isComplete);
        rig.client.done(QStringLiteral("nobody3"));   // every card complete: nothing to mark
        QCOMPARE(c.pairs().size(), 2);
    }

    void historyAfterEveryCompletionAndAtStart()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setFollowUpWindow(0);
        QVERIFY(rig.startSession());
        QCOMPARE(rig.client.histories.size(), 1);   // at start
        QCOMPARE(rig.client.histories[0], History{});

        rig.client.transcript(QStringLiteral("Why this role?"));
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("Because "));
        rig.client.transcript(QStringLiteral("Why now?"));   // unfinished cards are not seeded
        rig.client.delta(QStringLiteral("r1"), QStringLiteral("payments."));
        const qsizetype before = rig.client.histories.size();
        rig.client.done(QStringLiteral("r1"));
        QCOMPARE(rig.client.histories.size(), before + 1);
        QCOMPARE(rig.client.histories.last(), (History{{QStringLiteral("Why this role?"), QStringLiteral("Because payments.")}}));
        // The question asked during that answer is asked once it has finished.
        QCOMPARE(rig.client.regenerated, QStringList{QStringLiteral("Why now?")});

        // The cards survive Stop and go to the next session as history; the one Stop left
        // unanswered is closed and goes with its question alone.
        c.stop();
        QCOMPARE(c.pairs().size(), 2);
        QVERIFY(c.pairs()[1].isComplete);
        c.start();
        rig.settle();
        QVERIFY(c.isSessionActive());
        QCOMPARE(rig.client.histories.last(), (History{{QStringLiteral("Why this role?"), QStringLiteral("Because payments.")},
                                                       {QStringLiteral("Why now?"), QString()}}));
    }
};

QTEST_GUILESS_MAIN(SessionCardsTest)
#include "tst_session_cards.moc"
