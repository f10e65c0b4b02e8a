#include "StandInPortal.h"

#include <QDBusMessage>
#include <QDBusMetaType>
#include <QDBusObjectPath>
#include <QDBusVariant>
#include <QTimer>

namespace {
const QString portalInterface = QStringLiteral("org.freedesktop.portal.GlobalShortcuts");
const QString root = QStringLiteral("/org/freedesktop/portal/desktop");
} // namespace

StandInPortal::StandInPortal(const QDBusConnection &bus, QObject *parent)
    : QDBusVirtualObject(parent)
    , m_bus(bus)
{
    PortalShortcut::registerTypes();
}

QString StandInPortal::callerPart(const QDBusMessage &message) const
{
    QString sender = message.service();
    return sender.remove(0, 1).replace(QLatin1Char('.'), QLatin1Char('_'));
}

void StandInPortal::respond(const QString &requestPath, uint response, const QVariantMap &results)
{
    // Answers come after the call returns, as a real portal's do.
    QTimer::singleShot(10, this, [this, requestPath, response, results] {
        QDBusMessage signal = QDBusMessage::createSignal(requestPath, QStringLiteral("org.freedesktop.portal.Request"),
                                                         QStringLiteral("Response"));
        signal << response << results;
        m_bus.send(signal);
    });
}

bool StandInPortal::handleMessage(const QDBusMessage &message, const QDBusConnection &connection)
{
    const QString member = message.member();
    const QList<QVariant> args = message.arguments();
    if (message.interface() == QLatin1String("org.freedesktop.DBus.Properties") && member == QLatin1String("Get")) {
        if (args.value(0).toString() == portalInterface && args.value(1).toString() == QLatin1String("version"))
            connection.send(message.createReply(QVariant::fromValue(QDBusVariant(uint(2)))));
        else
            connection.send(message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.UnknownProperty"),
                                                     QStringLiteral("no such property")));
        return true;
    }
    if (message.interface() == QLatin1String("org.freedesktop.host.portal.Registry")
        && member == QLatin1String("Register")) {
        // Only before any other call of the same client, as the real portal insists.
        if (!sessions.isEmpty()) {
            connection.send(message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.AccessDenied"),
                                                     QStringLiteral("registered too late")));
            return true;
        }
        registeredApps.append(args.value(0).toString());
        connection.send(message.createReply());
        return true;
    }
    if (message.interface() == QLatin1String("org.freedesktop.portal.Session") && member == QLatin1String("Close")) {
        closedSessions.append(message.path());
        connection.send(message.createReply());
        return true;
    }
    if (message.interface() != portalInterface || message.path() != root)
        return false;

    if (member == QLatin1String("CreateSession")) {
        const QVariantMap options = qdbus_cast<QVariantMap>(args.value(0));
        const QString request = root + QStringLiteral("/request/") + callerPart(message) + QLatin1Char('/')
                                + options.value(QStringLiteral("handle_token")).toString();
        const QString session = root + QStringLiteral("/session/") + callerPart(message) + QLatin1Char('/')
                                + options.value(QStringLiteral("session_handle_token")).toString();
        sessions.append(session);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
        respond(request, 0, {{QStringLiteral("session_handle"), session}});
        return true;
    }
    if (member == QLatin1String("BindShortcuts")) {
        const QString session = args.value(0).value<QDBusObjectPath>().path();
        const QList<PortalShortcut> shortcuts = qdbus_cast<QList<PortalShortcut>>(args.value(1));
        const QVariantMap options = qdbus_cast<QVariantMap>(args.value(3));
        const QString request = root + QStringLiteral("/request/") + callerPart(message) + QLatin1Char('/')
                                + options.value(QStringLiteral("handle_token")).toString();
        bindCalls.append(shortcuts);
        connection.send(message.createReply(QVariant::fromValue(QDBusObjectPath(request))));
        if (!sessions.contains(session) || closedSessions.contains(session)) {
            respond(request, 2, {});
            return true;
        }
        QList<PortalShortcut> granted;
        for (const PortalShortcut &shortcut : shortcuts) {
            if (dropped.contains(shortcut.id))
                continue;
            PortalShortcut result{shortcut.id, {{QStringLiteral("description"),
                                                 shortcut.properties.value(QStringLiteral("description"))}}};
            const QString trigger = shortcut.properties.value(QStringLiteral("preferred_trigger")).toString();
            if (!trigger.isEmpty() && !refused.contains(shortcut.id))
                result.properties.insert(QStringLiteral("trigger_description"), trigger);
            granted.append(result);
        }
        respond(request, 0, {{QStringLiteral("shortcuts"), QVariant::fromValue(granted)}});
        return true;
    }
    connection.send(message.createErrorReply(QStringLiteral("org.freedesktop.DBus.Error.UnknownMethod"), member));
    return true;
}

QString StandInPortal::introspect(const QString &path) const
{
    Q_UNUSED(path);
    return {};
}

void StandInPortal::activate(const QString &session, const QString &id)
{
    QDBusMessage signal = QDBusMessage::createSignal(root, portalInterface, QStringLiteral("Activated"));
    signal << QVariant::fromValue(QDBusObjectPath(session)) << id << qulonglong(1234) << QVariantMap();
    m_bus.send(signal);
}
