// The Desktop page of Settings: shortcut keys with the mechanism that carries them, and
// what it says about staying on top.
#include "shortcuts/GlobalShortcuts.h"
#include "shortcuts/ShortcutSettings.h"
#include "ui/DesktopSettingsPage.h"

#include <QApplication>
#include <QCheckBox>
#include <QDir>
#include <QDBusConnection>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QSettings>
#include <QSignalSpy>
#include <QTemporaryDir>
#include <QTest>

namespace {
// Grants every key it is given, as a desktop without conflicts would.
class GrantingBackend : public ShortcutBackend
{
public:
    QList<QList<Binding>> calls;
    void bind(const QList<Binding> &bindings) override
    {
        calls.append(bindings);
        QMap<QString, QString> triggers;
        for (const Binding &binding : bindings) {
            if (!binding.keys.isEmpty())
                triggers.insert(binding.id, binding.keys.toString());
        }
        emit bound(triggers);
    }
};
} // namespace

class DesktopSettingsPageTest : public QObject
{
    Q_OBJECT

private:
    QTemporaryDir m_dir;

private slots:
    void waylandWithoutXWaylandSaysSoInsteadOfACheckbox()
    {
        QSettings store(m_dir.filePath(QStringLiteral("a.conf")), QSettings::IniFormat);
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        ShortcutSettings settings(store, catalog);
        GlobalShortcuts global(settings, QDBusConnection::sessionBus(), false);
        DesktopSettingsPage page(settings, global, {false, false, false});
        QVERIFY(!page.xwaylandCheck());
        QVERIFY(page.stayOnTopNote());
        QCOMPARE(page.stayOnTopNote()->text(),
                 QStringLiteral("Your desktop doesn't let apps stay on top; use your window manager's 'Always on top' menu"));
    }

    void xwaylandChoiceIsOfferedWhereItExists()
    {
        QSettings store(m_dir.filePath(QStringLiteral("b.conf")), QSettings::IniFormat);
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        ShortcutSettings settings(store, catalog);
        GlobalShortcuts global(settings, QDBusConnection::sessionBus(), false);
        // Running through XWayland: the window stays on top, no note.
        DesktopSettingsPage through(settings, global, {true, true, true});
        QVERIFY(through.xwaylandCheck() && through.xwaylandCheck()->isChecked());
        QVERIFY(!through.stayOnTopNote());
        QSignalSpy chosen(&through, &DesktopSettingsPage::xwaylandChosen);
        through.xwaylandCheck()->click();
        QCOMPARE(chosen.size(), 1);
        QCOMPARE(chosen.first().first().toBool(), false);
        // Turned off: native Wayland, the note, and the way back.
        DesktopSettingsPage native(settings, global, {false, true, false});
        QVERIFY(native.xwaylandCheck() && !native.xwaylandCheck()->isChecked());
        QVERIFY(native.stayOnTopNote());
    }

    void keysAreEditedWithoutCollisions()
    {
        QSettings store(m_dir.filePath(QStringLiteral("c.conf")), QSettings::IniFormat);
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        ShortcutSettings settings(store, catalog);
        GlobalShortcuts global(settings, QDBusConnection::sessionBus(), false);
        auto backend = std::make_unique<GrantingBackend>();
        GrantingBackend *fake = backend.get();
        global.useBackend(std::move(backend), GlobalShortcuts::Mechanism::x11);
        DesktopSettingsPage page(settings, global, {true, false, false});
        QVERIFY(page.mechanismLabel()->text().contains(QStringLiteral("X11 key grabs")));

        QKeySequenceEdit *window = page.keyEdit(QStringLiteral("toggle-window"));
        QCOMPARE(window->keySequence(), catalog.find(QStringLiteral("toggle-window"))->defaultKeys);
        // The start/stop keys on show/hide: refused with a message, the field shows the old keys.
        window->setKeySequence(catalog.find(QStringLiteral("toggle-session"))->defaultKeys);
        emit window->editingFinished();
        QVERIFY(page.messageLabel()->text().contains(QStringLiteral("Start or stop the session")));
        QCOMPARE(window->keySequence(), catalog.find(QStringLiteral("toggle-window"))->defaultKeys);
        QCOMPARE(fake->calls.size(), 1);
        // New keys are bound at once; clearing takes the shortcut away.
        window->setKeySequence(QKeySequence(Qt::META | Qt::Key_F7));
        emit window->editingFinished();
        QVERIFY(page.messageLabel()->text().isEmpty());
        QCOMPARE(settings.keys(QStringLiteral("toggle-window")), QKeySequence(Qt::META | Qt::Key_F7));
        QCOMPARE(fake->calls.size(), 2);
        window->clear();
        QVERIFY(settings.keys(QStringLiteral("toggle-window")).isEmpty());
        QCOMPARE(fake->calls.size(), 3);
        QCOMPARE(fake->calls.last().size(), 3);

        // For reviewers, beside the UI tests' renders.
        page.resize(560, 520);
        const QString shots = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/screenshots");
        QVERIFY(QDir().mkpath(shots));
        QVERIFY(page.grab().save(shots + QStringLiteral("/settings-desktop.png")));
    }

    // What the page says for each mechanism, rendered for reviewers as
    // <build>/screenshots/settings-desktop-<mechanism>.png.
    void rendersEachMechanism()
    {
        QSettings store(m_dir.filePath(QStringLiteral("d.conf")), QSettings::IniFormat);
        const ShortcutCatalog catalog = ShortcutCatalog::standard();
        ShortcutSettings settings(store, catalog);
        const QString shots = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/screenshots");
        QVERIFY(QDir().mkpath(shots));
        const struct
        {
            const char *name;
            GlobalShortcuts::Mechanism mechanism;
            const char *says;
        } cases[] = {
            {"portal", GlobalShortcuts::Mechanism::portal, "XDG desktop portal"},
            {"kglobalaccel", GlobalShortcuts::Mechanism::kde, "KDE Plasma's shortcut service"},
            {"x11", GlobalShortcuts::Mechanism::x11, "X11 key grabs"},
        };
        for (const auto &state : cases) {
            GlobalShortcuts global(settings, QDBusConnection::sessionBus(), false);
            global.useBackend(std::make_unique<GrantingBackend>(), state.mechanism);
            DesktopSettingsPage page(settings, global, {true, true, true, false});
            QVERIFY2(page.mechanismLabel()->text().contains(QLatin1String(state.says)), state.name);
            page.resize(560, 520);
            QVERIFY(page.grab().save(shots + QStringLiteral("/settings-desktop-%1.png").arg(QLatin1String(state.name))));
        }
        // None: no bus, no X11 display. The page says why, and that --native-wayland was in vain.
        GlobalShortcuts none(settings, QDBusConnection(QStringLiteral("no bus")), false);
        none.start();
        QCOMPARE(none.mechanism(), GlobalShortcuts::Mechanism::none);
        DesktopSettingsPage page(settings, none, {true, true, true, true});
        QVERIFY(page.mechanismLabel()->text().contains(QStringLiteral("not on an X11 display")));
        bool pluginNote = false;
        for (const QLabel *label : page.findChildren<QLabel *>())
            pluginNote = pluginNote || label->text().contains(QStringLiteral("qt6-wayland"));
        QVERIFY(pluginNote);
        page.resize(560, 520);
        QVERIFY(page.grab().save(shots + QStringLiteral("/settings-desktop-none.png")));
    }
};

QTEST_MAIN(DesktopSettingsPageTest)
#include "tst_desktop_settings_page.moc"
