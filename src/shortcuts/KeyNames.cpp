#include "shortcuts/KeyNames.h"

#include <QStringList>

#include <array>
#include <utility>

namespace KeyNames {

namespace {

// X11 core modifier bits (X.h).
constexpr std::uint16_t shiftMask = 1 << 0;
constexpr std::uint16_t controlMask = 1 << 2;
constexpr std::uint16_t mod1Mask = 1 << 3;
constexpr std::uint16_t mod4Mask = 1 << 6;

struct Named
{
    Qt::Key key;
    const char *name;     // the XKB key symbol name
    std::uint32_t keysym; // its X11 value
};

// Keys other than letters, digits and function keys.
constexpr std::array<Named, 24> namedKeys{{
    {Qt::Key_Space, "space", 0x0020},
    {Qt::Key_Return, "Return", 0xff0d},
    {Qt::Key_Enter, "KP_Enter", 0xff8d},
    {Qt::Key_Tab, "Tab", 0xff09},
    {Qt::Key_Backspace, "BackSpace", 0xff08},
    {Qt::Key_Escape, "Escape", 0xff1b},
    {Qt::Key_Insert, "Insert", 0xff63},
    {Qt::Key_Delete, "Delete", 0xffff},
    {Qt::Key_Home, "Home", 0xff50},
    {Qt::Key_End, "End", 0xff57},
    {Qt::Key_PageUp, "Page_Up", 0xff55},
    {Qt::Key_PageDown, "Page_Down", 0xff56},
    {Qt::Key_Left, "Left", 0xff51},
    {Qt::Key_Up, "Up", 0xff52},
    {Qt::Key_Right, "Right", 0xff53},
    {Qt::Key_Down, "Down", 0xff54},
    {Qt::Key_Pause, "Pause", 0xff13},
    {Qt::Key_Print, "Print", 0xff61},
    {Qt::Key_Comma, "comma", 0x002c},
    {Qt::Key_Period, "period", 0x002e},
    {Qt::Key_Slash, "slash", 0x002f},
    {Qt::Key_Minus, "minus", 0x002d},
    {Qt::Key_Equal, "equal", 0x003d},
    {Qt::Key_Semicolon, "semicolon", 0x003b},
}};

struct Split
{
    Qt::Key key;
    Qt::KeyboardModifiers modifiers;
};

std::optional<Split> firstChord(const QKeySequence &keys)
{
    if (keys.isEmpty())
        return std::nullopt;
    const QKeyCombination chord = keys[0];
    const Qt::Key key = chord.key();
    if (key == Qt::Key_unknown || key == 0 || key == Qt::Key_Control || key == Qt::Key_Shift
        || key == Qt::Key_Alt || key == Qt::Key_Meta)
        return std::nullopt;
    return Split{key, chord.keyboardModifiers()};
}

// The key's symbol name and value.
std::optional<std::pair<QString, std::uint32_t>> symbol(Qt::Key key)
{
    if (key >= Qt::Key_A && key <= Qt::Key_Z) {
        const char lower = char('a' + (key - Qt::Key_A));
        return std::pair{QString(QLatin1Char(lower)), std::uint32_t(lower)};
    }
    if (key >= Qt::Key_0 && key <= Qt::Key_9) {
        const char digit = char('0' + (key - Qt::Key_0));
        return std::pair{QString(QLatin1Char(digit)), std::uint32_t(digit)};
    }
    if (key >= Qt::Key_F1 && key <= Qt::Key_F35) {
        const int n = key - Qt::Key_F1;
        return std::pair{QStringLiteral("F%1").arg(n + 1), std::uint32_t(0xffbe + n)};
    }
    for (const Named &named : namedKeys) {
        if (named.key == key)
            return std::pair{QString::fromLatin1(named.name), named.keysym};
    }
    return std::nullopt;
}

} // namespace

QString portalTrigger(const QKeySequence &keys)
{
    const std::optional<Split> chord = firstChord(keys);
    if (!chord)
        return {};
    const auto sym = symbol(chord->key);
    if (!sym)
        return {};
    QStringList parts;
    if (chord->modifiers & Qt::ControlModifier)
        parts << QStringLiteral("CTRL");
    if (chord->modifiers & Qt::AltModifier)
        parts << QStringLiteral("ALT");
    if (chord->modifiers & Qt::ShiftModifier)
        parts << QStringLiteral("SHIFT");
    if (chord->modifiers & Qt::MetaModifier)
        parts << QStringLiteral("LOGO");
    parts << sym->first;
    return parts.join(QLatin1Char('+'));
}

std::optional<X11Key> x11Key(const QKeySequence &keys)
{
    const std::optional<Split> chord = firstChord(keys);
    if (!chord)
        return std::nullopt;
    const auto sym = symbol(chord->key);
    if (!sym)
        return std::nullopt;
    X11Key result;
    result.keysym = sym->second;
    if (chord->modifiers & Qt::ShiftModifier)
        result.modifiers |= shiftMask;
    if (chord->modifiers & Qt::ControlModifier)
        result.modifiers |= controlMask;
    if (chord->modifiers & Qt::AltModifier)
        result.modifiers |= mod1Mask;
    if (chord->modifiers & Qt::MetaModifier)
        result.modifiers |= mod4Mask;
    return result;
}

} // namespace KeyNames
