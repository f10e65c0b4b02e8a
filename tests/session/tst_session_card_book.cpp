// The cards as a list model and the follow-up rule: which text goes on with the previous
// question, the rows a view hears about, and the cards that a sweep removes.

#include "ManualClock.h"

#include "session/CardBook.h"

#include <QSignalSpy>
#include <QTest>

class CardBookTest : public QObject
{
    Q_OBJECT

private slots:
    void followUpRule_data()
    {
        QTest::addColumn<QString>("previous");
        QTest::addColumn<double>("window");
        QTest::addColumn<double>("after");
        QTest::addColumn<QString>("text");
        QTest::addColumn<bool>("followsUp");

        const QString project = QStringLiteral("Tell me about the project.");
        QTest::newRow("opener") << project << 10.0 << 5.0 << QStringLiteral("And what about the budget?") << true;
        QTest::newRow("opener eg after a question mark") << QStringLiteral("What went wrong?") << 10.0 << 5.0
                                                         << QStringLiteral("Eg the Q3 launch") << true;
        QTest::newRow("lower-case start") << project << 10.0 << 5.0 << QStringLiteral("which part was yours?") << true;
        QTest::newRow("no final punctuation") << QStringLiteral("Tell me about the project") << 10.0 << 5.0
                                              << QStringLiteral("What about the budget?") << true;
        QTest::newRow("trailing blanks do not hide the full stop") << QStringLiteral("Tell me about the project.  ") << 10.0
                                                                   << 5.0 << QStringLiteral("What about the budget?") << false;
        QTest::newRow("exactly at the window") << project << 10.0 << 10.0 << QStringLiteral("And the budget?") << true;
        QTest::newRow("after the window") << project << 10.0 << 10.5 << QStringLiteral("And the budget?") << false;
        QTest::newRow("window off") << project << 0.0 << 1.0 << QStringLiteral("And what about the budget?") << false;
        QTest::newRow("complete new question") << project << 10.0 << 5.0 << QStringLiteral("What about the budget?") << false;
        QTest::newRow("blank text") << QStringLiteral("Tell me about the project") << 10.0 << 1.0 << QStringLiteral("  \n") << false;
    }

    void followUpRule()
    {
        QFETCH(QString, previous);
        QFETCH(double, window);
        QFETCH(double, after);
        QFETCH(QString, text);
        QFETCH(bool, followsUp);
        ManualClock clock;
        QAPair card = QAPair::make(previous, std::nullopt, clock.now(), clock.wallNow());
        QCOMPARE(isFollowUp(card, text, after, window), followsUp);
        card.screenThumbnail = "jpeg";   // a screen question is never extended by speech
        QVERIFY(!isFollowUp(card, text, after, window));
    }

    void rowsAndTurns()
    {
        ManualClock clock;
        CardBook book;
        QSignalSpy inserted(&book, &CardBook::rowsInserted);
        QSignalSpy changed(&book, &CardBook::dataChanged);
        QSignalSpy removed(&book, &CardBook::rowsRemoved);
        QSignalSpy reset(&book, &CardBook::modelReset);

        QAPair placeholder = QAPair::make(QString(), std::nullopt, clock.now(), clock.wallNow());
        placeholder.isComplete = true;
        QVERIFY(CardBook::isEmptyPlaceholder(placeholder));
        book.append(placeholder);
        book.append(QAPair::make(QStringLiteral("Why?"), QStringLiteral("r1"), clock.now(), clock.wallNow()));
        QCOMPARE(inserted.count(), 2);
        QCOMPARE(book.rowCount(), 2);
        QCOMPARE(book.data(book.index(1), CardBook::CardRole).value<QAPair>().question, QStringLiteral("Why?"));
        book.card(1).answer = QStringLiteral("Because.");
        book.changed(1);
        QCOMPARE(changed.last().at(0).toModelIndex().row(), 1);
        QCOMPARE(book.indexOfResponse(QStringLiteral("r1")), 1);
        QCOMPARE(book.previousQuestionCard(2), 1);

        // Turns follow their card, also when it is merged into another.
        book.assignItem(QStringLiteral("item"), book.at(1).id);
        QCOMPARE(book.cardForItem(QStringLiteral("item")), 1);
        QCOMPARE(book.cardForItem(QString()), -1);
        book.moveItems(book.at(1).id, book.at(0).id);
        QCOMPARE(book.cardForItem(QStringLiteral("item")), 0);
        QVERIFY(book.hasItemFor(book.at(0).id));

        // Only finished cards go to the history; a sweep resets, a single removal removes.
        QCOMPARE(book.history(), History{});
        book.card(1).isComplete = true;
        QCOMPARE(book.history(), (History{{QStringLiteral("Why?"), QStringLiteral("Because.")}}));
        QVERIFY(book.removeEmptyComplete());
        QCOMPARE(reset.count(), 1);
        QCOMPARE(book.size(), 1);
        QVERIFY(!book.removeEmptyComplete());
        QCOMPARE(reset.count(), 1);
        book.removeAt(0);
        QCOMPARE(removed.count(), 1);
        QVERIFY(book.isEmpty());
    }
};

QTEST_GUILESS_MAIN(CardBookTest)
#include "tst_session_card_book.moc"
