#include "ui/BannerView.h"

#include "ui/Colors.h"
#include "ui/Icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>
#include <QToolButton>

namespace {
Icons::Id iconForLink(const QString &label)
{
    if (label == QLatin1String("Transcript"))
        return Icons::Id::transcript;
    if (label == QLatin1String("Recording"))
        return Icons::Id::recording;
    return Icons::Id::folder;
}
} // namespace

BannerView::BannerView(QWidget *parent)
    : QWidget(parent)
    , m_icon(new QLabel(this))
    , m_text(new QLabel(this))
    , m_buttons(new QHBoxLayout)
    , m_close(new QToolButton(this))
{
    setAccessibleName(tr("Message"));
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 8, 12, 8);
    layout->setSpacing(8);
    m_icon->setPixmap(Icons::icon(Icons::Id::info).pixmap(16, 16));
    m_icon->setAlignment(Qt::AlignTop);
    m_text->setWordWrap(true);
    m_text->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_text->setSizePolicy(QSizePolicy::Expanding, QSizePolicy::Preferred);
    m_buttons->setSpacing(4);
    m_close->setIcon(Icons::icon(Icons::Id::close));
    m_close->setAutoRaise(true);
    m_close->setToolTip(tr("Dismiss"));
    m_close->setAccessibleName(tr("Dismiss message"));
    layout->addWidget(m_icon, 0, Qt::AlignTop);
    layout->addWidget(m_text, 1);
    layout->addLayout(m_buttons);
    layout->addWidget(m_close, 0, Qt::AlignTop);
    connect(m_close, &QToolButton::clicked, this, &BannerView::closeRequested);
}

void BannerView::setContent(const QString &text, const QList<Link> &links, const QString &actionLabel)
{
    m_text->setText(text);
    m_text->setAccessibleName(text);
    qDeleteAll(m_linkButtons);
    m_linkButtons.clear();
    for (const Link &link : links) {
        auto *button = new QToolButton(this);
        button->setText(link.label);
        button->setIcon(Icons::icon(iconForLink(link.label)));
        button->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
        button->setToolTip(link.path);
        button->setAccessibleName(tr("Show %1").arg(link.label));
        const QString path = link.path;
        connect(button, &QToolButton::clicked, this, [this, path] { emit revealRequested(path); });
        m_buttons->addWidget(button, 0, Qt::AlignTop);
        m_linkButtons.append(button);
    }
    if (!actionLabel.isEmpty()) {
        auto *button = new QToolButton(this);
        button->setText(actionLabel);
        button->setToolButtonStyle(Qt::ToolButtonTextOnly);
        button->setAccessibleName(actionLabel);
        connect(button, &QToolButton::clicked, this, &BannerView::actionTriggered);
        m_buttons->addWidget(button, 0, Qt::AlignTop);
        m_linkButtons.append(button);
    }
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

void BannerView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.fillRect(rect(), Colors::withAlpha(Colors::accent(), 0.10));
}
