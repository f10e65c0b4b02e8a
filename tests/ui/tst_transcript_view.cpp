// The cards view: following the bottom, "New answers below", the "My answer" toggle, the
// empty state, and updating one card per change without rebuilding the list.
#include "session/QAPair.h"
#include "ui/CardColumn.h"
#include "ui/FollowBottom.h"
#include "ui/QACard.h"
#include "ui/TranscriptView.h"

#include <QApplication>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QTest>

namespace {
using Geo = FollowBottom::Geo;

QAPair makePair(int n)
{
    QAPair pair;
    pair.id = QStringLiteral("P%1").arg(n);
    pair.timestamp = QStringLiteral("14:%1:00").arg(n % 60, 2, 10, QLatin1Char('0'));
    pair.question = QStringLiteral("Question number %1: tell me about a project you are proud of?").arg(n);
    pair.answer = QStringLiteral("An answer with enough words to wrap onto a second line in a narrow window, "
                                 "so every card is a few lines tall (%1).").arg(n);
    pair.isComplete = true;
    return pair;
}
} // namespace

class TranscriptViewTest : public QObject
{
    Q_OBJECT

private:
    QList<QAPair> m_pairs;
    std::unique_ptr<TranscriptView> m_view;

    QScrollBar *bar() const { return m_view->scrollArea()->verticalScrollBar(); }

    void appendPair(QAPair pair)
    {
        m_pairs.append(std::move(pair));
        m_view->pairInserted(int(m_pairs.size()) - 1);
    }

    void appendDelta(const QString &delta)
    {
        m_pairs.last().answer += delta;
        m_view->pairChanged(int(m_pairs.size()) - 1);
    }

    static QString longDelta() { return QStringLiteral(" and then a good deal more text that keeps the answer growing").repeated(4); }

private slots:
    void init()
    {
        m_pairs.clear();
        m_view = std::make_unique<TranscriptView>();
        m_view->setSource(&m_pairs);
        m_view->resize(440, 360);
        m_view->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_view.get()));
    }

    void cleanup() { m_view.reset(); }

    // The rules on plain geometry, with the half-point tolerances.
    void followRules_data()
    {
        QTest::addColumn<QList<Geo>>("steps");
        QTest::addColumn<bool>("autoScroll");
        QTest::addColumn<bool>("unseen");
        QTest::addColumn<bool>("lastScrolls");

        // Following at the bottom, the content grows: scroll along.
        QTest::newRow("grows at bottom") << QList<Geo>{{600, 1000, 400}, {600, 1100, 400}} << true << false << true;
        // Scrolled up by 100 while an answer streams: stay put, announce new content.
        QTest::newRow("scrolled up, grows")
            << QList<Geo>{{600, 1000, 400}, {500, 1000, 400}, {500, 1100, 400}} << false << true << false;
        // Back within 20 points of the bottom: following resumes and the button goes.
        QTest::newRow("scrolled up, comes back")
            << QList<Geo>{{600, 1000, 400}, {500, 1000, 400}, {500, 1100, 400}, {681, 1100, 400}} << true << false
            << false;
        // Exactly 20 from the bottom still counts as the bottom.
        QTest::newRow("threshold is inclusive")
            << QList<Geo>{{600, 1000, 400}, {580, 1000, 400}, {580, 1100, 400}} << true << false << true;
        // Layout jitter of 0.3 points up is not a user scroll.
        QTest::newRow("jitter is not scrolling")
            << QList<Geo>{{500, 1000, 400}, {499.7, 1000, 400}, {499.7, 1100, 400}} << true << false << true;
        // Growth of 0.4 points is not growth.
        QTest::newRow("small growth ignored")
            << QList<Geo>{{600, 1000, 400}, {500, 1000, 400}, {500, 1000.4, 400}} << false << false << false;
        QTest::newRow("small growth at bottom") << QList<Geo>{{600, 1000, 400}, {600, 1000.4, 400}} << true << false
                                                << false;
        // A viewport shrink that leaves the user far from the bottom without scrolling up
        // keeps following, so the next growth scrolls.
        QTest::newRow("not scrolled up, far from bottom")
            << QList<Geo>{{600, 1000, 400}, {600, 1000, 300}, {600, 1100, 300}} << true << false << true;
    }

    void followRules()
    {
        QFETCH(QList<Geo>, steps);
        QFETCH(bool, autoScroll);
        QFETCH(bool, unseen);
        QFETCH(bool, lastScrolls);
        FollowBottom follow;
        bool scrolls = false;
        for (qsizetype i = 1; i < steps.size(); ++i)
            scrolls = follow.geometryChanged(steps[i - 1], steps[i]);
        QCOMPARE(follow.autoScrollEnabled(), autoScroll);
        QCOMPARE(follow.hasUnseenBelow(), unseen);
        QCOMPARE(scrolls, lastScrolls);

        follow.jumpToBottom();
        QVERIFY(follow.autoScrollEnabled());
        QVERIFY(!follow.hasUnseenBelow());
    }

    void emptyState()
    {
        QVERIFY(m_view->isEmptyStateShown());
        QCOMPARE(m_view->emptyStateHeadline(), QStringLiteral("No answers yet"));
        QCOMPARE(m_view->emptyStateText(),
                 QStringLiteral("Pick where the meeting audio comes from in Settings, load your context documents, "
                                "then press Start. Questions heard on the line are transcribed and answered here."));
        QCOMPARE(m_view->feedFingerprint(), QStringLiteral("0"));
        appendPair(makePair(1));
        QVERIFY(!m_view->isEmptyStateShown());
        m_pairs.clear();
        m_view->pairsReset();
        QVERIFY(m_view->isEmptyStateShown());
    }

    void followsStreamingAnswerToTheBottom()
    {
        for (int i = 0; i < 8; ++i)
            appendPair(makePair(i));
        QTRY_VERIFY(bar()->maximum() > 0);
        QTRY_COMPARE(bar()->value(), bar()->maximum());

        QAPair streaming = makePair(8);
        streaming.answer.clear();
        streaming.isComplete = false;
        appendPair(streaming);
        for (int i = 0; i < 5; ++i) {
            const int before = bar()->maximum();
            appendDelta(longDelta());
            QTRY_VERIFY(bar()->maximum() > before);
            QTRY_COMPARE(bar()->value(), bar()->maximum());
        }
        QVERIFY(m_view->autoScrollEnabled());
        QVERIFY(!m_view->hasUnseenBelow());
        QVERIFY(m_view->newAnswersButton()->isHidden());
    }

    void userScrolledUpIsLeftAlone()
    {
        for (int i = 0; i < 8; ++i)
            appendPair(makePair(i));
        QAPair streaming = makePair(8);
        streaming.answer = QStringLiteral("Starting");
        streaming.isComplete = false;
        appendPair(streaming);
        QTRY_VERIFY(bar()->maximum() > 200);
        QTRY_COMPARE(bar()->value(), bar()->maximum());

        // The user scrolls up by 100 points while the answer streams.
        bar()->setValue(bar()->maximum() - 100);
        const int readingAt = bar()->value();
        QVERIFY(!m_view->autoScrollEnabled());
        const int before = bar()->maximum();
        appendDelta(longDelta());
        QTRY_VERIFY(bar()->maximum() > before);
        QCOMPARE(bar()->value(), readingAt);
        QVERIFY(m_view->hasUnseenBelow());
        QTRY_VERIFY(m_view->newAnswersButton()->isVisible());
        QCOMPARE(m_view->newAnswersButton()->text(), QStringLiteral("New answers below"));

        // Scrolling back to within 20 points of the bottom hides it and resumes following.
        bar()->setValue(bar()->maximum() - 15);
        QVERIFY(m_view->autoScrollEnabled());
        QVERIFY(!m_view->hasUnseenBelow());
        QTRY_VERIFY(m_view->newAnswersButton()->isHidden());
        appendDelta(longDelta());
        QTRY_COMPARE(bar()->value(), bar()->maximum());
    }

    void newAnswersButtonJumpsToTheBottom()
    {
        for (int i = 0; i < 8; ++i)
            appendPair(makePair(i));
        QTRY_VERIFY(bar()->maximum() > 200);
        QTRY_COMPARE(bar()->value(), bar()->maximum());
        bar()->setValue(0);
        appendPair(makePair(8));
        QTRY_VERIFY(m_view->newAnswersButton()->isVisible());
        QCOMPARE(bar()->value(), 0);

        QTest::mouseClick(m_view->newAnswersButton(), Qt::LeftButton);
        QTRY_COMPARE(bar()->value(), bar()->maximum());
        QVERIFY(m_view->autoScrollEnabled());
        QTRY_VERIFY(m_view->newAnswersButton()->isHidden());
    }

    void streamingUpdatesOneCardOnly()
    {
        for (int i = 0; i < 20; ++i)
            appendPair(makePair(i));
        QCOMPARE(m_view->cardsCreated(), 20);
        QACard *last = m_view->card(19);
        QACard *first = m_view->card(0);
        m_pairs.last().answer.clear();
        m_pairs.last().isComplete = false;
        m_view->pairChanged(19);
        QVERIFY(last->isThinkingShown());
        appendDelta(QStringLiteral("First"));
        QVERIFY(!last->isThinkingShown());
        QCoreApplication::processEvents();
        const int measuredBefore = m_view->column()->measurements();
        // Deltas faster than frames: the card takes each at once but is measured once for all.
        for (int i = 0; i < 50; ++i)
            appendDelta(QStringLiteral(" word"));
        QCOMPARE(last->pair().answer, m_pairs.last().answer);
        QVERIFY(m_view->hasPendingUpdates());
        QTRY_VERIFY(!m_view->hasPendingUpdates());
        QCOMPARE(m_view->column()->measurements() - measuredBefore, 1);
        // Spread over several frames: at most one measurement per frame, of that card only.
        const int before = m_view->column()->measurements();
        for (int i = 0; i < 5; ++i) {
            appendDelta(QStringLiteral(" word"));
            QTRY_VERIFY(!m_view->hasPendingUpdates());
        }
        QCOMPARE(m_view->column()->measurements() - before, 5);
        QCOMPARE(m_view->cardsCreated(), 20);
        QCOMPARE(m_view->card(19), last);
        QCOMPARE(m_view->card(0), first);
        QVERIFY(last->answerText().endsWith(QStringLiteral("word word")));
        QVERIFY(!last->isThinkingShown());
        QCOMPARE(m_view->feedFingerprint(),
                 QStringLiteral("20-%1-%2-false").arg(m_pairs.last().question.size()).arg(m_pairs.last().answer.size()));
    }

    void myAnswerToggle()
    {
        QAPair pair = makePair(1);
        pair.myAnswer = QStringLiteral("I would start with the data model");
        appendPair(pair);
        QACard *card = m_view->card(0);
        QCOMPARE(card->wordCountText(), QStringLiteral("7 words"));
        QVERIFY(!card->isMyAnswerTextShown());

        m_view->toggleMyAnswer(pair.id);
        QVERIFY(m_view->expandedAnswers().contains(pair.id));
        QVERIFY(card->isMyAnswerTextShown());
        QCOMPARE(card->wordCountText(), QString());

        // A rebuilt list keeps the open answers open.
        m_view->pairsReset();
        QVERIFY(m_view->card(0)->isMyAnswerTextShown());

        m_view->toggleMyAnswer(pair.id);
        QVERIFY(!m_view->expandedAnswers().contains(pair.id));
        QVERIFY(!m_view->card(0)->isMyAnswerTextShown());
        // Ids of cards that are gone are harmless.
        m_view->toggleMyAnswer(QStringLiteral("gone"));
    }
};

QTEST_MAIN(TranscriptViewTest)
#include "tst_transcript_view.moc"
