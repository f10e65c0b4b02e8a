#pragma once

#include <QColor>

// The signal colours of the window, chosen to read on both the light and the dark palette.
namespace Colors {

QColor green();
QColor orange();
QColor red();
QColor grey();
QColor accent();

// Answer timer: below 45 s green, from 45 s orange, from 90 s red.
QColor answerTimer(double seconds);
// Level meter fill: green, red above 0.9.
QColor levelMeter(float level);

QColor withAlpha(QColor color, double alpha);

} // namespace Colors
