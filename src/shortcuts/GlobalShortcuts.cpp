#include "shortcuts/GlobalShortcuts.h"

#include "shortcuts/KdeShortcuts.h"
#include "shortcuts/PortalShortcuts.h"
#include "shortcuts/ShortcutSettings.h"
#include "shortcuts/ShortcutsLogging.h"
#include "shortcuts/X11KeyGrabs.h"

#include <QTimer>

GlobalShortcuts::GlobalShortcuts(ShortcutSettings &settings, const QDBusConnection &bus, bool x11Available,
                                 QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_bus(bus)
    , m_x11Available(x11Available)
{
    connect(&m_settings, &ShortcutSettings::changed, this, &GlobalShortcuts::rebind);
}

GlobalShortcuts::~GlobalShortcuts() = default;

void GlobalShortcuts::start()
{
    PortalShortcuts::registerApplication(m_bus, QString::fromLatin1(appID), this, [this] {
        PortalShortcuts::probe(m_bus, this, [this](bool offered) {
            if (m_mechanism != Mechanism::probing)
                return;
            if (offered) {
                adopt(std::make_unique<PortalShortcuts>(m_bus), Mechanism::portal);
            } else {
                m_passedOver.append(tr("The desktop offers no shortcut service (XDG desktop portal)."));
                tryKde();
            }
        });
    });
}

void GlobalShortcuts::useBackend(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism)
{
    adopt(std::move(backend), mechanism);
    m_proven = true;
}

void GlobalShortcuts::tryKde()
{
    KdeShortcuts::probe(m_bus, this, [this](bool running) {
        if (running)
            adopt(std::make_unique<KdeShortcuts>(m_bus, QString::fromLatin1(appID), QStringLiteral("Ketterbloom")),
                  Mechanism::kde);
        else
            tryX11();
    });
}

void GlobalShortcuts::tryX11()
{
    if (m_x11Available && X11KeyGrabs::isAvailable()) {
        adopt(std::make_unique<X11KeyGrabs>(), Mechanism::x11);
        return;
    }
    m_passedOver.append(tr("The window is not on an X11 display, so keys can't be grabbed."));
    settle(Mechanism::none);
}

void GlobalShortcuts::giveWay(const QString &reason)
{
    // Called from the backend's own signal: it goes once control is back in the event loop.
    if (m_backend)
        m_backend.release()->deleteLater();
    const Mechanism failed = m_mechanism;
    m_passedOver.append(failed == Mechanism::portal ? tr("Desktop portal: %1").arg(reason) : reason);
    m_mechanism = Mechanism::probing;
    if (failed == Mechanism::portal)
        tryKde();
    else
        tryX11();
}

void GlobalShortcuts::settle(Mechanism mechanism)
{
    if (mechanism == Mechanism::none) {
        m_backend.reset();
        m_triggers.clear();
    }
    m_mechanism = mechanism;
    emit statusChanged();
    emit settled();
}

void GlobalShortcuts::adopt(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism)
{
    m_backend = std::move(backend);
    m_mechanism = mechanism;
    m_proven = false;
    m_failure.clear();
    ShortcutBackend *current = m_backend.get();
    connect(current, &ShortcutBackend::activated, this, [this, mechanism](const QString &id) {
        qCInfo(lcShortcuts).noquote() << "[Ketterbloom] global shortcut" << id << "through"
                                      << mechanismName(mechanism);
        emit activated(id);
    });
    connect(current, &ShortcutBackend::bound, this, [this](const QMap<QString, QString> &triggers) {
        m_triggers = triggers;
        m_failure.clear();
        if (!m_proven) {
            m_proven = true;
            settle(m_mechanism);
            return;
        }
        emit statusChanged();
    });
    connect(current, &ShortcutBackend::failed, this, [this](const QString &message) {
        if (!m_proven && m_mechanism != Mechanism::x11) {
            giveWay(message);
            return;
        }
        m_triggers.clear();
        m_failure = message;
        if (!m_proven) {
            m_proven = true;
            settle(m_mechanism);
            return;
        }
        emit statusChanged();
    });
    rebind();
}

void GlobalShortcuts::rebind()
{
    if (!m_backend)
        return;
    QList<ShortcutBackend::Binding> bindings;
    for (const ShortcutAction &action : m_settings.catalog().actions()) {
        const QKeySequence keys = m_settings.keys(action.id);
        // The desktop's services list every action so that the user can give one keys in the
        // desktop's settings; key grabs only need those with keys.
        if (!keys.isEmpty() || m_mechanism != Mechanism::x11)
            bindings.append({action.id, action.label, keys});
    }
    m_backend->bind(bindings);
}

QString GlobalShortcuts::mechanismName(Mechanism mechanism)
{
    switch (mechanism) {
    case Mechanism::probing: return QStringLiteral("(looking)");
    case Mechanism::portal: return QStringLiteral("desktop portal");
    case Mechanism::kde: return QStringLiteral("kglobalaccel");
    case Mechanism::x11: return QStringLiteral("X11 key grabs");
    case Mechanism::none: break;
    }
    return QStringLiteral("none");
}

QString GlobalShortcuts::statusText() const
{
    QString text;
    switch (m_mechanism) {
    case Mechanism::probing: return tr("Looking for the desktop's global shortcut service…");
    case Mechanism::portal:
        text = tr("Global shortcuts go through the desktop's shortcut service (XDG desktop portal); "
                  "the desktop may ask you to confirm them, and its own settings can change them.");
        break;
    case Mechanism::kde:
        text = tr("Global shortcuts go through KDE Plasma's shortcut service; Plasma's Shortcuts "
                  "settings list them under Ketterbloom and can change them.");
        break;
    case Mechanism::x11:
        text = tr("Global shortcuts are X11 key grabs. On a Wayland desktop (through XWayland) they "
                  "work only while an X11 window has the focus.");
        break;
    case Mechanism::none:
        return tr("No global shortcuts on this desktop. %1").arg(m_passedOver.join(QLatin1Char(' ')));
    }
    if (!m_passedOver.isEmpty() && m_mechanism != Mechanism::portal)
        text += tr(" (Passed over: %1)").arg(m_passedOver.join(QLatin1Char(' ')));
    if (!m_failure.isEmpty())
        text += QLatin1Char(' ') + m_failure;
    return text;
}
