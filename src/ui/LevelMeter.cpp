#include "ui/LevelMeter.h"

#include "ui/Colors.h"

#include <QPainter>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kGap = 4;
} // namespace

LevelMeter::LevelMeter(const QString &label, QWidget *parent)
    : QWidget(parent)
    , m_label(label)
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(label);
}

void LevelMeter::setLabel(const QString &label)
{
    if (label == m_label)
        return;
    m_label = label;
    setAccessibleName(label);
    updateGeometry();
    update();
}

void LevelMeter::setLevel(float level)
{
    if (std::isnan(level))
        level = 0;
    if (level == m_level)
        return;
    m_level = level;
    update();
}

double LevelMeter::filledWidth(float level, int barWidth)
{
    const float clamped = std::isnan(level) ? 0.f : std::clamp(level, 0.f, 1.f);
    return barWidth * static_cast<double>(clamped);
}

void LevelMeter::setBarSize(int width, int height)
{
    m_barWidth = width;
    m_barHeight = height;
    updateGeometry();
    update();
}

QColor LevelMeter::fillColor() const
{
    return Colors::levelMeter(m_level);
}

QFont LevelMeter::labelFont() const
{
    QFont f = font();
    f.setPointSizeF(8);
    return f;
}

QSize LevelMeter::sizeHint() const
{
    const QFontMetrics fm(labelFont());
    return {fm.horizontalAdvance(m_label) + kGap + m_barWidth, qMax(fm.height(), m_barHeight)};
}

void LevelMeter::paintEvent(QPaintEvent *)
{
    QPainter p(this);
    p.setRenderHint(QPainter::Antialiasing);
    const QFontMetrics fm(labelFont());
    const int labelWidth = fm.horizontalAdvance(m_label);
    p.setFont(labelFont());
    p.setPen(Colors::withAlpha(palette().color(QPalette::WindowText), 0.7));
    p.drawText(QRect(0, 0, labelWidth, height()), Qt::AlignVCenter | Qt::AlignLeft, m_label);

    const QRectF track(labelWidth + kGap, (height() - m_barHeight) / 2.0, m_barWidth, m_barHeight);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::withAlpha(palette().color(QPalette::WindowText), 0.15));
    p.drawRoundedRect(track, 2, 2);
    const double filled = filledWidth();
    if (filled > 0) {
        p.setBrush(fillColor());
        p.drawRoundedRect(QRectF(track.left(), track.top(), filled, m_barHeight), 2, 2);
    }
}
