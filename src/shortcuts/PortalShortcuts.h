#pragma once

#include "shortcuts/ShortcutBackend.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QVariantMap>

#include <functional>

// Global shortcuts through the XDG desktop portal (org.freedesktop.portal.GlobalShortcuts,
// offered by KDE Plasma and GNOME 48 and later): one session, its shortcuts bound with the
// user's keys as preferred triggers; the desktop may ask the user to confirm them and has
// the last word on which keys each gets.
class PortalShortcuts : public ShortcutBackend
{
    Q_OBJECT
public:
    static constexpr const char *service = "org.freedesktop.portal.Desktop";
    static constexpr const char *objectPath = "/org/freedesktop/portal/desktop";
    static constexpr const char *interface = "org.freedesktop.portal.GlobalShortcuts";

    // Tells the portal which application this is (the launcher entry's name), so that the
    // desktop can file its shortcuts under it; portals before 1.19 don't have the call, and
    // then the desktop works it out itself. `done` runs once, whatever the answer.
    static void registerApplication(const QDBusConnection &bus, const QString &appID, QObject *context,
                                    std::function<void()> done);

    // Asks the bus whether the portal offers global shortcuts; `done` runs once, on the
    // calling thread, with the answer (false also when no portal answers in time).
    static void probe(const QDBusConnection &bus, QObject *context, std::function<void(bool)> done);

    explicit PortalShortcuts(const QDBusConnection &bus, QObject *parent = nullptr);
    ~PortalShortcuts() override;

    void bind(const QList<Binding> &bindings) override;

private slots:
    void onResponse(uint response, const QVariantMap &results, const QDBusMessage &message);
    void onActivated(const QDBusMessage &message);
    void onShortcutsChanged(const QDBusMessage &message);

private:
    enum class Step { idle, creatingSession, binding };

    QString nextToken();
    QString requestPath(const QString &token) const;
    // Sends `call`, whose answer arrives as a Response on the request for `token`.
    void request(QDBusMessage call, const QString &token, Step step);
    void createSession();
    void sendBindings();
    void closeSession();
    // With `checkGrant`, fails unless every shortcut asked for is in the answer.
    void emitBound(const QVariant &shortcuts, bool checkGrant);
    void fail(const QString &message);

    QDBusConnection m_bus;
    QList<Binding> m_bindings;
    QString m_session;         // object path; empty without one
    QString m_pendingRequest;  // the request whose Response is awaited
    Step m_step = Step::idle;
    bool m_rebindWhenDone = false;
    int m_tokenCounter = 0;
};
