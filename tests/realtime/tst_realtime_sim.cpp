// The simulator itself: its voice-activity detection, its script format, the ketterbloom-sim
// executable with its control interface, a whole turn driven by real audio through the client,
// and the transcription endpoint beside the WebSocket on the same port.

#include "RealtimeTestBase.h"
#include "TestWav.h"

#include "realtime/RealtimeProtocol.h"
#include "realtimesim/EnergyVad.h"

#include <QProcess>
#include <QTcpSocket>
#include <QTemporaryDir>
#include <QWebSocket>
#include <QtEndian>

#include <cmath>

namespace {

// 24 kHz mono 16-bit PCM: `ms` of a 440 Hz tone at `amplitude` (0..1 of full scale), or silence.
QByteArray tone(int ms, double amplitude)
{
    const int samples = ms * 24;
    QByteArray pcm(samples * 2, Qt::Uninitialized);
    for (int i = 0; i < samples; ++i) {
        const auto value = qint16(std::lround(amplitude * 32767 * std::sin(2 * M_PI * 440 * i / 24000.0)));
        qToLittleEndian(value, pcm.data() + 2 * i);
    }
    return pcm;
}

struct HttpAnswer
{
    int status = 0;
    QJsonObject error;
};

// A multipart/form-data body with boundary "b0und": each field a name and its value; "file" a WAV.
QByteArray form(const QList<QPair<QByteArray, QByteArray>> &fields)
{
    QByteArray body;
    for (const auto &[name, value] : fields) {
        body += "--b0und\r\nContent-Disposition: form-data; name=\"" + name + "\"";
        body += name == "file" ? "; filename=\"a.wav\"\r\nContent-Type: audio/wav\r\n\r\n" : "\r\n\r\n";
        body += value + "\r\n";
    }
    return body + "--b0und--\r\n";
}

} // namespace

class TestRealtimeSim : public RealtimeTestBase
{
    Q_OBJECT

    // One request on a connection of its own; the status and the service's error object.
    HttpAnswer post(const QByteArray &headers, const QByteArray &body, const char *path = nullptr, bool chunked = false)
    {
        QTcpSocket socket;
        socket.connectToHost(QHostAddress::LocalHost, sim->port());
        QByteArray request = "POST " + QByteArray(path ? path : "/v1/audio/transcriptions") + " HTTP/1.1\r\nHost: 127.0.0.1\r\n"
                             + headers;
        if (chunked) {
            const qsizetype half = body.size() / 2;
            request += "Transfer-Encoding: chunked\r\n\r\n" + QByteArray::number(half, 16) + "\r\n" + body.left(half)
                       + "\r\n" + QByteArray::number(body.size() - half, 16) + "\r\n" + body.mid(half) + "\r\n0\r\n\r\n";
        } else {
            request += "Content-Length: " + QByteArray::number(body.size()) + "\r\n\r\n" + body;
        }
        socket.write(request);
        QByteArray reply;
        const auto complete = [&] {
            reply += socket.readAll();
            const qsizetype end = reply.indexOf("\r\n\r\n");
            if (end < 0)
                return false;
            const qsizetype length = reply.mid(reply.indexOf("Content-Length: ") + 16).split('\r').first().toLongLong();
            return reply.size() >= end + 4 + length;
        };
        if (!QTest::qWaitFor(complete, kWait))
            return {};
        const QJsonObject answer = QJsonDocument::fromJson(reply.mid(reply.indexOf("\r\n\r\n") + 4)).object();
        return {reply.split(' ').value(1).toInt(), answer.value("error").toObject()};
    }

private slots:
    void cleanup() { tearDown(); }

    void energyDetectorHonoursThresholdPaddingAndSilence()
    {
        EnergyVad vad;
        vad.configure(0.5, 300, 500);
        QByteArray audio = tone(1000, 0.0) + tone(800, 0.3) + tone(400, 0.0) + tone(200, 0.3) + tone(700, 0.0);
        QList<EnergyVad::Event> events;
        // Fed in odd-sized pieces, as a client would.
        for (qsizetype offset = 0; offset < audio.size(); offset += 1234)
            events += vad.feed(audio.mid(offset, 1234));
        // One turn: the 400 ms pause is shorter than the 500 ms silence; the start is padded by 300 ms.
        QCOMPARE(events.size(), 2);
        QVERIFY(events[0].started);
        QCOMPARE(events[0].audioMs, 700);
        QVERIFY(!events[1].started);
        QCOMPARE(events[1].audioMs, 2400);

        // A quiet tone stays below the threshold (0.5 -> 5 % of full scale RMS) ...
        EnergyVad strict;
        strict.configure(0.5, 0, 200);
        QVERIFY(strict.feed(tone(500, 0.05) + tone(300, 0.0)).isEmpty());
        // ... and crosses a lower one.
        EnergyVad lenient;
        lenient.configure(0.2, 0, 200);
        QCOMPARE(lenient.feed(tone(500, 0.05) + tone(300, 0.0)).size(), 2);
    }

    void scriptFormat()
    {
        QString error;
        const auto script = SimScript::fromJson(R"({
            "reject_current_shape": true, "loop": false, "cancel_delay_ms": 5,
            "turns": [
              {"question": "Q1?", "answer": "A1.", "transcript": "after", "delay_ms": 20,
               "fault": {"kind": "close", "code": 4002, "reason": "maintenance"}},
              {"question": "Q2?", "answer": "A2.", "fault": {"kind": "error", "when": "before",
               "error_code": "server_error", "message": "boom"}}
            ]})", &error);
        QVERIFY2(script, qPrintable(error));
        QVERIFY(script->rejectCurrentShape && !script->loop);
        QCOMPARE(script->turns.size(), 2);
        QVERIFY(script->turns[0].transcriptAfterResponse);
        QCOMPARE(script->turns[0].fault.kind, SimFault::Kind::close);
        QCOMPARE(script->turns[0].fault.code, 4002);
        QVERIFY(script->turns[1].fault.beforeResponse);
        QCOMPARE(script->turns[1].fault.message, QStringLiteral("boom"));

        const auto realistic = SimScript::fromJson(R"({
            "realistic": true, "withhold_session_created": 2, "insufficient_quota_after_configuration": true,
            "turns": [{"question": "Q?", "response_status": "incomplete", "transcription_fails": true,
                       "fault": {"kind": "insufficient_quota"}}]})", &error);
        QVERIFY2(realistic, qPrintable(error));
        QVERIFY(realistic->realistic && realistic->insufficientQuotaAfterConfiguration);
        QCOMPARE(realistic->withholdSessionCreated, 2);
        QCOMPARE(realistic->turns[0].responseStatus, QStringLiteral("incomplete"));
        QVERIFY(realistic->turns[0].transcriptionFails);
        QCOMPARE(realistic->turns[0].fault.kind, SimFault::Kind::insufficientQuota);
        // The realistic mode refuses the transcription model the service does not support on
        // /v1/realtime, unless the script names its own list.
        QCOMPARE(realistic->effectiveRefusedTranscribeModels(), QStringList{"gpt-live-transcribe"});
        QCOMPARE(script->effectiveRefusedTranscribeModels(), QStringList{});
        QCOMPARE(SimScript::fromJson(R"({"realistic": true, "refused_transcribe_models": []})", &error)
                     ->effectiveRefusedTranscribeModels(), QStringList{});
        QCOMPARE(SimScript::fromJson(R"({"withhold_session_created": true})", &error)->withholdSessionCreated, -1);
        QVERIFY(!SimScript::fromJson(R"({"turns": [{"question": "Q", "response_status": "meh"}]})", &error));
        QVERIFY(error.contains("response_status"));

        const auto transcriptions = SimScript::fromJson(R"({
            "transcription_texts": ["One.", "Two."],
            "audio_transcriptions": [{"text": "Hi."}, {"status": 429, "retry_after": 1.5, "delay_ms": 30}]})", &error);
        QVERIFY2(transcriptions, qPrintable(error));
        QCOMPARE(transcriptions->transcriptionTexts, (QStringList{"One.", "Two."}));
        QCOMPARE(transcriptions->audioTranscriptions.size(), 2);
        QCOMPARE(transcriptions->audioTranscriptions[0].text, QStringLiteral("Hi."));
        QCOMPARE(transcriptions->audioTranscriptions[1].status, 429);
        QCOMPARE(transcriptions->audioTranscriptions[1].retryAfter, 1.5);
        QCOMPARE(transcriptions->audioTranscriptions[1].delayMs, 30);
        QVERIFY(!SimScript::fromJson(R"({"audio_transcriptions": [{"status": 42}]})", &error));
        QVERIFY(error.contains("audio transcription 1"));

        QVERIFY(!SimScript::fromJson("[]", &error));
        QVERIFY(!SimScript::fromJson(R"({"turns": [{"answer": "no question"}]})", &error));
        QVERIFY(error.contains("turn 1"));
        QVERIFY(!SimScript::fromJson(R"({"turns": [{"question": "Q", "fault": {"kind": "meteor"}}]})", &error));
        QVERIFY(error.contains("meteor"));
    }

    void transcriptionEndpointChecksLikeTheService()
    {
        setUpSimulator();
        // A WebSocket on the same port is a connection; the HTTP requests are not.
        QWebSocket socket;
        QNetworkRequest handshake(sim->url());
        handshake.setRawHeader("Authorization", "Bearer " + kTestKey.toUtf8());
        socket.open(handshake);
        QTRY_COMPARE_WITH_TIMEOUT(sim->connectionCount(), 1, kWait);

        const QByteArray multipart = "Content-Type: multipart/form-data; boundary=b0und\r\n";
        const QByteArray bearer = "Authorization: Bearer " + kTestKey.toUtf8() + "\r\n";
        std::vector<std::int16_t> samples(8000, 1000);
        const QByteArray wav = testWav(samples);
        QCOMPARE(post(multipart, form({{"model", "whisper-1"}, {"file", wav}})).error.value("message").toString(),
                 QStringLiteral("You didn't provide an API key. You need to provide your API key in an Authorization "
                                "header using Bearer auth (i.e. Authorization: Bearer YOUR_KEY)."));
        QCOMPARE(sim->records().last().message.value("authorization").toString(), QStringLiteral("missing"));
        HttpAnswer answer = post(bearer + "Content-Type: application/json\r\n", "{}");
        QCOMPARE(answer.status, 400);
        QVERIFY(answer.error.value("message").toString().startsWith(QStringLiteral("Invalid Content-Type header")));
        answer = post(bearer + multipart, form({{"model", "whisper-1"}}));
        QCOMPARE(answer.status, 400);
        QCOMPARE(answer.error.value("param").toString(), QStringLiteral("file"));
        QCOMPARE(answer.error.value("type").toString(), QStringLiteral("invalid_request_error"));
        answer = post(bearer + multipart, form({{"file", wav}}));
        QCOMPARE(answer.status, 400);
        QCOMPARE(answer.error.value("message").toString(), QStringLiteral("you must provide a model parameter"));
        answer = post(bearer + multipart, form({{"model", "whisper-1"}, {"file", "not audio"}}));
        QCOMPARE(answer.status, 400);
        QVERIFY(answer.error.value("message").toString().startsWith(QStringLiteral("Invalid file format.")));
        QCOMPARE(post(bearer + multipart, form({{"model", "whisper-1"}, {"file", wav}}), "/v1/audio/translations").status, 404);
        // A chunked body is read as well; the answer is the next transcription text.
        sim->setTranscriptionTexts({QStringLiteral("Chunked and heard.")});
        QCOMPARE(post(bearer + multipart, form({{"model", "whisper-1"}, {"file", wav}}), nullptr, true).status, 200);
        QCOMPARE(sim->records().last().message.value("text").toString(), QStringLiteral("Chunked and heard."));
        QCOMPARE(sim->connectionCount(), 1);
        QCOMPARE(sim->httpConnectionCount(), 7);
    }

    void realAudioDrivesATurnThroughTheClient()
    {
        setUpSimulator();
        makeClient();
        startAndWaitConnected();
        // Speech, then more than the configured 500 ms of silence, in 20 ms pieces.
        const QByteArray audio = tone(600, 0.3) + tone(900, 0.0);
        for (qsizetype offset = 0; offset < audio.size(); offset += 960)
            client->append(audio.mid(offset, 960));
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);
        QCOMPARE(probe.transcripts.value(0).second, sim->script().turns.value(0).question);
        QCOMPARE(probe.answer(probe.done[0]), sim->script().turns.value(0).answer);
        int bytes = 0;
        for (const QJsonObject &message : sim->received("input_audio_buffer.append"))
            bytes += message.value("audio_bytes").toInt();
        QCOMPARE(bytes, 4800 * (audio.size() / 4800)); // the tail below one chunk is still pending
    }

    void executableServesAndObeysItsControlCommands()
    {
        QTemporaryDir dir;
        const QString records = dir.filePath("records.jsonl");
        QProcess process;
        process.start(QStringLiteral(KETTERBLOOM_SIM_PATH), {"--port", "0", "--records", records, "--key", kTestKey});
        QVERIFY(process.waitForStarted(kWait));
        QTRY_VERIFY_WITH_TIMEOUT(process.canReadLine(), kWait);
        const QString first = QString::fromUtf8(process.readLine()).trimmed();
        QVERIFY2(first.startsWith("KQ_REALTIME_URL=ws://127.0.0.1:"), qPrintable(first));
        const QUrl url(first.section('=', 1));

        QWebSocket socket;
        QStringList received;
        connect(&socket, &QWebSocket::textMessageReceived, this, [&received](const QString &text) {
            received.append(QJsonDocument::fromJson(text.toUtf8()).object().value("type").toString());
        });
        QNetworkRequest request(QUrl(url.toString() + "?model=gpt-realtime"));
        request.setRawHeader("Authorization", "Bearer " + kTestKey.toUtf8());
        socket.open(request);
        QTRY_COMPARE_WITH_TIMEOUT(received, QStringList{"session.created"}, kWait);
        RealtimeConfig cfg = config();
        socket.sendTextMessage(QString::fromUtf8(QJsonDocument(QJsonObject{
            {"type", "session.update"}, {"session", QJsonObject{{"modalities", QJsonArray{"text"}}, {"instructions", "x"},
                                                                {"turn_detection", QJsonObject{{"type", "server_vad"}, {"threshold", 0.5},
                                                                                               {"prefix_padding_ms", 300},
                                                                                               {"silence_duration_ms", 500}}}}}}).toJson()));
        QTRY_COMPARE_WITH_TIMEOUT(received.size(), 2, kWait);
        QCOMPARE(received.last(), QStringLiteral("session.updated"));

        auto command = [&process](const QByteArray &line) {
            process.write(line + '\n');
            QString reply;
            const bool replied = QTest::qWaitFor([&] {
                while (process.canReadLine()) {
                    const QString text = QString::fromUtf8(process.readLine()).trimmed();
                    if (!text.startsWith("event "))
                        reply = text;
                }
                return !reply.isEmpty();
            }, kWait);
            return replied ? reply : QStringLiteral("(no reply)");
        };
        QCOMPARE(command("turn Why Linux?"), QStringLiteral("ok"));
        QTRY_VERIFY_WITH_TIMEOUT(received.contains("response.done"), kWait);
        QVERIFY(received.contains("conversation.item.input_audio_transcription.completed"));
        QVERIFY(received.contains("response.output_text.delta"));
        QCOMPARE(command("status"), QStringLiteral("status connections=1 open=1 records=1"));
        QVERIFY(command("meteor").startsWith("error: unknown command"));
        QCOMPARE(command("close 4000 bye"), QStringLiteral("ok"));
        QTRY_COMPARE_WITH_TIMEOUT(socket.state(), QAbstractSocket::UnconnectedState, kWait);
        QCOMPARE(socket.closeCode(), QWebSocketProtocol::CloseCode(4000));
        QCOMPARE(socket.closeReason(), QStringLiteral("bye"));
        QCOMPARE(command("drop"), QStringLiteral("error: no open connection"));

        QFile file(records);
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QByteArray lines = file.readAll();
        QCOMPARE(lines.count('\n'), 1);
        QVERIFY(lines.contains("\"session.update\""));
        QVERIFY(!lines.contains(kTestKey.toUtf8()));

        process.write("quit\n");
        QVERIFY(process.waitForFinished(kWait));
        QCOMPARE(process.exitCode(), 0);
    }

    // The realistic mode as a developer drives it: withheld "session.created", the beta shape
    // refused without its header, the answer before the transcript, rate limits, quota.
    void executableBehavesLikeTheServiceWhenRealistic()
    {
        QProcess process;
        process.start(QStringLiteral(KETTERBLOOM_SIM_PATH), {"--realistic", "--withhold-session-created", "1"});
        QVERIFY(process.waitForStarted(kWait));
        QTRY_VERIFY_WITH_TIMEOUT(process.canReadLine(), kWait);
        const QUrl url(QString::fromUtf8(process.readLine()).trimmed().section('=', 1));
        QNetworkRequest request(QUrl(url.toString() + "?model=gpt-realtime"));
        request.setRawHeader("Authorization", "Bearer " + kTestKey.toUtf8());

        QStringList received;
        QList<QJsonObject> errors;
        auto listen = [&](QWebSocket &socket) {
            connect(&socket, &QWebSocket::textMessageReceived, this, [&](const QString &text) {
                const QJsonObject event = QJsonDocument::fromJson(text.toUtf8()).object();
                received.append(event.value("type").toString());
                if (received.last() == "error")
                    errors.append(event.value("error").toObject());
            });
        };
        QWebSocket withheld;
        listen(withheld);
        withheld.open(request);
        QTRY_COMPARE_WITH_TIMEOUT(withheld.state(), QAbstractSocket::ConnectedState, kWait);
        QWebSocket socket;
        listen(socket);
        socket.open(request);
        QTRY_COMPARE_WITH_TIMEOUT(received, QStringList{"session.created"}, kWait); // the second one only

        auto send = [&socket](const QJsonObject &session) {
            socket.sendTextMessage(QString::fromUtf8(
                QJsonDocument(QJsonObject{{"type", "session.update"}, {"session", session}}).toJson()));
        };
        RealtimeConfig cfg = config();
        send(RealtimeProtocol::session(cfg, true));
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 1, kWait);
        QCOMPARE(errors[0].value("code").toString(), QStringLiteral("unknown_parameter"));
        QCOMPARE(errors[0].value("param").toString(), QStringLiteral("session.modalities"));
        send(RealtimeProtocol::session(cfg, false));
        QTRY_VERIFY_WITH_TIMEOUT(received.contains("session.updated"), kWait);

        process.write("turn Why Linux?\n");
        QTRY_VERIFY_WITH_TIMEOUT(received.contains("rate_limits.updated"), kWait);
        QVERIFY(received.indexOf("response.created") < received.indexOf("conversation.item.input_audio_transcription.delta"));
        QVERIFY(received.indexOf("conversation.item.input_audio_transcription.completed") < received.indexOf("response.done"));
        QCOMPARE(received.indexOf("rate_limits.updated"), received.indexOf("response.done") + 1);
        QVERIFY(received.indexOf("input_audio_buffer.speech_started") < received.indexOf("response.created"));

        process.write("quota\n");
        QTRY_COMPARE_WITH_TIMEOUT(errors.size(), 2, kWait);
        QCOMPARE(errors[1].value("code").toString(), QStringLiteral("insufficient_quota"));
        process.write("quit\n");
        QVERIFY(process.waitForFinished(kWait));
        QCOMPARE(process.exitCode(), 0);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeSim)
#include "tst_realtime_sim.moc"
