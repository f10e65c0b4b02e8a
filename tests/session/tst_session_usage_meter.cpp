// A session's usage and cost: each model at its own prices, the transcriptions counted in the
// session's cost, the events-log fields of each addition, a new session from nothing, and a
// sample interview that costs nothing (per-minute edges: tst_session_records).

#include "session/UsageMeter.h"

#include <QTest>

class UsageMeterTest : public QObject
{
    Q_OBJECT

private slots:
    void pricesEachPartWithItsModel()
    {
        UsageMeter meter;
        meter.begin(QStringLiteral("gpt-realtime-mini"), QStringLiteral("gpt-live-transcribe"));
        QCOMPARE(meter.totals(60), std::nullopt);
        QCOMPARE(meter.summary(60), std::nullopt);

        const QVariantMap heard = meter.addMeetingTranscription(
            {{QStringLiteral("type"), QStringLiteral("duration")}, {QStringLiteral("seconds"), 60}}, meter.transcribeModel(), 60);
        QCOMPARE(heard.value(QStringLiteral("cost_usd")).toDouble(), 0.017);
        QCOMPARE(heard.value(QStringLiteral("model")).toString(), QStringLiteral("gpt-live-transcribe"));
        const QVariantMap response
            = meter.addResponse({{QStringLiteral("input_tokens"), 100000}, {QStringLiteral("output_tokens"), 10000}}, 60);
        QCOMPARE(response.value(QStringLiteral("response_cost_usd")).toDouble(), 0.084);
        QCOMPARE(response.value(QStringLiteral("session_cost_usd")).toDouble(), 0.101);
        QCOMPARE(response.value(QStringLiteral("session_cost_per_min_usd")).toDouble(), 0.101);
        QCOMPARE(response.value(QStringLiteral("transcription_cost_usd")).toDouble(), 0.017);
        QCOMPARE(meter.cost(), 0.06 + 0.024 + 0.017);
        QCOMPARE(meter.totals(60)->value(QStringLiteral("transcription_cost_usd")).toDouble(), 0.017);
        QCOMPARE(meter.summary(60), std::optional<QString>(QStringLiteral("$0.10 this session · $0.10/min · 110000 tokens")));

        // The user's answers, transcribed by the service: their own line, counted in the cost.
        const QVariantMap answers = meter.addAnswerTranscription(
            {{QStringLiteral("type"), QStringLiteral("tokens")},
             {QStringLiteral("input_tokens"), 400000},
             {QStringLiteral("output_tokens"), 100000},
             {QStringLiteral("total_tokens"), 500000},
             {QStringLiteral("input_token_details"), QVariantMap{{QStringLiteral("audio_tokens"), 390000}}}},
            QStringLiteral("gpt-4o-transcribe"));
        QCOMPARE(answers.value(QStringLiteral("audio_tokens")).toLongLong(), 390000);
        QCOMPARE(answers.value(QStringLiteral("cost_usd")).toDouble(), 2.0);
        QCOMPARE(meter.cost(), 0.101 + 2.0);
        QCOMPARE(meter.transcriptionUsage().tokens(), qint64(500000));

        // After a fallback the meeting is priced with the model in use: a minute at gpt-transcribe's price.
        meter.begin(QStringLiteral("gpt-realtime-mini"), QStringLiteral("gpt-live-transcribe"));
        QCOMPARE(meter.usage(), CostModel::Usage{});
        QCOMPARE(meter.cost(), 0.0);
        meter.setTranscribeModel(QStringLiteral("gpt-transcribe"));
        meter.addMeetingTranscription({{QStringLiteral("type"), QStringLiteral("duration")}, {QStringLiteral("seconds"), 60}},
                                      meter.transcribeModel(), 0);
        QCOMPARE(meter.cost(), 0.0045);
        QVERIFY(meter.totals(0).has_value());
    }

    // A sample interview is counted and never charged.
    void sampleInterviewIsFree()
    {
        UsageMeter meter;
        meter.begin(QStringLiteral("gpt-realtime-2.1"), QStringLiteral("gpt-live-transcribe"));
        meter.setFree(true);
        meter.addResponse({{QStringLiteral("input_tokens"), 1000}}, 0.5);
        QCOMPARE(meter.cost(), 0.0);
        QCOMPARE(meter.usage().total(), qint64(1000));
    }
};

QTEST_GUILESS_MAIN(UsageMeterTest)
#include "tst_session_usage_meter.moc"
