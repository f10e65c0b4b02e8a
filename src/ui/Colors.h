#pragma once

#include <QColor>

class QPalette;

// The signal colours of the window, chosen to read on both the light and the dark palette,
// and the contrast arithmetic that checks them.
namespace Colors {

// Signal colours for dots, bars and tints.
QColor green();
QColor orange();
QColor red();
QColor grey();
QColor accent();

// Answer timer: below 45 s green, from 45 s orange, from 90 s red.
QColor answerTimer(double seconds);
// The timer's digits: a darker (light palette) or lighter (dark palette) shade of the same
// colour, readable on the timer's tint.
QColor answerTimerText(double seconds, bool dark);
// Level meter fill: green, red above 0.9.
QColor levelMeter(float level);

// Text in the accent colour (the card's "Interviewer"), readable on a card.
QColor accentText(bool dark);
// Secondary text (labels, counts): the palette's text mixed towards its window colour, opaque.
QColor secondaryText(const QPalette &palette);
// The border of check boxes and radio buttons: at least 3:1 against window and base.
QColor controlBorder(const QPalette &palette);
// The card's background: grey at 0.12 over the window.
QColor cardBackground(const QPalette &palette);

QColor withAlpha(QColor color, double alpha);
// `color` (with its alpha) painted over the opaque `background`.
QColor over(const QColor &color, const QColor &background);
// The WCAG relative luminance and contrast ratio (1 to 21) of two opaque colours.
double luminance(const QColor &color);
double contrast(const QColor &a, const QColor &b);

} // namespace Colors
