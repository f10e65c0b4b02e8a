// The realtime client against the simulator over real sockets on 127.0.0.1: configuration and
// its fall-backs (beta interface, transcription model), incoming events, garbage from the
// server, history seeding, regeneration and audio upload.

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

    // Both fall-backs reopen the connection on the beta interface, where the service takes the
    // legacy shape and "text" answers; the choice survives reconnects, and start() resets it.
    void betaFallbacksReopenWithTheHeaderAndResetOnStart_data()
    {
        QTest::addColumn<bool>("shape");
        QTest::newRow("session shape refused") << true;
        QTest::newRow("output_text refused") << false;
    }

    void betaFallbacksReopenWithTheHeaderAndResetOnStart()
    {
        QFETCH(bool, shape);
        sim->setRealistic(true);
        (shape ? sim->setRejectCurrentShape(true) : sim->setRejectOutputText(true));
        client->updateHistory({{QStringLiteral("Why us?"), QStringLiteral("Your tools.")}});
        client->start(config());
        QTRY_COMPARE_WITH_TIMEOUT(sim->connectionCount(), 2, kWait);
        QTRY_COMPARE_WITH_TIMEOUT(items(2), (QStringList{"user/input_text/Why us?", "assistant/text/Your tools."}), kWait);
        QCOMPARE(probe.logsContaining(shape ? "Falling back to legacy session shape"
                                            : "Re-seeding history with legacy assistant content type"), 1);
        QCOMPARE(probe.reconnectDelays(), QList<int>{1});
        QCOMPARE(probe.failedCount(), 0);
        QCOMPARE(probe.configured, shape ? 1 : 2);
        QVERIFY(!sim->connections().value(0).beta);
        QVERIFY(sim->connections().value(1).beta);
        QVERIFY(sessionOf(sim->received("session.update", 1).first()).contains("type"));
        QCOMPARE(sim->received("session.update", 2).size(), 1);
        const QJsonObject legacy = sessionOf(sim->received("session.update", 2).first());
        QVERIFY(!legacy.contains("type") && !legacy.contains("model"));
        QCOMPARE(legacy.value("input_audio_format").toString(), QStringLiteral("pcm16"));
        QCOMPARE(items(1), shape ? QStringList{}
                                 : QStringList({"user/input_text/Why us?", "assistant/output_text/Your tools."}));

        // The choice survives a reconnect ...
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.configured, shape ? 2 : 3, kWait);
        QCOMPARE(sim->received("session.update", 3).size(), 1);
        QVERIFY(sim->connections().value(2).beta);
        QVERIFY(!sessionOf(sim->received("session.update", 3).first()).contains("type"));

        // ... but not a new start.
        client->stop();
        sim->setRejectCurrentShape(false);
        sim->setRejectOutputText(false);
        startAndWaitConnected();
        QCOMPARE(sim->connectionCount(), 4);
        QVERIFY(!sim->connections().value(3).beta);
        QVERIFY(sessionOf(sim->received("session.update", 4).first()).contains("type"));
        QTRY_COMPARE_WITH_TIMEOUT(items(4), (QStringList{"user/input_text/Why us?", "assistant/output_text/Your tools."}), kWait);
    }

    void refusedTranscriptionModelFallsBackToWhisper()
    {
        sim->setRealistic(true);
        RealtimeConfig cfg = config();
        cfg.transcribeModel = QStringLiteral("gpt-live-transcribe");
        startAndWaitConnected(cfg);
        const QList<QJsonObject> updates = sim->received("session.update", 1);
        QCOMPARE(updates.size(), 2);
        auto model = [](const QJsonObject &update) {
            return sessionOf(update).value("audio").toObject().value("input").toObject().value("transcription")
                .toObject().value("model").toString();
        };
        QCOMPARE(model(updates[0]), QStringLiteral("gpt-live-transcribe"));
        QCOMPARE(model(updates[1]), QStringLiteral("whisper-1"));
        QCOMPARE(probe.logsContaining("Transcription model gpt-live-transcribe refused; using whisper-1"), 1);
        QCOMPARE(probe.transcribeFallbacks, (QList<QPair<QString, QString>>{{"gpt-live-transcribe", "whisper-1"}}));
        QCOMPARE(probe.failedCount(), 0);
        // The session is told before it is connected; reconnects keep whisper-1 without asking again.
        QVERIFY(probe.order.indexOf("fallback") < probe.order.indexOf("configured"));
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.configured, 2, kWait);
        QCOMPARE(sim->received("session.update", 2).size(), 1);
        QCOMPARE(model(sim->received("session.update", 2).first()), QStringLiteral("whisper-1"));
        QCOMPARE(probe.transcribeFallbacks.size(), 1);
        // A new start tries the configured model again.
        client->stop();
        startAndWaitConnected(cfg);
        QCOMPARE(model(sim->received("session.update", 3).first()), QStringLiteral("gpt-live-transcribe"));
        QCOMPARE(probe.transcribeFallbacks.size(), 2);
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
        QCOMPARE(probe.order.mid(0, 2), (QStringList{"created", "delta"}));
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

        // An ordinary error after configuration is only logged, and never shows the key even if the service echoes it.
        QVERIFY(sim->sendError("server_error", "Something broke near " + kTestKey));
        QVERIFY(sim->sendText("{\"type\": \"error\"}"));
        QTRY_COMPARE_WITH_TIMEOUT(probe.logsContaining("API error: unknown realtime error"), 1, kWait);
        QCOMPARE(probe.logsContaining("API error: Something broke near [key]"), 1);
        QCOMPARE(probe.statuses.size(), statuses);

        // The session still works.
        QVERIFY(sim->triggerTurn());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 3, kWait);
        QCOMPARE(probe.transcripts.size(), 2);
    }

    void seedsHistoryIntoEveryNewSocket()
    {
        client->updateHistory({{QString(4000, 'o'), QString(4000, 'O')}, // does not fit the budget
                               {QStringLiteral("Why us?"), QStringLiteral("Your tools.")},
                               {QStringLiteral("Any questions?"), QString()}});
        startAndWaitConnected();
        const QStringList seeded = {"user/input_text/Why us?", "assistant/output_text/Your tools.",
                                    "user/input_text/Any questions?"};
        QTRY_COMPARE_WITH_TIMEOUT(items(1), seeded, kWait);
        QCOMPARE(probe.logsContaining("Seeded 2 earlier Q&A pair(s) into the new session"), 1);
        QVERIFY(sim->received("response.create").isEmpty());
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(items(2), seeded, kWait);
        QCOMPARE(probe.logsContaining("Seeded 2 earlier Q&A pair(s) into the new session"), 2);
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

        // Stop sends the partial chunk; the next start begins empty.
        client->stop();
        QTRY_COMPARE_WITH_TIMEOUT(probe.last(), RealtimeStatus::idle(), kWait);
        QTRY_COMPARE_WITH_TIMEOUT(sentSizes(), (QList<int>{5000, 10000, 4799}), kWait);
        startAndWaitConnected();
        client->append(QByteArray(1, 'a'));
        client->append(QByteArray(4800, 'b'));
        QTRY_COMPARE_WITH_TIMEOUT(sentSizes().size(), 4, kWait);
        QCOMPARE(sentSizes().last(), 4801);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeSession)
#include "tst_realtime_session.moc"
