#include "shortcuts/KdeKeySequence.h"

#include <QDBusMetaType>

namespace {
constexpr int chordsPerSequence = 4;
}

void KdeKeySequence::registerTypes()
{
    qDBusRegisterMetaType<KdeKeySequence>();
    qDBusRegisterMetaType<QList<KdeKeySequence>>();
}

QDBusArgument &operator<<(QDBusArgument &argument, const KdeKeySequence &sequence)
{
    argument.beginStructure();
    argument.beginArray(QMetaType::fromType<int>());
    for (int i = 0; i < chordsPerSequence; ++i)
        argument << (i < sequence.keys.count() ? sequence.keys[i].toCombined() : 0);
    argument.endArray();
    argument.endStructure();
    return argument;
}

const QDBusArgument &operator>>(const QDBusArgument &argument, KdeKeySequence &sequence)
{
    QList<int> chords;
    argument.beginStructure();
    argument.beginArray();
    while (!argument.atEnd()) {
        int chord = 0;
        argument >> chord;
        if (chord != 0 && chords.size() < chordsPerSequence)
            chords.append(chord);
    }
    argument.endArray();
    argument.endStructure();
    chords.resize(chordsPerSequence, 0);
    sequence.keys = QKeySequence(chords.at(0), chords.at(1), chords.at(2), chords.at(3));
    return argument;
}
