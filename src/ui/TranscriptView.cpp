#include "ui/TranscriptView.h"

#include "session/CardBook.h"
#include "ui/CardColumn.h"
#include "ui/Icons.h"
#include "ui/QACard.h"

#include <QEvent>
#include <QGraphicsOpacityEffect>
#include <QLabel>
#include <QParallelAnimationGroup>
#include <QPropertyAnimation>
#include <QPushButton>
#include <QScrollArea>
#include <QScrollBar>
#include <QStackedLayout>
#include <QTimer>
#include <QVBoxLayout>

#include <utility>

namespace {
constexpr int kButtonAnimationMs = 150;
constexpr int kButtonBottomGap = 12;
constexpr int kButtonSlide = 8;
// Deltas that arrive within one frame are drawn together.
constexpr int kFrameMs = 16;
} // namespace

TranscriptView::TranscriptView(QWidget *parent)
    : QWidget(parent)
    , m_stack(new QStackedLayout(this))
    , m_empty(new QWidget(this))
    , m_emptyHeadline(new QLabel(tr("No answers yet"), m_empty))
    , m_emptyText(new QLabel(m_empty))
    , m_sampleInterview(new QPushButton(tr("Try a sample interview"), m_empty))
    , m_scroll(new QScrollArea(this))
    , m_column(new CardColumn)
    , m_newAnswers(new QPushButton(this))
    , m_buttonAnimation(new QParallelAnimationGroup(this))
{
    m_frameTimer = new QTimer(this);
    m_frameTimer->setSingleShot(true);
    m_frameTimer->setInterval(kFrameMs);
    connect(m_frameTimer, &QTimer::timeout, this, &TranscriptView::flushPendingUpdates);
    setAccessibleName(tr("Questions and answers"));

    // Empty state.
    auto *emptyLayout = new QVBoxLayout(m_empty);
    emptyLayout->setContentsMargins(24, 24, 24, 24);
    emptyLayout->setSpacing(6);
    emptyLayout->addStretch(1);
    QFont headline = m_emptyHeadline->font();
    headline.setPointSizeF(headline.pointSizeF() + 4);
    headline.setWeight(QFont::DemiBold);
    m_emptyHeadline->setFont(headline);
    m_emptyHeadline->setAlignment(Qt::AlignHCenter);
    m_emptyText->setText(tr("Pick where the meeting audio comes from in Settings, load your context documents, then "
                            "press Start. Questions heard on the line are transcribed and answered here."));
    m_emptyText->setWordWrap(true);
    m_emptyText->setAlignment(Qt::AlignHCenter);
    // The palette's secondary text colour, at least 4.5:1 on the window in both palettes.
    m_emptyText->setForegroundRole(QPalette::PlaceholderText);
    emptyLayout->addWidget(m_emptyHeadline);
    emptyLayout->addWidget(m_emptyText);
    m_sampleInterview->setToolTip(tr("About two minutes of a scripted interview, with no key and nothing sent anywhere"));
    emptyLayout->addSpacing(8);
    emptyLayout->addWidget(m_sampleInterview, 0, Qt::AlignHCenter);
    emptyLayout->addStretch(1);

    // Cards.
    m_scroll->setWidget(m_column);
    m_scroll->setWidgetResizable(false);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->setFocusPolicy(Qt::StrongFocus);
    m_scroll->setAccessibleName(tr("Answer cards"));
    m_column->setAutoFillBackground(false);
    m_scroll->viewport()->setAutoFillBackground(false);

    m_stack->addWidget(m_empty);
    m_stack->addWidget(m_scroll);

    QScrollBar *bar = m_scroll->verticalScrollBar();
    connect(bar, &QScrollBar::rangeChanged, this, &TranscriptView::geometryMaybeChanged);
    connect(bar, &QScrollBar::valueChanged, this, &TranscriptView::geometryMaybeChanged);
    m_scroll->viewport()->installEventFilter(this);

    // "New answers below".
    m_newAnswers->setText(tr("New answers below"));
    m_newAnswers->setIcon(Icons::icon(Icons::Id::arrowDown));
    m_newAnswers->setAccessibleName(tr("New answers below"));
    m_newAnswers->setCursor(Qt::PointingHandCursor);
    QFont caption = m_newAnswers->font();
    caption.setWeight(QFont::DemiBold);
    caption.setPointSizeF(qMax(8.0, caption.pointSizeF() - 1));
    m_newAnswers->setFont(caption);
    m_newAnswers->setStyleSheet(QStringLiteral(
        "QPushButton { background: palette(highlight); color: palette(highlighted-text); border: none;"
        " border-radius: 13px; padding: 5px 14px; }"
        "QPushButton:focus { border: 2px solid palette(highlighted-text); }"));
    m_newAnswers->hide();
    auto *opacity = new QGraphicsOpacityEffect(m_newAnswers);
    opacity->setOpacity(0);
    m_newAnswers->setGraphicsEffect(opacity);
    auto *fade = new QPropertyAnimation(opacity, "opacity", m_buttonAnimation);
    fade->setDuration(kButtonAnimationMs);
    fade->setEasingCurve(QEasingCurve::InOutQuad);
    auto *slide = new QPropertyAnimation(m_newAnswers, "pos", m_buttonAnimation);
    slide->setDuration(kButtonAnimationMs);
    slide->setEasingCurve(QEasingCurve::InOutQuad);
    m_buttonAnimation->addAnimation(fade);
    m_buttonAnimation->addAnimation(slide);
    connect(m_buttonAnimation, &QParallelAnimationGroup::finished, this, [this] {
        if (!m_buttonShown)
            m_newAnswers->hide();
    });
    connect(m_newAnswers, &QPushButton::clicked, this, [this] { jumpToBottom(true); });

    updateEmptyState();
}

void TranscriptView::setCards(const CardBook *cards)
{
    setSource(&cards->cards());
    connect(cards, &QAbstractItemModel::rowsInserted, this, [this](const QModelIndex &, int first) { pairInserted(first); });
    connect(cards, &QAbstractItemModel::dataChanged, this, [this](const QModelIndex &topLeft) { pairChanged(topLeft.row()); });
    connect(cards, &QAbstractItemModel::rowsRemoved, this, &TranscriptView::pairsReset);
    connect(cards, &QAbstractItemModel::modelReset, this, &TranscriptView::pairsReset);
}

void TranscriptView::setSource(const QList<QAPair> *pairs)
{
    m_pairs = pairs;
    pairsReset();
}

void TranscriptView::setCardFonts(const CardFonts &fonts)
{
    m_fonts = fonts;
    for (QACard *card : m_column->cards())
        card->setFonts(fonts);
    m_column->refreshAll();
}

int TranscriptView::cardCount() const
{
    return m_column->count();
}

QACard *TranscriptView::card(int index) const
{
    return m_column->cardAt(index);
}

QACard *TranscriptView::makeCard(const QAPair &pair)
{
    auto *card = new QACard(pair, m_fonts, m_expanded.contains(pair.id), m_column);
    card->setSessionLive(m_sessionLive);
    connect(card, &QACard::toggleMyAnswer, this, &TranscriptView::toggleMyAnswer);
    ++m_cardsCreated;
    return card;
}

void TranscriptView::pairInserted(int index)
{
    if (!m_pairs || index < 0 || index >= m_pairs->size() || index > m_column->count()) {
        pairsReset();
        return;
    }
    m_column->insertCard(index, makeCard(m_pairs->at(index)));
    updateEmptyState();
}

void TranscriptView::pairChanged(int index)
{
    if (!m_pairs || index < 0 || index >= m_pairs->size() || m_column->count() != m_pairs->size()) {
        pairsReset();
        return;
    }
    QACard *card = m_column->cardAt(index);
    card->setPair(m_pairs->at(index));
    if (card->hasPendingText()) {
        m_pending.insert(card);
        if (!m_frameTimer->isActive())
            m_frameTimer->start();
        return;
    }
    m_pending.remove(card);
    m_column->refresh(card);
}

void TranscriptView::flushPendingUpdates()
{
    m_frameTimer->stop();
    const QSet<QACard *> pending = std::exchange(m_pending, {});
    for (QACard *card : pending) {
        card->applyPendingText();
        m_column->refresh(card);
    }
}

void TranscriptView::setSessionLive(bool live)
{
    if (live == m_sessionLive)
        return;
    m_sessionLive = live;
    for (QACard *card : m_column->cards()) {
        card->setSessionLive(live);
        m_column->refresh(card);
    }
}

void TranscriptView::pairsReset()
{
    m_pending.clear();
    m_frameTimer->stop();
    m_column->clear();
    if (m_pairs) {
        for (int i = 0; i < m_pairs->size(); ++i)
            m_column->insertCard(i, makeCard(m_pairs->at(i)));
    }
    updateEmptyState();
}

void TranscriptView::toggleMyAnswer(const QString &pairID)
{
    if (m_expanded.contains(pairID))
        m_expanded.remove(pairID);
    else
        m_expanded.insert(pairID);
    for (QACard *card : m_column->cards()) {
        if (card->pair().id == pairID) {
            card->setMyAnswerShown(m_expanded.contains(pairID));
            m_column->refresh(card);
        }
    }
}

QString TranscriptView::feedFingerprint() const
{
    if (!m_pairs || m_pairs->isEmpty())
        return QStringLiteral("0");
    const QAPair &last = m_pairs->constLast();
    return QStringLiteral("%1-%2-%3-%4")
        .arg(m_pairs->size())
        .arg(last.question.size())
        .arg(last.answer.size())
        .arg(last.isComplete ? QStringLiteral("true") : QStringLiteral("false"));
}

bool TranscriptView::isEmptyStateShown() const
{
    return m_stack->currentWidget() == m_empty;
}

QString TranscriptView::emptyStateHeadline() const
{
    return m_emptyHeadline->text();
}

QString TranscriptView::emptyStateText() const
{
    return m_emptyText->text();
}

void TranscriptView::updateEmptyState()
{
    m_stack->setCurrentWidget(m_column->count() == 0 ? m_empty : static_cast<QWidget *>(m_scroll));
}

void TranscriptView::jumpToBottom(bool animated)
{
    m_follow.jumpToBottom();
    updateNewAnswersButton();
    scrollToBottom(animated);
}

void TranscriptView::scrollToBottom(bool animated)
{
    QScrollBar *bar = m_scroll->verticalScrollBar();
    if (!animated) {
        bar->setValue(bar->maximum());
        return;
    }
    auto *anim = new QPropertyAnimation(bar, "value", this);
    anim->setDuration(kButtonAnimationMs);
    anim->setEasingCurve(QEasingCurve::InOutQuad);
    anim->setStartValue(bar->value());
    anim->setEndValue(bar->maximum());
    connect(anim, &QPropertyAnimation::finished, this, [bar] { bar->setValue(bar->maximum()); });
    anim->start(QAbstractAnimation::DeleteWhenStopped);
}

void TranscriptView::geometryMaybeChanged()
{
    // The content height is read from the scroll bar's range so that the geometry and what
    // can be scrolled to always agree (the column grows before the range follows).
    const QScrollBar *bar = m_scroll->verticalScrollBar();
    const double container = m_scroll->viewport()->height();
    const FollowBottom::Geo geo{double(bar->value()), double(bar->maximum()) + container, container};
    if (geo == m_geo)
        return;
    const FollowBottom::Geo old = std::exchange(m_geo, geo);
    if (m_follow.geometryChanged(old, geo))
        scrollToBottom(false);
    updateNewAnswersButton();
}

void TranscriptView::updateNewAnswersButton()
{
    const bool show = m_follow.hasUnseenBelow();
    if (show == m_buttonShown)
        return;
    m_buttonShown = show;
    auto *opacity = static_cast<QGraphicsOpacityEffect *>(m_newAnswers->graphicsEffect());
    auto *fade = static_cast<QPropertyAnimation *>(m_buttonAnimation->animationAt(0));
    auto *slide = static_cast<QPropertyAnimation *>(m_buttonAnimation->animationAt(1));
    m_buttonAnimation->stop();
    placeNewAnswersButton();
    const QPoint rest = m_newAnswers->pos();
    const QPoint away = rest + QPoint(0, kButtonSlide);
    fade->setStartValue(opacity->opacity());
    fade->setEndValue(show ? 1.0 : 0.0);
    slide->setStartValue(show ? away : rest);
    slide->setEndValue(show ? rest : away);
    if (show) {
        m_newAnswers->move(away);
        m_newAnswers->show();
        m_newAnswers->raise();
    }
    m_buttonAnimation->start();
}

void TranscriptView::placeNewAnswersButton()
{
    m_newAnswers->adjustSize();
    const QSize size = m_newAnswers->sizeHint();
    const QRect area = m_scroll->geometry();
    m_newAnswers->setGeometry(area.x() + (area.width() - size.width()) / 2,
                              area.bottom() - size.height() - kButtonBottomGap, size.width(), size.height());
}

void TranscriptView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    if (m_buttonAnimation->state() != QAbstractAnimation::Running)
        placeNewAnswersButton();
}

bool TranscriptView::eventFilter(QObject *watched, QEvent *event)
{
    if (watched == m_scroll->viewport() && event->type() == QEvent::Resize) {
        m_column->setColumnWidth(m_scroll->viewport()->width());
    }
    return QWidget::eventFilter(watched, event);
}
