#include "screenshot/ScreenshotResult.h"

ScreenshotResult ScreenshotResult::captured(const QImage &image)
{
    return {Outcome::captured, image, {}};
}

ScreenshotResult ScreenshotResult::cancelled()
{
    return {Outcome::cancelled, {}, tr("Screen question cancelled — nothing was sent.")};
}

ScreenshotResult ScreenshotResult::refused()
{
    return {Outcome::refused, {},
            tr("The desktop did not allow the screenshot — nothing was sent. Allow screenshots "
               "for Ketterbloom in your desktop's privacy settings and try again.")};
}

ScreenshotResult ScreenshotResult::unavailable()
{
    return {Outcome::unavailable, {},
            tr("Screenshots need the desktop's screenshot portal (xdg-desktop-portal) or an X11 "
               "session; neither is available — nothing was sent.")};
}

ScreenshotResult ScreenshotResult::failed(const QString &why)
{
    return {Outcome::failed, {}, tr("The screenshot could not be used (%1) — nothing was sent.").arg(why)};
}
