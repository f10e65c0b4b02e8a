#include "ui/DemoRibbon.h"

#include <QPainter>
#include <QHBoxLayout>
#include <QLabel>
#include <QPushButton>

DemoRibbon::DemoRibbon(QWidget *parent)
    : QFrame(parent)
    , m_text(new QLabel(this))
    , m_addKey(new QPushButton(tr("Add your key"), this))
{
    setAccessibleName(tr("Sample interview"));
    m_text->setText(tr("<b>Sample interview</b> — the questions and answers are scripted, from a stand-in on this "
                       "computer. Nothing is sent anywhere."));
    m_text->setWordWrap(true);
    m_text->setTextFormat(Qt::RichText);
    m_addKey->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(12, 6, 8, 6);
    layout->setSpacing(10);
    layout->addWidget(m_text, 1);
    layout->addWidget(m_addKey, 0, Qt::AlignVCenter);
    connect(m_addKey, &QPushButton::clicked, this, &DemoRibbon::addKeyRequested);
}

QColor DemoRibbon::fillFor(const QPalette &palette)
{
    constexpr float tint = 0.18f;
    const QColor window = palette.color(QPalette::Window);
    const QColor highlight = palette.color(QPalette::Highlight);
    const auto mix = [](float base, float over) { return base * (1.0f - tint) + over * tint; };
    return QColor::fromRgbF(mix(window.redF(), highlight.redF()), mix(window.greenF(), highlight.greenF()),
                            mix(window.blueF(), highlight.blueF()));
}

void DemoRibbon::paintEvent(QPaintEvent *event)
{
    Q_UNUSED(event);
    QPainter painter(this);
    painter.fillRect(rect(), fillFor(palette()));
    painter.setPen(palette().color(QPalette::Highlight));
    painter.drawLine(rect().bottomLeft(), rect().bottomRight());
}
