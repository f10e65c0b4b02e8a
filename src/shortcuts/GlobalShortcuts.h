#pragma once

#include "shortcuts/ShortcutBackend.h"

#include <QDBusConnection>
#include <QMap>
#include <QObject>
#include <QStringList>

#include <memory>

class ShortcutSettings;

// The global shortcuts of the running program. Tries, in order, the desktop portal, KDE
// Plasma's own shortcut service, and X11 key grabs where the window is on an X11 display
// (XWayland included); a mechanism that is missing, fails or grants fewer shortcuts than
// asked gives way to the next. Binds the keys chosen in Settings, rebinds when they change,
// and reports which action fires.
class GlobalShortcuts : public QObject
{
    Q_OBJECT
public:
    enum class Mechanism { probing, portal, kde, x11, none };
    Q_ENUM(Mechanism)

    // `settings` is not owned and must outlive this object. `x11Available` says whether key
    // grabs can work (the window is on an X11 display).
    GlobalShortcuts(ShortcutSettings &settings, const QDBusConnection &bus, bool x11Available,
                    QObject *parent = nullptr);
    ~GlobalShortcuts() override;

    // The name the desktop knows this application by (its launcher entry, without .desktop).
    static constexpr const char *appID = "ketterbloom";

    // Starts looking for a mechanism and binds the keys once one is found.
    void start();

    Mechanism mechanism() const { return m_mechanism; }
    // Short names for the log: "desktop portal", "kglobalaccel", "X11 key grabs", "none".
    static QString mechanismName(Mechanism mechanism);
    // One sentence for Settings: which mechanism works, or why none does.
    QString statusText() const;
    // Why the mechanisms before the one in use (or all, with none) gave way.
    QStringList passedOver() const { return m_passedOver; }
    // The key combination each action got, as the desktop shows it (missing: none).
    QMap<QString, QString> triggers() const { return m_triggers; }

    // Uses `backend` instead of looking for one (tests).
    void useBackend(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism);

signals:
    void activated(const QString &id);
    void statusChanged();
    // The search is over: mechanism() is the one in use, or none.
    void settled();

private:
    void adopt(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism);
    void giveWay(const QString &reason);
    void tryKde();
    void tryX11();
    void settle(Mechanism mechanism);
    void rebind();

    ShortcutSettings &m_settings;
    QDBusConnection m_bus;
    bool m_x11Available;
    Mechanism m_mechanism = Mechanism::probing;
    std::unique_ptr<ShortcutBackend> m_backend;
    bool m_proven = false; // the mechanism in use bound the keys once
    QMap<QString, QString> m_triggers;
    QString m_failure;
    QStringList m_passedOver;
};
