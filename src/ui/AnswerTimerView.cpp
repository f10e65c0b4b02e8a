#include "ui/AnswerTimerView.h"

#include "ui/Colors.h"
#include "ui/DisplayFormat.h"
#include "ui/Icons.h"

#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>

AnswerTimerView::AnswerTimerView(QWidget *parent)
    : QWidget(parent)
    , m_icon(new QLabel(this))
    , m_label(new QLabel(this))
{
    setToolTip(tr("How long you have been answering. It turns amber at 45 seconds. "
                  "Most people talk too long under pressure."));
    setAccessibleName(tr("Answer timer"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(7, 2, 8, 2);
    layout->setSpacing(4);
    layout->addWidget(m_icon);
    layout->addWidget(m_label);
    QFont f = m_label->font();
    f.setWeight(QFont::DemiBold);
    f.setStyleHint(QFont::Monospace);
    f.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("monospace")});
    m_label->setFont(f);
    // Room for "88:88" so the bar does not shift as the digits change.
    m_label->setMinimumWidth(QFontMetrics(f).horizontalAdvance(QStringLiteral("88:88")));
    refresh();
}

void AnswerTimerView::setState(bool speaking, double seconds)
{
    if (speaking == m_speaking && seconds == m_seconds && m_color.isValid())
        return;
    m_speaking = speaking;
    m_seconds = seconds;
    refresh();
}

QString AnswerTimerView::text() const
{
    return m_label->text();
}

void AnswerTimerView::refresh()
{
    m_color = Colors::answerTimer(m_seconds);
    const QColor shown = Colors::withAlpha(m_color, opacity());
    m_label->setText(DisplayFormat::shortDuration(m_seconds));
    QPalette pal = m_label->palette();
    pal.setColor(QPalette::WindowText, shown);
    m_label->setPalette(pal);
    const QIcon icon = Icons::icon(m_speaking ? Icons::Id::micActive : Icons::Id::mic);
    m_icon->setPixmap(icon.pixmap(14, 14, m_speaking ? QIcon::Normal : QIcon::Disabled));
    setAccessibleDescription(m_label->text());
    update();
}

void AnswerTimerView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(Colors::withAlpha(m_color, 0.35), 1));
    p.setBrush(Colors::withAlpha(m_color, 0.14));
    p.drawRoundedRect(r, 6, 6);
}
