#include "shortcuts/ShortcutSettings.h"

#include "settings/StoreReader.h"

#include <QSettings>

namespace {
QString keyFor(const QString &id)
{
    return QStringLiteral("globalShortcuts/") + id;
}
} // namespace

ShortcutSettings::ShortcutSettings(QSettings &store, const ShortcutCatalog &catalog, QObject *parent)
    : QObject(parent)
    , m_store(store)
    , m_catalog(catalog)
{
}

QKeySequence ShortcutSettings::keys(const QString &id) const
{
    const std::optional<ShortcutAction> action = m_catalog.find(id);
    if (!action)
        return {};
    const std::optional<QString> stored = StoreReader::string(m_store, keyFor(id));
    if (!stored)
        return action->defaultKeys;
    // Only the first chord counts: global shortcuts are single key combinations.
    const QKeySequence parsed = QKeySequence::fromString(*stored, QKeySequence::PortableText);
    if (parsed.isEmpty() || parsed[0].key() == Qt::Key_unknown)
        return {};
    return QKeySequence(parsed[0]);
}

std::optional<QString> ShortcutSettings::actionUsing(const QKeySequence &keys, const QString &except) const
{
    if (keys.isEmpty())
        return std::nullopt;
    for (const ShortcutAction &action : m_catalog.actions()) {
        if (action.id != except && this->keys(action.id) == keys)
            return action.id;
    }
    return std::nullopt;
}

Result<void, ShortcutSettings::Taken> ShortcutSettings::setKeys(const QString &id, const QKeySequence &keys)
{
    if (!m_catalog.find(id))
        return {};
    const QKeySequence single = keys.isEmpty() ? QKeySequence() : QKeySequence(keys[0]);
    if (const std::optional<QString> other = actionUsing(single, id))
        return Result<void, Taken>::failure(Taken{*other});
    if (single == this->keys(id) && m_store.contains(keyFor(id)))
        return {};
    m_store.setValue(keyFor(id), single.toString(QKeySequence::PortableText));
    emit changed();
    return {};
}

Result<void, ShortcutSettings::Taken> ShortcutSettings::resetToDefault(const QString &id)
{
    const std::optional<ShortcutAction> action = m_catalog.find(id);
    if (!action)
        return {};
    if (const std::optional<QString> other = actionUsing(action->defaultKeys, id))
        return Result<void, Taken>::failure(Taken{*other});
    m_store.remove(keyFor(id));
    emit changed();
    return {};
}
