#include "screenshot/X11ScreenGrab.h"

#include "screenshot/ScreenshotLogging.h"

#include <QGuiApplication>
#include <QPixmap>
#include <QScreen>

bool X11ScreenGrab::isAvailable()
{
    return QGuiApplication::platformName() == QLatin1String("xcb");
}

ScreenshotResult X11ScreenGrab::grab(QScreen *screen)
{
    if (!isAvailable())
        return ScreenshotResult::unavailable();
    if (!screen)
        screen = QGuiApplication::primaryScreen();
    if (!screen)
        return ScreenshotResult::unavailable();
    // Window 0 is the root window; the grab covers this screen's part of it.
    const QImage image = screen->grabWindow(0).toImage();
    if (image.isNull())
        return ScreenshotResult::failed(tr("the X server gave no picture of the screen"));
    qCInfo(lcScreenshot, "[Ketterbloom] grabbed the X11 screen (%dx%d)", image.width(), image.height());
    return ScreenshotResult::captured(image);
}
