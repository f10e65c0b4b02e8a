// X11 key grabs on a private X server (Xvfb): a grabbed combination pressed anywhere fires
// its action, Caps Lock or not; one another client holds first is reported as not bound.
#include "shortcuts/ShortcutBackend.h"
#include "shortcuts/X11KeyGrabs.h"

#include <QGuiApplication>
#include <QProcess>
#include <QSignalSpy>
#include <QTest>

#include <xcb/xcb.h>
#include <xcb/xcb_keysyms.h>
#include <xcb/xtest.h>

#include <cstdlib>

namespace {
constexpr xcb_keysym_t controlL = 0xffe3, altL = 0xffe9, shiftL = 0xffe1, capsLock = 0xffe5;

QString display;
} // namespace

class X11KeyGrabsTest : public QObject
{
    Q_OBJECT

private:
    xcb_connection_t *m_connection = nullptr;
    xcb_key_symbols_t *m_symbols = nullptr;
    xcb_window_t m_root = 0;

    xcb_keycode_t code(xcb_keysym_t keysym)
    {
        xcb_keycode_t *codes = xcb_key_symbols_get_keycode(m_symbols, keysym);
        const xcb_keycode_t first = codes ? codes[0] : 0;
        std::free(codes);
        return first;
    }

    // Presses keysyms in order and releases them in reverse, as a person would.
    void press(const QList<xcb_keysym_t> &keys)
    {
        for (xcb_keysym_t key : keys)
            xcb_test_fake_input(m_connection, XCB_KEY_PRESS, code(key), XCB_CURRENT_TIME, m_root, 0, 0, 0);
        for (auto it = keys.crbegin(); it != keys.crend(); ++it)
            xcb_test_fake_input(m_connection, XCB_KEY_RELEASE, code(*it), XCB_CURRENT_TIME, m_root, 0, 0, 0);
        xcb_flush(m_connection);
    }

    static QList<ShortcutBackend::Binding> bindings()
    {
        constexpr auto chord = Qt::CTRL | Qt::ALT | Qt::SHIFT;
        return {{QStringLiteral("toggle-window"), QStringLiteral("Show or hide"), QKeySequence(chord | Qt::Key_K)},
                {QStringLiteral("scroll-to-newest"), QStringLiteral("Scroll"), QKeySequence(chord | Qt::Key_N)}};
    }

private slots:
    void initTestCase()
    {
        if (display.isEmpty())
            QSKIP("Xvfb is not installed");
        QVERIFY(X11KeyGrabs::isAvailable());
        // A second client, as the test's own keyboard and as another application.
        m_connection = xcb_connect(display.toLatin1().constData(), nullptr);
        QVERIFY(m_connection && !xcb_connection_has_error(m_connection));
        m_root = xcb_setup_roots_iterator(xcb_get_setup(m_connection)).data->root;
        m_symbols = xcb_key_symbols_alloc(m_connection);
    }

    void cleanupTestCase()
    {
        if (m_symbols)
            xcb_key_symbols_free(m_symbols);
        if (m_connection)
            xcb_disconnect(m_connection);
    }

    void grabbedKeysFireTheirAction()
    {
        X11KeyGrabs grabs;
        QSignalSpy bound(&grabs, &ShortcutBackend::bound);
        QSignalSpy activated(&grabs, &ShortcutBackend::activated);
        grabs.bind(bindings());
        QCOMPARE(bound.size(), 1);
        using Triggers = QMap<QString, QString>;
        QCOMPARE(bound.first().first().value<Triggers>().keys(),
                 (QStringList{QStringLiteral("scroll-to-newest"), QStringLiteral("toggle-window")}));

        press({controlL, altL, shiftL, 'k'});
        QTRY_COMPARE(activated.size(), 1);
        QCOMPARE(activated.first().first().toString(), QStringLiteral("toggle-window"));
        // Without all the modifiers it is just a key.
        press({controlL, shiftL, 'k'});
        QTest::qWait(200);
        QCOMPARE(activated.size(), 1);
        // Caps Lock on does not stop it.
        press({capsLock});
        press({controlL, altL, shiftL, 'n'});
        QTRY_COMPARE(activated.size(), 2);
        QCOMPARE(activated.last().first().toString(), QStringLiteral("scroll-to-newest"));
        press({capsLock});
    }

    void keysAnotherClientHoldsAreNotBound()
    {
        // The other client takes Ctrl+Alt+Shift+N (Control | Mod1 | Shift) first.
        const xcb_keycode_t n = code('n');
        const uint16_t modifiers = XCB_MOD_MASK_CONTROL | XCB_MOD_MASK_1 | XCB_MOD_MASK_SHIFT;
        xcb_generic_error_t *error = xcb_request_check(
            m_connection,
            xcb_grab_key_checked(m_connection, 1, m_root, modifiers, n, XCB_GRAB_MODE_ASYNC, XCB_GRAB_MODE_ASYNC));
        QVERIFY(!error);

        X11KeyGrabs grabs;
        QSignalSpy bound(&grabs, &ShortcutBackend::bound);
        QSignalSpy activated(&grabs, &ShortcutBackend::activated);
        grabs.bind(bindings());
        QCOMPARE(bound.size(), 1);
        using Triggers = QMap<QString, QString>;
        QCOMPARE(bound.first().first().value<Triggers>().keys(), QStringList{QStringLiteral("toggle-window")});
        press({controlL, altL, shiftL, 'k'});
        QTRY_COMPARE(activated.size(), 1);

        // Released by the other client and bound again: now it is ours.
        // Checked, so the server has processed the release before our grab arrives from
        // another connection (requests of two clients are not ordered otherwise).
        xcb_generic_error_t *released = xcb_request_check(m_connection, xcb_ungrab_key_checked(m_connection, n, m_root, modifiers));
        QVERIFY(!released);
        grabs.bind(bindings());
        QCOMPARE(bound.size(), 2);
        QCOMPARE(bound.last().first().value<Triggers>().size(), 2);
        press({controlL, altL, shiftL, 'n'});
        QTRY_COMPARE(activated.size(), 2);
    }
};

// A private X server first, then the application on it.
int main(int argc, char *argv[])
{
    QProcess xvfb;
    xvfb.start(QStringLiteral("Xvfb"), {QStringLiteral("-displayfd"), QStringLiteral("1"), QStringLiteral("-nolisten"),
                                        QStringLiteral("tcp"), QStringLiteral("-screen"), QStringLiteral("0"),
                                        QStringLiteral("640x480x24")});
    if (xvfb.waitForStarted(5000) && xvfb.waitForReadyRead(20000)) {
        display = QLatin1Char(':') + QString::fromLatin1(xvfb.readLine().trimmed());
        qputenv("DISPLAY", display.toLatin1());
        qputenv("QT_QPA_PLATFORM", "xcb");
    } else {
        // No X server: the application still needs a platform; the test case skips.
        qputenv("QT_QPA_PLATFORM", "offscreen");
    }
    int result = 0;
    {
        QGuiApplication app(argc, argv);
        X11KeyGrabsTest test;
        result = QTest::qExec(&test, argc, argv);
    }
    xvfb.terminate();
    xvfb.waitForFinished(5000);
    return result;
}

#include "tst_x11_keygrabs.moc"
