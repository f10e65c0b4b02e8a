#pragma once

#include <QCoreApplication>
#include <QKeySequence>
#include <QList>
#include <QString>

#include <optional>

// One thing a global shortcut can do. `id` is stable (settings key, portal shortcut id);
// `label` is what Settings and the desktop's shortcut list show.
struct ShortcutAction
{
    QString id;
    QString label;
    QKeySequence defaultKeys;
};

// The actions that global shortcuts can trigger, in the order Settings lists them. The
// standard list holds the window's own actions; others are added with add().
class ShortcutCatalog
{
    Q_DECLARE_TR_FUNCTIONS(ShortcutCatalog)

public:
    static constexpr const char *toggleSession = "toggle-session";
    static constexpr const char *toggleWindow = "toggle-window";
    static constexpr const char *scrollToNewest = "scroll-to-newest";
    static constexpr const char *copyNewestAnswer = "copy-newest-answer";

    // Start/stop, show/hide, scroll to the newest answer, copy it: Ctrl+Alt+Shift with a
    // letter, which GNOME, KDE Plasma, Xfce and Cinnamon leave free by default.
    static ShortcutCatalog standard();

    // Adds an action at the end; an id already listed is refused (returns false).
    bool add(const ShortcutAction &action);
    const QList<ShortcutAction> &actions() const { return m_actions; }
    std::optional<ShortcutAction> find(const QString &id) const;

private:
    QList<ShortcutAction> m_actions;
};
