#include "ui/BannerView.h"

#include "ui/Colors.h"
#include "ui/FlowLayout.h"
#include "ui/IconLabel.h"
#include "ui/Icons.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QScrollArea>
#include <QToolButton>
#include <QVBoxLayout>

namespace {
constexpr int kPadX = 12;
constexpr int kPadY = 8;

// By the kind of file linked (its label is text to read, not to match).
Icons::Id iconForLink(const QString &path)
{
    if (path.endsWith(QLatin1String(".md")))
        return Icons::Id::transcript;
    if (path.endsWith(QLatin1String(".wav")))
        return Icons::Id::recording;
    if (path.endsWith(QLatin1String(".html")))
        return Icons::Id::check;
    return Icons::Id::folder;
}
} // namespace

BannerView::BannerView(QWidget *parent)
    : QWidget(parent)
    , m_scroll(new QScrollArea(this))
    , m_content(new QWidget)
    , m_icon(new IconLabel(Icons::Id::info, m_content))
    , m_text(new QLabel(m_content))
    , m_buttonRow(new QWidget(m_content))
    , m_buttons(new FlowLayout(m_buttonRow, 6, 4))
    , m_close(new QToolButton(this))
{
    setAccessibleName(tr("Message"));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    auto *textRow = new QHBoxLayout;
    textRow->setContentsMargins(0, 0, 0, 0);
    textRow->setSpacing(8);
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::PlainText);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    textRow->addWidget(m_icon, 0, Qt::AlignTop);
    textRow->addWidget(m_text, 1);

    m_buttons->setContentsMargins(0, 0, 0, 0);
    auto *content = new QVBoxLayout(m_content);
    content->setContentsMargins(0, 0, 0, 0);
    content->setSpacing(6);
    content->addLayout(textRow);
    content->addWidget(m_buttonRow);
    m_buttonRow->hide();

    m_scroll->setWidget(m_content);
    m_scroll->setWidgetResizable(true);
    m_scroll->setFrameShape(QFrame::NoFrame);
    m_scroll->setHorizontalScrollBarPolicy(Qt::ScrollBarAlwaysOff);
    m_scroll->viewport()->setAutoFillBackground(false);
    m_content->setAutoFillBackground(false);

    m_close->setIcon(Icons::icon(Icons::Id::close));
    m_close->setAutoRaise(true);
    m_close->setToolTip(tr("Dismiss"));
    m_close->setAccessibleName(tr("Dismiss message"));

    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(kPadX, kPadY, kPadX - 6, kPadY);
    layout->setSpacing(4);
    layout->addWidget(m_scroll, 1);
    layout->addWidget(m_close, 0, Qt::AlignTop);
    connect(m_close, &QToolButton::clicked, this, &BannerView::closeRequested);
}

void BannerView::setContent(const QString &text, const QList<Link> &links, const QString &actionLabel)
{
    m_text->setText(text);
    m_text->setAccessibleName(text);
    qDeleteAll(m_linkButtons);
    m_linkButtons.clear();
    const int side = Icons::sizeFor(fontMetrics());
    for (const Link &link : links) {
        auto *button = new QToolButton(m_buttonRow);
        button->setText(link.label);
        button->setIcon(Icons::icon(iconForLink(link.path)));
        button->setIconSize(QSize(side, side));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setToolTip(link.path);
        button->setAccessibleName(tr("Show %1").arg(link.label));
        const QString path = link.path;
        connect(button, &QToolButton::clicked, this, [this, path] { emit revealRequested(path); });
        m_buttons->addWidget(button);
        m_linkButtons.append(button);
    }
    if (!actionLabel.isEmpty()) {
        auto *button = new QToolButton(m_buttonRow);
        button->setText(actionLabel);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        button->setAccessibleName(actionLabel);
        connect(button, &QToolButton::clicked, this, &BannerView::actionTriggered);
        m_buttons->addWidget(button);
        m_linkButtons.append(button);
    }
    m_buttonRow->setVisible(!m_linkButtons.isEmpty());
    fitHeight();
}

QString BannerView::text() const
{
    return m_text->text();
}

QStringList BannerView::buttonLabels() const
{
    QStringList labels;
    for (const QToolButton *b : m_linkButtons)
        labels << b->text();
    return labels;
}

void BannerView::setMaximumBannerHeight(int height)
{
    if (height == m_maxHeight)
        return;
    m_maxHeight = height;
    fitHeight();
}

void BannerView::fitHeight()
{
    // The message's height at the width it gets, up to the most it may take.
    const int closeWidth = m_close->sizeHint().width() + 4;
    const int width = qMax(50, this->width() - kPadX - (kPadX - 6) - closeWidth);
    int content = m_content->layout()->totalHeightForWidth(width);
    content = qMax(content, m_close->sizeHint().height());
    const int wanted = content + 2 * kPadY;
    const int height = qMax(m_close->sizeHint().height() + 2 * kPadY, qMin(wanted, m_maxHeight));
    m_scroll->setVerticalScrollBarPolicy(wanted > height ? Qt::ScrollBarAsNeeded : Qt::ScrollBarAlwaysOff);
    if (height != this->height() || minimumHeight() != height)
        setFixedHeight(height);
}

void BannerView::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    fitHeight();
}

bool BannerView::event(QEvent *event)
{
    if (event->type() == QEvent::FontChange || event->type() == QEvent::LayoutRequest)
        fitHeight();
    return QWidget::event(event);
}

void BannerView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Colors::withAlpha(Colors::accent(), 0.10));
}
