#include "ui/Colors.h"

#include <QPalette>

#include <algorithm>
#include <cmath>

namespace Colors {

QColor green() { return QColor(0x2f, 0xb3, 0x4f); }
QColor orange() { return QColor(0xf0, 0x8c, 0x00); }
QColor red() { return QColor(0xe5, 0x39, 0x35); }
QColor grey() { return QColor(0x8e, 0x8e, 0x93); }
QColor accent() { return QColor(0x2f, 0x7c, 0xf6); }

QColor answerTimer(double seconds)
{
    if (seconds < 45.0)
        return green();
    if (seconds < 90.0)
        return orange();
    return red();
}

QColor answerTimerText(double seconds, bool dark)
{
    if (seconds < 45.0)
        return dark ? QColor(0x6f, 0xdc, 0x8c) : QColor(0x17, 0x69, 0x2c);
    if (seconds < 90.0)
        return dark ? QColor(0xff, 0xb5, 0x47) : QColor(0x8a, 0x4b, 0x00);
    return dark ? QColor(0xff, 0x8a, 0x80) : QColor(0xa8, 0x22, 0x1a);
}

QColor levelMeter(float level)
{
    return level > 0.9f ? red() : green();
}

QColor accentText(bool dark)
{
    return dark ? QColor(0x6a, 0xa8, 0xff) : QColor(0x1a, 0x5b, 0xc4);
}

QColor secondaryText(const QPalette &palette)
{
    return over(withAlpha(palette.color(QPalette::WindowText), 0.72), palette.color(QPalette::Window));
}

QColor controlBorder(const QPalette &palette)
{
    const QColor window = palette.color(QPalette::Window);
    const bool dark = window.lightness() < palette.color(QPalette::WindowText).lightness();
    return dark ? QColor(0x9a, 0x9a, 0xa2) : QColor(0x76, 0x76, 0x7e);
}

QColor cardBackground(const QPalette &palette)
{
    return over(withAlpha(grey(), 0.12), palette.color(QPalette::Window));
}

QColor withAlpha(QColor color, double alpha)
{
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

QColor over(const QColor &color, const QColor &background)
{
    const double a = color.alphaF();
    const auto mix = [a](double fg, double bg) { return fg * a + bg * (1 - a); };
    return QColor::fromRgbF(float(mix(color.redF(), background.redF())),
                            float(mix(color.greenF(), background.greenF())),
                            float(mix(color.blueF(), background.blueF())));
}

double luminance(const QColor &color)
{
    const auto channel = [](double c) { return c <= 0.03928 ? c / 12.92 : std::pow((c + 0.055) / 1.055, 2.4); };
    return 0.2126 * channel(color.redF()) + 0.7152 * channel(color.greenF()) + 0.0722 * channel(color.blueF());
}

double contrast(const QColor &a, const QColor &b)
{
    const double la = luminance(a);
    const double lb = luminance(b);
    return (std::max(la, lb) + 0.05) / (std::min(la, lb) + 0.05);
}

} // namespace Colors
