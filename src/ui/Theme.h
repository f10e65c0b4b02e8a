#pragma once

#include <QPalette>

class QApplication;

// The window's look: the Fusion style everywhere (with check boxes and radio buttons of our own), with light and dark palettes of our own.
// The "system" appearance uses the palette the desktop gave the application at start.
namespace Theme {

enum class Scheme { system, light, dark };

// Sets the Fusion style and remembers the desktop's palette. Call once, after the
// QApplication exists and before any window is shown.
void install();
QPalette lightPalette();
QPalette darkPalette();
// The desktop's own palette, as remembered by install().
QPalette systemPalette();
// Applies a scheme to the whole application.
void apply(Scheme scheme);
Scheme current();
// Whether the palette in use is a dark one (window colour darker than its text).
bool isDark(const QPalette &palette);

} // namespace Theme
