#include "shortcuts/PortalShortcuts.h"

#include "shortcuts/KeyNames.h"
#include "shortcuts/PortalShortcut.h"
#include "shortcuts/ShortcutsLogging.h"

#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDBusVariant>
#include <QPointer>
#include <QRandomGenerator>

namespace {
constexpr const char *requestInterface = "org.freedesktop.portal.Request";
constexpr const char *sessionInterface = "org.freedesktop.portal.Session";
constexpr int probeTimeoutMs = 3000;

QString latin(const char *text) { return QString::fromLatin1(text); }

enum PortalResponse : uint { success = 0, cancelled = 1 };
} // namespace

void PortalShortcuts::registerApplication(const QDBusConnection &bus, const QString &appID, QObject *context,
                                          std::function<void()> done)
{
    if (!bus.isConnected()) {
        done();
        return;
    }
    QDBusMessage call = QDBusMessage::createMethodCall(latin(service), latin(objectPath),
                                                       QStringLiteral("org.freedesktop.host.portal.Registry"),
                                                       QStringLiteral("Register"));
    call << appID << QVariantMap();
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, probeTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context, [watcher, done = std::move(done)] {
        watcher->deleteLater();
        if (watcher->isError())
            qCInfo(lcShortcuts).noquote() << "[Ketterbloom] portal registration:" << watcher->error().message();
        done();
    });
}

void PortalShortcuts::probe(const QDBusConnection &bus, QObject *context, std::function<void(bool)> done)
{
    if (!bus.isConnected()) {
        done(false);
        return;
    }
    QDBusMessage get = QDBusMessage::createMethodCall(latin(service), latin(objectPath),
                                                      QStringLiteral("org.freedesktop.DBus.Properties"),
                                                      QStringLiteral("Get"));
    get << latin(interface) << QStringLiteral("version");
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(get, probeTimeoutMs), context);
    QObject::connect(watcher, &QDBusPendingCallWatcher::finished, context,
                     [watcher, done = std::move(done)] {
                         watcher->deleteLater();
                         const QDBusPendingReply<QDBusVariant> reply = *watcher;
                         if (reply.isError()) {
                             qCInfo(lcShortcuts).noquote()
                                 << "[Ketterbloom] no global shortcuts portal:" << reply.error().message();
                             done(false);
                             return;
                         }
                         qCInfo(lcShortcuts) << "[Ketterbloom] global shortcuts portal, version"
                                             << reply.value().variant().toUInt();
                         done(true);
                     });
}

PortalShortcuts::PortalShortcuts(const QDBusConnection &bus, QObject *parent)
    : ShortcutBackend(parent)
    , m_bus(bus)
{
    PortalShortcut::registerTypes();
    // The arguments are read from the message, which takes any signature the desktop sends.
    m_bus.connect(latin(service), latin(objectPath), latin(interface), QStringLiteral("Activated"), this,
                  SLOT(onActivated(QDBusMessage)));
    m_bus.connect(latin(service), latin(objectPath), latin(interface), QStringLiteral("ShortcutsChanged"), this,
                  SLOT(onShortcutsChanged(QDBusMessage)));
}

PortalShortcuts::~PortalShortcuts()
{
    closeSession();
}

void PortalShortcuts::bind(const QList<Binding> &bindings)
{
    m_bindings = bindings;
    if (m_step != Step::idle) {
        // Bound again with the newest list once the call under way has its answer.
        m_rebindWhenDone = true;
        return;
    }
    // Desktops accept one set of bindings per session: a new list gets a new session.
    closeSession();
    createSession();
}

QString PortalShortcuts::nextToken()
{
    return QStringLiteral("ketterbloom%1_%2").arg(++m_tokenCounter).arg(QRandomGenerator::global()->bounded(1u << 30));
}

QString PortalShortcuts::requestPath(const QString &token) const
{
    // The portal names a request after the caller's unique bus name (":1.42" -> "1_42").
    QString sender = m_bus.baseService();
    sender.remove(0, sender.startsWith(QLatin1Char(':')) ? 1 : 0).replace(QLatin1Char('.'), QLatin1Char('_'));
    return QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
}

void PortalShortcuts::request(QDBusMessage call, const QString &token, Step step)
{
    // Listen before calling, so that a quick answer is not missed.
    m_pendingRequest = requestPath(token);
    m_step = step;
    m_bus.connect(latin(service), m_pendingRequest, latin(requestInterface), QStringLiteral("Response"), this,
                  SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
    auto *watcher = new QDBusPendingCallWatcher(m_bus.asyncCall(call), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, watcher, step] {
        watcher->deleteLater();
        const QDBusPendingReply<QDBusObjectPath> reply = *watcher;
        if (m_step != step)
            return;
        if (reply.isError()) {
            fail(tr("The desktop's shortcut service refused: %1").arg(reply.error().message()));
            return;
        }
        // Older portals choose the request path themselves.
        const QString handle = reply.value().path();
        if (handle != m_pendingRequest) {
            m_bus.disconnect(latin(service), m_pendingRequest, latin(requestInterface), QStringLiteral("Response"),
                             this, SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
            m_pendingRequest = handle;
            m_bus.connect(latin(service), handle, latin(requestInterface), QStringLiteral("Response"), this,
                          SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
        }
    });
}

void PortalShortcuts::createSession()
{
    const QString token = nextToken();
    QDBusMessage call = QDBusMessage::createMethodCall(latin(service), latin(objectPath), latin(interface),
                                                       QStringLiteral("CreateSession"));
    call << QVariantMap{{QStringLiteral("handle_token"), token},
                        {QStringLiteral("session_handle_token"), nextToken()}};
    request(call, token, Step::creatingSession);
}

void PortalShortcuts::sendBindings()
{
    QList<PortalShortcut> shortcuts;
    for (const Binding &binding : std::as_const(m_bindings)) {
        PortalShortcut shortcut{binding.id, {{QStringLiteral("description"), binding.label}}};
        const QString trigger = KeyNames::portalTrigger(binding.keys);
        if (!trigger.isEmpty())
            shortcut.properties.insert(QStringLiteral("preferred_trigger"), trigger);
        shortcuts.append(shortcut);
    }
    const QString token = nextToken();
    QDBusMessage call = QDBusMessage::createMethodCall(latin(service), latin(objectPath), latin(interface),
                                                       QStringLiteral("BindShortcuts"));
    call << QVariant::fromValue(QDBusObjectPath(m_session)) << QVariant::fromValue(shortcuts) << QString()
         << QVariantMap{{QStringLiteral("handle_token"), token}};
    request(call, token, Step::binding);
}

void PortalShortcuts::closeSession()
{
    if (m_session.isEmpty())
        return;
    m_bus.asyncCall(QDBusMessage::createMethodCall(latin(service), m_session, latin(sessionInterface),
                                                   QStringLiteral("Close")));
    m_session.clear();
}

void PortalShortcuts::onResponse(uint response, const QVariantMap &results, const QDBusMessage &message)
{
    if (message.path() != m_pendingRequest)
        return;
    m_bus.disconnect(latin(service), m_pendingRequest, latin(requestInterface), QStringLiteral("Response"), this,
                     SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
    m_pendingRequest.clear();
    const Step step = m_step;
    m_step = Step::idle;

    if (m_rebindWhenDone) {
        m_rebindWhenDone = false;
        if (step == Step::creatingSession && response == success)
            m_session = results.value(QStringLiteral("session_handle")).toString();
        bind(m_bindings);
        return;
    }
    if (response != success) {
        fail(response == cancelled ? tr("Global shortcuts were declined in the desktop's dialog.")
                                   : tr("The desktop's shortcut service could not set up the shortcuts."));
        return;
    }
    if (step == Step::creatingSession) {
        // A string by the interface's definition; some portals send an object path.
        const QVariant handle = results.value(QStringLiteral("session_handle"));
        m_session = handle.userType() == qMetaTypeId<QDBusObjectPath>() ? handle.value<QDBusObjectPath>().path()
                                                                          : handle.toString();
        if (m_session.isEmpty()) {
            fail(tr("The desktop's shortcut service gave no session."));
            return;
        }
        sendBindings();
        return;
    }
    emitBound(results.value(QStringLiteral("shortcuts")), true);
}

void PortalShortcuts::emitBound(const QVariant &shortcuts, bool checkGrant)
{
    QList<PortalShortcut> list;
    if (shortcuts.userType() == qMetaTypeId<QDBusArgument>())
        shortcuts.value<QDBusArgument>() >> list;
    else
        list = shortcuts.value<QList<PortalShortcut>>();
    QMap<QString, QString> triggers;
    QStringList granted;
    for (const PortalShortcut &shortcut : std::as_const(list)) {
        granted.append(shortcut.id);
        const QString shown = shortcut.properties.value(QStringLiteral("trigger_description")).toString();
        if (!shown.isEmpty())
            triggers.insert(shortcut.id, shown);
    }
    if (checkGrant) {
        // What the desktop answers is the grant, not what was asked: some portals answer
        // "success" with no shortcuts at all (KDE Plasma 5.27 for an application outside a
        // sandbox). A shortcut listed without keys is the desktop's choice and stays.
        int missing = 0;
        for (const Binding &binding : std::as_const(m_bindings))
            missing += granted.contains(binding.id) ? 0 : 1;
        if (missing > 0) {
            fail(tr("The desktop's shortcut service granted %1 of %2 shortcuts.")
                     .arg(m_bindings.size() - missing)
                     .arg(m_bindings.size()));
            return;
        }
    }
    emit bound(triggers);
}

// Activated(o session_handle, s shortcut_id, t timestamp, a{sv} options)
void PortalShortcuts::onActivated(const QDBusMessage &message)
{
    const QList<QVariant> args = message.arguments();
    if (args.size() < 2 || m_session.isEmpty() || args.at(0).value<QDBusObjectPath>().path() != m_session)
        return;
    emit activated(args.at(1).toString());
}

// ShortcutsChanged(o session_handle, a(sa{sv}) shortcuts): changed in the desktop's settings.
void PortalShortcuts::onShortcutsChanged(const QDBusMessage &message)
{
    const QList<QVariant> args = message.arguments();
    if (args.size() < 2 || m_session.isEmpty() || args.at(0).value<QDBusObjectPath>().path() != m_session)
        return;
    emitBound(args.at(1), false);
}

void PortalShortcuts::fail(const QString &message)
{
    m_step = Step::idle;
    m_rebindWhenDone = false;
    if (!m_pendingRequest.isEmpty()) {
        m_bus.disconnect(latin(service), m_pendingRequest, latin(requestInterface), QStringLiteral("Response"),
                         this, SLOT(onResponse(uint, QVariantMap, QDBusMessage)));
        m_pendingRequest.clear();
    }
    closeSession();
    qCWarning(lcShortcuts).noquote() << "[Ketterbloom]" << message;
    emit failed(message);
}
