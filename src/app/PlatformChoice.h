#pragma once

#include <QByteArray>
#include <QString>

// Which display platform the window runs on. On a Wayland desktop an application can't
// keep its own window above the others (GNOME ignores the request), but the compositor
// honours the request for an X11 window shown through XWayland: so where XWayland is there,
// the window goes through it unless the user turned that off.
struct PlatformChoice
{
    // What decides it: the environment and the user's choice.
    struct Inputs
    {
        QByteArray waylandDisplay;  // $WAYLAND_DISPLAY
        QByteArray x11Display;      // $DISPLAY
        QByteArray qpaPlatform;     // $QT_QPA_PLATFORM: the user's explicit choice wins
        bool useXWaylandSetting = true;
        bool nativeWaylandFlag = false; // --native-wayland
        bool waylandPluginInstalled = true; // Qt's Wayland platform plugin (qt6-wayland)
    };

    // The platform to ask Qt for; empty leaves Qt's own choice.
    QByteArray platform;
    // Whether "Always on Top" can work; false: Settings explains it instead.
    bool stayOnTopWorks = true;
    // Whether the window could go through XWayland (a Wayland desktop with XWayland), so
    // Settings offers the choice.
    bool xwaylandOffered = false;
    // No display to open a window on (none set, or not the one QT_QPA_PLATFORM names): the
    // program says so instead of starting Qt, whose own abort names the wrong cause.
    bool noDisplay = false;
    // A native Wayland window was asked for (--native-wayland or the setting) but Qt's Wayland
    // platform plugin is not installed: the window stays on XWayland, and the program says so.
    bool waylandPluginMissing = false;

    // Said before Qt starts; QCoreApplication::translate("PlatformChoice", …) them where shown.
    static constexpr const char *noDisplayMessage =
        QT_TRANSLATE_NOOP("PlatformChoice", "No display: start Ketterbloom from your desktop session, or use --headless");

    static constexpr const char *waylandPluginMissingMessage =
        QT_TRANSLATE_NOOP("PlatformChoice", "A native Wayland window needs Qt's Wayland platform plugin (Debian package "
                                            "qt6-wayland), which is not installed; the window stays on XWayland.");

    static PlatformChoice choose(const Inputs &inputs);

    // Whether Qt's Wayland platform plugin is in one of the folders Qt loads plugins from:
    // `pluginPath` ($QT_PLUGIN_PATH, colon-separated) first, then Qt's own plugin folder.
    static bool waylandPluginIn(const QByteArray &pluginPath, const QString &qtPluginFolder);

    // The settings key of the user's choice (bool, default true).
    static constexpr const char *settingKey = "useXWayland";
};
