// Which display platform the window asks for, from the environment and the user's choice.
#include "app/PlatformChoice.h"

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

    void noDisplayLeavesQtToSay()
    {
        const PlatformChoice choice = PlatformChoice::choose(desktop("", ""));
        QVERIFY(choice.platform.isEmpty());
    }
};

QTEST_APPLESS_MAIN(PlatformChoiceTest)
#include "tst_platform_choice.moc"
