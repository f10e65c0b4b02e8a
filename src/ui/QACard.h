#pragma once

#include "session/QAPair.h"
#include "ui/CardFonts.h"

#include <QWidget>

class FlowLayout;
class IconLabel;
class QLabel;
class QProgressBar;
class QToolButton;
class QVBoxLayout;
class StreamingText;

// One question and its answer: the interviewer's question, the streamed answer (or a
// "thinking" indicator while it is empty and still coming) and, behind a toggle, the user's
// own answer. What each row says is decided by CardText; the card lays it out. Every row
// wraps, so the card reads at any text size and window width.
class QACard : public QWidget
{
    Q_OBJECT
public:
    explicit QACard(const QAPair &pair, const CardFonts &fonts, bool myAnswerShown, QWidget *parent = nullptr);

    // Takes the pair at once. A streaming answer that only grew is shown at the next
    // applyPendingText() (the view calls it at most once per frame); any other change is
    // shown now.
    void setPair(const QAPair &pair);
    bool hasPendingText() const { return m_pendingText; }
    void applyPendingText();
    const QAPair &pair() const { return m_pair; }
    void setFonts(const CardFonts &fonts);
    void setMyAnswerShown(bool shown);
    bool isMyAnswerShown() const { return m_myAnswerShown; }
    // Whether a session runs: "(recording…)" is shown only then.
    void setSessionLive(bool live);

    // What the widgets show, for the window's tests and accessibility.
    QString questionText() const;
    QString answerText() const;
    bool isThinkingShown() const;
    QString thinkingText() const;
    bool isAnswerHeaderShown() const;
    // The note under the answer ("answer cut short"...), or "" when none is shown.
    QString noteText() const;
    bool isUpdatedBadgeShown() const;
    bool isMyAnswerRowShown() const;
    QString myAnswerLabelText() const;
    QString wordCountText() const;
    bool isMyAnswerTextShown() const;
    QList<QLabel *> textLabels() const;

signals:
    void toggleMyAnswer(const QString &pairID);

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;
    bool eventFilter(QObject *watched, QEvent *event) override;

private:
    void applyPaletteColors();
    // Parts most cards never need are made on first use.
    void ensureThinkingRow();
    void ensureMyAnswerRow();
    void refreshAll();
    void refreshAnswer();
    void refreshMyAnswer();
    void refreshQuestion();

    QAPair m_pair;
    CardFonts m_fonts;
    bool m_myAnswerShown = false;
    bool m_sessionLive = true;
    bool m_pendingText = false;

    QVBoxLayout *m_layout;
    IconLabel *m_interviewerIcon;
    QLabel *m_interviewer;
    QLabel *m_timestamp;
    QLabel *m_updated;
    QLabel *m_question;
    QWidget *m_answerHeader;
    IconLabel *m_copilotIcon;
    QLabel *m_copilot;
    QLabel *m_answer;
    StreamingText *m_stream;
    QLabel *m_note;
    QWidget *m_thinkingRow = nullptr;
    QProgressBar *m_thinkingBar = nullptr;
    QLabel *m_thinking = nullptr;
    QWidget *m_myAnswerRow = nullptr;
    QToolButton *m_chevron = nullptr;
    IconLabel *m_personIcon = nullptr;
    QLabel *m_myAnswerLabel = nullptr;
    QLabel *m_wordCount = nullptr;
    QLabel *m_myAnswer = nullptr;
};
