#pragma once

#include "app/ShellUpdateHost.h"
#include "updates/DpkgPackageDatabase.h"
#include "updates/UpdateController.h"

class MainWindow;
class QSettings;
class SessionController;

// The updater of the windowed program, wired in: PackageKit on the system bus, the dpkg
// database, the window's "Check for Updates…" and banner buttons, and the end of each session.
class AppUpdates
{
public:
    AppUpdates(SessionController &controller, MainWindow &window, QSettings &store);

    // At launch, once the window shows.
    void start() { m_updates.start(); }
    UpdateController &controller() { return m_updates; }

private:
    DpkgPackageDatabase m_packages;
    ShellUpdateHost m_host;
    UpdateController m_updates;
};
