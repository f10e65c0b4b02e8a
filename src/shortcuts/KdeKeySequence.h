#pragma once

#include <QDBusArgument>
#include <QKeySequence>
#include <QList>
#include <QMetaType>

// A key sequence as KDE's global shortcut service sends it, D-Bus type (ai): the combined
// Qt key values of up to four chords.
struct KdeKeySequence
{
    QKeySequence keys;

    // Registers the D-Bus types; call before the first call that carries them.
    static void registerTypes();
};

QDBusArgument &operator<<(QDBusArgument &argument, const KdeKeySequence &sequence);
const QDBusArgument &operator>>(const QDBusArgument &argument, KdeKeySequence &sequence);

Q_DECLARE_METATYPE(KdeKeySequence)
