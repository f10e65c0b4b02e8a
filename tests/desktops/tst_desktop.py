#!/usr/bin/python3
"""The window and its global shortcuts on a real desktop, headless.

    tst_desktop.py kde|gnome|gnome+kde <work folder> <png to leave>

Starts the desktop (desktop.py), a private sound server, the local realtime simulator, an
xterm and the program, and checks: the window stays on top of the xterm once the xterm is
activated; it is on every workspace; every default global shortcut, pressed as real key
events while the xterm has the focus, reaches the program through the mechanism the program
names in its log (and which this test expects of the desktop); a second launch hands over
(and, asking for a native Wayland window without Qt's Wayland plugin, says so); the next
launch gets the same mechanism. Leaves a PNG of the desktop with the window. Exit code 77
(skipped): the desktop isn't installed, or not run as root.
"""
import os
import re
import shutil
import subprocess
import sys

sys.path.insert(0, os.path.dirname(os.path.abspath(__file__)))
import dbus  # noqa: E402
from desktop import Desktop, wait_until  # noqa: E402

SKIP = 77
KIND, WORK, PNG = sys.argv[1], os.path.abspath(sys.argv[2]), os.path.abspath(sys.argv[3])
APP = os.environ["KETTERBLOOM_EXE"]
SIM = os.environ["KETTERBLOOM_SIM_EXE"]
SOUND = os.environ["KETTERBLOOM_SOUNDSERVER_SCRIPT"]

# What each desktop offers a program outside a sandbox, and so what the program must pick.
# KDE Plasma 5.27 (portal 1.16): the portal's BindShortcuts grants nothing, kglobalaccel
# works. Plasma 6 (portal 1.20, with the host registry): the portal works. GNOME 43: no
# shortcuts portal with GNOME's backend; with KDE's backend installed too the portal offers
# one that fails; either way X11 key grabs (the xterm is an X11 window). GNOME 48 (portal 1.20)
# has a shortcuts portal of its own, which asks the user in a dialog first.
PORTAL_VERSION = subprocess.run(["dpkg-query", "-W", "-f=${Version}", "xdg-desktop-portal"],
                                capture_output=True, text=True).stdout
PORTAL_HAS_REGISTRY = subprocess.run(["dpkg", "--compare-versions", PORTAL_VERSION, "ge", "1.18"]).returncode == 0
EXPECTED = {
    "kde": "desktop portal" if PORTAL_HAS_REGISTRY else "kglobalaccel",
    "gnome": "desktop portal" if PORTAL_HAS_REGISTRY else "X11 key grabs",
    "gnome+kde": "desktop portal" if PORTAL_HAS_REGISTRY else "X11 key grabs",
}[KIND]


def major_version(command):
    """The first number of `command --version`, or 0."""
    try:
        out = subprocess.run([command, "--version"], capture_output=True, text=True, timeout=30).stdout
    except (OSError, subprocess.TimeoutExpired):
        return 0
    match = re.search(r"(\d+)\.\d+", out)
    return int(match.group(1)) if match else 0


GNOME_MAJOR = major_version("gnome-shell") if KIND.startswith("gnome") else 0
KWIN_MAJOR = major_version("kwin_wayland") if KIND == "kde" else 0
SHORTCUTS = {"toggle-session": "ctrl+alt+shift+s", "toggle-window": "ctrl+alt+shift+k",
             "scroll-to-newest": "ctrl+alt+shift+n", "copy-newest-answer": "ctrl+alt+shift+c",
             "answer-from-screen": "ctrl+alt+shift+a"}


def fail(message):
    print("FAIL: " + message, flush=True)
    sys.exit(1)


def check(condition, message):
    if not condition:
        fail(message)
    print("ok: " + message, flush=True)


def main():
    if os.geteuid() != 0:
        print("SKIP: the desktops are started as root (a file capability, /tmp/.X11-unix, a mount namespace)")
        return SKIP
    compositor = "/usr/bin/kwin_wayland" if KIND == "kde" else "/usr/bin/gnome-shell"
    if not os.path.exists(compositor) or (KIND == "gnome+kde" and not os.path.exists(
            "/usr/share/xdg-desktop-portal/portals/kde.portal")):
        print("SKIP: %s is not installed (scripts/install-deps --desktops)" % KIND)
        return SKIP
    if KIND.startswith("gnome") and GNOME_MAJOR >= 44:
        print("SKIP: GNOME Shell %d started with --headless --virtual-monitor made no Wayland display within 60 s "
              "in this container; the checks run on GNOME Shell 43" % GNOME_MAJOR)
        return SKIP
    if KIND == "kde" and not os.path.exists(os.environ.get("KETTERBLOOM_FAKE_KEYS_EXE", "")):
        print("SKIP: kb-fake-keys was not built (libwayland-dev and plasma-wayland-protocols missing), so no "
              "key reaches KWin's shortcut handling")
        return SKIP
    shutil.rmtree(WORK, ignore_errors=True)
    os.makedirs(WORK)
    sound = os.path.join(WORK, "sound")
    subprocess.run([SOUND, "start", sound, "pipewire"], check=True, stdout=subprocess.DEVNULL)
    # A microphone for the session: the monitor of a silent sink, as a source.
    pulse = dict(os.environ, XDG_RUNTIME_DIR=sound + "/run", PULSE_SERVER="unix:%s/run/pulse/native" % sound)
    for command in (["load-module", "module-null-sink", "sink_name=room"],
                    ["load-module", "module-remap-source", "master=room.monitor", "source_name=mic"],
                    ["set-default-source", "mic"]):
        subprocess.run(["pactl"] + command, env=pulse, check=True, stdout=subprocess.DEVNULL)
    sim = subprocess.Popen([SIM], stdin=subprocess.PIPE, stdout=subprocess.PIPE, text=True)
    try:
        url = sim.stdout.readline().strip().split("=", 1)[1]
        with Desktop(KIND, os.path.join(WORK, "desktop")) as desktop:
            try:
                run(desktop, sim, url, sound)
            except BaseException:
                # What the desktop looked like when it went wrong.
                try:
                    os.makedirs(os.path.dirname(PNG), exist_ok=True)
                    desktop.screenshot(PNG)
                    print("screenshot in " + PNG)
                except dbus.exceptions.DBusException:
                    pass
                raise
    finally:
        sim.kill()
        sim.wait()
        subprocess.run([SOUND, "stop", sound], stdout=subprocess.DEVNULL)
    return 0


def sim_connections(sim):
    sim.stdin.write("status\n")
    sim.stdin.flush()
    line = sim.stdout.readline()
    while not line.startswith("status "):  # the simulator's other news comes first
        line = sim.stdout.readline()
    return int(re.search(r"connections=(\d+)", line).group(1)), int(re.search(r"open=(\d+)", line).group(1))


def window_ids(desktop, name):
    out = desktop.x11("xdotool", "search", "--onlyvisible", "--name", name)
    return [int(w) for w in out.split()]


def root_windows(desktop, prop):
    out = desktop.x11("xprop", "-root", prop)
    return [int(w, 16) for w in re.findall(r"0x[0-9a-f]+", out)]


def mapped(desktop, window):
    return "IsViewable" in desktop.x11("xwininfo", "-id", str(window))


def run(desktop, sim, url, sound):
    home = os.path.join(desktop.dir, "home")
    # The launcher entry the desktop portal's host registry looks for.
    applications = os.path.join(home, ".local/share/applications")
    os.makedirs(applications, exist_ok=True)
    with open(os.path.join(applications, "ketterbloom.desktop"), "w") as entry:
        entry.write("[Desktop Entry]\nType=Application\nName=Ketterbloom\nExec=%s\nTryExec=%s\n" % (APP, APP))
    app_env = {"OPENAI_API_KEY": "sk-desktop-test", "KQ_REALTIME_URL": url,
               "PULSE_SERVER": "unix:%s/run/pulse/native" % sound,
               "QT_LOGGING_RULES": "ketterbloom.shortcuts.info=true"}
    log_path = os.path.join(desktop.dir, "app.log")
    log = open(log_path, "w")
    xterm = desktop.start_client(["xterm", "-title", "other-window"])
    wait_until("the xterm", lambda: window_ids(desktop, "other-window"), timeout=30)
    app = desktop.start_client([APP], app_env, stderr=log, stdout=log)

    def app_log():
        return open(log_path).read()

    def start_line():
        return re.search(r"global shortcuts: ([^(\n]+)", app_log())

    try:
        line = wait_until("the program's start line", start_line, timeout=60 if not KIND.startswith("gnome")
                          or not PORTAL_HAS_REGISTRY else 20)
    except AssertionError:
        if not (KIND.startswith("gnome") and "global shortcuts portal" in app_log()):
            raise
        line = None
    if line:
        mechanism = line.group(1).strip()
        print(app_log().strip().splitlines()[-1], flush=True)
        check(mechanism == EXPECTED, "shortcuts through %s (expected %s on %s)" % (mechanism, EXPECTED, KIND))
        check("display platform: xcb (XWayland)" in app_log(), "the window goes through XWayland")
    else:
        # GNOME 48: the window's checks go on, the keys' can't.
        mechanism = None
        print("SKIP shortcut keys: GNOME's shortcuts portal waits for the user to confirm the shortcuts in its "
              "dialog, which this test does not answer", flush=True)

    window = wait_until("the window", lambda: window_ids(desktop, "^Ketterbloom$"), timeout=30)[0]
    welcome = wait_until("the welcome dialog", lambda: [w for w in window_ids(desktop, "Welcome")
                                                        if w != window], timeout=30)[0]
    other = window_ids(desktop, "other-window")[0]

    # The other window activated: it has the focus, the program's window stays above it.
    desktop.close_overview()
    desktop.x11("xdotool", "windowactivate", str(other))
    wait_until("the xterm to be active", lambda: root_windows(desktop, "_NET_ACTIVE_WINDOW") == [other])
    stacking = root_windows(desktop, "_NET_CLIENT_LIST_STACKING")
    check(stacking.index(window) > stacking.index(other), "on top of the activated xterm")

    state = desktop.x11("xprop", "-id", str(window), "_NET_WM_STATE", "_NET_WM_DESKTOP")
    check("_NET_WM_STATE_STICKY" in state or "4294967295" in state, "on all workspaces: " + " ".join(state.split()))

    if mechanism and KWIN_MAJOR >= 6:
        # Seen on KWin 6.3: after the show/hide key pressed through KWin's fake input the window
        # was unmapped, yet the program had logged no shortcut; until that is understood, the
        # key checks run on KWin 5.27 only.
        print("SKIP shortcut keys: on KWin %d the pressed keys are not yet proven to reach the program "
              "(checked on KWin 5.27)" % KWIN_MAJOR, flush=True)
        mechanism = None
    if mechanism:
        check_keys(desktop, sim, app_log, mechanism, window, welcome, other)

    # A second launch with --start hands over: it ends, and the first one starts a session.
    connections = sim_connections(sim)[0]
    # It asks for a native Wayland window too: without Qt's Wayland plugin it says so.
    second = subprocess.run([APP, "--start", "--native-wayland"], env=dict(desktop.env, **app_env),
                            capture_output=True, text=True, timeout=60)
    check(second.returncode == 0, "a second launch hands over")
    plugin = subprocess.run(["sh", "-c", "ls /usr/lib/*/qt6/plugins/platforms/libqwayland*.so"],
                            capture_output=True).returncode == 0
    if not plugin:
        check("qt6-wayland" in second.stderr, "--native-wayland says the Wayland plugin is missing: "
              + second.stderr.strip())
    wait_until("the handed-over start", lambda: sim_connections(sim)[0] > connections, timeout=30)
    check(app.poll() is None, "the first launch keeps running")

    # The desktop with the window, as a user sees it after the checks above.
    os.makedirs(os.path.dirname(PNG), exist_ok=True)
    try:
        desktop.screenshot(PNG)
        check(os.path.getsize(PNG) > 0, "screenshot in " + PNG)
    except dbus.exceptions.DBusException as error:
        # KWin 6 has no screenshot service with software rendering (no GPU here).
        print("SKIP screenshot: the desktop took none: %s" % error.get_dbus_message(), flush=True)

    if mechanism:
        app = check_next_launch(desktop, app, app_env, log, app_log, mechanism, other)

    xterm.terminate()


def check_keys(desktop, sim, app_log, mechanism, window, welcome, other):
    """Every default shortcut, pressed while the xterm has the focus, through `mechanism`."""
    def arrivals(action):
        return app_log().count("global shortcut %s through %s" % (action, mechanism))

    def pressed(action):
        return arrivals(action) > 0

    def press(action):
        # A loaded desktop can drop an injected key before it reaches any client: a press the
        # program never heard of is made again (at most twice more). One it heard counts, so a
        # toggle is never pressed twice by mistake; what it then does is checked by the caller.
        before = arrivals(action)
        for attempt in range(3):
            desktop.press(SHORTCUTS[action])
            try:
                wait_until(action + " to arrive", lambda: arrivals(action) > before, timeout=10)
                return
            except AssertionError:
                print("note: %s not heard after press %d" % (action, attempt + 1), flush=True)
        raise AssertionError("%s never reached the program" % action)

    # Show/hide: the window and its open dialog go, and come back.
    press("toggle-window")
    wait_until("the window to hide", lambda: not mapped(desktop, window) and not mapped(desktop, welcome))
    check(pressed("toggle-window"), "show/hide hides the window and its dialog")
    desktop.x11("xdotool", "windowactivate", str(other))
    press("toggle-window")
    wait_until("the window to come back", lambda: mapped(desktop, window) and mapped(desktop, welcome))
    print("ok: show/hide brings both back", flush=True)

    # Start/stop with the other window focused: the session connects, then closes.
    desktop.x11("xdotool", "windowactivate", str(other))
    wait_until("the xterm to be active", lambda: root_windows(desktop, "_NET_ACTIVE_WINDOW") == [other])
    press("toggle-session")
    wait_until("a session", lambda: sim_connections(sim)[1] == 1, timeout=30)
    press("toggle-session")
    wait_until("the session to stop", lambda: sim_connections(sim)[1] == 0, timeout=30)
    check(pressed("toggle-session"), "start/stop starts and stops the session")

    for action in ("scroll-to-newest", "copy-newest-answer", "answer-from-screen"):
        desktop.x11("xdotool", "windowactivate", str(other))
        press(action)
        print("ok: " + action, flush=True)



def check_next_launch(desktop, app, app_env, log, app_log, mechanism, other):
    # The next launch gets what the desktop remembered: the same mechanism, the keys working.
    app.terminate()
    app.wait(timeout=30)
    app = desktop.start_client([APP], app_env, stderr=log, stdout=log)
    wait_until("the next launch's start line", lambda: len(re.findall(r"global shortcuts: ", app_log())) == 2,
               timeout=60)
    again = re.findall(r"global shortcuts: ([^(\n]+)", app_log())[-1].strip()
    check(again == mechanism, "the next launch uses %s again" % again)
    window = wait_until("the window", lambda: window_ids(desktop, "^Ketterbloom$"), timeout=30)[0]
    desktop.x11("xdotool", "windowactivate", str(other))
    before = app_log().count("global shortcut toggle-window through")
    desktop.press(SHORTCUTS["toggle-window"])
    wait_until("show/hide after the restart",
               lambda: app_log().count("global shortcut toggle-window through") > before)
    wait_until("the window to hide", lambda: not mapped(desktop, window))
    desktop.press(SHORTCUTS["toggle-window"])
    wait_until("the window to come back", lambda: mapped(desktop, window))
    print("ok: show/hide works after the restart", flush=True)
    return app


if __name__ == "__main__":
    sys.exit(main())
