// Global shortcuts: the keys chosen in Settings, their names for the desktop's services, and
// the portal path end to end against a stand-in portal on a private session bus.
#include "PrivateBus.h"
#include "StandInPortal.h"

#include "shortcuts/GlobalShortcuts.h"
#include "shortcuts/KeyNames.h"
#include "shortcuts/ShortcutCatalog.h"
#include "shortcuts/ShortcutSettings.h"

#include <QDBusConnection>
#include <QFile>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

class ShortcutsTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;
    PrivateBus m_bus;

    QDBusConnection desktop() const { return QDBusConnection(QStringLiteral("desktop")); }

    std::unique_ptr<QSettings> freshStore(const QString &name)
    {
        const QString path = m_dir.filePath(name + QStringLiteral(".conf"));
        QFile::remove(path);
        return std::make_unique<QSettings>(path, QSettings::IniFormat);
    }

private slots:
    void initTestCase()
    {
        QVERIFY(m_dir.isValid());
        // A bus with no service files: whether a portal is installed on this machine must not
        // matter, only whether the test plays one.
        if (!m_bus.start())
            QSKIP("dbus-daemon could not be started (scripts/install-deps --tests installs it)");
        qputenv("DBUS_SESSION_BUS_ADDRESS", m_bus.address().toUtf8());
        QVERIFY(QDBusConnection::sessionBus().isConnected());
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("desktop")).isConnected());
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("desktop"));
        m_bus.stop();
    }

    void defaultsAreDistinctAndOutOfTheDesktopsWay()
    {
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        QStringList ids;
        QList<QKeySequence> keys;
        for (const ShortcutAction &action : catalog.actions()) {
            ids << action.id;
            QVERIFY2(!keys.contains(action.defaultKeys), qPrintable(action.id));
            keys << action.defaultKeys;
            // Ctrl+Alt+Shift: GNOME and Plasma keep Ctrl+Alt+<letter> (terminal, lock) and
            // Super for themselves; GNOME's screen recording is Ctrl+Alt+Shift+R.
            QVERIFY(action.defaultKeys[0].keyboardModifiers()
                    == (Qt::ControlModifier | Qt::AltModifier | Qt::ShiftModifier));
            QVERIFY(action.defaultKeys[0].key() != Qt::Key_R);
        }
        QCOMPARE(ids, (QStringList{QStringLiteral("toggle-session"), QStringLiteral("toggle-window"),
                                   QStringLiteral("scroll-to-newest"), QStringLiteral("copy-newest-answer")}));
        // More actions can join; an id twice can't.
        ShortcutCatalog extended = catalog;
        QVERIFY(extended.add({QStringLiteral("answer-from-screen"), QStringLiteral("Answer from screen"), {}}));
        QVERIFY(!extended.add({QStringLiteral("toggle-window"), QStringLiteral("Again"), {}}));
        QCOMPARE(extended.actions().size(), 5);
    }

    void chosenKeysPersistAndNeverCollide()
    {
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        auto store = freshStore(QStringLiteral("keys"));
        ShortcutSettings settings(*store, catalog);
        QSignalSpy changed(&settings, &ShortcutSettings::changed);
        const QString session = QStringLiteral("toggle-session");
        const QString window = QStringLiteral("toggle-window");

        QCOMPARE(settings.keys(session), catalog.find(session)->defaultKeys);
        QVERIFY(settings.setKeys(session, QKeySequence(Qt::META | Qt::Key_F9)).ok());
        QCOMPARE(changed.size(), 1);
        // Taken by another action: refused, nothing changes.
        const auto refused = settings.setKeys(window, QKeySequence(Qt::META | Qt::Key_F9));
        QVERIFY(!refused.ok());
        QCOMPARE(refused.error().actionID, session);
        QCOMPARE(settings.keys(window), catalog.find(window)->defaultKeys);
        QCOMPARE(changed.size(), 1);
        // Cleared stays cleared (not back to the default) across a reload.
        QVERIFY(settings.setKeys(window, QKeySequence()).ok());
        store->sync();
        QSettings reread(store->fileName(), QSettings::IniFormat);
        ShortcutSettings again(reread, catalog);
        QCOMPARE(again.keys(session), QKeySequence(Qt::META | Qt::Key_F9));
        QVERIFY(again.keys(window).isEmpty());
        // A default now used elsewhere can't come back until that one moves.
        QVERIFY(again.setKeys(session, catalog.find(window)->defaultKeys).ok());
        const auto notReset = again.resetToDefault(window);
        QVERIFY(!notReset.ok());
        QCOMPARE(notReset.error().actionID, session);
        QVERIFY(again.setKeys(session, QKeySequence()).ok());
        QVERIFY(again.resetToDefault(window).ok());
        QCOMPARE(again.keys(window), catalog.find(window)->defaultKeys);
        // A stored value that is no key sequence means off, not a crash or the default.
        reread.setValue(QStringLiteral("globalShortcuts/scroll-to-newest"), QStringLiteral("Ctrl+Nonsense+"));
        QVERIFY(again.keys(QStringLiteral("scroll-to-newest")).isEmpty());
    }

    void keyNamesForPortalAndX11()
    {
        QCOMPARE(KeyNames::portalTrigger(QKeySequence(Qt::CTRL | Qt::ALT | Qt::SHIFT | Qt::Key_K)),
                 QStringLiteral("CTRL+ALT+SHIFT+k"));
        QCOMPARE(KeyNames::portalTrigger(QKeySequence(Qt::META | Qt::Key_F9)), QStringLiteral("LOGO+F9"));
        QCOMPARE(KeyNames::portalTrigger(QKeySequence(Qt::CTRL | Qt::Key_PageDown)), QStringLiteral("CTRL+Page_Down"));
        QVERIFY(KeyNames::portalTrigger(QKeySequence()).isEmpty());
        QVERIFY(KeyNames::portalTrigger(QKeySequence(Qt::CTRL | Qt::Key_VolumeUp)).isEmpty());

        const auto k = KeyNames::x11Key(QKeySequence(Qt::CTRL | Qt::ALT | Qt::SHIFT | Qt::Key_K));
        QVERIFY(k);
        QCOMPARE(k->keysym, 0x6bu); // XK_k
        QCOMPARE(k->modifiers, std::uint16_t(1 | 4 | 8)); // Shift, Control, Mod1
        const auto f12 = KeyNames::x11Key(QKeySequence(Qt::META | Qt::Key_F12));
        QVERIFY(f12);
        QCOMPARE(f12->keysym, 0xffc9u); // XK_F12
        QCOMPARE(f12->modifiers, std::uint16_t(64)); // Mod4
    }

    void withoutPortalOrX11NoneIsReported()
    {
        // Nothing owns the portal's name on this bus yet.
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        auto store = freshStore(QStringLiteral("none"));
        ShortcutSettings settings(*store, catalog);
        GlobalShortcuts shortcuts(settings, QDBusConnection::sessionBus(), false);
        QCOMPARE(shortcuts.mechanism(), GlobalShortcuts::Mechanism::probing);
        shortcuts.start();
        QTRY_COMPARE_WITH_TIMEOUT(shortcuts.mechanism(), GlobalShortcuts::Mechanism::none, 10000);
        QVERIFY(shortcuts.statusText().startsWith(QStringLiteral("No global shortcuts on this desktop")));
    }

    void portalBindsActivatesAndRebinds()
    {
        StandInPortal portal(desktop());
        QVERIFY(desktop().registerVirtualObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                                QDBusConnection::SubPath));
        QVERIFY(desktop().registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
        portal.refused = QStringList{QStringLiteral("copy-newest-answer")};

        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        auto store = freshStore(QStringLiteral("portal"));
        ShortcutSettings settings(*store, catalog);
        QVERIFY(settings.setKeys(QStringLiteral("scroll-to-newest"), QKeySequence()).ok());
        GlobalShortcuts shortcuts(settings, QDBusConnection::sessionBus(), true);
        QSignalSpy activated(&shortcuts, &GlobalShortcuts::activated);
        shortcuts.start();

        // One session, every action listed (the cleared one without a preferred trigger), and
        // what the desktop granted shown per action.
        QTRY_COMPARE_WITH_TIMEOUT(shortcuts.triggers().size(), 2, 10000);
        QCOMPARE(shortcuts.mechanism(), GlobalShortcuts::Mechanism::portal);
        QCOMPARE(portal.registeredApps, QStringList{QStringLiteral("ketterbloom")});
        QCOMPARE(portal.sessions.size(), 1);
        QCOMPARE(portal.bindCalls.size(), 1);
        const QList<PortalShortcut> sent = portal.bindCalls.first();
        QCOMPARE(sent.size(), 4);
        QCOMPARE(sent.at(0).id, QStringLiteral("toggle-session"));
        QCOMPARE(sent.at(0).properties.value(QStringLiteral("description")).toString(),
                 QStringLiteral("Start or stop the session"));
        QCOMPARE(sent.at(0).properties.value(QStringLiteral("preferred_trigger")).toString(),
                 QStringLiteral("CTRL+ALT+SHIFT+s"));
        QVERIFY(!sent.at(2).properties.contains(QStringLiteral("preferred_trigger")));
        QCOMPARE(shortcuts.triggers().value(QStringLiteral("toggle-window")), QStringLiteral("CTRL+ALT+SHIFT+k"));
        QVERIFY(!shortcuts.triggers().contains(QStringLiteral("copy-newest-answer")));
        QVERIFY(shortcuts.statusText().contains(QStringLiteral("XDG desktop portal")));

        const QString firstSession = portal.sessions.first();
        portal.activate(firstSession, QStringLiteral("toggle-window"));
        QTRY_COMPARE_WITH_TIMEOUT(activated.size(), 1, 5000);
        QCOMPARE(activated.first().first().toString(), QStringLiteral("toggle-window"));

        // New keys: the old session closes and a new one carries them.
        QVERIFY(settings.setKeys(QStringLiteral("toggle-window"), QKeySequence(Qt::META | Qt::Key_F8)).ok());
        QTRY_COMPARE_WITH_TIMEOUT(portal.bindCalls.size(), 2, 10000);
        QTRY_COMPARE_WITH_TIMEOUT(shortcuts.triggers().value(QStringLiteral("toggle-window")),
                                  QStringLiteral("LOGO+F8"), 10000);
        QCOMPARE(portal.sessions.size(), 2);
        QVERIFY(portal.closedSessions.contains(firstSession));

        // A press reported for the closed session is not ours any more.
        portal.activate(firstSession, QStringLiteral("toggle-session"));
        portal.activate(portal.sessions.last(), QStringLiteral("toggle-session"));
        QTRY_COMPARE_WITH_TIMEOUT(activated.size(), 2, 5000);
        QTest::qWait(100);
        QCOMPARE(activated.size(), 2);
        QCOMPARE(activated.last().first().toString(), QStringLiteral("toggle-session"));

        desktop().unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
        desktop().unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"), QDBusConnection::UnregisterTree);
    }

    void aPortalGrantingFewerThanAskedGivesWay()
    {
        // Answers "success" without one of the shortcuts (KDE Plasma 5.27 leaves them all out).
        StandInPortal portal(desktop());
        portal.dropped = QStringList{QStringLiteral("toggle-window")};
        QVERIFY(desktop().registerVirtualObject(QStringLiteral("/org/freedesktop/portal/desktop"), &portal,
                                                QDBusConnection::SubPath));
        QVERIFY(desktop().registerService(QStringLiteral("org.freedesktop.portal.Desktop")));
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        auto store = freshStore(QStringLiteral("fewer"));
        ShortcutSettings settings(*store, catalog);
        GlobalShortcuts shortcuts(settings, QDBusConnection::sessionBus(), false);
        QSignalSpy settled(&shortcuts, &GlobalShortcuts::settled);
        shortcuts.start();
        // No KDE service on this bus and no X11 display: none, and the page says why.
        QTRY_COMPARE_WITH_TIMEOUT(settled.size(), 1, 10000);
        QCOMPARE(shortcuts.mechanism(), GlobalShortcuts::Mechanism::none);
        QCOMPARE(portal.bindCalls.size(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(portal.closedSessions.size() == 1, 5000);
        QVERIFY(shortcuts.statusText().contains(QStringLiteral("granted 3 of 4 shortcuts")));
        QVERIFY(shortcuts.statusText().contains(QStringLiteral("not on an X11 display")));

        desktop().unregisterService(QStringLiteral("org.freedesktop.portal.Desktop"));
        desktop().unregisterObject(QStringLiteral("/org/freedesktop/portal/desktop"), QDBusConnection::UnregisterTree);
    }
};

QTEST_MAIN(ShortcutsTest)
#include "tst_shortcuts.moc"
