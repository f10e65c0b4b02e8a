// The review page's HTML: record text goes in as text, the page is whole and needs nothing
// from outside, and it is written beside the records.
#include "ReviewSamples.h"

#include "review/ReviewPage.h"
#include "review/SessionReview.h"

#include <QDir>
#include <QFile>
#include <QRegularExpression>
#include <QTemporaryDir>
#include <QTest>

class ReviewPageTest : public QObject
{
    Q_OBJECT

private slots:
    void recordTextIsEscaped()
    {
        const SessionReview review = SessionReview::fromText(ReviewSamples::hostileLog(), {});
        const QString page = ReviewPage::html(review, {});
        QVERIFY(!page.isEmpty());
        QVERIFY(!page.contains(QStringLiteral("<script"), Qt::CaseInsensitive));
        QVERIFY(!page.contains(QStringLiteral("<img")));
        QVERIFY(!page.contains(QStringLiteral("<b>model")));
        QVERIFY(!page.contains(QStringLiteral("<b>bad")));
        QVERIFY(!page.contains(QStringLiteral("<!-- c")));
        QVERIFY(page.contains(QStringLiteral("&lt;script&gt;alert(&quot;q&quot;)&lt;/script&gt; Tom &amp; Jerry's &quot;quote&quot;")));
        QVERIFY(page.contains(QStringLiteral("&lt;/details&gt;&lt;script&gt;x&lt;/script&gt;")));
        QVERIFY(page.contains(QStringLiteral("API error: &lt;b&gt;bad&lt;/b&gt; &amp; &quot;worse&quot;")));   // the timeline's tooltip
        QVERIFY(page.contains(QStringLiteral("&lt;b&gt;model&lt;/b&gt;")));
        // A placeholder in a question stays text: the timeline is there once.
        QCOMPARE(page.count(QStringLiteral("class=\"timeline\"")), 1);
        QVERIFY(page.contains(QStringLiteral("{{TIMELINE}}")));
        // The long word is there whole (the page's CSS wraps it).
        QVERIFY(page.contains(QString(300, QLatin1Char('W'))));
        // Every <details> closed: the answer's "</details>" did not end one early.
        QCOMPARE(page.count(QStringLiteral("<details>")), page.count(QStringLiteral("</details>")));
    }

    // Self-contained: nothing fetched, no script, figures inline.
    void pageNeedsNothingOutside()
    {
        const SessionReview review = SessionReview::fromText(ReviewSamples::fortyCardLog(), {});
        const QString page = ReviewPage::html(review, {60, 120});
        QVERIFY(!page.contains(QRegularExpression(QStringLiteral("(src|href)\\s*="), QRegularExpression::CaseInsensitiveOption)));
        QVERIFY(!page.contains(QStringLiteral("url(")));
        QVERIFY(!page.contains(QStringLiteral("@import")));
        QVERIFY(page.contains(QStringLiteral("prefers-color-scheme: dark")));
        QVERIFY(page.contains(QStringLiteral("@media print")));
        QVERIFY(!page.contains(QStringLiteral("{{")));   // every placeholder filled
        QCOMPARE(page.count(QStringLiteral("<details>")), 40);
        QCOMPARE(page.count(QStringLiteral("<svg")), page.count(QStringLiteral("</svg>")));
        QVERIFY(page.contains(QStringLiteral("follow-up merged")));
        QVERIFY(page.contains(QStringLiteral("<title>3 · ")));   // a question's tooltip on the timeline
        QVERIFY(page.contains(QStringLiteral("<title>Follow-up to 21 · ")));
        QVERIFY(page.contains(QStringLiteral("Your answer · 0:35</div><p>My answer to question 1.</p>")));   // timed, with its text
    }

    void fillIsOnePass()
    {
        const QHash<QString, QString> values{{QStringLiteral("A"), QStringLiteral("{{B}}")}, {QStringLiteral("B"), QStringLiteral("b")}};
        QCOMPARE(ReviewPage::fill(QStringLiteral("<{{A}}|{{B}}|{{C}}|{{a}}>"), values), QStringLiteral("<{{B}}|b||{{a}}>"));
    }

    void writesBesideTheRecords()
    {
        QTemporaryDir dir;
        const QString events = dir.filePath(QStringLiteral("meeting_2026-01-02_03-04-05.events.jsonl"));
        QFile file(events);
        QVERIFY(file.open(QIODevice::WriteOnly));
        file.write(ReviewSamples::fortyCardLog());
        file.close();
        const ReviewPage::Written written = ReviewPage::write(events, {});
        QVERIFY2(written.ok(), qPrintable(written.error));
        QCOMPARE(written.path, dir.filePath(QStringLiteral("meeting_2026-01-02_03-04-05.review.html")));
        QFile page(written.path);
        QVERIFY(page.open(QIODevice::ReadOnly));
        QVERIFY(page.readAll().contains("2 January 2026, 03:04"));

        // A page that can't be written (a folder in its place): the reason, no page.
        QVERIFY(QFile::remove(written.path));
        QVERIFY(QDir(dir.path()).mkdir(QFileInfo(written.path).fileName()));
        const ReviewPage::Written refused = ReviewPage::write(events, {});
        QVERIFY(!refused.ok());
        QVERIFY(!refused.unreadable);
        QVERIFY2(refused.error.startsWith(written.path), qPrintable(refused.error));
        QVERIFY(ReviewPage::write(dir.filePath(QStringLiteral("gone.events.jsonl")), {}).unreadable);
    }
};

QTEST_GUILESS_MAIN(ReviewPageTest)
#include "tst_review_page.moc"
