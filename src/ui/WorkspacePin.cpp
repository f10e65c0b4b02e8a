#include "ui/WorkspacePin.h"

#include <QEvent>
#include <QGuiApplication>
#include <QPointer>
#include <QWidget>
#include <QWindow>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace WorkspacePin {

namespace {
constexpr std::uint32_t allDesktops = 0xFFFFFFFF;
constexpr const char *waitName = "workspace-pin-wait";

xcb_atom_t atom(xcb_connection_t *connection, const char *name)
{
    const xcb_intern_atom_cookie_t cookie = xcb_intern_atom(connection, 0, uint16_t(std::strlen(name)), name);
    xcb_intern_atom_reply_t *reply = xcb_intern_atom_reply(connection, cookie, nullptr);
    if (!reply)
        return XCB_ATOM_NONE;
    const xcb_atom_t result = reply->atom;
    std::free(reply);
    return result;
}

std::uint32_t currentDesktop(xcb_connection_t *connection, xcb_window_t root)
{
    const xcb_atom_t current = atom(connection, "_NET_CURRENT_DESKTOP");
    xcb_get_property_reply_t *reply = xcb_get_property_reply(
        connection, xcb_get_property(connection, 0, root, current, XCB_ATOM_CARDINAL, 0, 1), nullptr);
    std::uint32_t desktop = 0;
    if (reply && xcb_get_property_value_length(reply) == 4)
        desktop = *static_cast<const std::uint32_t *>(xcb_get_property_value(reply));
    std::free(reply);
    return desktop;
}

bool viewable(xcb_connection_t *connection, xcb_window_t window)
{
    xcb_get_window_attributes_reply_t *reply =
        xcb_get_window_attributes_reply(connection, xcb_get_window_attributes(connection, window), nullptr);
    const bool mapped = reply && reply->map_state == XCB_MAP_STATE_VIEWABLE;
    std::free(reply);
    return mapped;
}

// The window manager protocol's request about a managed window, sent to the root window.
void sendToWindowManager(xcb_connection_t *connection, xcb_window_t root, xcb_window_t window, xcb_atom_t type,
                         std::uint32_t first, std::uint32_t second)
{
    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof event);
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = type;
    event.data.data32[0] = first;
    event.data.data32[1] = second;
    event.data.data32[2] = 0;
    event.data.data32[3] = 1; // from a normal application
    xcb_send_event(connection, 0, root, XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&event));
}

// Waits for the window's first exposure (it is mapped by then) and asks once more.
class AfterMapping : public QObject
{
public:
    AfterMapping(QWidget *widget, bool onAll)
        : QObject(widget->windowHandle())
        , m_widget(widget)
        , m_onAll(onAll)
    {
        setObjectName(QLatin1String(waitName));
        widget->windowHandle()->installEventFilter(this);
    }

    bool eventFilter(QObject *watched, QEvent *event) override
    {
        if (event->type() == QEvent::Expose && static_cast<QWindow *>(watched)->isExposed()) {
            deleteLater();
            if (m_widget)
                setOnAllWorkspaces(m_widget, m_onAll);
        }
        return false;
    }

private:
    QPointer<QWidget> m_widget;
    bool m_onAll;
};
} // namespace

bool setOnAllWorkspaces(QWidget *window, bool onAll)
{
    if (!window || QGuiApplication::platformName() != QLatin1String("xcb") || !window->isVisible()
        || !window->windowHandle())
        return false;
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return false;
    const xcb_window_t id = xcb_window_t(window->winId());
    if (!viewable(connection, id)) {
        // Window managers act on these requests only for a mapped window.
        // One wait per window, with the latest wish.
        delete window->windowHandle()->findChild<QObject *>(QLatin1String(waitName), Qt::FindDirectChildrenOnly);
        new AfterMapping(window, onAll);
        return true;
    }
    const xcb_atom_t state = atom(connection, "_NET_WM_STATE");
    const xcb_atom_t sticky = atom(connection, "_NET_WM_STATE_STICKY");
    const xcb_atom_t desktop = atom(connection, "_NET_WM_DESKTOP");
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (state == XCB_ATOM_NONE || sticky == XCB_ATOM_NONE || desktop == XCB_ATOM_NONE || !screen)
        return false;
    // Both forms: window managers honour one or the other (KWin and Mutter both take the
    // desktop number; others only the sticky state).
    sendToWindowManager(connection, screen->root, id, state, onAll ? 1 : 0, sticky);
    sendToWindowManager(connection, screen->root, id, desktop,
                        onAll ? allDesktops : currentDesktop(connection, screen->root), 0);
    xcb_flush(connection);
    return true;
}

} // namespace WorkspacePin
