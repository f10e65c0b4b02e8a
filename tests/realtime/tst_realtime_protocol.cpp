// The pure rules of the realtime client: history selection, back-off, cycle period and the
// endpoint check that guards the key.

#include "realtime/RealtimeProtocol.h"

#include <QJsonArray>
#include <QTest>
#include <QUrlQuery>

using namespace RealtimeProtocol;

namespace {

History pairsOfLength(const QList<int> &lengths)
{
    History history;
    for (int i = 0; i < lengths.size(); ++i) {
        const int questionLength = lengths[i] / 2;
        history.append({QString(questionLength, QChar(u'a' + i % 26)), QString(lengths[i] - questionLength, u'z')});
    }
    return history;
}

QList<int> costs(const History &history)
{
    QList<int> result;
    for (const HistoryEntry &pair : history)
        result.append(perceivedLength(pair.question) + perceivedLength(pair.answer));
    return result;
}

} // namespace

class TestRealtimeProtocol : public QObject
{
    Q_OBJECT
private slots:
    void historySelectionKeepsNewestPairsThatFit()
    {
        // Twenty pairs of 100 characters: the newest 12, oldest of them first.
        History twenty = pairsOfLength(QList<int>(20, 100));
        const History selected = selectHistory(twenty);
        QCOMPARE(selected.size(), 12);
        QCOMPARE(selected.first(), twenty.at(8));
        QCOMPARE(selected.last(), twenty.at(19));

        // A newest pair of 9000 characters stops the walk at once, however short the older ones.
        QVERIFY(selectHistory(pairsOfLength({10, 20, 9000})).isEmpty());

        // 5000, 2000, 1500 (newest last): 1500 and 2000 fit, then 5000 would not fit in 4500.
        QCOMPARE(costs(selectHistory(pairsOfLength({5000, 2000, 1500}))), (QList<int>{2000, 1500}));

        // A pair whose cost equals what is left of the budget is not sent, and older ones neither.
        QCOMPARE(costs(selectHistory(pairsOfLength({10, 3000, 5000}))), (QList<int>{5000}));
        QCOMPARE(costs(selectHistory(pairsOfLength({2999, 5000}))), (QList<int>{2999, 5000}));

        QVERIFY(selectHistory({}).isEmpty());
    }

    void charactersAreCountedAsReadersSeeThem()
    {
        QCOMPARE(perceivedLength(QStringLiteral("héllo")), 5);
        QCOMPARE(perceivedLength(QStringLiteral("e\u0301")), 1);             // e + combining accent
        QCOMPARE(perceivedLength(QStringLiteral("👍🏽 ok")), 4);              // emoji with skin tone
        QCOMPARE(perceivedLength(QStringLiteral("👩‍👩‍👧")), 1);             // one family emoji
        QCOMPARE(perceivedLength(QString()), 0);
    }

    void backoffAndCyclePeriod()
    {
        QList<int> delays;
        for (int attempt = 0; attempt < 8; ++attempt)
            delays.append(backoffSeconds(attempt));
        QCOMPARE(delays, (QList<int>{1, 2, 4, 8, 16, 20, 20, 20}));
        QCOMPARE(backoffSeconds(1000), 20);

        QCOMPARE(cycleMinutes(3), 5);
        QCOMPARE(cycleMinutes(5), 5);
        QCOMPARE(cycleMinutes(25), 25);
    }

    void endpointChecksTheOverride()
    {
        const Result<QUrl> fallback = resolveEndpoint(QString(), QStringLiteral("gpt-realtime"));
        QVERIFY(fallback.ok());
        QCOMPARE(fallback->scheme(), QStringLiteral("wss"));
        QCOMPARE(fallback->path(), QStringLiteral("/v1/realtime"));
        QCOMPARE(QUrlQuery(*fallback).queryItemValue(QStringLiteral("model")), QStringLiteral("gpt-realtime"));

        // The model replaces any query of the base address.
        const Result<QUrl> local = resolveEndpoint(QStringLiteral("ws://127.0.0.1:4100/v1/realtime?model=x&debug=1"),
                                                   QStringLiteral("m1"));
        QVERIFY(local.ok());
        QCOMPARE(local->query(), QStringLiteral("model=m1"));

        for (const char *accepted : {"ws://localhost:1/v1/realtime", "ws://[::1]:1/v1/realtime",
                                     "wss://realtime.example.com/v1/realtime"}) {
            QVERIFY2(resolveEndpoint(QString::fromLatin1(accepted), "m").ok(), accepted);
        }
        for (const char *refused : {"not a url", "http://127.0.0.1:1/v1/realtime", "ws://", "ws://example.com/v1/realtime",
                                    "ws://10.0.0.5:80/v1/realtime", "ws://127.0.0.1.evil.example/v1/realtime"}) {
            const Result<QUrl> endpoint = resolveEndpoint(QString::fromLatin1(refused), "m");
            QVERIFY2(!endpoint.ok(), refused);
            QVERIFY2(endpoint.error().contains(QLatin1String("KQ_REALTIME_URL")), refused);
        }
    }

    void bothSessionShapes()
    {
        RealtimeConfig config;
        config.model = "gpt-realtime";
        config.transcribeModel = "gpt-4o-mini-transcribe";
        config.instructions = "Be brief.";
        config.vadThreshold = 0.6;
        config.prefixPaddingMs = 250;
        config.silenceDurationMs = 700;
        const QJsonObject turnDetection{{"type", "server_vad"}, {"threshold", 0.6}, {"prefix_padding_ms", 250},
                                        {"silence_duration_ms", 700}, {"create_response", true},
                                        {"interrupt_response", false}};

        const QJsonObject current = sessionUpdate(config, false);
        QCOMPARE(current.value("type").toString(), QStringLiteral("session.update"));
        const QJsonObject session = current.value("session").toObject();
        QCOMPARE(session, (QJsonObject{
                              {"type", "realtime"},
                              {"model", "gpt-realtime"},
                              {"output_modalities", QJsonArray{"text"}},
                              {"instructions", "Be brief."},
                              {"audio", QJsonObject{{"input", QJsonObject{
                                                                  {"format", QJsonObject{{"type", "audio/pcm"}, {"rate", 24000}}},
                                                                  {"turn_detection", turnDetection},
                                                                  {"transcription", QJsonObject{{"model", "gpt-4o-mini-transcribe"}}},
                                                              }}}},
                          }));

        QCOMPARE(sessionUpdate(config, true).value("session").toObject(),
                 (QJsonObject{
                     {"modalities", QJsonArray{"text"}},
                     {"instructions", "Be brief."},
                     {"input_audio_format", "pcm16"},
                     {"input_audio_transcription", QJsonObject{{"model", "gpt-4o-mini-transcribe"}}},
                     {"turn_detection", turnDetection},
                 }));
    }

    // Whatever reaches the client, the service never gets a threshold of null (what a NaN
    // becomes in JSON) or a duration it would refuse.
    void turnDetectionNeverCarriesValuesTheServiceRefuses()
    {
        RealtimeConfig config;
        for (const double bad : {qQNaN(), qInf(), -qInf()}) {
            config.vadThreshold = bad;
            const QByteArray json = serialize(sessionUpdate(config, false));
            QVERIFY2(!json.contains("null"), json.constData());
            QCOMPARE(turnDetection(config).value("threshold").toDouble(), 0.5);
        }
        config.vadThreshold = 7;
        config.prefixPaddingMs = -20;
        config.silenceDurationMs = 99999;
        const QJsonObject clamped = turnDetection(config);
        QCOMPARE(clamped.value("threshold").toDouble(), 1.0);
        QCOMPARE(clamped.value("prefix_padding_ms").toInt(), 0);
        QCOMPARE(clamped.value("silence_duration_ms").toInt(), 10000);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeProtocol)
#include "tst_realtime_protocol.moc"
