// The software-centre screenshots in packaging/screenshots are the UI tests' renders of today's
// window: compared with what test_ui_screenshots just wrote.
#include <QImage>
#include <QTest>

namespace {
// The Qt the committed renders come from: another Qt draws the same window with other
// metrics, so there is nothing to compare with.
constexpr int renderedWithMinor = 4;
// Pixels allowed to differ (a blinking caret, the meters).
constexpr double toleratedShare = 0.005;
} // namespace

class PackageScreenshotsTest : public QObject
{
    Q_OBJECT

private slots:
    void matchTodaysRenders_data()
    {
        QTest::addColumn<QString>("render");
        QTest::addColumn<QString>("packaged");
        QTest::newRow("main window") << QStringLiteral("main-window-light") << QStringLiteral("main-window");
        QTest::newRow("audio settings") << QStringLiteral("settings-light-2") << QStringLiteral("settings-audio");
    }

    void matchTodaysRenders()
    {
        QFETCH(QString, render);
        QFETCH(QString, packaged);
        if (QT_VERSION_MAJOR != 6 || QT_VERSION_MINOR != renderedWithMinor)
            QSKIP("packaging/screenshots are rendered with Qt 6.4 (Debian 12); this Qt draws other metrics");
        const QString made = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/screenshots/") + render
                             + QStringLiteral(".png");
        const QString shipped = qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/packaging/screenshots/")
                                + packaged + QStringLiteral(".png");
        const QImage today = QImage(made).convertToFormat(QImage::Format_RGB32);
        const QImage inPackage = QImage(shipped).convertToFormat(QImage::Format_RGB32);
        QVERIFY2(!today.isNull(), qPrintable(made + QStringLiteral(" is missing (test_ui_screenshots writes it)")));
        QVERIFY2(!inPackage.isNull(), qPrintable(shipped));
        const QString advice = QStringLiteral("%1 is out of date: copy %2 over it").arg(shipped, made);
        QVERIFY2(today.size() == inPackage.size(), qPrintable(advice));
        qint64 differing = 0;
        for (int y = 0; y < today.height(); ++y) {
            const auto *a = reinterpret_cast<const QRgb *>(today.constScanLine(y));
            const auto *b = reinterpret_cast<const QRgb *>(inPackage.constScanLine(y));
            for (int x = 0; x < today.width(); ++x)
                differing += a[x] != b[x] ? 1 : 0;
        }
        QVERIFY2(differing <= qint64(toleratedShare * today.width() * today.height()), qPrintable(advice));
    }
};

QTEST_MAIN(PackageScreenshotsTest)
#include "tst_package_screenshots.moc"
