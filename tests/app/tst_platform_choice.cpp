// Which display platform the window asks for, from the environment and the user's choice.
#include "app/PlatformChoice.h"

#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

class PlatformChoiceTest : public QObject
{
    Q_OBJECT

private:
    static PlatformChoice::Inputs desktop(const char *wayland, const char *x11)
    {
        PlatformChoice::Inputs inputs;
        inputs.waylandDisplay = wayland;
        inputs.x11Display = x11;
        return inputs;
    }

private slots:
    void waylandWithXWaylandGoesThroughXcb()
    {
        const PlatformChoice choice = PlatformChoice::choose(desktop("wayland-0", ":0"));
        QCOMPARE(choice.platform, QByteArray("xcb"));
        QVERIFY(choice.stayOnTopWorks);
        QVERIFY(choice.xwaylandOffered);
    }

    void waylandOnlyIsNativeAndSaysSo()
    {
        const PlatformChoice choice = PlatformChoice::choose(desktop("wayland-0", ""));
        QCOMPARE(choice.platform, QByteArray("wayland"));
        QVERIFY(!choice.stayOnTopWorks);
        QVERIFY(!choice.xwaylandOffered);
    }

    void x11IsXcb()
    {
        const PlatformChoice choice = PlatformChoice::choose(desktop("", ":1"));
        QCOMPARE(choice.platform, QByteArray("xcb"));
        QVERIFY(choice.stayOnTopWorks);
        QVERIFY(!choice.xwaylandOffered);
    }

    void settingOrFlagKeepsWaylandNative()
    {
        PlatformChoice::Inputs bySetting = desktop("wayland-0", ":0");
        bySetting.useXWaylandSetting = false;
        PlatformChoice::Inputs byFlag = desktop("wayland-0", ":0");
        byFlag.nativeWaylandFlag = true;
        for (const PlatformChoice::Inputs &inputs : {bySetting, byFlag}) {
            const PlatformChoice choice = PlatformChoice::choose(inputs);
            QCOMPARE(choice.platform, QByteArray("wayland"));
            QVERIFY(!choice.stayOnTopWorks);
            // Still offered, so that Settings can turn it back on.
            QVERIFY(choice.xwaylandOffered);
        }
        // Off on plain X11 changes nothing: there is no Wayland to prefer.
        PlatformChoice::Inputs x11 = desktop("", ":0");
        x11.useXWaylandSetting = false;
        QCOMPARE(PlatformChoice::choose(x11).platform, QByteArray("xcb"));
    }

    void withoutTheWaylandPluginXWaylandIsUsedAnyway()
    {
        PlatformChoice::Inputs inputs = desktop("wayland-0", ":0");
        inputs.nativeWaylandFlag = true;
        inputs.waylandPluginInstalled = false;
        const PlatformChoice choice = PlatformChoice::choose(inputs);
        QCOMPARE(choice.platform, QByteArray("xcb"));
        QVERIFY(choice.stayOnTopWorks);
        QVERIFY(choice.waylandPluginMissing); // said on stderr and in Settings
        inputs.nativeWaylandFlag = false;
        QVERIFY(!PlatformChoice::choose(inputs).waylandPluginMissing); // not asked for: nothing to say

        // The plugin is found where Qt looks: QT_PLUGIN_PATH's folders, then Qt's own.
        QTemporaryDir empty;
        QTemporaryDir extra;
        QVERIFY(QDir(extra.path()).mkpath(QStringLiteral("platforms")));
        QFile plugin(extra.filePath(QStringLiteral("platforms/libqwayland-generic.so")));
        QVERIFY(plugin.open(QIODevice::WriteOnly));
        plugin.close();
        QVERIFY(!PlatformChoice::waylandPluginIn("", empty.path()));
        QVERIFY(PlatformChoice::waylandPluginIn("/nowhere:" + extra.path().toLocal8Bit(), empty.path()));
        QVERIFY(PlatformChoice::waylandPluginIn("", extra.path()));
    }

    void anExplicitQtPlatformIsRespected()
    {
        PlatformChoice::Inputs inputs = desktop("wayland-0", ":0");
        inputs.qpaPlatform = "wayland";
        PlatformChoice choice = PlatformChoice::choose(inputs);
        QVERIFY(choice.platform.isEmpty());
        QVERIFY(!choice.stayOnTopWorks);
        inputs.qpaPlatform = "offscreen";
        choice = PlatformChoice::choose(inputs);
        QVERIFY(choice.platform.isEmpty());
        QVERIFY(choice.stayOnTopWorks);
    }

    // With nothing to show a window on, the program says so itself rather than leaving it to
    // Qt, whose abort blames a missing library; platforms that need no display are left alone.
    void noDisplayIsToldApart_data()
    {
        QTest::addColumn<QByteArray>("wayland");
        QTest::addColumn<QByteArray>("x11");
        QTest::addColumn<QByteArray>("qpa");
        QTest::addColumn<bool>("noDisplay");
        QTest::newRow("nothing set") << QByteArray() << QByteArray() << QByteArray() << true;
        QTest::newRow("xcb asked, no DISPLAY") << QByteArray("wayland-0") << QByteArray() << QByteArray("xcb") << true;
        QTest::newRow("wayland asked, none") << QByteArray() << QByteArray(":0") << QByteArray("wayland") << true;
        QTest::newRow("offscreen") << QByteArray() << QByteArray() << QByteArray("offscreen") << false;
        QTest::newRow("xcb on X11") << QByteArray() << QByteArray(":0") << QByteArray("xcb") << false;
        QTest::newRow("X11 only") << QByteArray() << QByteArray(":0") << QByteArray() << false;
        QTest::newRow("Wayland only") << QByteArray("wayland-0") << QByteArray() << QByteArray() << false;
    }

    void noDisplayIsToldApart()
    {
        QFETCH(QByteArray, wayland);
        QFETCH(QByteArray, x11);
        QFETCH(QByteArray, qpa);
        QFETCH(bool, noDisplay);
        PlatformChoice::Inputs inputs = desktop(wayland.constData(), x11.constData());
        inputs.qpaPlatform = qpa;
        QCOMPARE(PlatformChoice::choose(inputs).noDisplay, noDisplay);
    }
};

QTEST_APPLESS_MAIN(PlatformChoiceTest)
#include "tst_platform_choice.moc"
