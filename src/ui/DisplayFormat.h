#pragma once

#include <QString>

// How times are shown in the window.
namespace DisplayFormat {

// "%02d:%02d" (minutes:seconds) under an hour, "%d:%02d:%02d" from an hour. Negative
// values show as zero.
QString clock(double seconds);

// Whole seconds plus "s" under a minute ("42s"), "%d:%02d" (minutes:seconds) from a minute.
QString shortDuration(double seconds);

} // namespace DisplayFormat
