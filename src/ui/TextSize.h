#pragma once

// The answer text size steps of the control bar and the menu: one point at a time, kept
// within 10...36, back to 14 on reset.
namespace TextSize {

constexpr double minimum = 10.0;
constexpr double maximum = 36.0;
constexpr double standard = 14.0;

double smaller(double size);
double bigger(double size);

} // namespace TextSize
