#pragma once

#include <QColor>
#include <QWidget>

// A small labelled bar showing an audio level from 0 to 1.
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

    // A larger bar than the control bar's, for the sound check.
    void setBarSize(int width, int height);

    // The filled part of the bar in pixels: the bar's width times the clamped level.
    double filledWidth() const { return filledWidth(m_level, m_barWidth); }
    QColor fillColor() const;
    static double filledWidth(float level, int barWidth = kBarWidth);

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override { return sizeHint(); }

protected:
    void paintEvent(QPaintEvent *event) override;

private:
    QFont labelFont() const;

    QString m_label;
    float m_level = 0;
    int m_barWidth = kBarWidth;
    int m_barHeight = kBarHeight;
};
