#include "screenshot/PortalScreenshot.h"
#include "screenshot/ScreenImage.h"
#include "screenshot/ScreenshotTaker.h"

#include "PrivateBus.h"

#include <QBuffer>
#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusObjectPath>
#include <QImageReader>
#include <QPainter>
#include <QSignalSpy>
#include <QTest>
#include <QTimer>
#include <QUrl>

// A stand-in for the desktop portal's Screenshot interface, published on the private bus
// under the portal's own name. It answers each call with a Request path and, a little
// later, sends that Request's Response signal the way the real portal does.
class FakeScreenshotPortal : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.portal.Screenshot")
public:
    enum class Mode { file, cancel, refuse, notAllowed, ownPath, silent };

    explicit FakeScreenshotPortal(const QDBusConnection &bus) : m_bus(bus) {}

    Mode mode = Mode::file;
    QString uri;
    QList<QVariantMap> calls;
    QStringList parents;

public slots:
    QDBusObjectPath Screenshot(const QString &parentWindow, const QVariantMap &options, const QDBusMessage &message)
    {
        calls.append(options);
        parents.append(parentWindow);
        if (mode == Mode::notAllowed) {
            message.setDelayedReply(true);
            m_bus.send(message.createErrorReply(QStringLiteral("org.freedesktop.portal.Error.NotAllowed"),
                                                QStringLiteral("Screenshots are not allowed")));
            return {};
        }
        QString sender = message.service().mid(1);
        sender.replace(QLatin1Char('.'), QLatin1Char('_'));
        const QString token = mode == Mode::ownPath ? QStringLiteral("portal_chosen_1")
                                                    : options.value(QStringLiteral("handle_token")).toString();
        const QString path = QStringLiteral("/org/freedesktop/portal/desktop/request/%1/%2").arg(sender, token);
        if (mode != Mode::silent) {
            const uint response = mode == Mode::cancel ? 1 : mode == Mode::refuse ? 2 : 0;
            const QVariantMap results = response == 0 ? QVariantMap{{QStringLiteral("uri"), uri}} : QVariantMap{};
            QTimer::singleShot(20, this, [this, path, response, results] {
                QDBusMessage signal = QDBusMessage::createSignal(path, QStringLiteral("org.freedesktop.portal.Request"),
                                                                 QStringLiteral("Response"));
                signal << response << results;
                m_bus.send(signal);
            });
        }
        return QDBusObjectPath(path);
    }

private:
    QDBusConnection m_bus;
};

class TestScreenshot : public QObject
{
    Q_OBJECT

private:
    PrivateBus m_bus;
    QTemporaryDir m_dir;
    std::unique_ptr<FakeScreenshotPortal> m_portal;

    static QDBusConnection client() { return QDBusConnection(QStringLiteral("client")); }
    static QDBusConnection desktop() { return QDBusConnection(QStringLiteral("desktop")); }

    // A screen-sized picture with a red square at (100, 50), saved where the portal puts it.
    QString writeScreen(const char *name, const QSize &size = {1920, 1080})
    {
        QImage screen(size, QImage::Format_RGB32);
        screen.fill(Qt::darkBlue);
        QPainter(&screen).fillRect(QRect(100, 50, 40, 40), Qt::red);
        const QString path = m_dir.filePath(QString::fromLatin1(name));
        if (!screen.save(path, "PNG"))
            return {};
        return QUrl::fromLocalFile(path).toString();
    }

    ScreenshotResult takeWith(FakeScreenshotPortal::Mode mode, const QString &uri = {})
    {
        m_portal->mode = mode;
        m_portal->uri = uri;
        ScreenshotTaker taker(client());
        QSignalSpy finished(&taker, &ScreenshotTaker::finished);
        taker.take(QStringLiteral("x11:1a00007"), nullptr);
        if (finished.isEmpty() && !finished.wait(20000))
            return ScreenshotResult::failed(QStringLiteral("test: no result"));
        if (finished.size() != 1)
            return ScreenshotResult::failed(QStringLiteral("test: more than one result"));
        return finished.first().first().value<ScreenshotResult>();
    }

private slots:
    void initTestCase()
    {
        qRegisterMetaType<ScreenshotResult>();
        if (!m_bus.start())
            QSKIP("dbus-daemon could not be started (scripts/install-deps --tests installs it)");
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("client")).isConnected());
        QVERIFY(QDBusConnection::connectToBus(m_bus.address(), QStringLiteral("desktop")).isConnected());
        m_portal = std::make_unique<FakeScreenshotPortal>(desktop());
    }

    void cleanupTestCase()
    {
        QDBusConnection::disconnectFromBus(QStringLiteral("client"));
        QDBusConnection::disconnectFromBus(QStringLiteral("desktop"));
        m_bus.stop();
    }

    // No portal on the bus, and (offscreen, not X11) no X server either.
    void noPortalAndNoX11IsUnavailable()
    {
        const ScreenshotResult result = takeWith(FakeScreenshotPortal::Mode::file);
        QCOMPARE(result.outcome, ScreenshotResult::Outcome::unavailable);
        QVERIFY(result.message.contains(QStringLiteral("nothing was sent")));
        QVERIFY(m_portal->calls.isEmpty());
    }

    void portalReturnsAFileUri()
    {
        QVERIFY(desktop().registerObject(QStringLiteral("/org/freedesktop/portal/desktop"), m_portal.get(),
                                         QDBusConnection::ExportAllSlots));
        QVERIFY(desktop().registerService(QStringLiteral("org.freedesktop.portal.Desktop")));

        const ScreenshotResult result = takeWith(FakeScreenshotPortal::Mode::file, writeScreen("shot.png"));
        QCOMPARE(result.outcome, ScreenshotResult::Outcome::captured);
        QCOMPARE(result.image.size(), QSize(1920, 1080));
        QCOMPARE(result.image.pixelColor(110, 60), QColor(Qt::red));
        // What was asked of the portal: our own token, no dialog of its own, our window.
        QCOMPARE(m_portal->calls.size(), 1);
        const QVariantMap options = m_portal->calls.last();
        QVERIFY(options.value(QStringLiteral("handle_token")).toString().startsWith(QStringLiteral("ketterbloom")));
        QCOMPARE(options.value(QStringLiteral("interactive")).toBool(), false);
        QCOMPARE(m_portal->parents.last(), QStringLiteral("x11:1a00007"));
    }

    // A portal that ignores handle_token answers on a path of its own choosing.
    void portalThatChoosesItsOwnRequestPath()
    {
        const ScreenshotResult result = takeWith(FakeScreenshotPortal::Mode::ownPath, writeScreen("own.png"));
        QCOMPARE(result.outcome, ScreenshotResult::Outcome::captured);
    }

    void cancelRefusalAndBadAnswersSendNothing_data()
    {
        QTest::addColumn<int>("mode");
        QTest::addColumn<QString>("uri");
        QTest::addColumn<int>("outcome");
        QTest::newRow("user cancelled") << int(FakeScreenshotPortal::Mode::cancel) << QString()
                                        << int(ScreenshotResult::Outcome::cancelled);
        QTest::newRow("desktop refused") << int(FakeScreenshotPortal::Mode::refuse) << QString()
                                         << int(ScreenshotResult::Outcome::refused);
        QTest::newRow("not allowed") << int(FakeScreenshotPortal::Mode::notAllowed) << QString()
                                     << int(ScreenshotResult::Outcome::refused);
        QTest::newRow("file gone") << int(FakeScreenshotPortal::Mode::file)
                                   << QUrl::fromLocalFile(QStringLiteral("/nonexistent/shot.png")).toString()
                                   << int(ScreenshotResult::Outcome::failed);
        QTest::newRow("not a file") << int(FakeScreenshotPortal::Mode::file) << QStringLiteral("https://example.com/a.png")
                                    << int(ScreenshotResult::Outcome::failed);
    }

    void cancelRefusalAndBadAnswersSendNothing()
    {
        QFETCH(int, mode);
        QFETCH(QString, uri);
        QFETCH(int, outcome);
        const ScreenshotResult result = takeWith(FakeScreenshotPortal::Mode(mode), uri);
        QCOMPARE(int(result.outcome), outcome);
        QVERIFY(result.image.isNull());
        QVERIFY(!result.message.contains(QLatin1Char('\n')));
        QVERIFY(result.message.endsWith(QStringLiteral("nothing was sent.")) ||
                result.message.contains(QStringLiteral("nothing was sent")));
    }

    // A portal that never answers does not leave the request hanging.
    void silentPortalTimesOut()
    {
        m_portal->mode = FakeScreenshotPortal::Mode::silent;
        PortalScreenshot portal(client());
        portal.setTimeoutMs(300);
        QSignalSpy finished(&portal, &PortalScreenshot::finished);
        portal.request(QString());
        QVERIFY(portal.isBusy());
        // A second request while one runs is refused at once; the first goes on.
        portal.request(QString());
        QCOMPARE(finished.size(), 1);
        QVERIFY(portal.isBusy());
        QVERIFY(finished.wait(10000));
        QCOMPARE(finished.size(), 2);
        QCOMPARE(finished.last().first().value<ScreenshotResult>().outcome, ScreenshotResult::Outcome::failed);
        QVERIFY(!portal.isBusy());
    }

    // ---- Preparing what is sent -----------------------------------------------------------

    void oversizeImageIsScaledNeverSentRaw()
    {
        QImage screen(3840, 2160, QImage::Format_RGB32);
        screen.fill(Qt::white);
        const PreparedScreenImage prepared = ScreenImage::prepare(screen);
        QCOMPARE(prepared.size, QSize(1600, 900));
        QImage sent;
        QVERIFY(sent.loadFromData(prepared.jpeg, "JPEG"));
        QCOMPARE(sent.size(), QSize(1600, 900));
        QImage thumb;
        QVERIFY(thumb.loadFromData(prepared.thumbnailJpeg, "JPEG"));
        QCOMPARE(thumb.size(), QSize(160, 90));
        const QString uri = ScreenImage::dataUri(prepared.jpeg);
        QVERIFY(uri.startsWith(QStringLiteral("data:image/jpeg;base64,/9j/")));
        QCOMPARE(QByteArray::fromBase64(uri.mid(23).toLatin1()), prepared.jpeg);
        // Portrait: the longer side is the height.
        QCOMPARE(ScreenImage::fitted(QSize(1200, 4000), 1600), QSize(480, 1600));
        QCOMPARE(ScreenImage::fitted(QSize(1600, 1600), 1600), QSize(1600, 1600));
        QCOMPARE(ScreenImage::fitted(QSize(1601, 3), 1600), QSize(1600, 3));
    }

    void regionIsCroppedAndSmallImagesKeepTheirSize()
    {
        QImage screen(1920, 1080, QImage::Format_ARGB32);
        screen.fill(Qt::transparent);
        QPainter(&screen).fillRect(QRect(100, 50, 40, 40), Qt::red);
        const PreparedScreenImage prepared = ScreenImage::prepare(screen, QRect(90, 40, 60, 60));
        QCOMPARE(prepared.size, QSize(60, 60));
        QImage sent;
        QVERIFY(sent.loadFromData(prepared.jpeg, "JPEG"));
        QVERIFY(qAbs(sent.pixelColor(30, 30).red() - 255) < 24);
        // Transparent parts are flattened onto white, not black.
        QVERIFY(sent.pixelColor(2, 2).lightness() > 230);
        // A region outside the picture means the whole picture.
        QCOMPARE(ScreenImage::prepare(screen, QRect(5000, 5000, 10, 10)).size, QSize(1600, 900));
        QVERIFY(ScreenImage::prepare(QImage()).isNull());
    }
};

QTEST_GUILESS_MAIN(TestScreenshot)
#include "tst_screenshot.moc"
