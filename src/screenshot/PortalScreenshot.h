#pragma once

#include "screenshot/ScreenshotResult.h"

#include <QDBusConnection>
#include <QObject>
#include <QString>
#include <QTimer>
#include <QVariantMap>

class QDBusPendingCallWatcher;

// A screenshot of the whole screen through the XDG desktop portal
// (org.freedesktop.portal.Screenshot on the session bus). Works on Wayland and X11; the
// desktop may ask the user the first time. The call returns a Request object whose Response
// signal carries the picture as a file URI. Nothing here blocks: the result comes through
// finished().
class PortalScreenshot : public QObject
{
    Q_OBJECT
public:
    static constexpr auto service = "org.freedesktop.portal.Desktop";
    static constexpr auto objectPath = "/org/freedesktop/portal/desktop";
    static constexpr auto interface = "org.freedesktop.portal.Screenshot";
    static constexpr auto requestInterface = "org.freedesktop.portal.Request";
    // How long the portal may take before the request counts as failed. Generous: the
    // desktop may be showing the user a permission dialog.
    static constexpr int defaultTimeoutMs = 120000;

    explicit PortalScreenshot(const QDBusConnection &bus, QObject *parent = nullptr);
    ~PortalScreenshot() override;

    // Asks for a screenshot; `parentWindow` is the portal's window identifier ("x11:<hex id>")
    // or empty. Exactly one finished() follows. A request while one runs finishes at once as
    // failed, leaving the running one alone.
    void request(const QString &parentWindow);
    bool isBusy() const { return m_busy; }
    void setTimeoutMs(int ms) { m_timeout.setInterval(ms); }

signals:
    // `unavailable` when no portal with a Screenshot interface is on the bus.
    void finished(const ScreenshotResult &result);

private slots:
    void handleResponse(uint response, const QVariantMap &results);

private:
    void callReturned(QDBusPendingCallWatcher *watcher);
    void watch(const QString &path);
    void unwatch();
    void finish(const ScreenshotResult &result);

    QDBusConnection m_bus;
    QTimer m_timeout;
    QString m_requestPath;
    bool m_busy = false;
    quint64 m_counter = 0;
};
