#pragma once

#include "session/QAPair.h"
#include "ui/CardFonts.h"
#include "ui/FollowBottom.h"

#include <QList>
#include <QSet>
#include <QWidget>

class CardBook;
class CardColumn;
class QACard;
class QLabel;
class QParallelAnimationGroup;
class QPushButton;
class QScrollArea;
class QStackedLayout;
class QTimer;

// The question and answer cards, newest at the bottom. Follows new content to the bottom
// until the user scrolls up, then offers "New answers below". A changed card updates only
// itself: streaming an answer never rebuilds the list, and a card is laid out again at most
// once a frame however fast the answer streams.
class TranscriptView : public QWidget
{
    Q_OBJECT
public:
    explicit TranscriptView(QWidget *parent = nullptr);

    // The cards the view shows and follows; they must outlive the view.
    void setCards(const CardBook *cards);
    // A plain list instead: call pairInserted, pairChanged and pairsReset as it changes.
    void setSource(const QList<QAPair> *pairs);
    void setCardFonts(const CardFonts &fonts);
    const CardFonts &cardFonts() const { return m_fonts; }

    void pairInserted(int index);
    // The card takes the pair at once; an answer that only grew is drawn and measured at
    // the next frame, once for all the deltas that arrived meanwhile.
    void pairChanged(int index);
    void pairsReset();
    // Draws and measures what is waiting for the next frame now.
    void flushPendingUpdates();
    bool hasPendingUpdates() const { return !m_pending.isEmpty(); }
    // Whether a session runs ("(recording…)" shows only then).
    void setSessionLive(bool live);

    // Opens or closes a card's "My answer".
    void toggleMyAnswer(const QString &pairID);
    const QSet<QString> &expandedAnswers() const { return m_expanded; }

    // "0" without cards, else "<count>-<question chars>-<answer chars>-<true|false>" of the
    // last card.
    QString feedFingerprint() const;

    bool autoScrollEnabled() const { return m_follow.autoScrollEnabled(); }
    bool hasUnseenBelow() const { return m_follow.hasUnseenBelow(); }
    bool isEmptyStateShown() const;
    QString emptyStateHeadline() const;
    QString emptyStateText() const;
    // "Try a sample interview" under the empty state's text (hidden during a sample interview).
    QPushButton *sampleInterviewButton() const { return m_sampleInterview; }
    int cardCount() const;
    QACard *card(int index) const;
    CardColumn *column() const { return m_column; }
    QScrollArea *scrollArea() const { return m_scroll; }
    QPushButton *newAnswersButton() const { return m_newAnswers; }
    // How many card widgets were ever made (a rebuild makes them all again).
    int cardsCreated() const { return m_cardsCreated; }

    // Scrolls to the bottom and follows again (what "New answers below" does).
    void jumpToBottom(bool animated = true);

protected:
    void resizeEvent(QResizeEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    QACard *makeCard(const QAPair &pair);
    void geometryMaybeChanged();
    void scrollToBottom(bool animated);
    void updateNewAnswersButton();
    void placeNewAnswersButton();
    void updateEmptyState();

    const QList<QAPair> *m_pairs = nullptr;
    CardFonts m_fonts;
    QSet<QString> m_expanded;
    FollowBottom m_follow;
    FollowBottom::Geo m_geo;
    int m_cardsCreated = 0;
    bool m_buttonShown = false;
    bool m_sessionLive = true;
    QSet<QACard *> m_pending;
    QTimer *m_frameTimer;

    QStackedLayout *m_stack;
    QWidget *m_empty;
    QLabel *m_emptyHeadline;
    QLabel *m_emptyText;
    QPushButton *m_sampleInterview;
    QScrollArea *m_scroll;
    CardColumn *m_column;
    QPushButton *m_newAnswers;
    QParallelAnimationGroup *m_buttonAnimation;
};
