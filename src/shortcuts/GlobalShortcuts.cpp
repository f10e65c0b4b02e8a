#include "shortcuts/GlobalShortcuts.h"

#include "shortcuts/PortalShortcuts.h"
#include "shortcuts/ShortcutSettings.h"
#include "shortcuts/X11KeyGrabs.h"

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
            if (offered)
                adopt(std::make_unique<PortalShortcuts>(m_bus), Mechanism::portal);
            else
                fallBack();
        });
    });
}

void GlobalShortcuts::useBackend(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism)
{
    adopt(std::move(backend), mechanism);
}

void GlobalShortcuts::fallBack()
{
    if (m_x11Available && X11KeyGrabs::isAvailable()) {
        adopt(std::make_unique<X11KeyGrabs>(), Mechanism::x11);
        return;
    }
    m_backend.reset();
    m_mechanism = Mechanism::none;
    m_triggers.clear();
    emit statusChanged();
}

void GlobalShortcuts::adopt(std::unique_ptr<ShortcutBackend> backend, Mechanism mechanism)
{
    m_backend = std::move(backend);
    m_mechanism = mechanism;
    m_failure.clear();
    connect(m_backend.get(), &ShortcutBackend::activated, this, &GlobalShortcuts::activated);
    connect(m_backend.get(), &ShortcutBackend::bound, this, [this](const QMap<QString, QString> &triggers) {
        m_triggers = triggers;
        m_failure.clear();
        emit statusChanged();
    });
    connect(m_backend.get(), &ShortcutBackend::failed, this, [this](const QString &message) {
        m_triggers.clear();
        m_failure = message;
        emit statusChanged();
    });
    emit statusChanged();
    rebind();
}

void GlobalShortcuts::rebind()
{
    if (!m_backend)
        return;
    QList<ShortcutBackend::Binding> bindings;
    for (const ShortcutAction &action : m_settings.catalog().actions()) {
        const QKeySequence keys = m_settings.keys(action.id);
        // The portal lists every action so that the user can give one keys in the desktop's
        // settings; key grabs only need those with keys.
        if (!keys.isEmpty() || m_mechanism == Mechanism::portal)
            bindings.append({action.id, action.label, keys});
    }
    m_backend->bind(bindings);
}

QString GlobalShortcuts::statusText() const
{
    QString text;
    switch (m_mechanism) {
    case Mechanism::probing: return QStringLiteral("Looking for the desktop's global shortcut service…");
    case Mechanism::portal:
        text = QStringLiteral("Global shortcuts go through the desktop's shortcut service (XDG desktop portal); "
                              "the desktop may ask you to confirm them, and its own settings can change them.");
        break;
    case Mechanism::x11:
        text = QStringLiteral("Global shortcuts are X11 key grabs. On a Wayland desktop (through XWayland) they "
                              "work only while an X11 window has the focus.");
        break;
    case Mechanism::none:
        return QStringLiteral("No global shortcuts on this desktop: it offers no shortcut service (XDG desktop "
                              "portal) and the window is not on an X11 display.");
    }
    if (!m_failure.isEmpty())
        text += QLatin1Char(' ') + m_failure;
    return text;
}
