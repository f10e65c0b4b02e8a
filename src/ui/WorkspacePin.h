#pragma once

class QWidget;

// Shows a window on every workspace (virtual desktop) of an X11 desktop by asking the
// window manager for the sticky state. Elsewhere (Wayland, offscreen) it does nothing.
namespace WorkspacePin {

// Returns whether the request could be sent.
bool setOnAllWorkspaces(QWidget *window, bool onAll);

} // namespace WorkspacePin
