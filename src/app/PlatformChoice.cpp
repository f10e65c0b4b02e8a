#include "app/PlatformChoice.h"

#include <QDir>
#include <QList>

PlatformChoice PlatformChoice::choose(const Inputs &inputs)
{
    const bool wayland = !inputs.waylandDisplay.isEmpty();
    const bool x11 = !inputs.x11Display.isEmpty();
    PlatformChoice choice;
    choice.xwaylandOffered = wayland && x11;

    if (!inputs.qpaPlatform.isEmpty()) {
        // Set by the user (or a test): respected. "xcb:..." style options keep the name first.
        const QByteArray name = inputs.qpaPlatform.split(':').first().split(';').first();
        const bool waylandNamed = name == "wayland" || name.startsWith("wayland-");
        choice.stayOnTopWorks = !waylandNamed;
        // Platforms that need no display (offscreen, minimal, vnc, eglfs…) are left to Qt.
        choice.noDisplay = (name == "xcb" && !x11) || (waylandNamed && !wayland);
        return choice;
    }
    if (wayland) {
        const bool native = !inputs.useXWaylandSetting || inputs.nativeWaylandFlag;
        if (x11 && (!native || !inputs.waylandPluginInstalled)) {
            choice.platform = "xcb";
            choice.waylandPluginMissing = native;
            return choice;
        }
        // Without the plugin and without XWayland Qt's own message says what is missing.
        if (inputs.waylandPluginInstalled)
            choice.platform = "wayland";
        choice.stayOnTopWorks = false;
        return choice;
    }
    if (x11)
        choice.platform = "xcb";
    else
        choice.noDisplay = true;
    return choice;
}

bool PlatformChoice::waylandPluginIn(const QByteArray &pluginPath, const QString &qtPluginFolder)
{
    QStringList folders;
    for (const QByteArray &folder : pluginPath.split(':')) {
        if (!folder.isEmpty())
            folders.append(QString::fromLocal8Bit(folder));
    }
    folders.append(qtPluginFolder);
    for (const QString &folder : std::as_const(folders)) {
        const QDir platforms(folder + QStringLiteral("/platforms"));
        if (!platforms.entryList({QStringLiteral("libqwayland*.so")}, QDir::Files).isEmpty())
            return true;
    }
    return false;
}
