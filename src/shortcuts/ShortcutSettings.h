#pragma once

#include "common/Result.h"

#include "shortcuts/ShortcutCatalog.h"

#include <QKeySequence>
#include <QObject>

#include <optional>

class QSettings;

// The keys the user chose for each global shortcut, kept in the settings store under
// "globalShortcuts/<action id>" as portable text. An action never changed uses its default;
// one the user cleared is stored as "" and stays off.
class ShortcutSettings : public QObject
{
    Q_OBJECT
public:
    // Neither is owned; both must outlive this object.
    ShortcutSettings(QSettings &store, const ShortcutCatalog &catalog, QObject *parent = nullptr);

    const ShortcutCatalog &catalog() const { return m_catalog; }

    // The keys bound to `id` (empty when off or unknown).
    QKeySequence keys(const QString &id) const;

    // Why keys were refused: another action has them.
    struct Taken
    {
        QString actionID;
    };
    // Binds `keys` to `id`; empty turns the shortcut off. Refused (nothing changes) when the
    // keys are already another action's. An unknown `id` changes nothing and succeeds.
    Result<void, Taken> setKeys(const QString &id, const QKeySequence &keys);
    // Back to the default keys; refused like setKeys() when another action uses them.
    Result<void, Taken> resetToDefault(const QString &id);

    // The action already using `keys`, other than `except`.
    std::optional<QString> actionUsing(const QKeySequence &keys, const QString &except = {}) const;

signals:
    void changed();

private:
    QSettings &m_store;
    const ShortcutCatalog &m_catalog;
};
