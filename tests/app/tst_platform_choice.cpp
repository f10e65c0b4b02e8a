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
    // What the desktop offers and what the user chose: the platform, whether "stay on top"
    // works there, and whether Settings offers XWayland (still offered when turned off, so
    // that it can be turned back on).
    void choice_data()
    {
        QTest::addColumn<QByteArray>("wayland");
        QTest::addColumn<QByteArray>("x11");
        QTest::addColumn<bool>("xwaylandSetting");
        QTest::addColumn<bool>("nativeFlag");
        QTest::addColumn<QByteArray>("platform");
        QTest::addColumn<bool>("onTop");
        QTest::addColumn<bool>("offered");
        QTest::newRow("Wayland with XWayland") << QByteArray("wayland-0") << QByteArray(":0") << true << false
                                               << QByteArray("xcb") << true << true;
        QTest::newRow("Wayland only") << QByteArray("wayland-0") << QByteArray() << true << false
                                      << QByteArray("wayland") << false << false;
        QTest::newRow("X11") << QByteArray() << QByteArray(":1") << true << false << QByteArray("xcb") << true << false;
        QTest::newRow("XWayland off in Settings") << QByteArray("wayland-0") << QByteArray(":0") << false << false
                                                  << QByteArray("wayland") << false << true;
        QTest::newRow("native Wayland flag") << QByteArray("wayland-0") << QByteArray(":0") << true << true
                                             << QByteArray("wayland") << false << true;
        // Off on plain X11 changes nothing: there is no Wayland to prefer.
        QTest::newRow("XWayland off on X11") << QByteArray() << QByteArray(":0") << false << false
                                             << QByteArray("xcb") << true << false;
    }

    void choice()
    {
        QFETCH(QByteArray, wayland);
        QFETCH(QByteArray, x11);
        QFETCH(bool, xwaylandSetting);
        QFETCH(bool, nativeFlag);
        PlatformChoice::Inputs inputs = desktop(wayland.constData(), x11.constData());
        inputs.useXWaylandSetting = xwaylandSetting;
        inputs.nativeWaylandFlag = nativeFlag;
        const PlatformChoice choice = PlatformChoice::choose(inputs);
        QTEST(choice.platform, "platform");
        QTEST(choice.stayOnTopWorks, "onTop");
        QTEST(choice.xwaylandOffered, "offered");
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
