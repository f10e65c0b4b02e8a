#include "screenshot/ScreenshotTaker.h"
#include "screenshot/X11ScreenGrab.h"

#include "PrivateBus.h"
#include "XvfbServer.h"

#include <QApplication>
#include <QDBusConnection>
#include <QScreen>
#include <QSignalSpy>
#include <QTest>
#include <QWidget>

// The X11 path against a real X server: a coloured window is put on an Xvfb screen and must
// show up in the grab. Runs the application on the xcb platform; skips only when Xvfb cannot
// be started (scripts/install-deps --tests installs it).
class TestScreenshotX11 : public QObject
{
    Q_OBJECT
public:
    explicit TestScreenshotX11(bool haveX) : m_haveX(haveX) {}

private:
    bool m_haveX;
    std::unique_ptr<QWidget> m_window;

private slots:
    void initTestCase()
    {
        qRegisterMetaType<ScreenshotResult>();
        if (!m_haveX)
            QSKIP("Xvfb could not be started");
        QCOMPARE(QGuiApplication::platformName(), QStringLiteral("xcb"));
        QVERIFY(X11ScreenGrab::isAvailable());
        // No window manager runs: place the window ourselves.
        m_window = std::make_unique<QWidget>(nullptr, Qt::X11BypassWindowManagerHint | Qt::FramelessWindowHint);
        m_window->setAutoFillBackground(true);
        QPalette palette = m_window->palette();
        palette.setColor(QPalette::Window, QColor(230, 20, 30));
        m_window->setPalette(palette);
        m_window->setGeometry(200, 150, 120, 80);
        m_window->show();
        QVERIFY(QTest::qWaitForWindowExposed(m_window.get(), 10000));
    }

    void rootWindowGrabShowsTheScreen()
    {
        // The X server draws asynchronously; wait until the window's colour is on the screen.
        ScreenshotResult result;
        QTRY_VERIFY_WITH_TIMEOUT(
            (result = X11ScreenGrab::grab(nullptr)).isCaptured() && result.image.pixelColor(260, 190) == QColor(230, 20, 30),
            10000);
        QCOMPARE(result.image.size(), QSize(1024, 768));
        QCOMPARE(result.image.pixelColor(10, 10) == QColor(230, 20, 30), false);
    }

    // Without a portal on the session bus, the taker falls back to the X11 grab.
    void takerFallsBackToX11WithoutPortal()
    {
        PrivateBus bus;
        if (!bus.start())
            QSKIP("dbus-daemon could not be started");
        QDBusConnection connection = QDBusConnection::connectToBus(bus.address(), QStringLiteral("x11test"));
        QVERIFY(connection.isConnected());
        {
            ScreenshotTaker taker(connection);
            QSignalSpy finished(&taker, &ScreenshotTaker::finished);
            taker.take(QString(), QGuiApplication::primaryScreen());
            QVERIFY(!finished.isEmpty() || finished.wait(20000));
            const auto result = finished.first().first().value<ScreenshotResult>();
            QCOMPARE(result.outcome, ScreenshotResult::Outcome::captured);
            QCOMPARE(taker.lastSource(), ScreenshotTaker::Source::x11);
            QCOMPARE(result.image.pixelColor(260, 190), QColor(230, 20, 30));
        }
        QDBusConnection::disconnectFromBus(QStringLiteral("x11test"));
    }

    void cleanupTestCase() { m_window.reset(); }
};

int main(int argc, char *argv[])
{
    XvfbServer xvfb;
    const QByteArray display = xvfb.start();
    const bool haveX = !display.isEmpty();
    if (haveX) {
        qputenv("DISPLAY", display);
        qputenv("QT_QPA_PLATFORM", "xcb");
    }
    int code = 0;
    {
        QApplication app(argc, argv);
        TestScreenshotX11 test(haveX);
        code = QTest::qExec(&test, argc, argv);
    }
    return code;
}

#include "tst_screenshot_x11.moc"
