// The review's figures on recorded events logs (tests/review/data), against values worked
// out by hand from those logs.
#include "review/RecordingActivity.h"
#include "review/ReviewFigures.h"
#include "review/SessionReview.h"

#include <QFile>
#include <QTemporaryDir>
#include <QtEndian>

#include <QTest>

#include <cmath>

namespace {

QString data(const QString &name)
{
    return qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/tests/review/data/") + name;
}

SessionReview loaded(const QString &name)
{
    const SessionReview::Loaded result = SessionReview::load(data(name));
    if (!result.review)
        qFatal("%s", qUtf8Printable(result.error));
    return *result.review;
}

bool near(double a, double b, double within = 1e-9)
{
    return std::abs(a - b) < within;
}

// A 16-bit stereo WAV at 8 kHz: a 300 Hz tone on the left (microphone) and right (meeting)
// over the given spans, faint noise elsewhere.
void writeRecording(const QString &path, double seconds, const QList<SessionReview::Span> &left,
                    const QList<SessionReview::Span> &right)
{
    constexpr int rate = 8000;
    const auto frames = qint64(seconds * rate);
    QByteArray data(frames * 4, Qt::Uninitialized);
    const auto sample = [](const QList<SessionReview::Span> &spans, qint64 frame) {
        const double t = double(frame) / rate;
        for (const SessionReview::Span &span : spans) {
            if (span.start <= t && t < span.end)
                return qint16(8000 * std::sin(2 * M_PI * 300 * t));
        }
        return qint16((frame * 7919) % 61 - 30);   // room noise
    };
    for (qint64 f = 0; f < frames; ++f) {
        qToLittleEndian<qint16>(sample(left, f), data.data() + f * 4);
        qToLittleEndian<qint16>(sample(right, f), data.data() + f * 4 + 2);
    }
    QByteArray header("RIFF....WAVEfmt ");
    const auto put32 = [&header](quint32 v) { char b[4]; qToLittleEndian(v, b); header.append(b, 4); };
    const auto put16 = [&header](quint16 v) { char b[2]; qToLittleEndian(v, b); header.append(b, 2); };
    put32(16); put16(1); put16(2); put32(rate); put32(rate * 4); put16(4); put16(16);
    header.append("data");
    put32(quint32(data.size()));
    qToLittleEndian<quint32>(quint32(header.size() - 8 + data.size()), header.data() + 4);
    QFile file(path);
    QVERIFY(file.open(QIODevice::WriteOnly));
    file.write(header + data);
}

} // namespace

class SessionReviewTest : public QObject
{
    Q_OBJECT

private slots:
    // Three questions, three timed answers (short, in band, long), one begun while the
    // interviewer still spoke; the transcript fills an answer the log has no text for.
    void threeCardSession()
    {
        const SessionReview review = loaded(QStringLiteral("meeting_2026-11-20_10-00-00.events.jsonl"));
        QCOMPARE(review.stamp, QStringLiteral("2026-11-20_10-00-00"));
        QVERIFY(review.ended);
        QVERIFY(review.hasInterviewerSpeech);
        QVERIFY(review.notes.isEmpty());
        QCOMPARE(review.length, 300.5);
        QCOMPARE(review.cards.size(), 3);
        QCOMPARE(review.cards[1].question, QStringLiteral("Why do you want to join us & not <others>?"));
        QCOMPARE(review.cards[1].yourAnswer, QStringLiteral("Scale, mostly, and how the team writes things down."));
        QCOMPARE(review.cards[0].draft, QStringLiteral("Backend engineer, eight years; payments at scale.\n\nLed the ledger rewrite; mentor two juniors."));

        const ReviewFigures f = ReviewFigures::compute(review, {60, 120});
        QCOMPARE(review.answers.size(), 3);
        QCOMPARE(f.yourSeconds, 75.0 + 45.0 + 135.0);
        QCOMPARE(f.interviewerSeconds, 7.0 + 9.0 + 10.0);
        QVERIFY(near(*f.yourShare, 255.0 / 281.0));
        QCOMPARE(f.answersShort, 1);
        QCOMPARE(f.answersInBand, 1);
        QCOMPARE(f.answersLong, 1);
        QCOMPARE(*f.longest, 2);
        QCOMPARE(*f.shortest, 1);
        QCOMPARE(f.startedOverInterviewer, 1);
        QVERIFY(review.answers[2].startedOverInterviewer);

        // Question end → card → first words: 0.9+0.7, 0.6+1.2, 0.9+1.5.
        QCOMPARE(f.speeds.size(), 3);
        QVERIFY(near(*f.speeds[0].questionToCard, 0.9));
        QVERIFY(near(f.speeds[1].cardToText, 1.2));
        QVERIFY(near(f.speeds[2].total(), 2.4));
        QVERIFY(near(*f.medianToText, 1.8));
        QVERIFY(near(*f.medianQuestionToCard, 0.9));

        QVERIFY(near(*review.totalCost, 0.0496));
        QCOMPARE(review.costByModel.keys(), (QStringList{QStringLiteral("gpt-4o-transcribe"), QStringLiteral("gpt-realtime")}));
        QVERIFY(near(review.costByModel.value(QStringLiteral("gpt-realtime")), 0.047));
        QVERIFY(near(review.costByModel.value(QStringLiteral("gpt-4o-transcribe")), 0.0026));
        QVERIFY(near(review.cards[0].responseCost + review.cards[0].transcriptionCost, 0.0129));
        QVERIFY(near(review.cards[2].responseCost + review.cards[2].transcriptionCost, 0.021));

        // A narrower band moves the answers between the groups.
        const ReviewFigures narrow = ReviewFigures::compute(review, {40, 80});
        QCOMPARE(narrow.answersInBand, 2);
        QCOMPARE(narrow.answersLong, 1);
    }

    // A merged follow-up stays one card (its first answer counts for the speed), a failed
    // answer asked again, two reconnects, a lost meeting output and its banner on the timeline.
    void reconnectsAndFollowUp()
    {
        const SessionReview review = loaded(QStringLiteral("meeting_2026-11-21_15-30-00.events.jsonl"));
        QVERIFY(review.transcriptPath.isEmpty());   // none beside it
        QCOMPARE(review.cards.size(), 2);
        const SessionReview::Card &merged = review.cards[0];
        QCOMPARE(merged.question, QStringLiteral("What is your experience with Kubernetes? And with Helm?"));
        QCOMPARE(merged.followUps, QStringList{QStringLiteral("And with Helm?")});
        QVERIFY(!review.cards[1].failed);   // the retry answered

        QList<SessionReview::Notice::Kind> kinds;
        for (const SessionReview::Notice &notice : review.notices)
            kinds << notice.kind;
        using Kind = SessionReview::Notice::Kind;
        QCOMPARE(kinds, (QList<Kind>{Kind::reconnect, Kind::problem, Kind::banner, Kind::info, Kind::reconnect}));
        QCOMPARE(review.notices[1].text, QStringLiteral("Meeting audio lost"));
        QCOMPARE(review.notices[1].at, 50.0);

        const ReviewFigures f = ReviewFigures::compute(review, {});
        QCOMPARE(f.answersInBand, 1);
        QVERIFY(near(*f.yourShare, 64.0 / 79.0));
        QCOMPARE(f.startedOverInterviewer, 0);
        QVERIFY(near(f.speeds[0].total(), 1.6));
        QVERIFY(near(*f.speeds[1].questionToCard, 1.2));
        QVERIFY(near(f.speeds[1].cardToText, 5.3));
        QVERIFY(near(*f.medianToText, (1.6 + 6.5) / 2));

        QVERIFY(near(*review.totalCost, 0.0102));
        QVERIFY(near(merged.responseCost, 0.005));   // the superseded answer and its replacement
        QVERIFY(near(merged.transcriptionCost, 0.0002));
        QVERIFY(near(review.cards[1].responseCost, 0.005));
        QVERIFY(near(review.costByModel.value(QStringLiteral("gpt-realtime-mini")), 0.01));
    }

    // An older version's log, cut short by a crash: no interviewer speech, no session end,
    // a broken last line, no cost. What is there still counts, and the notes say what is not.
    void olderSessionCutShort()
    {
        const SessionReview review = loaded(QStringLiteral("meeting_2025-06-02_09-00-00.events.jsonl"));
        QVERIFY(!review.ended);
        QVERIFY(!review.hasInterviewerSpeech);
        QCOMPARE(review.cards.size(), 2);
        QCOMPARE(review.cards[0].yourAnswer, QStringLiteral("We rebuilt search ranking around an offline evaluation harness."));
        QVERIFY(!review.totalCost);
        QCOMPARE(review.notes.size(), 3);
        QVERIFY(review.notes.join(QLatin1Char(' ')).contains(QStringLiteral("no interviewer speech")));
        QVERIFY(review.notes.join(QLatin1Char(' ')).contains(QStringLiteral("ends before the session's end")));
        QVERIFY(review.notes.join(QLatin1Char(' ')).contains(QStringLiteral("One line")));

        const ReviewFigures f = ReviewFigures::compute(review, {});
        QVERIFY(!f.yourShare);
        QCOMPARE(f.answersShort, 1);
        QCOMPARE(f.speeds.size(), 1);   // the second answer's line is the broken one
        QVERIFY(!f.speeds[0].questionToCard);
        QVERIFY(near(*f.medianToText, 1.1));
    }

    // A sample interview's real log: answers that start before their question's text is
    // complete (the card comes after the first words), a merged follow-up, no microphone,
    // and no charge whatever the usage lines price.
    void sampleInterview()
    {
        const SessionReview review = loaded(QStringLiteral("meeting_demo_2026-11-25_14-57-00.events.jsonl"));
        QVERIFY(review.demo);
        QCOMPARE(review.cards.size(), 7);
        QCOMPARE(review.cards[1].followUps, QStringList{QStringLiteral("and how did you measure whether it worked?")});
        QCOMPARE(*review.totalCost, 0.0);
        for (double cost : review.costByModel)
            QCOMPARE(cost, 0.0);
        QVERIFY(review.notes.join(QLatin1Char(' ')).contains(QStringLiteral("No answers of yours")));

        const ReviewFigures f = ReviewFigures::compute(review, {});
        QCOMPARE(f.speeds.size(), 7);
        QVERIFY(near(*f.speeds[0].questionToText, 7.182 - 7.087));
        QVERIFY(f.speeds[0].cardToText < 0);
        QVERIFY(near(*f.speeds[3].questionToText, 55.811 - 55.495));   // the next turn had begun before the card
        QVERIFY(near(*f.speeds[4].questionToText, 62.155 - 59.675));
        QVERIFY(!f.yourShare);
    }

    // An older log with a recording beside it (named a second after the log, as a recording
    // names itself when capture starts): the interviewer's speech comes from the loudness of
    // its meeting side, and the question ends and talk-time share follow from it.
    void olderSessionWithRecording()
    {
        QTemporaryDir dir;
        const QString events = dir.filePath(QStringLiteral("meeting_2025-06-02_09-00-00.events.jsonl"));
        QVERIFY(QFile::copy(data(QStringLiteral("meeting_2025-06-02_09-00-00.events.jsonl")), events));
        writeRecording(dir.filePath(QStringLiteral("meeting_2025-06-02_09-00-01.wav")), 100, {{25, 75}}, {{10, 18}, {80, 89.5}});
        const SessionReview::Loaded result = SessionReview::load(events);
        QVERIFY(result.review);
        const SessionReview &review = *result.review;
        QVERIFY(review.hasInterviewerSpeech);
        QVERIFY(review.notes.first().contains(QStringLiteral("meeting_2025-06-02_09-00-01.wav")));
        QCOMPARE(review.interviewer.size(), 2);
        QVERIFY(near(review.interviewer[0].start, 10, 0.05));
        QVERIFY(near(review.interviewer[1].end, 89.5, 0.05));
        QVERIFY(near(*review.cards[0].questionEndedAt, 18, 0.05));
        const ReviewFigures f = ReviewFigures::compute(review, {});
        QVERIFY(near(*f.yourShare, 50.0 / 67.5, 0.002));

        // The microphone side too; pauses under half a second join, shorter bursts go.
        const std::optional<RecordingActivity::Spans> heard =
            RecordingActivity::read(dir.filePath(QStringLiteral("meeting_2025-06-02_09-00-01.wav")));
        QVERIFY(heard);
        QCOMPARE(heard->microphone.size(), 1);
        QVERIFY(near(heard->seconds, 100, 0.05));
        QList<float> levels(100, -70.0f);
        for (int i : {0, 1, 2, 30, 31, 32, 33, 34, 35, 36, 37, 38, 39, 40, 41, 60, 61, 62, 63, 64, 65, 66, 67, 68, 69, 70})
            levels[i] = -20.0f;   // 0-2: too short, and over half a second before the next; 30-41 and 60-70 (a 0.36 s pause) join
        const QList<SessionReview::Span> spans = RecordingActivity::spans(levels, 0.02);
        QCOMPARE(spans.size(), 1);
        QVERIFY(near(spans[0].start, 0.6) && near(spans[0].end, 1.42));

        QString why;
        QVERIFY(!RecordingActivity::read(events, &why));
        QCOMPARE(why, QStringLiteral("not a WAV file"));
    }

    // Opened from the transcript: the events log it names is read too.
    void openedFromTranscript()
    {
        const SessionReview review = loaded(QStringLiteral("meeting_2026-11-20_10-00-00.transcript.md"));
        QCOMPARE(review.cards.size(), 3);
        QCOMPARE(review.answers.size(), 3);
        QVERIFY(review.eventsPath.endsWith(QStringLiteral("meeting_2026-11-20_10-00-00.events.jsonl")));
        QCOMPARE(SessionReview::pagePathFor(review.transcriptPath),
                 data(QStringLiteral("meeting_2026-11-20_10-00-00.review.html")));
    }

    // A transcript whose events log is gone: the cards from the transcript alone.
    void transcriptOnly()
    {
        const SessionReview review = SessionReview::fromText({}, QStringLiteral(
            "# Meeting transcript — x\n\nLength: 2 min 05 s\nEvents: `gone.events.jsonl`\n\n"
            "### 10:00:01 (question extended)\n**Interviewer:** First?\n\n**Copilot:** One.\nTwo.\n\n"
            "### 10:01:00\n**Interviewer:** Second?\n\n**Copilot:** —\n"));
        QCOMPARE(review.cards.size(), 2);
        QCOMPARE(review.cards[0].draft, QStringLiteral("One.\nTwo."));
        QVERIFY(review.cards[1].draft.isEmpty());
        QCOMPARE(review.length, 125.0);
        QCOMPARE(review.notes.size(), 1);
    }

    void badFiles_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("error");
        QTest::newRow("missing") << QStringLiteral("/nonexistent/meeting_x.events.jsonl") << QStringLiteral("no such file");
        QTest::newRow("folder") << data(QString()) << QStringLiteral("not a file");
        QTest::newRow("other kind") << data(QStringLiteral("../tst_session_review.cpp")) << QStringLiteral("not a session's");
        QTest::newRow("other Markdown") << qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/README.md")
                                        << QStringLiteral("not a session's transcript");
    }

    void badFiles()
    {
        QFETCH(QString, path);
        QFETCH(QString, error);
        const SessionReview::Loaded result = SessionReview::load(path);
        QVERIFY(!result.review);
        QVERIFY2(result.error.contains(error), qPrintable(result.error));
    }

    void median()
    {
        QVERIFY(!ReviewFigures::median({}));
        QCOMPARE(*ReviewFigures::median({3, 1, 2}), 2.0);
        QCOMPARE(*ReviewFigures::median({4, 1, 3, 2}), 2.5);
    }
};

QTEST_GUILESS_MAIN(SessionReviewTest)
#include "tst_session_review.moc"
