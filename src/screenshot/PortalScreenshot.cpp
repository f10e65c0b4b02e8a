#include "screenshot/PortalScreenshot.h"

#include "screenshot/ScreenshotLogging.h"

#include <QCoreApplication>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QImage>
#include <QImageReader>
#include <QUrl>

namespace {

// D-Bus errors that mean there is no screenshot portal to talk to.
bool meansNoPortal(const QDBusError &error)
{
    switch (error.type()) {
    case QDBusError::ServiceUnknown:
    case QDBusError::UnknownObject:
    case QDBusError::UnknownInterface:
    case QDBusError::UnknownMethod:
    case QDBusError::Disconnected:
        return true;
    default:
        return error.name().startsWith(QLatin1String("org.freedesktop.DBus.Error.Spawn"));
    }
}

} // namespace

PortalScreenshot::PortalScreenshot(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
    m_timeout.setSingleShot(true);
    m_timeout.setInterval(defaultTimeoutMs);
    connect(&m_timeout, &QTimer::timeout, this, [this] {
        finish(ScreenshotResult::failed(tr("the desktop's screenshot portal did not answer")));
    });
}

PortalScreenshot::~PortalScreenshot()
{
    unwatch();
}

void PortalScreenshot::request(const QString &parentWindow)
{
    if (m_busy) {
        emit finished(ScreenshotResult::failed(tr("a screenshot is already being taken")));
        return;
    }
    if (!m_bus.isConnected()) {
        emit finished(ScreenshotResult::unavailable());
        return;
    }
    m_busy = true;
    // Listen on the Request path before calling, so that a quick Response is not missed:
    // /org/freedesktop/portal/desktop/request/<our unique name without ':' and '.' → '_'>/<token>.
    const QString token = QStringLiteral("ketterbloom%1_%2").arg(QCoreApplication::applicationPid()).arg(++m_counter);
    QString sender = m_bus.baseService().mid(1);
    sender.replace(QLatin1Char('.'), QLatin1Char('_'));
    watch(QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token));

    QDBusMessage call = QDBusMessage::createMethodCall(QLatin1String(service), QLatin1String(objectPath),
                                                       QLatin1String(interface), QStringLiteral("Screenshot"));
    const QVariantMap options{{QStringLiteral("handle_token"), token},
                              {QStringLiteral("modal"), true},
                              {QStringLiteral("interactive"), false}};
    call << parentWindow << options;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, &PortalScreenshot::callReturned);
    m_timeout.start();
    qCInfo(lcScreenshot, "[Ketterbloom] asking the desktop portal for a screenshot");
}

void PortalScreenshot::callReturned(QDBusPendingCallWatcher *watcher)
{
    watcher->deleteLater();
    if (!m_busy)
        return;
    const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
    if (reply.isError()) {
        const QDBusError error = reply.error();
        qCInfo(lcScreenshot, "[Ketterbloom] screenshot portal call failed: %s: %s", qUtf8Printable(error.name()),
               qUtf8Printable(error.message()));
        if (meansNoPortal(error))
            finish(ScreenshotResult::unavailable());
        else if (error.name() == QLatin1String("org.freedesktop.portal.Error.NotAllowed"))
            finish(ScreenshotResult::refused());
        else
            finish(ScreenshotResult::failed(error.message().isEmpty() ? error.name() : error.message()));
        return;
    }
    // Older portals ignore handle_token and name a path of their own.
    const QString path = reply.value().path();
    if (path != m_requestPath)
        watch(path);
}

void PortalScreenshot::handleResponse(uint response, const QVariantMap &results)
{
    if (!m_busy)
        return;
    if (response == 1) {
        finish(ScreenshotResult::cancelled());
        return;
    }
    if (response != 0) {
        finish(ScreenshotResult::refused());
        return;
    }
    const QUrl uri(results.value(QStringLiteral("uri")).toString());
    if (!uri.isLocalFile()) {
        finish(ScreenshotResult::failed(tr("the portal gave no file")));
        return;
    }
    QImageReader reader(uri.toLocalFile());
    reader.setAutoTransform(true);
    const QImage image = reader.read();
    if (image.isNull()) {
        finish(ScreenshotResult::failed(QStringLiteral("%1: %2").arg(uri.toLocalFile(), reader.errorString())));
        return;
    }
    finish(ScreenshotResult::captured(image));
}

void PortalScreenshot::watch(const QString &path)
{
    unwatch();
    m_requestPath = path;
    m_bus.connect(QLatin1String(service), path, QLatin1String(requestInterface), QStringLiteral("Response"), this,
                  SLOT(handleResponse(uint,QVariantMap)));
}

void PortalScreenshot::unwatch()
{
    if (m_requestPath.isEmpty())
        return;
    m_bus.disconnect(QLatin1String(service), m_requestPath, QLatin1String(requestInterface),
                     QStringLiteral("Response"), this, SLOT(handleResponse(uint,QVariantMap)));
    m_requestPath.clear();
}

void PortalScreenshot::finish(const ScreenshotResult &result)
{
    m_timeout.stop();
    unwatch();
    m_busy = false;
    emit finished(result);
}
