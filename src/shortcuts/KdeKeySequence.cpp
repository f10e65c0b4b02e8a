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
    const QKeyCombination none = QKeyCombination::fromCombined(0);
    QKeyCombination chords[chordsPerSequence] = {none, none, none, none};
    int count = 0;
    argument.beginStructure();
    argument.beginArray();
    while (!argument.atEnd()) {
        int chord = 0;
        argument >> chord;
        if (chord != 0 && count < chordsPerSequence)
            chords[count++] = QKeyCombination::fromCombined(chord);
    }
    argument.endArray();
    argument.endStructure();
    sequence.keys = QKeySequence(chords[0], chords[1], chords[2], chords[3]);
    return argument;
}
