#pragma once

#include "session/QAPair.h"
#include "ui/CardFonts.h"

#include <QWidget>

class QLabel;
class QProgressBar;
class QToolButton;
class QVBoxLayout;

// One question and its answer: the interviewer's question, the streamed answer (or a
// "thinking" indicator while it is empty) and, behind a toggle, the user's own answer.
class QACard : public QWidget
{
    Q_OBJECT
public:
    explicit QACard(const QAPair &pair, const CardFonts &fonts, bool myAnswerShown, QWidget *parent = nullptr);

    // Updates only what differs from the pair shown now.
    void setPair(const QAPair &pair);
    const QAPair &pair() const { return m_pair; }
    void setFonts(const CardFonts &fonts);
    void setMyAnswerShown(bool shown);
    bool isMyAnswerShown() const { return m_myAnswerShown; }

    // What the widgets show, for the window's tests and accessibility.
    QString questionText() const;
    QString answerText() const;
    bool isThinkingShown() const;
    QString thinkingText() const;
    bool isUpdatedBadgeShown() const;
    bool isMyAnswerRowShown() const;
    QString myAnswerLabelText() const;
    QString wordCountText() const;
    bool isMyAnswerTextShown() const;

    // The label rules.
    static QString placeholderText(const QAPair &pair);
    static QString myAnswerLabel(const QAPair &pair);
    // "" when the own answer is open or empty, else "<n> words".
    static QString wordCountLabel(const QAPair &pair, bool shown);
    // Runs of characters separated by white space.
    static int wordCount(const QString &text);
    // The row is left out for cards with neither an own answer nor a recording in progress.
    static bool showsMyAnswerRow(const QAPair &pair);

signals:
    void toggleMyAnswer(const QString &pairID);

protected:
    void paintEvent(QPaintEvent *event) override;
    void changeEvent(QEvent *event) override;

private:
    void applyPaletteColors();
    // Parts most cards never need are made on first use.
    void ensureThinkingRow();
    void ensureMyAnswerRow();
    void refreshAll();
    void refreshAnswer();
    void refreshMyAnswer();

    QAPair m_pair;
    CardFonts m_fonts;
    bool m_myAnswerShown = false;

    QVBoxLayout *m_layout;
    QLabel *m_interviewerIcon;
    QLabel *m_interviewer;
    QLabel *m_timestamp;
    QLabel *m_updated;
    QLabel *m_question;
    QLabel *m_copilotIcon;
    QLabel *m_copilot;
    QLabel *m_answer;
    QWidget *m_thinkingRow = nullptr;
    QProgressBar *m_thinkingBar = nullptr;
    QLabel *m_thinking = nullptr;
    QWidget *m_myAnswerRow = nullptr;
    QToolButton *m_chevron = nullptr;
    QLabel *m_personIcon = nullptr;
    QToolButton *m_myAnswerButton = nullptr;
    QLabel *m_wordCount = nullptr;
    QLabel *m_myAnswer = nullptr;
};
