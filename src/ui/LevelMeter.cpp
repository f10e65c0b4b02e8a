#include "ui/LevelMeter.h"

#include "ui/Colors.h"

#include <QElapsedTimer>
#include <QPainter>
#include <QTimer>

#include <algorithm>
#include <cmath>

namespace {
constexpr int kGap = 4;
constexpr int kFrameMs = 33;

double monotonicSeconds()
{
    static QElapsedTimer timer = [] {
        QElapsedTimer t;
        t.start();
        return t;
    }();
    return double(timer.nsecsElapsed()) / 1e9;
}
} // namespace

LevelMeter::LevelMeter(const QString &label, QWidget *parent)
    : QWidget(parent)
    , m_label(label)
    , m_clock(&monotonicSeconds)
    , m_animation(new QTimer(this))
{
    setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    setAccessibleName(label);
    m_animation->setInterval(kFrameMs);
    connect(m_animation, &QTimer::timeout, this, &LevelMeter::tick);
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

void LevelMeter::setClock(std::function<double()> clock)
{
    m_clock = std::move(clock);
    m_lastTime = -1;
}

double LevelMeter::elapsed()
{
    const double now = m_clock();
    const double passed = m_lastTime < 0 ? 0.0 : now - m_lastTime;
    m_lastTime = now;
    return passed;
}

void LevelMeter::setLevel(float level)
{
    if (std::isnan(level))
        level = 0;
    m_level = level;
    const double before = m_ballistics.level();
    const double peakBefore = m_ballistics.peak();
    m_ballistics.step(level, elapsed());
    if (m_ballistics.isAtRest())
        m_animation->stop();
    else if (!m_animation->isActive())
        m_animation->start();
    if (before != m_ballistics.level() || peakBefore != m_ballistics.peak())
        update();
}

void LevelMeter::tick()
{
    m_ballistics.advance(elapsed());
    if (m_ballistics.isAtRest())
        m_animation->stop();
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
    return Colors::levelMeter(float(shownLevel()));
}

QFont LevelMeter::labelFont() const
{
    QFont f = font();
    f.setPointSizeF(qMax(8.0, f.pointSizeF() - 1.0));
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
    p.setPen(Colors::secondaryText(palette()));
    p.drawText(QRect(0, 0, labelWidth, height()), Qt::AlignVCenter | Qt::AlignLeft, m_label);

    const QRectF track(labelWidth + kGap, (height() - m_barHeight) / 2.0, m_barWidth, m_barHeight);
    p.setPen(Qt::NoPen);
    p.setBrush(Colors::withAlpha(palette().color(QPalette::WindowText), 0.18));
    p.drawRoundedRect(track, 2, 2);
    const double filled = filledWidth();
    if (filled > 0) {
        p.setBrush(fillColor());
        p.drawRoundedRect(QRectF(track.left(), track.top(), filled, m_barHeight), 2, 2);
    }
    // The peak mark: a short upright line where the level last peaked.
    const double peak = filledWidth(float(peakLevel()), m_barWidth);
    if (peak > filled + 1.5) {
        p.setBrush(Colors::levelMeter(float(peakLevel())));
        p.drawRect(QRectF(track.left() + peak - 2, track.top(), 2, m_barHeight));
    }
}
