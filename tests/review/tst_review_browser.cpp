// The review page in a real browser: headless Chromium renders the pages of a 3-question
// and a 40-question session, light and dark, to PNG in build/review/ (for people to look
// at), loads them with every network address made unreachable, and reports no console
// errors. Skipped when Chromium is not installed (scripts/install-deps --tests installs it).
#include "ReviewSamples.h"

#include "review/ReviewPage.h"
#include "review/SessionReview.h"

#include <QDir>
#include <QFile>
#include <QImage>
#include <QProcess>
#include <QStandardPaths>
#include <QTemporaryDir>
#include <QTest>
#include <QUrl>

namespace {

QString outputDir()
{
    return qEnvironmentVariable("KETTERBLOOM_BINARY_DIR") + QStringLiteral("/review");
}

QString writePage(const QString &name, const SessionReview &review)
{
    const QString path = outputDir() + QLatin1Char('/') + name + QStringLiteral(".html");
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return {};
    file.write(ReviewPage::html(review, {60, 120}).toUtf8());
    return path;
}

// Mean brightness (0…255) of the page's top part, where the background dominates.
double brightness(const QImage &image)
{
    double sum = 0;
    int count = 0;
    for (int y = 0; y < std::min(image.height(), 400); y += 4) {
        for (int x = 0; x < image.width(); x += 4) {
            sum += qGray(image.pixel(x, y));
            ++count;
        }
    }
    return count > 0 ? sum / count : 0;
}

} // namespace

class ReviewBrowserTest : public QObject
{
    Q_OBJECT

private:
    QString m_chromium;
    QTemporaryDir m_profile;
    QStringList m_pages;

    struct Run
    {
        int exitCode = -1;
        QByteArray out;
        QByteArray err;
    };

    Run chromium(const QStringList &arguments)
    {
        QProcess process;
        process.start(m_chromium, QStringList{QStringLiteral("--headless"), QStringLiteral("--no-sandbox"),
                                              QStringLiteral("--disable-gpu"), QStringLiteral("--hide-scrollbars"),
                                              QStringLiteral("--no-first-run"), QStringLiteral("--disable-extensions"),
                                              // Every host unreachable: a page that fetched anything would show it.
                                              QStringLiteral("--host-resolver-rules=MAP * ~NOTFOUND"),
                                              QStringLiteral("--user-data-dir=") + m_profile.path()}
                                      + arguments);
        Run run;
        if (!process.waitForFinished(120000)) {
            process.kill();
            process.waitForFinished();
            return run;
        }
        run.exitCode = process.exitStatus() == QProcess::NormalExit ? process.exitCode() : -1;
        run.out = process.readAllStandardOutput();
        run.err = process.readAllStandardError();
        return run;
    }

private slots:
    void initTestCase()
    {
        for (const char *name : {"chromium", "chromium-browser"}) {
            m_chromium = QStandardPaths::findExecutable(QLatin1String(name));
            if (!m_chromium.isEmpty())
                break;
        }
        if (m_chromium.isEmpty())
            QSKIP("Chromium is not installed (apt-get install chromium, or scripts/install-deps --tests): the page is not rendered");
        QVERIFY(QDir().mkpath(outputDir()));
        const SessionReview::Loaded three = SessionReview::load(qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR")
                                                                + QStringLiteral("/tests/review/data/meeting_2026-11-20_10-00-00.events.jsonl"));
        QVERIFY(three.review);
        m_pages << writePage(QStringLiteral("review-3-cards"), *three.review);
        SessionReview forty = SessionReview::fromText(ReviewSamples::fortyCardLog(), {});
        forty.stamp = QStringLiteral("2026-11-22_09-30-00");
        m_pages << writePage(QStringLiteral("review-40-cards"), forty);
        QVERIFY(!m_pages.contains(QString()));
    }

    void screenshots_data()
    {
        QTest::addColumn<int>("page");
        QTest::addColumn<bool>("dark");
        QTest::newRow("3 cards, light") << 0 << false;
        QTest::newRow("3 cards, dark") << 0 << true;
        QTest::newRow("40 cards, light") << 1 << false;
        QTest::newRow("40 cards, dark") << 1 << true;
    }

    void screenshots()
    {
        QFETCH(int, page);
        QFETCH(bool, dark);
        const QString png = m_pages.at(page).chopped(5) + (dark ? QStringLiteral("-dark.png") : QStringLiteral("-light.png"));
        QFile::remove(png);
        const Run run = chromium({QStringLiteral("--screenshot=") + png, QStringLiteral("--window-size=1200,2000"),
                                  QStringLiteral("--blink-settings=preferredColorScheme=%1").arg(dark ? 0 : 1),
                                  QUrl::fromLocalFile(m_pages.at(page)).toString()});
        QVERIFY2(run.exitCode == 0, run.err.constData());
        const QImage image(png);
        QVERIFY2(!image.isNull(), qPrintable(png));
        QCOMPARE(image.size(), QSize(1200, 2000));
        // The page's own colours: a light background, or a dark one.
        if (dark)
            QVERIFY2(brightness(image) < 80, qPrintable(QString::number(brightness(image))));
        else
            QVERIFY2(brightness(image) > 200, qPrintable(QString::number(brightness(image))));
    }

    // Loads with no network, runs no script, logs no console error; the DOM is the page's.
    void loadsCleanly()
    {
        for (const QString &page : std::as_const(m_pages)) {
            const Run run = chromium({QStringLiteral("--dump-dom"), QStringLiteral("--enable-logging=stderr"), QStringLiteral("--v=0"),
                                      QUrl::fromLocalFile(page).toString()});
            QVERIFY2(run.exitCode == 0, run.err.constData());
            QVERIFY(run.out.contains("<h1>Interview review</h1>"));
            QVERIFY(run.out.contains("</footer>"));
            QVERIFY(!run.out.contains("<script"));
            QVERIFY2(!run.err.contains(":CONSOLE("), run.err.constData());
            QVERIFY2(!run.err.contains("ERR_NAME_NOT_RESOLVED"), run.err.constData());
        }
    }
};

QTEST_GUILESS_MAIN(ReviewBrowserTest)
#include "tst_review_browser.moc"
