#pragma once

#include <QKeySequence>
#include <QString>

#include <cstdint>
#include <optional>

// Translations of one key combination (the first chord of a QKeySequence) into what the
// global shortcut services understand.
namespace KeyNames {

// The XDG shortcuts format the desktop portal takes as a preferred trigger:
// "CTRL+ALT+SHIFT+k", "LOGO+F9". Empty when the key has no name there.
QString portalTrigger(const QKeySequence &keys);

// An X11 key symbol with the core modifier mask (Shift, Control, Mod1 = Alt, Mod4 = Super).
struct X11Key
{
    std::uint32_t keysym = 0;
    std::uint16_t modifiers = 0;
};
std::optional<X11Key> x11Key(const QKeySequence &keys);

} // namespace KeyNames
