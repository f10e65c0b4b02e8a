#pragma once

#include <QDBusArgument>
#include <QList>
#include <QMetaType>
#include <QString>
#include <QVariantMap>

// One entry of the desktop portal's shortcut lists, D-Bus type (sa{sv}): an id and its
// properties ("description", "preferred_trigger", "trigger_description").
struct PortalShortcut
{
    QString id;
    QVariantMap properties;

    // Registers the D-Bus types; call before the first call or signal that carries them.
    static void registerTypes();
};

QDBusArgument &operator<<(QDBusArgument &argument, const PortalShortcut &shortcut);
const QDBusArgument &operator>>(const QDBusArgument &argument, PortalShortcut &shortcut);

Q_DECLARE_METATYPE(PortalShortcut)
