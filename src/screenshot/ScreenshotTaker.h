#pragma once

#include "screenshot/ScreenshotResult.h"

#include <QObject>
#include <QPointer>

class PortalScreenshot;
class QDBusConnection;
class QScreen;

// Takes a screenshot the best way the desktop allows: the XDG desktop portal where one is on
// the session bus (Wayland, and most X11 desktops), else the X11 root window. A refusal or a
// cancel in the portal is final; only a missing portal falls back to X11.
class ScreenshotTaker : public QObject
{
    Q_OBJECT
public:
    enum class Source { none, portal, x11 };
    Q_ENUM(Source)

    explicit ScreenshotTaker(const QDBusConnection &bus, QObject *parent = nullptr);
    ~ScreenshotTaker() override;

    // Exactly one finished() follows. `parentWindow`: the portal's window identifier or empty;
    // `screen`: which screen the X11 fallback grabs (the primary one when null).
    void take(const QString &parentWindow, QScreen *screen);
    bool isBusy() const { return m_busy; }
    // Where the last captured image came from.
    Source lastSource() const { return m_lastSource; }
    PortalScreenshot &portal() const { return *m_portal; }

signals:
    void finished(const ScreenshotResult &result);

private:
    void portalFinished(const ScreenshotResult &result);

    PortalScreenshot *m_portal;
    QPointer<QScreen> m_screen;
    bool m_busy = false;
    Source m_lastSource = Source::none;
};
