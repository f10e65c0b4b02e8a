#pragma once

#include "shortcuts/PortalShortcut.h"

#include <QDBusConnection>
#include <QDBusVirtualObject>
#include <QList>
#include <QStringList>

// Plays the desktop's portal on a private bus: org.freedesktop.portal.GlobalShortcuts with
// its requests and sessions, as much of it as the program uses. Every bound shortcut gets
// its preferred trigger, except those listed in `refused`; those in `dropped` are left out.
class StandInPortal : public QDBusVirtualObject
{
    Q_OBJECT
public:
    explicit StandInPortal(const QDBusConnection &bus, QObject *parent = nullptr);

    bool handleMessage(const QDBusMessage &message, const QDBusConnection &connection) override;
    QString introspect(const QString &path) const override;

    // Presses a shortcut: Activated for `session`.
    void activate(const QString &session, const QString &id);

    QStringList registeredApps;       // org.freedesktop.host.portal.Registry.Register
    QStringList sessions;             // created, in order
    QStringList closedSessions;
    QList<QList<PortalShortcut>> bindCalls;
    QStringList refused;              // shortcut ids given no trigger
    QStringList dropped;              // shortcut ids left out of the answer

private:
    void respond(const QString &requestPath, uint response, const QVariantMap &results);
    QString callerPart(const QDBusMessage &message) const;

    QDBusConnection m_bus;
};
