// The realtime client against the simulator over real sockets on 127.0.0.1: configuration in
// both shapes, incoming events, garbage from the server, history seeding, regeneration and
// audio upload.

#include "RealtimeTestBase.h"

#include <QRandomGenerator>
#include <QUuid>

namespace {

QJsonObject sessionOf(const QJsonObject &update)
{
    return update.value("session").toObject();
}

} // namespace

class TestRealtimeSession : public RealtimeTestBase
{
    Q_OBJECT
private slots:
    void init() { setUpSimulator(); makeClient(); }
    void cleanup() { tearDown(); }

    void configuresInTheCurrentShapeAndUpdatesInstructionsLive()
    {
        startAndWaitConnected();
        QCOMPARE(probe.statuses.first(), RealtimeStatus::connecting());
        QCOMPARE(probe.traces, QStringList{QStringLiteral("        websocket open")});

        const SimConnectionInfo info = sim->connections().value(0);
        QCOMPARE(info.path, QStringLiteral("/v1/realtime"));
        QCOMPARE(info.model, QStringLiteral("gpt-realtime"));
        QCOMPARE(info.authorization, QStringLiteral("valid"));

        const QList<QJsonObject> updates = sim->received("session.update");
        QCOMPARE(updates.size(), 1);
        const QJsonObject session = sessionOf(updates.first());
        QCOMPARE(session.value("type").toString(), QStringLiteral("realtime"));
        QCOMPARE(session.value("instructions").toString(), QStringLiteral("Answer briefly."));
        QCOMPARE(session.value("audio").toObject().value("input").toObject().value("turn_detection").toObject()
                     .value("silence_duration_ms").toInt(), 500);

        client->updateInstructions(QStringLiteral("Answer in one sentence."));
        QTRY_COMPARE_WITH_TIMEOUT(sim->received("session.update").size(), 2, kWait);
        QCOMPARE(sessionOf(sim->received("session.update").last()).value("instructions").toString(),
                 QStringLiteral("Answer in one sentence."));
        QTRY_COMPARE_WITH_TIMEOUT(probe.logsContaining("Instructions updated live"), 1, kWait);
        // The second acknowledgement neither reports connected again nor seeds again.
        QTest::qWait(100);
        QCOMPARE(probe.count(RealtimeStatus::connected()), 1);
    }

    void fallsBackToTheLegacyShapeOncePerStart()
    {
        sim->setRejectCurrentShape(true);
        startAndWaitConnected();
        QCOMPARE(probe.logsContaining("Falling back to legacy session shape"), 1);
        QVERIFY(!probe.statuses.contains(RealtimeStatus::failed(QStringLiteral("Unknown parameter: 'session.type'."))));
        const QList<QJsonObject> first = sim->received("session.update", 1);
        QCOMPARE(first.size(), 2);
        QVERIFY(sessionOf(first[0]).contains("type"));
        const QJsonObject legacy = sessionOf(first[1]);
        QVERIFY(!legacy.contains("type") && !legacy.contains("model"));
        QCOMPARE(legacy.value("input_audio_format").toString(), QStringLiteral("pcm16"));

        // The choice survives a reconnect ...
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()), 2, kWait);
        QCOMPARE(sim->received("session.update", 2).size(), 1);
        QVERIFY(!sessionOf(sim->received("session.update", 2).first()).contains("type"));

        // ... but not a new start.
        client->stop();
        sim->setRejectCurrentShape(false);
        startAndWaitConnected();
        QCOMPARE(sim->received("session.update", 3).size(), 1);
        QVERIFY(sessionOf(sim->received("session.update", 3).first()).contains("type"));
    }

    void errorBeforeConfigurationFails()
    {
        sim->setExpectedKey(QStringLiteral("sk-another-key"));
        client->start(config());
        QTRY_VERIFY_WITH_TIMEOUT(probe.last().isFailed(), kWait);
        QCOMPARE(probe.last(), RealtimeStatus::failed(QStringLiteral("Incorrect API key provided.")));
        QCOMPARE(sim->connections().value(0).authorization, QStringLiteral("invalid"));
        QCOMPARE(probe.logsContaining("API error: Incorrect API key provided."), 1);
    }

    void deliversEveryEventOnTheOwnersThreadInOrder()
    {
        SimScript script;
        SimTurn before;
        before.question = QStringLiteral("What is your greatest strength?");
        before.answer = QStringLiteral("Turning vague problems into small, shippable steps that the team can own.");
        SimTurn after = before;
        after.question = QStringLiteral("And your greatest weakness?");
        after.answer = QStringLiteral("I used to over-polish; now I timebox.");
        after.transcriptAfterResponse = true;
        script.turns = {before, after};
        sim->setScript(script);
        startAndWaitConnected();

        probe.order.clear();
        QVERIFY(sim->triggerTurn());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);
        QCOMPARE(probe.transcripts.size(), 1);
        QCOMPARE(probe.transcripts[0].second, before.question);
        const QString firstID = probe.done[0];
        QCOMPARE(probe.deltas.first(), qMakePair(firstID, QString())); // opened before any text
        QCOMPARE(probe.answer(firstID), before.answer);
        QVERIFY(probe.deltas.size() >= 4);
        QCOMPARE(probe.order.first(), QStringLiteral("transcript"));
        QCOMPARE(probe.order.mid(probe.order.size() - 2), (QStringList{"usage", "done"}));

        const QVariantMap usage = probe.usages.value(0);
        QVERIFY(usage.value("input_tokens").toInt() > 0 && usage.value("output_tokens").toInt() > 0);
        QVERIFY(usage.value("input_token_details").toMap().contains("cached_tokens"));
        QVERIFY(usage.value("input_token_details").toMap().value("cached_tokens_details").toMap().contains("text_tokens"));

        probe.order.clear();
        QVERIFY(sim->triggerTurn());
        QTRY_COMPARE_WITH_TIMEOUT(probe.transcripts.size(), 2, kWait);
        QCOMPARE(probe.transcripts[1].second, after.question);
        QCOMPARE(probe.order.first(), QStringLiteral("delta"));
        QCOMPARE(probe.order.mid(probe.order.size() - 3), (QStringList{"usage", "done", "transcript"}));
        QCOMPARE(probe.offThreadCalls, 0);
    }

    void garbageFromTheServerChangesNothing()
    {
        startAndWaitConnected();
        const int statuses = int(probe.statuses.size());
        const QStringList frames = {
            "not json at all", "[1, 2, 3]", "{}", "{\"type\": 42}", "{\"type\": null}", "\"response.done\"",
            "{\"type\": \"response.created\"}", "{\"type\": \"response.created\", \"response\": {\"id\": 7}}",
            "{\"type\": \"response.created\", \"response\": []}",
            "{\"type\": \"conversation.item.input_audio_transcription.completed\", \"transcript\": \"  \\n \"}",
            "{\"type\": \"conversation.item.input_audio_transcription.completed\", \"transcript\": 5}",
            "{\"type\": \"response.output_text.delta\", \"response_id\": \"r\"}",
            "{\"type\": \"response.text.delta\", \"delta\": \"\"}", "{\"type\": \"session.updated\"}",
            "{\"type\": \"something.new\", \"payload\": {}}", "{\"type\": \"response.output_text.delta\", \"delta\": ",
            QString("{\"type\": \"x\", \"pad\": \"%1\"}").arg(QString(6 * 1024 * 1024, 'a')),
            QString(3 * 1024 * 1024, '{'),
        };
        for (const QString &frame : frames)
            QVERIFY(sim->sendText(frame));
        QVERIFY(sim->sendMalformed());
        QByteArray noise(64 * 1024, '\0');
        for (char &byte : noise)
            byte = char(QRandomGenerator::global()->bounded(256));
        QVERIFY(sim->sendBinary(noise));
        QVERIFY(sim->sendBinary(QByteArray("\xff\xfe{\"type\":\"response.done\"", 26)));
        // A marker that does fire, so we know every frame before it was handled.
        QVERIFY(sim->sendText("{\"type\": \"response.output_text.delta\", \"response_id\": \"marker\", \"delta\": \"m\"}"));
        QTRY_COMPARE_WITH_TIMEOUT(probe.deltas.size(), 1, kWait);
        QCOMPARE(probe.deltas.first(), qMakePair(QStringLiteral("marker"), QStringLiteral("m")));
        QVERIFY(probe.transcripts.isEmpty() && probe.done.isEmpty() && probe.usages.isEmpty());
        QCOMPARE(probe.statuses.size(), statuses);
        QCOMPARE(sim->connectionCount(), 1);
        QVERIFY(probe.reconnectDelays().isEmpty());

        // Missing ids get their defaults; a binary frame is read as text.
        probe.deltas.clear();
        QVERIFY(sim->sendText("{\"type\": \"conversation.item.input_audio_transcription.completed\", \"transcript\": \" Hi \\n\"}"));
        QVERIFY(sim->sendBinary("{\"type\": \"response.text.delta\", \"delta\": \"d\"}"));
        QVERIFY(sim->sendText("{\"type\": \"response.done\", \"response\": {\"usage\": {\"total_tokens\": 3}}}"));
        QVERIFY(sim->sendText("{\"type\": \"response.done\"}"));
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 2, kWait);
        QCOMPARE(probe.transcripts.value(0).second, QStringLiteral("Hi"));
        QVERIFY(!QUuid::fromString(probe.transcripts.value(0).first).isNull());
        QCOMPARE(probe.deltas, (QList<QPair<QString, QString>>{{"current", "d"}}));
        QCOMPARE(probe.done, (QStringList{"current", "current"}));
        QCOMPARE(probe.usages.size(), 1);

        // An error after configuration is only logged, and never shows the key even if the service echoes it.
        QVERIFY(sim->sendError("invalid_api_key", "Incorrect API key provided: " + kTestKey));
        QVERIFY(sim->sendText("{\"type\": \"error\"}"));
        QTRY_COMPARE_WITH_TIMEOUT(probe.logsContaining("API error: unknown realtime error"), 1, kWait);
        QCOMPARE(probe.logsContaining("API error: Incorrect API key provided: [key]"), 1);
        QCOMPARE(probe.statuses.size(), statuses);

        // The session still works.
        QVERIFY(sim->triggerTurn());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 3, kWait);
        QCOMPARE(probe.transcripts.size(), 2);
    }

    void seedsHistoryIntoEveryNewSocketAndFallsBackToTextContent()
    {
        sim->setRejectOutputText(true);
        client->updateHistory({{QString(4000, 'o'), QString(4000, 'O')}, // does not fit the budget
                               {QStringLiteral("Why us?"), QStringLiteral("Your tools.")},
                               {QStringLiteral("Any questions?"), QString()}});
        startAndWaitConnected();
        const QStringList firstTry = {"user/input_text/Why us?", "assistant/output_text/Your tools.",
                                      "user/input_text/Any questions?"};
        const QStringList retry = {"user/input_text/Why us?", "assistant/text/Your tools.", "user/input_text/Any questions?"};
        QTRY_COMPARE_WITH_TIMEOUT(items(1), firstTry + retry, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(probe.logsContaining("Re-seeding history with legacy assistant content type"), 1, kWait);
        QCOMPARE(probe.logsContaining("Seeded 2 earlier Q&A pair(s) into the new session"), 2);
        QVERIFY(sim->received("response.create").isEmpty());

        // After a reconnect the new socket gets the pairs once, with the content type that worked.
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(items(2), retry, kWait);

        // The fall-back happens once: a later mention of output_text is an ordinary error.
        QVERIFY(sim->sendError("invalid_value", "Invalid value: 'output_text'."));
        QTRY_COMPARE_WITH_TIMEOUT(probe.logsContaining("API error: Invalid value: 'output_text'."), 1, kWait);
        QCOMPARE(items(2), retry);
    }

    void regenerateCancelsAndRetriesUntilAnswered()
    {
        client->start(config());
        client->regenerate(QStringLiteral("Too early?")); // before configuration: nothing is sent
        QTRY_VERIFY_WITH_TIMEOUT(probe.has(RealtimeStatus::connected()), kWait);

        SimScript script;
        SimTurn turn;
        turn.question = QStringLiteral("Tell me about a project.");
        turn.answer = QString("word ").repeated(200).trimmed(); // streams for about 2.7 s
        turn.deltaDelayMs = 40;
        script.turns = {turn};
        script.cancelDelayMs = 150;
        sim->setScript(script);
        QVERIFY(sim->triggerTurn());
        QTRY_VERIFY_WITH_TIMEOUT(probe.deltas.size() >= 2, kWait);
        const QString cancelled = probe.deltas.first().first;

        client->regenerate(QStringLiteral("Tell me about a project, and what you learned."));
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 2, kWait);
        QCOMPARE(probe.done.first(), cancelled);
        const QString fresh = probe.done.last();
        QCOMPARE(probe.answer(fresh), QStringLiteral("A short answer to: Tell me about a project, and what you learned."));

        QCOMPARE(sim->received("response.cancel").size(), 1);
        QCOMPARE(sim->received("response.create").size(), 2); // refused once while the cancel was pending
        QCOMPARE(items(1), QStringList{"user/input_text/Tell me about a project, and what you learned."});
        QCOMPARE(probe.logsContaining("Regenerating answer for the extended question"), 1);
        QCOMPARE(probe.logsContaining("API error"), 0);
    }

    void batchesAudioAndDropsItWhileNotConfigured()
    {
        client->start(config());
        client->append(QByteArray(6000, 'x')); // before "session.updated": dropped
        QTRY_VERIFY_WITH_TIMEOUT(probe.has(RealtimeStatus::connected()), kWait);

        auto sentSizes = [this] {
            QList<int> sizes;
            for (const QJsonObject &message : sim->received("input_audio_buffer.append"))
                sizes.append(message.value("audio_bytes").toInt());
            return sizes;
        };
        for (int i = 0; i < 5; ++i)
            client->append(QByteArray(1000, char(i)));
        client->append(QByteArray(10000, 'y'));
        client->append(QByteArray(4799, 'z'));
        client->updateInstructions(QStringLiteral("marker")); // arrives after any audio sent before it
        QTRY_COMPARE_WITH_TIMEOUT(sim->received("session.update").size(), 2, kWait);
        QCOMPARE(sentSizes(), (QList<int>{5000, 10000}));

        // The partial chunk does not survive a stop; the next start begins empty.
        client->stop();
        QTRY_COMPARE_WITH_TIMEOUT(probe.last(), RealtimeStatus::idle(), kWait);
        startAndWaitConnected();
        client->append(QByteArray(1, 'a'));
        client->append(QByteArray(4800, 'b'));
        QTRY_COMPARE_WITH_TIMEOUT(sentSizes().size(), 3, kWait);
        QCOMPARE(sentSizes().last(), 4801);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeSession)
#include "tst_realtime_session.moc"
