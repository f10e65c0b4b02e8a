#include "ui/Colors.h"

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

QColor levelMeter(float level)
{
    return level > 0.9f ? red() : green();
}

QColor withAlpha(QColor color, double alpha)
{
    color.setAlphaF(static_cast<float>(alpha));
    return color;
}

} // namespace Colors
