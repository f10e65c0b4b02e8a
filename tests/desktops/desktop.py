"""A real desktop for the tests, headless: KDE Plasma's KWin or GNOME Shell on a virtual
screen with XWayland, the XDG desktop portal and the desktop's portal backend, all on private
buses under a private XDG_RUNTIME_DIR. Works as root in a container with no display.

    with Desktop("kde", workdir) as desktop:
        desktop.env        # what a program started inside the session needs
        desktop.x11("xprop", "-root")
        desktop.press("ctrl+alt+shift+k")
        desktop.screenshot("kde.png")
"""
import os
import re
import shutil
import signal
import subprocess
import time
import zlib
import struct

import dbus


def wait_until(what, condition, timeout=30.0, step=0.05):
    deadline = time.monotonic() + timeout
    while time.monotonic() < deadline:
        value = condition()
        if value:
            return value
        time.sleep(step)
    raise AssertionError("timed out waiting for " + what)


def write_png(path, width, height, stride, data, bgra=True):
    rows = []
    for y in range(height):
        row = data[y * stride:y * stride + width * 4]
        if bgra:  # QImage's 32-bit formats are B, G, R, A in memory
            converted = bytearray(len(row))
            converted[0::4] = row[2::4]
            converted[1::4] = row[1::4]
            converted[2::4] = row[0::4]
            converted[3::4] = b"\xff" * width
            row = bytes(converted)
        rows.append(b"\x00" + row)

    def chunk(kind, payload):
        body = kind + payload
        return struct.pack(">I", len(payload)) + body + struct.pack(">I", zlib.crc32(body) & 0xFFFFFFFF)

    with open(path, "wb") as out:
        out.write(b"\x89PNG\r\n\x1a\n")
        out.write(chunk(b"IHDR", struct.pack(">IIBBBBB", width, height, 8, 6, 0, 0, 0)))
        out.write(chunk(b"IDAT", zlib.compress(b"".join(rows), 6)))
        out.write(chunk(b"IEND", b""))


class Desktop:
    """kind: "kde", "gnome" (GNOME's portal backend only) or "gnome+kde" (the KDE backend
    installed too, as it is once any KDE application is)."""

    def __init__(self, kind, workdir):
        self.kind = kind
        self.dir = os.path.abspath(workdir)
        self.run = os.path.join(self.dir, "run")
        self.processes = []
        self.env = {}
        self.bus = None
        self.log = None

    # --- start and stop --------------------------------------------------------------------
    def __enter__(self):
        try:
            self.start()
        except BaseException:
            self.stop()
            raise
        return self

    def __exit__(self, *exc):
        self.stop()

    def spawn(self, args, env, **kwargs):
        process = subprocess.Popen(args, env=env, stdout=self.log, stderr=self.log, start_new_session=True, **kwargs)
        self.processes.append(process)
        return process

    def base_env(self):
        env = {k: v for k, v in os.environ.items()
               if not k.startswith(("DBUS_", "WAYLAND_", "XDG_", "QT_", "KDE_", "GNOME_"))
               and k not in ("DISPLAY", "XAUTHORITY", "DESKTOP_SESSION")}
        home = os.path.join(self.dir, "home")
        env.update(HOME=home, XDG_RUNTIME_DIR=self.run, XDG_CONFIG_HOME=home + "/.config",
                   XDG_DATA_HOME=home + "/.local/share", XDG_CACHE_HOME=home + "/.cache",
                   XDG_DATA_DIRS="/usr/local/share:/usr/share", XDG_SESSION_TYPE="wayland")
        return env

    def start(self):
        shutil.rmtree(self.dir, ignore_errors=True)
        os.makedirs(self.run, mode=0o700)
        os.makedirs(os.path.join(self.dir, "home", ".config"))
        self.log = open(os.path.join(self.dir, "desktop.log"), "ab")
        os.makedirs("/tmp/.X11-unix", exist_ok=True)
        os.chmod("/tmp/.X11-unix", 0o1777)
        env = self.base_env()
        address = "unix:path=" + os.path.join(self.run, "bus")
        env["DBUS_SESSION_BUS_ADDRESS"] = address
        if self.kind == "kde":
            env.update(XDG_CURRENT_DESKTOP="KDE", KDE_FULL_SESSION="true")
        else:
            env.update(XDG_CURRENT_DESKTOP="GNOME", XDG_SESSION_DESKTOP="gnome")
        if self.kind == "gnome":
            # Only GNOME's own portal backends, as on a machine without KDE applications.
            portals = os.path.join(self.dir, "portals")
            os.makedirs(portals)
            for name in ("gnome.portal", "gtk.portal"):
                if os.path.exists("/usr/share/xdg-desktop-portal/portals/" + name):
                    shutil.copy("/usr/share/xdg-desktop-portal/portals/" + name, portals)
            env["XDG_DESKTOP_PORTAL_DIR"] = portals
        # The session bus, with the machine's service files: the portals start on demand, with
        # the bus's environment.
        self.spawn(["dbus-daemon", "--session", "--nofork", "--address=" + address], env)
        wait_until("the session bus", lambda: os.path.exists(os.path.join(self.run, "bus")))
        if self.kind == "kde":
            self.start_kwin(env)
        else:
            self.start_gnome(env)
        self.bus = dbus.bus.BusConnection(address)

    def start_kwin(self, env):
        # The packaged binary carries a file capability that exec refuses in a container; a
        # plain copy has none.
        kwin = os.path.join(self.dir, "kwin_wayland")
        shutil.copy("/usr/bin/kwin_wayland", kwin)
        env.update(KWIN_SCREENSHOT_NO_PERMISSION_CHECKS="1",
                   KWIN_WAYLAND_NO_PERMISSION_CHECKS="1", QT_QPA_PLATFORMTHEME="generic")
        version = subprocess.run(["dpkg-query", "-W", "-f=${Version}", "kwin-wayland"], capture_output=True,
                                 text=True).stdout
        env["KDE_SESSION_VERSION"] = version.split(":")[-1].split(".")[0] or "5"
        inner = os.path.join(self.dir, "session-env")
        self.spawn([kwin, "--virtual", "--xwayland", "--width", "1280", "--height", "800", "--socket", "wayland-kb",
                    "--no-lockscreen",
                    "sh -c 'dbus-update-activation-environment DISPLAY XAUTHORITY WAYLAND_DISPLAY; env > %s.tmp; "
                    "mv %s.tmp %s; exec sleep infinity'" % (inner, inner, inner)], env)
        wait_until("KWin with XWayland", lambda: os.path.exists(inner), timeout=60)
        session = dict(line.split("=", 1) for line in open(inner).read().splitlines() if "=" in line)
        env.update({k: session[k] for k in ("DISPLAY", "XAUTHORITY", "WAYLAND_DISPLAY") if k in session})
        self.env = env

    def start_gnome(self, env):
        # GNOME Shell needs a system bus: a private one.
        system = os.path.join(self.dir, "system.conf")
        system_socket = os.path.join(self.dir, "system_bus_socket")
        with open(system, "w") as conf:
            conf.write('<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN" '
                       '"http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">\n'
                       '<busconfig><type>system</type><listen>unix:path=%s</listen>'
                       '<policy context="default"><allow user="*"/><allow own="*"/><allow send_destination="*"/>'
                       '<allow receive_sender="*"/></policy></busconfig>\n' % system_socket)
        self.spawn(["dbus-daemon", "--nofork", "--config-file=" + system], env)
        wait_until("the system bus", lambda: os.path.exists(system_socket))
        env["DBUS_SYSTEM_BUS_ADDRESS"] = "unix:path=" + system_socket
        env["GSETTINGS_BACKEND"] = "memory"
        # Seats from the machine's logind would make mutter look for a real session.
        self.spawn(["unshare", "-m", "--propagation", "private", "sh", "-c",
                    "mount -t tmpfs tmpfs /run/systemd 2>/dev/null; exec gnome-shell --headless --wayland "
                    "--virtual-monitor 1280x800 --wayland-display=wayland-gn "], env)
        self.env = env
        wait_until("GNOME Shell", lambda: os.path.exists(os.path.join(self.run, "wayland-gn")), timeout=60)
        env["WAYLAND_DISPLAY"] = "wayland-gn"
        self.bus = dbus.bus.BusConnection(env["DBUS_SESSION_BUS_ADDRESS"])
        shell = wait_until("GNOME Shell on the bus", lambda: self.bus.name_has_owner("org.gnome.Shell"), timeout=60)
        display = self.mutter_x11_display()
        env["DISPLAY"] = display
        auth = [f for f in os.listdir(self.run) if f.startswith(".mutter-Xwaylandauth")]
        if auth:
            env["XAUTHORITY"] = os.path.join(self.run, auth[0])
        subprocess.run(["dbus-update-activation-environment", "DISPLAY", "XAUTHORITY", "WAYLAND_DISPLAY"],
                       env=env, stdout=self.log, stderr=self.log)
        wait_until("Mutter's remote desktop service",
                   lambda: self.bus.name_has_owner("org.gnome.Mutter.RemoteDesktop"), timeout=60)
        return shell

    def mutter_x11_display(self):
        # Mutter names its X11 display in its log ("Using public X11 display :0"), also where
        # XWayland starts only with the first X11 client; else XWayland's command line has it.
        def find():
            self.log.flush()
            named = re.search(rb"Using public X11 display (:\d+)", open(self.log.name, "rb").read())
            if named:
                return named.group(1).decode()
            for pid in self.session_pids():
                try:
                    cmdline = open("/proc/%d/cmdline" % pid, "rb").read().split(b"\0")
                except OSError:
                    continue
                if cmdline[0].endswith(b"Xwayland"):
                    for part in cmdline[1:]:
                        if part.startswith(b":") and part[1:].isdigit():
                            return part.decode()
            return None
        return wait_until("GNOME's XWayland", find, timeout=60)

    def owned_by_us(self, pid):
        try:
            environ = open("/proc/%d/environ" % pid, "rb").read()
        except OSError:
            return False
        return ("XDG_RUNTIME_DIR=" + self.run).encode() in environ.split(b"\0")

    def close_overview(self):
        """GNOME opens the overview, which covers the windows, once it has started up."""
        if self.kind == "kde":
            return
        shell = dbus.Interface(self.bus.get_object("org.gnome.Shell", "/org/gnome/Shell"),
                               "org.freedesktop.DBus.Properties")
        wait_until("the overview to close", lambda: (
            shell.Set("org.gnome.Shell", "OverviewActive", False),
            not shell.Get("org.gnome.Shell", "OverviewActive"))[1], timeout=30, step=0.5)

    def stop(self):
        for process in reversed(self.processes):
            if process.poll() is None:
                try:
                    os.killpg(process.pid, signal.SIGTERM)
                except ProcessLookupError:
                    pass
        for process in reversed(self.processes):
            try:
                process.wait(timeout=10)
            except subprocess.TimeoutExpired:
                os.killpg(process.pid, signal.SIGKILL)
                process.wait()
        # Portals and services the bus started live in their own process groups.
        for pid in self.session_pids():
            try:
                os.kill(pid, signal.SIGKILL)
            except ProcessLookupError:
                pass
        self.processes = []

    def session_pids(self):
        pids = []
        for entry in os.listdir("/proc"):
            if entry.isdigit() and int(entry) != os.getpid() and self.owned_by_us(int(entry)):
                pids.append(int(entry))
        return pids

    # --- inside the session -------------------------------------------------------------------
    def x11(self, *args):
        return subprocess.run(list(args), env=self.env, capture_output=True, text=True, timeout=30).stdout

    def start_client(self, args, extra_env=None, stdout=None, stderr=None):
        env = dict(self.env)
        env.update(extra_env or {})
        process = subprocess.Popen(args, env=env, stdout=stdout or self.log, stderr=stderr or self.log,
                                   start_new_session=True)
        self.processes.append(process)
        return process

    def press(self, keys):
        """Real key events, as the desktop receives them from a keyboard."""
        if self.kind == "kde":
            # KWin catches global shortcuts on its own input path; keys sent into XWayland
            # (xdotool) reach X11 clients only.
            codes = {"ctrl": 29, "alt": 56, "shift": 42, "super": 125, "Escape": 1, "s": 31, "k": 37, "n": 49,
                     "c": 46, "a": 30}
            fake_keys = os.environ.get("KETTERBLOOM_FAKE_KEYS_EXE", "kb-fake-keys")
            subprocess.run([fake_keys] + [str(codes[part]) for part in keys.split("+")], env=self.env,
                           check=True, timeout=30)
            return
        self.gnome_keys(keys)

    def gnome_keys(self, keys):
        # Mutter's remote desktop interface feeds key events in as from a keyboard.
        if not hasattr(self, "remote"):
            remote = self.bus.get_object("org.gnome.Mutter.RemoteDesktop", "/org/gnome/Mutter/RemoteDesktop")
            path = dbus.Interface(remote, "org.gnome.Mutter.RemoteDesktop").CreateSession()
            session = self.bus.get_object("org.gnome.Mutter.RemoteDesktop", path)
            self.remote = dbus.Interface(session, "org.gnome.Mutter.RemoteDesktop.Session")
            self.remote.Start()
        names = {"ctrl": 0xffe3, "alt": 0xffe9, "shift": 0xffe1, "super": 0xffeb, "Escape": 0xff1b}
        syms = [names.get(part, ord(part) if len(part) == 1 else 0) for part in keys.split("+")]
        for sym in syms:
            self.remote.NotifyKeyboardKeysym(dbus.UInt32(sym), True)
        for sym in reversed(syms):
            self.remote.NotifyKeyboardKeysym(dbus.UInt32(sym), False)

    def screenshot(self, path):
        if self.kind == "kde":
            read, write = os.pipe()
            shot = self.bus.get_object("org.kde.KWin", "/org/kde/KWin/ScreenShot2")
            try:
                # The signature is given: where KWin has no such object, introspection can't
                # tell it, and the call's own error is what says so.
                result = dbus.Interface(shot, "org.kde.KWin.ScreenShot2").CaptureWorkspace(
                    dbus.Dictionary({}, signature="sv"), dbus.types.UnixFd(write))
            except dbus.exceptions.DBusException:
                os.close(read)
                raise
            finally:
                os.close(write)
            data = b""
            while True:
                part = os.read(read, 1 << 20)
                if not part:
                    break
                data += part
            os.close(read)
            write_png(path, int(result["width"]), int(result["height"]), int(result["stride"]), data)
            return
        self.bus.request_name("org.gnome.Screenshot")
        shot = self.bus.get_object("org.gnome.Shell.Screenshot", "/org/gnome/Shell/Screenshot")
        dbus.Interface(shot, "org.gnome.Shell.Screenshot").Screenshot(False, False, os.path.abspath(path))
