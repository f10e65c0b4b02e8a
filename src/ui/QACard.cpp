#include "ui/QACard.h"

#include "ui/Colors.h"
#include "ui/Icons.h"
#include "ui/ScreenThumbnail.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QProgressBar>
#include <QRegularExpression>
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

QLabel *iconLabel(Icons::Id id, int size, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setPixmap(Icons::icon(id).pixmap(size, size));
    label->setFixedSize(size, size);
    return label;
}
} // namespace

QACard::QACard(const QAPair &pair, const CardFonts &fonts, bool myAnswerShown, QWidget *parent)
    : QWidget(parent)
    , m_pair(pair)
    , m_fonts(fonts)
    , m_myAnswerShown(myAnswerShown)
{
    setAttribute(Qt::WA_OpaquePaintEvent, false);
    auto *layout = new QVBoxLayout(this);
    m_layout = layout;
    layout->setContentsMargins(10, 10, 10, 10);
    layout->setSpacing(5);

    auto *header = new QHBoxLayout;
    header->setSpacing(5);
    m_interviewerIcon = iconLabel(Icons::Id::interviewer, 14, this);
    m_interviewer = new QLabel(QStringLiteral("Interviewer"), this);
    m_timestamp = new QLabel(this);
    m_updated = new Badge(QStringLiteral("updated"), this);
    m_updated->setContentsMargins(5, 0, 5, 0);
    header->addWidget(m_interviewerIcon);
    header->addWidget(m_interviewer);
    header->addWidget(m_timestamp);
    header->addWidget(m_updated);
    header->addStretch(1);
    layout->addLayout(header);

    m_question = new QLabel(this);
    m_question->setWordWrap(true);
    m_question->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_question->setTextFormat(Qt::PlainText);
    layout->addWidget(m_question);
    if (!pair.screenThumbnail.isEmpty())
        layout->addWidget(new ScreenThumbnail(pair.screenThumbnail, this));

    auto *answerHeader = new QHBoxLayout;
    answerHeader->setSpacing(5);
    m_copilotIcon = iconLabel(Icons::Id::copilot, 12, this);
    m_copilot = new QLabel(QStringLiteral("Copilot"), this);
    answerHeader->addWidget(m_copilotIcon);
    answerHeader->addWidget(m_copilot);
    answerHeader->addStretch(1);
    layout->addLayout(answerHeader);

    m_answer = new QLabel(this);
    m_answer->setWordWrap(true);
    m_answer->setTextFormat(Qt::PlainText);
    layout->addWidget(m_answer);

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
    m_thinking = new QLabel(m_thinkingRow);
    m_thinking->setFont(m_fonts.meta);
    thinking->addWidget(m_thinkingBar);
    thinking->addWidget(m_thinking);
    thinking->addStretch(1);
    m_layout->insertWidget(m_layout->indexOf(m_answer) + 1, m_thinkingRow);
    applyPaletteColors();
}

void QACard::ensureMyAnswerRow()
{
    if (m_myAnswerRow)
        return;
    m_myAnswerRow = new QWidget(this);
    auto *row = new QHBoxLayout(m_myAnswerRow);
    row->setContentsMargins(0, 2, 0, 0);
    row->setSpacing(3);
    m_chevron = new QToolButton(m_myAnswerRow);
    m_chevron->setAutoRaise(true);
    m_chevron->setFocusPolicy(Qt::NoFocus);
    m_chevron->setFixedSize(14, 14);
    m_chevron->setIconSize(QSize(8, 8));
    m_personIcon = iconLabel(Icons::Id::person, 12, m_myAnswerRow);
    m_myAnswerButton = new QToolButton(m_myAnswerRow);
    m_myAnswerButton->setAutoRaise(true);
    m_myAnswerButton->setToolButtonStyle(Qt::ToolButtonTextOnly);
    m_myAnswerButton->setFont(m_fonts.meta);
    m_wordCount = new QLabel(m_myAnswerRow);
    m_wordCount->setFont(m_fonts.meta);
    row->addWidget(m_chevron);
    row->addWidget(m_personIcon);
    row->addWidget(m_myAnswerButton);
    row->addWidget(m_wordCount);
    row->addStretch(1);
    m_layout->addWidget(m_myAnswerRow);
    auto toggle = [this] { emit toggleMyAnswer(m_pair.id); };
    connect(m_chevron, &QToolButton::clicked, this, toggle);
    connect(m_myAnswerButton, &QToolButton::clicked, this, toggle);

    m_myAnswer = new QLabel(this);
    m_myAnswer->setWordWrap(true);
    m_myAnswer->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_myAnswer->setTextFormat(Qt::PlainText);
    m_myAnswer->setFont(m_fonts.answer);
    m_layout->addWidget(m_myAnswer);
    applyPaletteColors();
}

QString QACard::placeholderText(const QAPair &pair)
{
    return pair.wasExtended ? QStringLiteral("re-answering the full question…") : QStringLiteral("thinking");
}

QString QACard::myAnswerLabel(const QAPair &pair)
{
    return pair.myAnswerInProgress ? QStringLiteral("My answer (recording…)") : QStringLiteral("My answer");
}

int QACard::wordCount(const QString &text)
{
    static const QRegularExpression space(QStringLiteral("\\s+"));
    return int(text.split(space, Qt::SkipEmptyParts).size());
}

QString QACard::wordCountLabel(const QAPair &pair, bool shown)
{
    if (shown || pair.myAnswer.isEmpty())
        return {};
    const int n = wordCount(pair.myAnswer);
    if (n == 0)
        return {};
    return QString::number(n) + QStringLiteral(" words");
}

bool QACard::showsMyAnswerRow(const QAPair &pair)
{
    return pair.myAnswerInProgress || !pair.myAnswer.isEmpty();
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
    if (old.question != pair.question)
        m_question->setText(pair.question);
    if (old.answer != pair.answer || old.wasExtended != pair.wasExtended || old.isComplete != pair.isComplete)
        refreshAnswer();
    if (old.myAnswer != pair.myAnswer || old.myAnswerInProgress != pair.myAnswerInProgress)
        refreshMyAnswer();
    if (old.id != pair.id)
        setAccessibleName(tr("Question at %1").arg(pair.timestamp));
}

void QACard::setFonts(const CardFonts &fonts)
{
    m_fonts = fonts;
    m_interviewer->setFont(semibold(fonts.meta));
    m_timestamp->setFont(monospaced(fonts.meta));
    QFont badge = fonts.meta;
    badge.setPointSizeF(qMax(8.0, fonts.meta.pointSizeF() - 1));
    m_updated->setFont(badge);
    m_question->setFont(fonts.question);
    m_copilot->setFont(semibold(fonts.meta));
    m_answer->setFont(fonts.answer);
    if (m_thinking)
        m_thinking->setFont(fonts.meta);
    if (m_myAnswerRow) {
        m_myAnswerButton->setFont(fonts.meta);
        m_wordCount->setFont(fonts.meta);
        m_myAnswer->setFont(fonts.answer);
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
    m_question->setText(m_pair.question);
    // Fixed colours that follow no palette role.
    setTextColor(m_interviewer, Colors::accent());
    setTextColor(m_updated, Colors::accent());
    m_updated->setAccessibleName(tr("Question updated"));
    refreshAnswer();
    refreshMyAnswer();
    applyPaletteColors();
}

void QACard::applyPaletteColors()
{
    const QColor text = palette().color(QPalette::WindowText);
    setTextColor(m_copilot, Colors::withAlpha(text, 0.6));
    if (m_thinking)
        setTextColor(m_thinking, Colors::withAlpha(text, 0.6));
    if (m_myAnswerRow) {
        setTextColor(m_wordCount, Colors::withAlpha(text, 0.55));
        setTextColor(m_myAnswerButton, Colors::withAlpha(text, 0.75));
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
    const bool empty = m_pair.answer.isEmpty();
    // Selectable text is laid out through a text document, several times dearer than a plain
    // label; a streaming answer becomes selectable once it is complete.
    m_answer->setTextInteractionFlags(m_pair.isComplete ? Qt::TextSelectableByMouse : Qt::NoTextInteraction);
    m_answer->setText(m_pair.answer);
    m_answer->setVisible(!empty);
    if (empty)
        ensureThinkingRow();
    if (m_thinkingRow) {
        m_thinkingRow->setVisible(empty);
        if (empty)
            m_thinking->setText(placeholderText(m_pair));
    }
}

void QACard::refreshMyAnswer()
{
    const bool showRow = showsMyAnswerRow(m_pair);
    if (!showRow && !m_myAnswerRow)
        return;
    ensureMyAnswerRow();
    m_myAnswerRow->setVisible(showRow);
    m_chevron->setIcon(Icons::icon(m_myAnswerShown ? Icons::Id::expand : Icons::Id::collapse));
    m_myAnswerButton->setText(myAnswerLabel(m_pair));
    m_myAnswerButton->setAccessibleName(myAnswerLabel(m_pair));
    m_myAnswerButton->setAccessibleDescription(m_myAnswerShown ? tr("Hide your transcribed answer")
                                                               : tr("Show your transcribed answer"));
    const QString count = wordCountLabel(m_pair, m_myAnswerShown);
    m_wordCount->setText(count);
    m_wordCount->setVisible(!count.isEmpty());
    m_myAnswer->setText(m_pair.myAnswer);
    m_myAnswer->setVisible(showRow && m_myAnswerShown && !m_pair.myAnswer.isEmpty());
}

QString QACard::questionText() const { return m_question->text(); }
QString QACard::answerText() const { return m_answer->text(); }
bool QACard::isThinkingShown() const { return m_thinkingRow && !m_thinkingRow->isHidden(); }
QString QACard::thinkingText() const { return isThinkingShown() ? m_thinking->text() : QString(); }
bool QACard::isUpdatedBadgeShown() const { return !m_updated->isHidden(); }
bool QACard::isMyAnswerRowShown() const { return m_myAnswerRow && !m_myAnswerRow->isHidden(); }
QString QACard::myAnswerLabelText() const { return isMyAnswerRowShown() ? m_myAnswerButton->text() : QString(); }
QString QACard::wordCountText() const
{
    return isMyAnswerRowShown() && !m_wordCount->isHidden() ? m_wordCount->text() : QString();
}
bool QACard::isMyAnswerTextShown() const { return m_myAnswer && !m_myAnswer->isHidden(); }

void QACard::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::withAlpha(Colors::grey(), 0.12));
    p.drawRoundedRect(QRectF(rect()), 10, 10);
}
