// Screen questions and the transcription language on the wire: the exact session
// configuration (unchanged when no language is set), the picture message against the
// simulator, and the simulator's own checks of pictures.

#include "RealtimeTestBase.h"

#include "realtime/RealtimeProtocol.h"
#include "realtime/RealtimeScreenQuestion.h"
#include "realtimesim/SimImage.h"

namespace {

// Enough of a JPEG for the simulator, which checks the data URI and the magic bytes.
const QByteArray kJpeg = QByteArray("\xFF\xD8\xFF\xE0\x00\x10JFIF\x00", 11) + QByteArray(3000, 'x');

const char kCurrentShape[] =
    R"({"session":{"audio":{"input":{"format":{"rate":24000,"type":"audio/pcm"},)"
    R"("transcription":{"model":"gpt-live-transcribe"},)"
    R"("turn_detection":{"create_response":true,"interrupt_response":false,"prefix_padding_ms":300,)"
    R"("silence_duration_ms":800,"threshold":0.5,"type":"server_vad"}}},"instructions":"Be useful.",)"
    R"("model":"gpt-realtime-2.1","output_modalities":["text"],"type":"realtime"},"type":"session.update"})";
const char kLegacyShape[] =
    R"({"session":{"input_audio_format":"pcm16","input_audio_transcription":{"model":"gpt-live-transcribe"},)"
    R"("instructions":"Be useful.","modalities":["text"],)"
    R"("turn_detection":{"create_response":true,"interrupt_response":false,"prefix_padding_ms":300,)"
    R"("silence_duration_ms":800,"threshold":0.5,"type":"server_vad"}},"type":"session.update"})";

RealtimeConfig defaults()
{
    RealtimeConfig config;
    config.apiKey = QStringLiteral("k");
    config.model = QStringLiteral("gpt-realtime-2.1");
    config.transcribeModel = QStringLiteral("gpt-live-transcribe");
    config.instructions = QStringLiteral("Be useful.");
    config.silenceDurationMs = 800;
    return config;
}

} // namespace

class TestRealtimeScreen : public RealtimeTestBase
{
    Q_OBJECT

private slots:
    void cleanup() { tearDown(); }

    // Without a transcription language the configuration is byte for byte what it always was.
    void sessionConfigurationUnchangedWithoutLanguage()
    {
        QCOMPARE(RealtimeProtocol::serialize(RealtimeProtocol::sessionUpdate(defaults(), false)), QByteArray(kCurrentShape));
        QCOMPARE(RealtimeProtocol::serialize(RealtimeProtocol::sessionUpdate(defaults(), true)), QByteArray(kLegacyShape));
    }

    void transcriptionLanguageAddsOnlyTheLanguageField()
    {
        RealtimeConfig config = defaults();
        config.transcriptionLanguage = QStringLiteral("de");
        QByteArray current(kCurrentShape);
        current.replace(R"({"model":"gpt-live-transcribe"})", R"({"language":"de","model":"gpt-live-transcribe"})");
        QCOMPARE(RealtimeProtocol::serialize(RealtimeProtocol::sessionUpdate(config, false)), current);
        QByteArray legacy(kLegacyShape);
        legacy.replace(R"({"model":"gpt-live-transcribe"})", R"({"language":"de","model":"gpt-live-transcribe"})");
        QCOMPARE(RealtimeProtocol::serialize(RealtimeProtocol::sessionUpdate(config, true)), legacy);
    }

    // The picture and the question go as one user item, then a response is asked for and the
    // simulator answers it from its script.
    void screenQuestionAgainstTheSimulator()
    {
        setUpSimulator();
        makeClient();
        SimScript script = SimScript::builtin();
        script.imageAnswer = QStringLiteral("Use a hash map: one pass, look up the complement first.");
        sim->setScript(script);
        // Asked before the session is configured: it waits and follows the configuration.
        client->start(config());
        client->askAboutImage(kJpeg, RealtimeScreenQuestion::prompt());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);

        QStringList types;
        for (const SimRecord &record : sim->records())
            types.append(record.type);
        QCOMPARE(types, (QStringList{"session.update", "conversation.item.create", "response.create"}));
        const QJsonObject item = sim->received("conversation.item.create").first().value("item").toObject();
        QCOMPARE(item.value("role").toString(), QStringLiteral("user"));
        const QJsonArray content = item.value("content").toArray();
        QCOMPARE(content.size(), 2);
        QCOMPARE(content.at(0).toObject().value("type").toString(), QStringLiteral("input_image"));
        const QString url = content.at(0).toObject().value("image_url").toString();
        QVERIFY(url.startsWith(QStringLiteral("data:image/jpeg;base64,")));
        QCOMPARE(QByteArray::fromBase64(url.mid(23).toLatin1()), kJpeg);
        QCOMPARE(content.at(1).toObject(), (QJsonObject{{"type", "input_text"},
            {"text", "Answer the question shown on this screen. If it is code, give the approach first, then the code."}}));
        QCOMPARE(probe.answer(probe.done.first()), script.imageAnswer);
        QCOMPARE(probe.logsContaining(QStringLiteral("API error")), 0);
    }

    // Asked while an interviewer's answer still streams: the service refuses the second
    // response, and the client asks again once the first one has ended.
    void screenQuestionWhileAnAnswerRuns()
    {
        setUpSimulator();
        makeClient();
        SimScript script = SimScript::builtin();
        script.turns.first().deltaDelayMs = 40;
        script.imageAnswer = QStringLiteral("Screen answer.");
        sim->setScript(script);
        startAndWaitConnected();
        QVERIFY(sim->triggerTurn());
        QTRY_VERIFY_WITH_TIMEOUT(!probe.deltas.isEmpty(), kWait);
        client->askAboutImage(kJpeg, RealtimeScreenQuestion::prompt());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 2, kWait);
        QCOMPARE(probe.answer(probe.done.first()), script.turns.first().answer);
        QCOMPARE(probe.answer(probe.done.last()), script.imageAnswer);
    }

    void simulatorChecksPictures_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("error");
        QTest::newRow("jpeg") << QStringLiteral("data:image/jpeg;base64,") + QString::fromLatin1(kJpeg.toBase64()) << QString();
        QTest::newRow("png") << QStringLiteral("data:image/png;base64,") + QString::fromLatin1(QByteArray("\x89PNG\r\n\x1A\nrest").toBase64())
                             << QString();
        QTest::newRow("web address") << QStringLiteral("https://example.com/a.jpg") << QStringLiteral("item.content[0].image_url");
        QTest::newRow("not base64") << QStringLiteral("data:image/jpeg;base64,@@@@") << QStringLiteral("item.content[0].image_url");
        QTest::newRow("png bytes as jpeg") << QStringLiteral("data:image/jpeg;base64,") + QString::fromLatin1(QByteArray("\x89PNG\r\n\x1A\n").toBase64())
                                           << QStringLiteral("item.content[0].image_url");
    }

    void simulatorChecksPictures()
    {
        QFETCH(QString, url);
        QFETCH(QString, error);
        const SimUserContent checked = SimImage::check(QJsonArray{QJsonObject{{"type", "input_image"}, {"image_url", url}},
                                                                  QJsonObject{{"type", "input_text"}, {"text", "Q"}}});
        QCOMPARE(checked.error, error);
        if (error.isEmpty()) {
            QCOMPARE(checked.images, 1);
            QCOMPARE(checked.text, QStringLiteral("Q"));
        }
    }
};

QTEST_GUILESS_MAIN(TestRealtimeScreen)
#include "tst_realtime_screen.moc"
