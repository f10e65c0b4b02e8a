#include "shortcuts/KdeShortcuts.h"

#include "shortcuts/KdeKeySequence.h"
#include "shortcuts/ShortcutsLogging.h"

#include <QDBusConnectionInterface>
#include <QDBusObjectPath>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>

#include <memory>

namespace {
constexpr const char *objectPath = "/kglobalaccel";
constexpr const char *interface = "org.kde.KGlobalAccel";
constexpr const char *componentInterface = "org.kde.kglobalaccel.Component";
constexpr int callTimeoutMs = 5000;

// setShortcutKeys flags: the action exists in a running program; don't take the stored keys.
enum SetFlags : uint { setPresent = 2, noAutoloading = 4 };

QString latin(const char *text) { return QString::fromLatin1(text); }

QDBusMessage call(const QString &method)
{
    return QDBusMessage::createMethodCall(latin(KdeShortcuts::service), latin(objectPath), latin(interface), method);
}
} // namespace

void KdeShortcuts::probe(const QDBusConnection &bus, QObject *context, std::function<void(bool)> done)
{
    if (!bus.isConnected() || !bus.interface()) {
        done(false);
        return;
    }
    QDBusMessage ask = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.DBus"),
                                                      QStringLiteral("/org/freedesktop/DBus"),
                                                      QStringLiteral("org.freedesktop.DBus"),
                                                      QStringLiteral("NameHasOwner"));
    ask << latin(service);
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(ask, callTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, done = std::move(done)] {
        watcher->deleteLater();
        const QDBusPendingReply<bool> reply = *watcher;
        done(!reply.isError() && reply.value());
    });
}

KdeShortcuts::KdeShortcuts(const QDBusConnection &bus, const QString &component, const QString &componentLabel,
                           QObject *parent)
    : ShortcutBackend(parent)
    , m_bus(bus)
    , m_component(component)
    , m_componentLabel(componentLabel)
{
    KdeKeySequence::registerTypes();
}

KdeShortcuts::~KdeShortcuts()
{
    // The keys stay filed under the application, for the next launch, but stop firing.
    release(m_bindings);
}

QStringList KdeShortcuts::actionId(const Binding &binding) const
{
    // Component id, action id, component name, action name.
    return {m_component, binding.id, m_componentLabel, binding.label};
}

void KdeShortcuts::release(const QList<Binding> &bindings)
{
    for (const Binding &binding : bindings) {
        QDBusMessage inactive = call(QStringLiteral("setInactive"));
        inactive << actionId(binding);
        m_bus.send(inactive);
    }
}

void KdeShortcuts::bind(const QList<Binding> &bindings)
{
    // Actions no longer listed stop firing; listed ones are (re)registered.
    QList<Binding> dropped;
    for (const Binding &old : std::as_const(m_bindings)) {
        bool kept = false;
        for (const Binding &binding : bindings)
            kept = kept || binding.id == old.id;
        if (!kept)
            dropped.append(old);
    }
    release(dropped);
    m_bindings = bindings;
    // The first time the service's remembered keys win (what the user set in Plasma's
    // settings); later the keys chosen in this program's settings do.
    const uint flags = m_firstBind ? setPresent : setPresent | noAutoloading;
    m_firstBind = false;
    const int generation = ++m_generation;

    struct Outcome
    {
        int waiting = 0;
        QMap<QString, QString> triggers;
        QStringList refused;
        QString error;
    };
    auto outcome = std::make_shared<Outcome>();
    outcome->waiting = int(bindings.size());
    const auto finishOne = [this, outcome, generation] {
        if (--outcome->waiting > 0 || generation != m_generation)
            return;
        if (!outcome->error.isEmpty()) {
            emit failed(tr("KDE's shortcut service refused: %1").arg(outcome->error));
            return;
        }
        if (!outcome->refused.isEmpty()) {
            // A grant is what the service answers, not what was asked.
            emit failed(tr("KDE's shortcut service did not give %1 (taken by another application?).")
                            .arg(outcome->refused.join(QStringLiteral(", "))));
            return;
        }
        listen();
        emit bound(outcome->triggers);
    };
    if (bindings.isEmpty()) {
        ++outcome->waiting;
        finishOne();
        return;
    }
    for (const Binding &binding : bindings) {
        QDBusMessage doRegister = call(QStringLiteral("doRegister"));
        doRegister << actionId(binding);
        m_bus.send(doRegister);
        QDBusMessage setKeys = call(QStringLiteral("setShortcutKeys"));
        QList<KdeKeySequence> keys;
        if (!binding.keys.isEmpty())
            keys.append({binding.keys});
        setKeys << actionId(binding) << QVariant::fromValue(keys) << flags;
        auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(setKeys, callTimeoutMs), this);
        connect(watcher, &QDBusPendingCallWatcher::finished, this, [watcher, binding, outcome, finishOne] {
            watcher->deleteLater();
            const QDBusPendingReply<QList<KdeKeySequence>> reply = *watcher;
            if (reply.isError()) {
                outcome->error = reply.error().message();
            } else {
                QStringList shown;
                for (const KdeKeySequence &granted : reply.value()) {
                    if (!granted.keys.isEmpty())
                        shown.append(granted.keys.toString(QKeySequence::NativeText));
                }
                if (!shown.isEmpty())
                    outcome->triggers.insert(binding.id, shown.join(QStringLiteral(", ")));
                else if (!binding.keys.isEmpty())
                    outcome->refused.append(binding.keys.toString(QKeySequence::NativeText));
            }
            finishOne();
        });
    }
}

void KdeShortcuts::listen()
{
    if (!m_componentPath.isEmpty())
        return;
    QDBusMessage get = call(QStringLiteral("getComponent"));
    get << m_component;
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(get, callTimeoutMs), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (reply.isError() || !m_componentPath.isEmpty()) {
            if (reply.isError())
                emit failed(tr("KDE's shortcut service lost the application's shortcuts: %1")
                                .arg(reply.error().message()));
            return;
        }
        m_componentPath = reply.value().path();
        m_bus.connect(latin(service), m_componentPath, latin(componentInterface),
                      QStringLiteral("globalShortcutPressed"), this,
                      SLOT(onPressed(QString, QString, qlonglong)));
    });
}

void KdeShortcuts::onPressed(const QString &component, const QString &action, qlonglong timestamp)
{
    Q_UNUSED(timestamp);
    if (component == m_component)
        emit activated(action);
}
