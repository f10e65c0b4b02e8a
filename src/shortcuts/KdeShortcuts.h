#pragma once

#include "shortcuts/ShortcutBackend.h"

#include <QDBusConnection>
#include <QStringList>

#include <functional>

// Global shortcuts through KDE Plasma's own shortcut service (org.kde.kglobalaccel, inside
// KWin on Plasma 6), as KDE applications use it: one component named after the application,
// one action per shortcut. The service remembers the keys per action, so a later launch gets
// what the user last chose in Plasma's settings; keys another application holds are not given.
class KdeShortcuts : public ShortcutBackend
{
    Q_OBJECT
public:
    static constexpr const char *service = "org.kde.kglobalaccel";

    // Whether the service runs on `bus` (it is not started for the asking: on another desktop
    // it would be a stranger's key grabber). `done` runs once on the calling thread.
    static void probe(const QDBusConnection &bus, QObject *context, std::function<void(bool)> done);

    // `component` and `componentLabel`: the application's id and name in Plasma's settings.
    KdeShortcuts(const QDBusConnection &bus, const QString &component, const QString &componentLabel,
                 QObject *parent = nullptr);
    ~KdeShortcuts() override;

    void bind(const QList<Binding> &bindings) override;

private slots:
    void onPressed(const QString &component, const QString &action, qlonglong timestamp);

private:
    QStringList actionId(const Binding &binding) const;
    void listen();
    void release(const QList<Binding> &bindings);

    QDBusConnection m_bus;
    QString m_component;
    QString m_componentLabel;
    QList<Binding> m_bindings;
    QString m_componentPath;
    bool m_firstBind = true;
    int m_generation = 0;
};
