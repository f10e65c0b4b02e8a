#include "ui/AnswerTimerView.h"

#include "ui/Colors.h"
#include "ui/DisplayFormat.h"
#include "ui/IconLabel.h"
#include "ui/Theme.h"

#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QPainter>

AnswerTimerView::AnswerTimerView(QWidget *parent)
    : QWidget(parent)
    , m_icon(new IconLabel(Icons::Id::mic, this))
    , m_label(new QLabel(this))
{
    setToolTip(tr("How long you have been answering. It turns amber at 45 seconds. "
                  "Most people talk too long under pressure."));
    setAccessibleName(tr("Answer timer"));
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    auto *layout = new QHBoxLayout(this);
    layout->setContentsMargins(5, 2, 5, 2);
    layout->setSpacing(3);
    layout->addWidget(m_icon);
    layout->addWidget(m_label);
    QFont f = m_label->font();
    f.setWeight(QFont::DemiBold);
    f.setStyleHint(QFont::Monospace);
    f.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("Liberation Mono"), QStringLiteral("monospace")});
    m_label->setFont(f);
    // Room for "8:88" so the bar does not shift as the digits change.
    m_label->setMinimumWidth(QFontMetrics(f).horizontalAdvance(QStringLiteral("8:88")));
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

QColor AnswerTimerView::textColor() const
{
    return Colors::answerTimerText(m_seconds, Theme::isDark(palette()));
}

QColor AnswerTimerView::backgroundColor() const
{
    return Colors::over(Colors::withAlpha(m_color, tintOpacity()), palette().color(QPalette::Window));
}

void AnswerTimerView::refresh()
{
    m_color = Colors::answerTimer(m_seconds);
    m_label->setText(DisplayFormat::shortDuration(m_seconds));
    QPalette pal = m_label->palette();
    pal.setColor(QPalette::WindowText, textColor());
    m_label->setPalette(pal);
    m_icon->setIcon(m_speaking ? Icons::Id::micActive : Icons::Id::mic);
    setAccessibleDescription(m_label->text());
    update();
}

void AnswerTimerView::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange && m_color.isValid()) {
        QPalette pal = m_label->palette();
        if (pal.color(QPalette::WindowText) != textColor()) {
            pal.setColor(QPalette::WindowText, textColor());
            m_label->setPalette(pal);
        }
    }
    QWidget::changeEvent(event);
}

void AnswerTimerView::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QRectF r = QRectF(rect()).adjusted(0.5, 0.5, -0.5, -0.5);
    p.setPen(QPen(Colors::withAlpha(m_color, m_speaking ? 0.55 : 0.35), 1));
    p.setBrush(Colors::withAlpha(m_color, tintOpacity()));
    p.drawRoundedRect(r, 6, 6);
}
