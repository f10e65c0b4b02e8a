#include "ui/QACard.h"

#include "ui/CardText.h"
#include "ui/Colors.h"
#include "ui/FlowLayout.h"
#include "ui/IconLabel.h"
#include "ui/Icons.h"
#include "ui/ScreenThumbnail.h"
#include "ui/StreamingText.h"
#include "ui/Theme.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPainter>
#include <QProgressBar>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
QFont monospaced(QFont font)
{
    font.setStyleHint(QFont::Monospace);
    font.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("Liberation Mono"), QStringLiteral("monospace")});
    return font;
}

QFont semibold(QFont font)
{
    font.setWeight(QFont::DemiBold);
    return font;
}

void setTextColor(QWidget *widget, const QColor &color)
{
    QPalette pal = widget->palette();
    pal.setColor(QPalette::WindowText, color);
    pal.setColor(QPalette::ButtonText, color);
    widget->setPalette(pal);
}

QLabel *wrappingLabel(QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setWordWrap(true);
    label->setTextFormat(Qt::PlainText);
    return label;
}

// The small "updated" badge: accent text on the accent colour at 0.18 opacity.
class Badge : public QLabel
{
public:
    using QLabel::QLabel;

protected:
    void paintEvent(QPaintEvent *event) override
    {
        QPainter p(this);
        p.setRenderHint(QPainter::Antialiasing);
        p.setPen(Qt::NoPen);
        p.setBrush(Colors::withAlpha(Colors::accent(), 0.18));
        p.drawRoundedRect(QRectF(rect()), 4, 4);
        p.end();
        QLabel::paintEvent(event);
    }
};
} // namespace

QACard::QACard(const QAPair &pair, const CardFonts &fonts, bool myAnswerShown, QWidget *parent)
    : QWidget(parent)
    , m_pair(pair)
    , m_fonts(fonts)
    , m_myAnswerShown(myAnswerShown)
{
    auto *layout = new QVBoxLayout(this);
    m_layout = layout;
    layout->setContentsMargins(10, 10, 10, 10);
    layout->setSpacing(5);

    // The header wraps onto a second line rather than run out of the card at large sizes.
    auto *headerBox = new QWidget(this);
    auto *header = new FlowLayout(headerBox, 6, 2);
    header->setContentsMargins(0, 0, 0, 0);
    m_interviewerIcon = new IconLabel(Icons::Id::interviewer, headerBox);
    m_interviewer = new QLabel(tr("Interviewer"), headerBox);
    m_timestamp = new QLabel(headerBox);
    m_updated = new Badge(tr("updated"), headerBox);
    m_updated->setContentsMargins(5, 0, 5, 0);
    header->addWidget(m_interviewerIcon);
    header->addWidget(m_interviewer);
    header->addWidget(m_timestamp);
    header->addWidget(m_updated);
    layout->addWidget(headerBox);

    m_question = wrappingLabel(this);
    m_question->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_question);
    if (!pair.screenThumbnail.isEmpty())
        layout->addWidget(new ScreenThumbnail(pair.screenThumbnail, this));

    m_answerHeader = new QWidget(this);
    auto *answerHeader = new QHBoxLayout(m_answerHeader);
    answerHeader->setContentsMargins(0, 0, 0, 0);
    answerHeader->setSpacing(5);
    m_copilotIcon = new IconLabel(Icons::Id::copilot, m_answerHeader);
    m_copilot = new QLabel(tr("Copilot"), m_answerHeader);
    answerHeader->addWidget(m_copilotIcon);
    answerHeader->addWidget(m_copilot);
    answerHeader->addStretch(1);
    layout->addWidget(m_answerHeader);

    // A complete answer is a selectable label; one still streaming grows in a text document.
    m_answer = wrappingLabel(this);
    m_answer->setTextInteractionFlags(Qt::TextSelectableByMouse);
    layout->addWidget(m_answer);
    m_stream = new StreamingText(this);
    m_stream->hide();
    layout->addWidget(m_stream);
    // How an answer ended when it did not end well ("answer cut short").
    m_note = wrappingLabel(this);
    m_note->hide();
    layout->addWidget(m_note);

    setFonts(fonts);
    refreshAll();
}

void QACard::ensureThinkingRow()
{
    if (m_thinkingRow)
        return;
    m_thinkingRow = new QWidget(this);
    auto *thinking = new QHBoxLayout(m_thinkingRow);
    thinking->setContentsMargins(0, 0, 0, 0);
    thinking->setSpacing(6);
    m_thinkingBar = new QProgressBar(m_thinkingRow);
    m_thinkingBar->setRange(0, 0);
    m_thinkingBar->setTextVisible(false);
    m_thinkingBar->setFixedSize(36, 6);
    m_thinkingBar->setAccessibleName(tr("Answer in progress"));
    m_thinking = wrappingLabel(m_thinkingRow);
    m_thinking->setFont(m_fonts.meta);
    thinking->addWidget(m_thinkingBar);
    thinking->addWidget(m_thinking, 1);
    m_layout->insertWidget(m_layout->indexOf(m_stream) + 1, m_thinkingRow);
    applyPaletteColors();
}

void QACard::ensureMyAnswerRow()
{
    if (m_myAnswerRow)
        return;
    m_myAnswerRow = new QWidget(this);
    auto *row = new QHBoxLayout(m_myAnswerRow);
    row->setContentsMargins(0, 2, 0, 0);
    row->setSpacing(4);
    m_chevron = new QToolButton(m_myAnswerRow);
    m_chevron->setAutoRaise(true);
    m_chevron->setFocusPolicy(Qt::StrongFocus);
    m_personIcon = new IconLabel(Icons::Id::person, m_myAnswerRow);
    m_myAnswerLabel = wrappingLabel(m_myAnswerRow);
    m_myAnswerLabel->setCursor(Qt::PointingHandCursor);
    m_myAnswerLabel->installEventFilter(this);
    m_wordCount = new QLabel(m_myAnswerRow);
    row->addWidget(m_chevron, 0, Qt::AlignTop);
    row->addWidget(m_personIcon, 0, Qt::AlignTop);
    row->addWidget(m_myAnswerLabel, 1);
    row->addWidget(m_wordCount, 0, Qt::AlignTop);
    m_layout->addWidget(m_myAnswerRow);
    connect(m_chevron, &QToolButton::clicked, this, [this] { emit toggleMyAnswer(m_pair.id); });

    m_myAnswer = wrappingLabel(this);
    m_myAnswer->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_layout->addWidget(m_myAnswer);
    setFonts(m_fonts);
    applyPaletteColors();
}

bool QACard::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_myAnswerLabel && event->type() == QEvent::MouseButtonRelease
        && static_cast<QMouseEvent *>(event)->button() == Qt::LeftButton) {
        emit toggleMyAnswer(m_pair.id);
        return true;
    }
    return QWidget::eventFilter(watched, event);
}

void QACard::setPair(const QAPair &pair)
{
    if (pair == m_pair)
        return;
    const QAPair old = std::exchange(m_pair, pair);
    if (old.timestamp != pair.timestamp)
        m_timestamp->setText(pair.timestamp);
    if (old.wasExtended != pair.wasExtended)
        m_updated->setVisible(pair.wasExtended);
    if (old.question != pair.question || old.questionInProgress != pair.questionInProgress
        || old.questionFailed != pair.questionFailed || old.questionMissing != pair.questionMissing)
        refreshQuestion();
    if (old.questionInProgress != pair.questionInProgress && pair.answer.isEmpty())
        refreshAnswer();
    if (old.answerNote != pair.answerNote) {
        m_note->setText(pair.answerNote);
        m_note->setVisible(!pair.answerNote.isEmpty());
    }
    if (old.answer != pair.answer || old.wasExtended != pair.wasExtended || old.isComplete != pair.isComplete) {
        // An answer that only grew while streaming waits for the next frame.
        const bool grew = !pair.isComplete && !old.isComplete && !old.answer.isEmpty()
                          && pair.answer.startsWith(old.answer) && old.wasExtended == pair.wasExtended;
        if (grew)
            m_pendingText = true;
        else
            refreshAnswer();
    }
    if (old.myAnswer != pair.myAnswer || old.myAnswerInProgress != pair.myAnswerInProgress)
        refreshMyAnswer();
    if (old.id != pair.id)
        setAccessibleName(tr("Question at %1").arg(pair.timestamp));
}

void QACard::applyPendingText()
{
    if (!m_pendingText)
        return;
    m_pendingText = false;
    m_stream->setText(m_pair.answer);
}

void QACard::setSessionLive(bool live)
{
    if (live == m_sessionLive)
        return;
    m_sessionLive = live;
    if (m_pair.myAnswerInProgress)
        refreshMyAnswer();
    if (m_pair.answer.isEmpty())
        refreshAnswer();
}

void QACard::setFonts(const CardFonts &fonts)
{
    m_fonts = fonts;
    m_interviewer->setFont(semibold(fonts.meta));
    m_interviewerIcon->setFont(fonts.meta);
    m_timestamp->setFont(monospaced(fonts.meta));
    QFont badge = fonts.meta;
    badge.setPointSizeF(qMax(8.0, fonts.meta.pointSizeF() - 1));
    m_updated->setFont(badge);
    m_question->setFont(fonts.question);
    m_copilot->setFont(semibold(fonts.meta));
    m_copilotIcon->setFont(fonts.meta);
    m_answer->setFont(fonts.answer);
    m_stream->setFont(fonts.answer);
    QFont note = fonts.meta;
    note.setItalic(true);
    m_note->setFont(note);
    refreshQuestion();
    if (m_thinking)
        m_thinking->setFont(fonts.meta);
    if (m_myAnswerRow) {
        m_myAnswerLabel->setFont(fonts.meta);
        m_personIcon->setFont(fonts.meta);
        m_wordCount->setFont(fonts.meta);
        m_myAnswer->setFont(fonts.answer);
        const int side = Icons::sizeFor(QFontMetrics(fonts.meta));
        m_chevron->setIconSize(QSize(side * 2 / 3, side * 2 / 3));
        m_chevron->setFixedSize(side + 4, side + 4);
    }
}

void QACard::setMyAnswerShown(bool shown)
{
    if (shown == m_myAnswerShown)
        return;
    m_myAnswerShown = shown;
    refreshMyAnswer();
}

void QACard::refreshAll()
{
    setAccessibleName(tr("Question at %1").arg(m_pair.timestamp));
    m_timestamp->setText(m_pair.timestamp);
    m_updated->setVisible(m_pair.wasExtended);
    refreshQuestion();
    m_note->setText(m_pair.answerNote);
    m_note->setVisible(!m_pair.answerNote.isEmpty());
    m_updated->setAccessibleName(tr("Question updated"));
    refreshAnswer();
    refreshMyAnswer();
    applyPaletteColors();
}

void QACard::applyPaletteColors()
{
    const bool dark = Theme::isDark(palette());
    const QColor secondary = Colors::over(Colors::withAlpha(palette().color(QPalette::WindowText), 0.74),
                                          Colors::cardBackground(palette()));
    setTextColor(m_interviewer, Colors::accentText(dark));
    setTextColor(m_updated, Colors::accentText(dark));
    setTextColor(m_copilot, secondary);
    setTextColor(m_note, secondary);
    // A question still being heard, or one that could not be transcribed, in the secondary colour.
    const bool provisional = CardText::of(m_pair, m_sessionLive, m_myAnswerShown).questionProvisional;
    setTextColor(m_question, provisional ? secondary : palette().color(QPalette::WindowText));
    setTextColor(m_timestamp, secondary);
    if (m_thinking)
        setTextColor(m_thinking, secondary);
    if (m_myAnswerRow) {
        setTextColor(m_wordCount, secondary);
        setTextColor(m_myAnswerLabel, secondary);
    }
}

void QACard::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        applyPaletteColors();
    QWidget::changeEvent(event);
}

void QACard::refreshAnswer()
{
    m_pendingText = false;
    const CardText text = CardText::of(m_pair, m_sessionLive, m_myAnswerShown);
    if (text.answerStreaming) {
        m_stream->setText(text.answer);
        m_answer->clear();
    } else {
        m_stream->clear();
        m_answer->setText(text.answer);
    }
    m_stream->setVisible(text.answerStreaming);
    m_answer->setVisible(!text.answer.isEmpty() && !text.answerStreaming);
    m_answerHeader->setVisible(text.answerHeaderShown);
    const bool thinking = !text.thinking.isEmpty();
    if (thinking)
        ensureThinkingRow();
    if (m_thinkingRow) {
        m_thinkingRow->setVisible(thinking);
        if (thinking)
            m_thinking->setText(text.thinking);
    }
}

void QACard::refreshQuestion()
{
    const CardText text = CardText::of(m_pair, m_sessionLive, m_myAnswerShown);
    m_question->setText(text.question);
    QFont font = m_fonts.question;
    font.setItalic(text.questionItalic);
    m_question->setFont(font);
    applyPaletteColors();
}

void QACard::refreshMyAnswer()
{
    const CardText text = CardText::of(m_pair, m_sessionLive, m_myAnswerShown);
    if (!text.myAnswerRowShown && !m_myAnswerRow)
        return;
    ensureMyAnswerRow();
    m_myAnswerRow->setVisible(text.myAnswerRowShown);
    m_chevron->setIcon(Icons::icon(m_myAnswerShown ? Icons::Id::expand : Icons::Id::collapse));
    m_myAnswerLabel->setText(text.myAnswerLabelText);
    m_chevron->setAccessibleName(text.myAnswerLabelText);
    m_chevron->setAccessibleDescription(m_myAnswerShown ? tr("Hide your transcribed answer")
                                                        : tr("Show your transcribed answer"));
    m_chevron->setToolTip(m_chevron->accessibleDescription());
    m_wordCount->setText(text.wordCountText);
    m_wordCount->setVisible(!text.wordCountText.isEmpty());
    m_myAnswer->setText(m_pair.myAnswer);
    m_myAnswer->setVisible(text.myAnswerTextShown);
}

QString QACard::questionText() const { return m_question->text(); }
QString QACard::answerText() const { return m_stream->isHidden() ? m_answer->text() : m_stream->text(); }
bool QACard::isThinkingShown() const { return m_thinkingRow && !m_thinkingRow->isHidden(); }
QString QACard::thinkingText() const { return isThinkingShown() ? m_thinking->text() : QString(); }
bool QACard::isAnswerHeaderShown() const { return !m_answerHeader->isHidden(); }
QString QACard::noteText() const { return m_note->isHidden() ? QString() : m_note->text(); }
bool QACard::isUpdatedBadgeShown() const { return !m_updated->isHidden(); }
bool QACard::isMyAnswerRowShown() const { return m_myAnswerRow && !m_myAnswerRow->isHidden(); }
QString QACard::myAnswerLabelText() const { return isMyAnswerRowShown() ? m_myAnswerLabel->text() : QString(); }
QString QACard::wordCountText() const
{
    return isMyAnswerRowShown() && !m_wordCount->isHidden() ? m_wordCount->text() : QString();
}
bool QACard::isMyAnswerTextShown() const { return m_myAnswer && !m_myAnswer->isHidden(); }

QList<QLabel *> QACard::textLabels() const
{
    QList<QLabel *> labels{m_interviewer, m_timestamp, m_question, m_copilot, m_answer, m_note};
    if (m_thinking)
        labels << m_thinking;
    if (m_myAnswerRow)
        labels << m_myAnswerLabel << m_wordCount << m_myAnswer;
    return labels;
}

void QACard::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::withAlpha(Colors::grey(), 0.12));
    p.drawRoundedRect(QRectF(rect()), 10, 10);
}
