// "My answer" from the service's transcription session (opt-in) against the local simulator
// over a real WebSocket: the session's configuration, deltas and completed items reaching
// the answer, its usage, a reconnect; and with the setting off, no connection at all.
#include "app/ServiceTranscriptionLink.h"
#include "realtime/TranscriptionClient.h"
#include "realtimesim/RealtimeSimulator.h"
#include "session/AnswerTranscriber.h"
#include "settings/AppSettings.h"
#include "settings/SecretStore.h"

#include <QSettings>
#include <QTemporaryDir>
#include <QTest>

#include <cmath>

namespace {

// The on-device transcriber, as far as the router is concerned.
class OnDeviceProbe final : public MicTranscription
{
public:
    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override
    {
        ++authorizations;
        completion(SpeechAvailability::ready());
    }
    void begin() override { running = true; ++begins; }
    void end() override { running = false; }
    void stopTask(bool) override { running = false; }
    bool isSegmentRunning() const override { return running; }
    void appendMicBuffer(const float *, int frames) override { this->frames += frames; }

    bool running = false;
    int begins = 0;
    int authorizations = 0;
    long frames = 0;
};

RealtimeTiming fastTiming()
{
    RealtimeTiming timing;
    timing.backoffUnitMs = 10; // reconnects after 10 ms instead of 1 s
    return timing;
}

struct Rig
{
    Rig()
        : settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("settings.conf")), QSettings::IniFormat),
                   SecretStore(dir.filePath(QStringLiteral("keys")), dir.filePath(QStringLiteral("legacy"))))
        , client(fastTiming())
        , link(client)
        , answers(settings, onDevice, &link)
    {
        settings.setApiKey(QStringLiteral("sk-test"));
        settings.setTranscribeModel(QStringLiteral("gpt-4o-transcribe"));
        settings.setTranscribeMyAnswers(true);
        auto forward = client.onStatus;
        client.onStatus = [this, forward](const RealtimeStatus &status) {
            statuses << status;
            forward(status);
        };
        answers.onPartial = [this](const QString &text) { partials << text; };
        answers.onFinal = [this](const QString &text) { finals << text; };
        answers.onFailure = [this](const QString &message) { failures << message; };
        answers.onUsage = [this](const QVariantMap &usage) { usages << usage; };
    }
    int connected() const { return int(std::count(statuses.begin(), statuses.end(), RealtimeStatus::connected())); }
    // Half a second of a loud tone, then a second of silence, as the microphone delivers it.
    void speak()
    {
        std::vector<float> block(2048);
        for (int b = 0; b < 36; ++b) {
            for (std::size_t i = 0; i < block.size(); ++i)
                block[i] = b < 12 ? 0.5f * std::sin(0.06f * float(b * 2048 + int(i))) : 0.0f;
            answers.appendMicBuffer(block.data(), int(block.size()));
        }
    }

    QTemporaryDir dir;
    AppSettings settings;
    TranscriptionClient client;
    ServiceTranscriptionLink link;
    OnDeviceProbe onDevice;
    AnswerTranscriber answers;
    QList<RealtimeStatus> statuses;
    QStringList partials, finals, failures;
    QList<QVariantMap> usages;
};

} // namespace

class TestAnswerTranscription : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_simulator = std::make_unique<RealtimeSimulator>(); // counts start from zero in each test
        QVERIFY(m_simulator->listen());
        qputenv("KQ_REALTIME_URL", m_simulator->url().toString().toUtf8());
    }
    void cleanup()
    {
        m_simulator->close();
        m_simulator.reset();
        qunsetenv("KQ_REALTIME_URL");
    }

    void serviceFillsMyAnswer()
    {
        m_simulator->setTranscriptionTexts({QStringLiteral("I led the migration of our billing system."),
                                     QStringLiteral("We moved it without downtime.")});
        Rig rig;
        rig.settings.setTranscribeAnswersWithService(true);
        rig.answers.sessionStarted();
        QVERIFY(rig.answers.usesService());
        QTRY_COMPARE(rig.connected(), 1);

        // One connection, for transcription only, with the key, configured as a transcription session.
        QCOMPARE(m_simulator->connectionCount(), 1);
        const SimConnectionInfo info = m_simulator->connections().first();
        QCOMPARE(info.intent, QStringLiteral("transcription"));
        QCOMPARE(info.authorization, QStringLiteral("valid"));
        const QList<QJsonObject> updates = m_simulator->received(QStringLiteral("session.update"));
        QCOMPARE(updates.size(), 1);
        const QJsonObject session = updates.first().value("session").toObject();
        QCOMPARE(session.value("type").toString(), QStringLiteral("transcription"));
        const QJsonObject input = session.value("audio").toObject().value("input").toObject();
        QCOMPARE(input.value("format").toObject(), (QJsonObject{{"type", "audio/pcm"}, {"rate", 24000}}));
        QCOMPARE(input.value("transcription").toObject().value("model").toString(), QStringLiteral("gpt-4o-transcribe"));
        QCOMPARE(input.value("turn_detection").toObject().value("type").toString(), QStringLiteral("server_vad"));

        // Local speaking marks segments; the service's deltas and completed item fill the answer.
        rig.answers.begin();
        QVERIFY(rig.answers.isSegmentRunning());
        QCOMPARE(rig.onDevice.begins, 0);
        rig.speak();
        QTRY_COMPARE(rig.finals, QStringList{QStringLiteral("I led the migration of our billing system.")});
        QCOMPARE(rig.partials, (QStringList{QStringLiteral("I led the"), QStringLiteral("I led the migration of our"),
                                            QStringLiteral("I led the migration of our billing system.")}));
        QCOMPARE(rig.onDevice.frames, 0L); // the microphone went to the service only
        QVERIFY(!m_simulator->received(QStringLiteral("input_audio_buffer.append")).isEmpty());
        QTRY_COMPARE(rig.usages.size(), 1);
        QCOMPARE(rig.usages.first().value("type").toString(), QStringLiteral("tokens"));
        rig.answers.end();
        QVERIFY(!rig.answers.isSegmentRunning());

        // The connection drops: the client reconnects, configures again, and the next item arrives.
        QVERIFY(m_simulator->dropConnection());
        QTRY_COMPARE(rig.connected(), 2);
        QCOMPARE(m_simulator->connectionCount(), 2);
        QCOMPARE(m_simulator->connections().last().intent, QStringLiteral("transcription"));
        QVERIFY(m_simulator->triggerTranscription(QStringLiteral("Then I trained the team.")));
        QTRY_COMPARE(rig.finals.size(), 2);
        QCOMPARE(rig.finals.last(), QStringLiteral("Then I trained the team."));
        QVERIFY(rig.failures.isEmpty());

        rig.answers.sessionStopped();
        QTRY_COMPARE(m_simulator->openConnectionCount(), 0);
        QVERIFY(!rig.answers.usesService());
    }

    void settingOffOpensNoConnection()
    {
        Rig rig;
        // Off by default; on-device transcription of the answers is on.
        QVERIFY(!rig.settings.transcribeAnswersWithService());
        rig.answers.sessionStarted();
        QVERIFY(!rig.answers.usesService());
        bool ready = false;
        rig.answers.requestAuthorization([&](const SpeechAvailability &a) { ready = a.kind == SpeechAvailability::Kind::ready; });
        QVERIFY(ready);
        QCOMPARE(rig.onDevice.authorizations, 1);
        rig.answers.begin();
        QCOMPARE(rig.onDevice.begins, 1);
        rig.speak();
        QVERIFY(rig.onDevice.frames > 0);
        // The service setting alone, without transcribing answers at all, opens nothing either.
        rig.answers.sessionStopped();
        rig.settings.setTranscribeAnswersWithService(true);
        rig.settings.setTranscribeMyAnswers(false);
        rig.answers.sessionStarted();
        QVERIFY(!rig.answers.usesService());
        QTest::qWait(300);
        QCOMPARE(m_simulator->connectionCount(), 0);
        QVERIFY(rig.statuses.isEmpty());
    }

    void refusedAddressIsAFailure()
    {
        // The key never goes to a plain ws:// address on another machine.
        qputenv("KQ_REALTIME_URL", "ws://192.0.2.1:9/v1/realtime");
        Rig rig;
        rig.settings.setTranscribeAnswersWithService(true);
        rig.answers.sessionStarted();
        QTRY_COMPARE(rig.failures.size(), 1);
        QVERIFY(rig.failures.first().startsWith(QStringLiteral("Transcribing your answers with OpenAI failed: ")));
        QCOMPARE(m_simulator->connectionCount(), 0);
    }

private:
    std::unique_ptr<RealtimeSimulator> m_simulator;
};

QTEST_GUILESS_MAIN(TestAnswerTranscription)
#include "tst_AnswerTranscription.moc"
