#include "ui/WorkspacePin.h"

#include <QGuiApplication>
#include <QWidget>

#include <xcb/xcb.h>

#include <cstdlib>
#include <cstring>

namespace WorkspacePin {

namespace {
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
} // namespace

bool setOnAllWorkspaces(QWidget *window, bool onAll)
{
    if (!window || QGuiApplication::platformName() != QLatin1String("xcb") || !window->isVisible())
        return false;
    auto *x11 = qGuiApp->nativeInterface<QNativeInterface::QX11Application>();
    xcb_connection_t *connection = x11 ? x11->connection() : nullptr;
    if (!connection)
        return false;
    const xcb_atom_t state = atom(connection, "_NET_WM_STATE");
    const xcb_atom_t sticky = atom(connection, "_NET_WM_STATE_STICKY");
    if (state == XCB_ATOM_NONE || sticky == XCB_ATOM_NONE)
        return false;
    const xcb_screen_t *screen = xcb_setup_roots_iterator(xcb_get_setup(connection)).data;
    if (!screen)
        return false;

    // The window manager protocol's request to change a mapped window's state.
    xcb_client_message_event_t event;
    std::memset(&event, 0, sizeof event);
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = xcb_window_t(window->winId());
    event.type = state;
    event.data.data32[0] = onAll ? 1 : 0;   // add or remove
    event.data.data32[1] = sticky;
    event.data.data32[2] = 0;
    event.data.data32[3] = 1;               // from a normal application
    xcb_send_event(connection, 0, screen->root,
                   XCB_EVENT_MASK_SUBSTRUCTURE_REDIRECT | XCB_EVENT_MASK_SUBSTRUCTURE_NOTIFY,
                   reinterpret_cast<const char *>(&event));
    xcb_flush(connection);
    return true;
}

} // namespace WorkspacePin
