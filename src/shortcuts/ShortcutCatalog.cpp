#include "shortcuts/ShortcutCatalog.h"

ShortcutCatalog ShortcutCatalog::standard()
{
    constexpr auto chord = Qt::CTRL | Qt::ALT | Qt::SHIFT;
    ShortcutCatalog catalog;
    catalog.add({QString::fromLatin1(toggleSession), tr("Start or stop the session"),
                 QKeySequence(chord | Qt::Key_S)});
    catalog.add({QString::fromLatin1(toggleWindow), tr("Show or hide the window"),
                 QKeySequence(chord | Qt::Key_K)});
    catalog.add({QString::fromLatin1(scrollToNewest), tr("Scroll to the newest answer"),
                 QKeySequence(chord | Qt::Key_N)});
    catalog.add({QString::fromLatin1(copyNewestAnswer), tr("Copy the newest answer"),
                 QKeySequence(chord | Qt::Key_C)});
    return catalog;
}

bool ShortcutCatalog::add(const ShortcutAction &action)
{
    if (action.id.isEmpty() || find(action.id))
        return false;
    m_actions.append(action);
    return true;
}

std::optional<ShortcutAction> ShortcutCatalog::find(const QString &id) const
{
    for (const ShortcutAction &action : m_actions) {
        if (action.id == id)
            return action;
    }
    return std::nullopt;
}
