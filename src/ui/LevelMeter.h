#pragma once

#include "ui/MeterBallistics.h"

#include <QColor>
#include <QWidget>

#include <functional>

class QTimer;

// A small labelled bar showing an audio level from 0 to 1: it rises at once, falls back
// smoothly and marks the recent peak (see MeterBallistics).
class LevelMeter : public QWidget
{
    Q_OBJECT
public:
    static constexpr int kBarWidth = 34;
    static constexpr int kBarHeight = 5;

    explicit LevelMeter(const QString &label, QWidget *parent = nullptr);

    void setLabel(const QString &label);
    QString label() const { return m_label; }
    // Values outside 0...1 are clamped when drawn.
    void setLevel(float level);
    float level() const { return m_level; }
    // The level the bar shows now and its peak mark, after smoothing.
    double shownLevel() const { return m_ballistics.level(); }
    double peakLevel() const { return m_ballistics.peak(); }

    // Seconds on a monotonic clock; tests pass their own.
    void setClock(std::function<double()> clock);
    // Lets the animation catch up with the clock (what its timer does).
    void tick();

    // A larger bar than the control bar's, for the sound check.
    void setBarSize(int width, int height);

    // The filled part of the bar in pixels: the bar's width times the shown level.
    double filledWidth() const { return filledWidth(float(shownLevel()), m_barWidth); }
    QColor fillColor() const;
    static double filledWidth(float level, int barWidth = kBarWidth);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QFont labelFont() const;
    double elapsed();

    QString m_label;
    float m_level = 0;
    int m_barWidth = kBarWidth;
    int m_barHeight = kBarHeight;
    MeterBallistics m_ballistics;
    std::function<double()> m_clock;
    double m_lastTime = -1;
    QTimer *m_animation;
};
