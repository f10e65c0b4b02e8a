#include "shortcuts/X11KeyGrabs.h"

#include "shortcuts/ShortcutsLogging.h"

#include <QCoreApplication>
#include <QGuiApplication>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>

#include <cstdlib>

namespace {
// Lock states that must not stop a shortcut: Caps Lock and Num Lock (Mod2 on every common
// keyboard map).
constexpr std::uint16_t ignoredMasks[] = {0, XCB_MOD_MASK_LOCK, XCB_MOD_MASK_2, XCB_MOD_MASK_LOCK | XCB_MOD_MASK_2};
constexpr std::uint16_t relevantMask = XCB_MOD_MASK_SHIFT | XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_4;
} // namespace

bool X11KeyGrabs::isAvailable()
{
    if (QGuiApplication::platformName() != QLatin1String("xcb"))
        return false;
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    return x11 && x11->connection();
}

X11KeyGrabs::X11KeyGrabs(QObject *parent)
    : ShortcutBackend(parent)
{
    if (!isAvailable())
        return;
    m_connection = qGuiApp->nativeInterface<QNativeInterface::QX11Application>()->connection();
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data;
    m_root = screen ? screen->root : 0;
    QCoreApplication::instance()->installNativeEventFilter(this);
}

X11KeyGrabs::~X11KeyGrabs()
{
    if (QCoreApplication::instance())
        QCoreApplication::instance()->removeNativeEventFilter(this);
    releaseAll();
}

void X11KeyGrabs::releaseAll()
{
    if (!m_connection)
        return;
    for (const Grab &grab : m_grabs)
        xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers);
    // A round trip: the keys are free for other applications once this returns.
    std::free(xcb_get_input_focus_reply(m_connection, xcb_get_input_focus(m_connection), nullptr));
    m_grabs.clear();
}

void X11KeyGrabs::bind(const QList<Binding> &bindings)
{
    if (!m_connection || !m_root) {
        emit failed(tr("Key grabs need an X11 display."));
        return;
    }
    releaseAll();
    xcb_key_symbols_t *symbols = xcb_key_symbols_alloc(m_connection);
    if (!symbols) {
        emit failed(tr("The X11 keyboard map could not be read."));
        return;
    }
    QMap<QString, QString> triggers;
    for (const Binding &binding : bindings) {
        const std::optional<KeyNames::X11Key> key = KeyNames::x11Key(binding.keys);
        if (!key)
            continue;
        xcb_keycode_t *keycodes = xcb_key_symbols_get_keycode(symbols, key->keysym);
        if (!keycodes)
            continue;
        bool allGrabbed = true;
        std::vector<Grab> grabbed;
        for (xcb_keycode_t *code = keycodes; *code != XCB_NO_SYMBOL; ++code) {
            for (const std::uint16_t extra : ignoredMasks) {
                const std::uint16_t modifiers = key->modifiers | extra;
                const xcb_void_cookie_t cookie = xcb_grab_key_checked(
                    m_connection, 1, m_root, modifiers, *code, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC);
                if (xcb_generic_error_t *error = xcb_request_check(m_connection, cookie)) {
                    std::free(error);
                    allGrabbed = false;
                } else {
                    grabbed.push_back({binding.id, *code, modifiers});
                }
            }
        }
        std::free(keycodes);
        if (allGrabbed && !grabbed.empty()) {
            triggers.insert(binding.id, binding.keys.toString(QKeySequence::NativeText));
            m_grabs.insert(m_grabs.end(), grabbed.begin(), grabbed.end());
        } else {
            // Another application holds the combination: give back what was taken.
            for (const Grab &grab : grabbed)
                xcb_ungrab_key(m_connection, grab.keycode, m_root, grab.modifiers);
            qCWarning(lcShortcuts).noquote() << "[Ketterbloom]" << binding.keys.toString()
                                             << "is taken by another application";
        }
    }
    xcb_key_symbols_free(symbols);
    xcb_flush(m_connection);
    emit bound(triggers);
}

bool X11KeyGrabs::nativeEventFilter(const QByteArray &eventType, void *message, qintptr *result)
{
    Q_UNUSED(result);
    if (m_grabs.empty() || eventType != "xcb_generic_event_t")
        return false;
    const auto *event = static_cast<const xcb_generic_event_t *>(message);
    if ((event->response_type & 0x7f) != XCB_KEY_PRESS)
        return false;
    const auto *press = reinterpret_cast<const xcb_key_press_event_t *>(event);
    if (press->event != m_root)
        return false;
    const std::uint16_t modifiers = press->state & relevantMask;
    for (const Grab &grab : m_grabs) {
        if (grab.keycode == press->detail && (grab.modifiers & relevantMask) == modifiers) {
            emit activated(grab.id);
            return true;
        }
    }
    return false;
}
