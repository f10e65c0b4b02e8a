#pragma once

#include <QIcon>

class QFontMetrics;

// Every icon of the window, looked up in the desktop's icon theme by its freedesktop name
// and, where the theme has none, drawn here: flat single-colour glyphs in the palette's text
// colour (signal colours for play, stop and the speaking microphone), drawn at whatever size
// they are asked for, so they stay sharp at every text size and follow light and dark.
namespace Icons {

enum class Id {
    play, stop, mic, micActive, clock, lastAnswer, folder, settings, moon, sun,
    textSmaller, textLarger, info, transcript, recording, close, interviewer, copilot,
    person, expand, collapse, arrowDown, context, job, check, warning, pin, record, more, screen,
};

QIcon icon(Id id);
// The drawn icon, whatever the theme has (for tests and the screenshots).
QIcon drawnIcon(Id id);
// The freedesktop icon name used for `id`.
QString themeName(Id id);
// Whether icons come from the desktop's theme at all (false: every icon is drawn).
bool themeInUse();

// An icon size that goes with text of these metrics: about the height of a capital letter
// plus its ascenders, never below 12 pixels.
int sizeFor(const QFontMetrics &metrics);

} // namespace Icons
