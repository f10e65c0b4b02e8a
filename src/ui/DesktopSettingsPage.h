#pragma once

#include "ui/SettingsPage.h"

#include <QMap>

class GlobalShortcuts;
class QCheckBox;
class QKeySequenceEdit;
class QLabel;
class ShortcutSettings;

// The Settings page for how the window fits into the desktop: the global shortcuts (with
// the mechanism that carries them) and whether the window can stay on top.
class DesktopSettingsPage : public SettingsPage
{
    Q_OBJECT
public:
    // How the window is shown, decided at launch.
    struct Placement
    {
        bool stayOnTopWorks = true;
        bool xwaylandOffered = false;  // a Wayland desktop with XWayland
        bool runsThroughXWayland = false;
        bool waylandPluginMissing = false; // a native Wayland window was asked for, in vain
    };

    // Neither is owned; both must outlive the page.
    DesktopSettingsPage(ShortcutSettings &shortcuts, GlobalShortcuts &global, const Placement &placement,
                        QWidget *parent = nullptr);

    // Where the desktop ignores a window's wish to stay on top.
    static QString stayOnTopUnavailableText();

    void load() override;

    QKeySequenceEdit *keyEdit(const QString &actionID) const { return m_edits.value(actionID); }
    QLabel *mechanismLabel() const { return m_mechanism; }
    QLabel *messageLabel() const { return m_message; }
    QCheckBox *xwaylandCheck() const { return m_xwayland; }
    QLabel *stayOnTopNote() const { return m_onTopNote; }

signals:
    // The user chose whether the window goes through XWayland from the next start.
    void xwaylandChosen(bool on);

private:
    QWidget *buildShortcuts();
    QWidget *buildStayOnTop(const Placement &placement);
    void commit(const QString &actionID);

    ShortcutSettings &m_shortcuts;
    GlobalShortcuts &m_global;
    QMap<QString, QKeySequenceEdit *> m_edits;
    QMap<QString, QLabel *> m_bound;
    QLabel *m_mechanism = nullptr;
    QLabel *m_message = nullptr;
    QCheckBox *m_xwayland = nullptr;
    QLabel *m_onTopNote = nullptr;
};
