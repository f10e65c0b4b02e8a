#include "ui/DBusIdleInhibitor.h"

#include <QCoreApplication>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include "ui/UiLogging.h"

#include <QLoggingCategory>


namespace {
const QString kService = QStringLiteral("org.freedesktop.ScreenSaver");
const QString kPath = QStringLiteral("/org/freedesktop/ScreenSaver");
const QString kInterface = QStringLiteral("org.freedesktop.ScreenSaver");
} // namespace

DBusIdleInhibitor::DBusIdleInhibitor(QObject *parent)
    : QObject(parent)
{
}

DBusIdleInhibitor::~DBusIdleInhibitor()
{
    if (m_cookie)
        sendUnInhibit(*m_cookie);
}

void DBusIdleInhibitor::inhibit(const QString &reason)
{
    m_wanted = true;
    if (m_cookie || m_pending)
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("Inhibit"));
    const QString app = QCoreApplication::applicationName().isEmpty() ? QStringLiteral("Ketterbloom")
                                                                      : QCoreApplication::applicationName();
    call << app << reason;
    m_pending = true;
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this](QDBusPendingCallWatcher *w) {
        m_pending = false;
        const QDBusPendingReply<uint> reply = *w;
        w->deleteLater();
        if (reply.isError()) {
            qCInfo(lcIdle) << "[Ketterbloom] no screen saver service to inhibit:" << reply.error().name();
            return;
        }
        if (m_wanted)
            m_cookie = reply.value();
        else
            sendUnInhibit(reply.value());   // released while the call was under way
    });
}

void DBusIdleInhibitor::release()
{
    m_wanted = false;
    if (!m_cookie)
        return;
    sendUnInhibit(*m_cookie);
    m_cookie.reset();
}

void DBusIdleInhibitor::sendUnInhibit(uint cookie)
{
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected())
        return;
    QDBusMessage call = QDBusMessage::createMethodCall(kService, kPath, kInterface, QStringLiteral("UnInhibit"));
    call << cookie;
    bus.call(call, QDBus::NoBlock);
}
