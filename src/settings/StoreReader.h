#pragma once

#include <QByteArray>
#include <QSettings>
#include <QString>
#include <QStringList>

#include <optional>

// Typed reads from the settings store that tell an absent or wrongly typed value (nothing)
// from a stored false, 0 or "". The ini-style native store gives most values back as text,
// so each read accepts a value of its own type or the exact text the store writes for one:
// "true"/"false" for a bool, a whole decimal for an integer, a number for a double. Anything
// else ("yes", "abc", a list where a string belongs) is nothing.
class StoreReader
{
public:
    static std::optional<bool> boolean(const QSettings &store, const QString &key);
    static std::optional<int> integer(const QSettings &store, const QString &key);
    static std::optional<double> real(const QSettings &store, const QString &key);
    // Text, or a number given as text.
    static std::optional<QString> string(const QSettings &store, const QString &key);
    // A list of strings; a single string counts as a list of one, since that is how the ini
    // format writes a one-element list.
    static std::optional<QStringList> stringList(const QSettings &store, const QString &key);
    static std::optional<QByteArray> data(const QSettings &store, const QString &key);
};
