#include "screenshot/ScreenshotResult.h"

ScreenshotResult ScreenshotResult::captured(const QImage &image)
{
    return {Outcome::captured, image, {}};
}

ScreenshotResult ScreenshotResult::cancelled()
{
    return {Outcome::cancelled, {}, QStringLiteral("Screen question cancelled — nothing was sent.")};
}

ScreenshotResult ScreenshotResult::refused()
{
    return {Outcome::refused, {},
            QStringLiteral("The desktop did not allow the screenshot — nothing was sent. Allow screenshots "
                           "for Ketterbloom in your desktop's privacy settings and try again.")};
}

ScreenshotResult ScreenshotResult::unavailable()
{
    return {Outcome::unavailable, {},
            QStringLiteral("Screenshots need the desktop's screenshot portal (xdg-desktop-portal) or an X11 "
                           "session; neither is available — nothing was sent.")};
}

ScreenshotResult ScreenshotResult::failed(const QString &why)
{
    return {Outcome::failed, {}, QStringLiteral("The screenshot could not be used (%1) — nothing was sent.").arg(why)};
}
