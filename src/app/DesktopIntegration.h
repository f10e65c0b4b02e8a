#pragma once

#include "app/PlatformChoice.h"
#include "shortcuts/ShortcutCatalog.h"

#include <QHash>
#include <QObject>
#include <QPointer>

#include <functional>
#include <memory>

class AppShell;
class GlobalShortcuts;
class QSettings;
class QWidget;
class SettingsDialog;
class ShortcutSettings;

// The window's place on the desktop: global shortcuts and what they do, requests from later
// launches (bring the window forward, start a session), the Settings page for both, and the
// "Always on Top" controls where the desktop can't honour them.
class DesktopIntegration : public QObject
{
    Q_OBJECT
public:
    // `shell` is not owned and must outlive this object.
    DesktopIntegration(AppShell &shell, const PlatformChoice &platform, QObject *parent = nullptr);
    ~DesktopIntegration() override;

    // Starts the global shortcuts (looks for the desktop's mechanism and binds the keys).
    void start();

    // Adds an action that global shortcuts can trigger; `handler` runs on the GUI thread.
    bool addAction(const ShortcutAction &action, std::function<void()> handler);

    // Brings the window to the front (shown, not minimised).
    void raiseWindow();
    // What a later launch asked for.
    void handleLaunchRequest(bool startSession);

    GlobalShortcuts &globalShortcuts() { return *m_global; }
    ShortcutSettings &shortcutSettings() { return *m_shortcutSettings; }

private:
    void trigger(const QString &id);
    void toggleWindow();
    void copyNewestAnswer();
    void addSettingsPage(SettingsDialog *dialog);
    void logSettled();

    AppShell &m_shell;
    PlatformChoice m_platform;
    std::unique_ptr<QSettings> m_store;
    ShortcutCatalog m_catalog;
    QHash<QString, std::function<void()>> m_handlers;
    std::unique_ptr<ShortcutSettings> m_shortcutSettings;
    std::unique_ptr<GlobalShortcuts> m_global;
    // Dialogs hidden with the window by the show/hide shortcut, shown again with it.
    QList<QPointer<QWidget>> m_hiddenDialogs;
};
