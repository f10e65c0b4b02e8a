#include "screenshot/ScreenshotTaker.h"

#include "screenshot/PortalScreenshot.h"
#include "screenshot/ScreenshotLogging.h"
#include "screenshot/X11ScreenGrab.h"

#include <QScreen>
#include <QTimer>

ScreenshotTaker::ScreenshotTaker(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_portal(new PortalScreenshot(bus, this))
{
    connect(m_portal, &PortalScreenshot::finished, this, &ScreenshotTaker::portalFinished);
}

ScreenshotTaker::~ScreenshotTaker() = default;

void ScreenshotTaker::take(const QString &parentWindow, QScreen *screen)
{
    if (m_busy) {
        // Reported later, like every other result, so callers see one order of events.
        QTimer::singleShot(0, this, [this] {
            emit finished(ScreenshotResult::failed(tr("a screenshot is already being taken")));
        });
        return;
    }
    m_busy = true;
    m_screen = screen;
    m_portal->request(parentWindow);
}

void ScreenshotTaker::portalFinished(const ScreenshotResult &result)
{
    if (!m_busy)
        return;
    ScreenshotResult final = result;
    Source source = Source::portal;
    if (result.outcome == ScreenshotResult::Outcome::unavailable) {
        qCInfo(lcScreenshot, "[Ketterbloom] no screenshot portal; %s",
               X11ScreenGrab::isAvailable() ? "grabbing the X11 screen" : "no X11 display either");
        final = X11ScreenGrab::grab(m_screen);
        source = Source::x11;
    }
    m_busy = false;
    if (final.isCaptured())
        m_lastSource = source;
    emit finished(final);
}
