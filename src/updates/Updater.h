#pragma once

// What the window asks of the updater: the menu's "Check for Updates…" and the two banner
// buttons. The shell wires these to the one UpdateController; tests use a fake.
class Updater
{
public:
    virtual ~Updater() = default;

    // A check the user asked for: always answers with a banner.
    virtual void checkForUpdates() = 0;
    // Installs the newer package found by the last check ("Install Update").
    virtual void installUpdate() = 0;
    // Starts the newly installed version and quits ("Restart Now"). Does nothing while a
    // session is active.
    virtual void restartNow() = 0;
};
