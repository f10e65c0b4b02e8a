#pragma once

#include <QIcon>

// Every icon of the window, looked up in the desktop's icon theme by its freedesktop name
// and, where the theme has none, taken from the style's standard icons (or, for the few
// the style has no fitting one for, drawn here) so that every button has one even on a
// bare system.
namespace Icons {

enum class Id {
    play, stop, mic, micActive, clock, lastAnswer, folder, settings, moon, sun,
    textSmaller, textLarger, info, transcript, recording, close, interviewer, copilot,
    person, expand, collapse, arrowDown, context, job, check, warning,
};

QIcon icon(Id id);
// The freedesktop icon name used for `id`.
QString themeName(Id id);

} // namespace Icons
