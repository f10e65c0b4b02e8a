// The transcription endpoint client against the simulator over real HTTP on 127.0.0.1: what a
// request carries, the answer and its usage, the sentences for each failure, rate limits
// retried, and cancelling requests under way.
#include "TestWav.h"

#include "realtime/AudioTranscriptionClient.h"
#include "realtime/RealtimeFailure.h"
#include "realtimesim/RealtimeSimulator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <cmath>
#include <memory>

namespace {

const QString kKey = QStringLiteral("sk-test-0123456789abcdefSECRETKEY");
constexpr int kWait = 15000;

// `seconds` of a tone at 16 kHz, as a WAV file.
QByteArray tone(double seconds)
{
    std::vector<std::int16_t> samples(static_cast<std::size_t>(seconds * 16000));
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<std::int16_t>(8000 * std::sin(0.05 * double(i)));
    return testWav(std::move(samples));
}

AudioTranscriptionConfig config(const QString &model = QStringLiteral("gpt-4o-transcribe"), const QString &language = {})
{
    return {kKey, model, language};
}

AudioTranscriptionClient::Timing fastTiming()
{
    AudioTranscriptionClient::Timing timing;
    timing.secondMs = 5; // a Retry-After of 2 s waits 10 ms
    return timing;
}

} // namespace

class TestAudioTranscriptions : public QObject
{
    Q_OBJECT

private:
    std::unique_ptr<AudioTranscriptionClient> client(const AudioTranscriptionConfig &c = config(),
                                                     const AudioTranscriptionClient::Timing &timing = fastTiming())
    {
        return std::make_unique<AudioTranscriptionClient>(c, m_sim->url().toString(), timing);
    }
    // One clip; none when no answer came.
    static std::optional<AudioTranscriptionClient::Outcome> transcribe(AudioTranscriptionClient &c, double seconds = 1.0)
    {
        std::optional<AudioTranscriptionClient::Outcome> result;
        c.transcribe(tone(seconds), [&result](const AudioTranscriptionClient::Outcome &r) { result = r; });
        if (!QTest::qWaitFor([&result] { return result.has_value(); }, kWait))
            qWarning("no answer within %d ms", kWait);
        return result;
    }
    static QString failure(const std::optional<AudioTranscriptionClient::Outcome> &result)
    {
        return result && !result->ok() ? result->error() : QStringLiteral("(no failure)");
    }
    qsizetype requests() const { return m_sim->received(QStringLiteral("POST /v1/audio/transcriptions")).size(); }

    std::unique_ptr<RealtimeSimulator> m_sim;

private slots:
    void init()
    {
        m_sim = std::make_unique<RealtimeSimulator>();
        QVERIFY(m_sim->listen());
    }
    void cleanup() { m_sim.reset(); }

    void requestCarriesTheClipModelAndKey()
    {
        m_sim->setTranscriptionTexts({QStringLiteral("Tell me about the ledger.")});
        auto c = client(config(QStringLiteral("gpt-4o-transcribe"), QStringLiteral("de")));
        QVERIFY(c->usable().ok());
        QCOMPARE(c->url(), m_sim->transcriptionsUrl());
        const auto result = transcribe(*c, 1.0);
        QVERIFY(result && result->ok());
        const AudioTranscriptionClient::Text &text = result->value();
        QCOMPARE(text.text, QStringLiteral("Tell me about the ledger."));
        QCOMPARE(text.usage.value("type").toString(), QStringLiteral("tokens"));
        QCOMPARE(text.usage.value("input_tokens").toInt(), 10);

        const QList<QJsonObject> sent = m_sim->received(QStringLiteral("POST /v1/audio/transcriptions"));
        QCOMPARE(sent.size(), 1);
        const QJsonObject request = sent.first();
        QCOMPARE(request.value("authorization").toString(), QStringLiteral("valid"));
        QCOMPARE(request.value("content_type").toString(), QStringLiteral("multipart/form-data"));
        QCOMPARE(request.value("fields").toArray(), (QJsonArray{"file", "model", "response_format", "language"}));
        QCOMPARE(request.value("model").toString(), QStringLiteral("gpt-4o-transcribe"));
        QCOMPARE(request.value("response_format").toString(), QStringLiteral("json"));
        QCOMPARE(request.value("language").toString(), QStringLiteral("de"));
        const QJsonObject file = request.value("file").toObject();
        QCOMPARE(file.value("filename").toString(), QStringLiteral("utterance.wav"));
        QCOMPARE(file.value("content_type").toString(), QStringLiteral("audio/wav"));
        QCOMPARE(file.value("sample_rate").toInt(), 16000);
        QCOMPARE(file.value("channels").toInt(), 1);
        QCOMPARE(file.value("bits").toInt(), 16);
        QCOMPARE(file.value("seconds").toDouble(), 1.0);
        // Not a WebSocket connection; the key is in nothing the simulator kept.
        QCOMPARE(m_sim->connectionCount(), 0);
        for (const SimRecord &record : m_sim->records())
            QVERIFY(!QJsonDocument(record.message).toJson().contains(kKey.toUtf8()));

        // whisper-1 reports seconds; no language, no language field.
        auto whisper = client(config(QStringLiteral("whisper-1")));
        const auto billed = transcribe(*whisper, 1.5);
        QVERIFY(billed && billed->ok());
        QCOMPARE(billed->value().usage,
                 (QVariantMap{{"type", "duration"}, {"seconds", 2}}));
        QCOMPARE(m_sim->received(QStringLiteral("POST /v1/audio/transcriptions")).last().value("fields").toArray(),
                 (QJsonArray{"file", "model", "response_format"}));
    }

    void addressRules()
    {
        const auto timing = fastTiming();
        AudioTranscriptionClient service(config(), QString(), timing);
        QCOMPARE(service.url(), QUrl(QStringLiteral("https://api.openai.com/v1/audio/transcriptions")));
        AudioTranscriptionClient proxy(config(), QStringLiteral("wss://proxy.example.com:8443/v1/realtime"), timing);
        QCOMPARE(proxy.url(), QUrl(QStringLiteral("https://proxy.example.com:8443/v1/audio/transcriptions")));
        // The key never goes over plain http to another machine; without a key nothing is sent.
        AudioTranscriptionClient plain(config(), QStringLiteral("ws://192.0.2.7:8099/v1/realtime"), timing);
        QVERIFY(plain.usable().errorIfAny().value_or(QString()).contains(QStringLiteral("unencrypted")));
        QVERIFY(failure(transcribe(plain)).contains(QStringLiteral("unencrypted")));
        AudioTranscriptionClient keyless({QString(), QStringLiteral("whisper-1"), {}}, m_sim->url().toString(), timing);
        QCOMPARE(failure(transcribe(keyless)), QStringLiteral("No API key set — open Settings and paste your OpenAI key."));
        QCOMPARE(requests(), 0);
    }

    void failuresTellTheUserWhatHappened()
    {
        m_sim->setExpectedKey(QStringLiteral("sk-another-key"));
        QCOMPARE(failure(transcribe(*client())), RealtimeFailure::keyMessage());
        m_sim->setExpectedKey(QString());

        SimAudioTranscription noQuota;
        noQuota.status = 429;
        noQuota.errorCode = QStringLiteral("insufficient_quota");
        SimAudioTranscription overloaded;
        overloaded.status = 500;
        overloaded.message = QStringLiteral("The engine is overloaded.");
        m_sim->setAudioTranscriptions({noQuota, overloaded});
        const qsizetype before = requests();
        QVERIFY(failure(transcribe(*client())).startsWith(QStringLiteral("Your OpenAI account has no quota left")));
        QCOMPARE(requests(), before + 1); // no quota is not retried
        QCOMPARE(failure(transcribe(*client())), QStringLiteral("The service answered HTTP 500: The engine is overloaded."));
        QCOMPARE(failure(transcribe(*client(), 0.05)),
                 QStringLiteral("The service answered HTTP 400: Audio file is too short. Minimum audio length is 0.1 seconds."));
        QVERIFY(failure(transcribe(*client(config(QStringLiteral("gpt-4o-transcribe"), QStringLiteral("german")))))
                    .contains(QStringLiteral("ISO-639-1")));

        auto unreachable = client();
        m_sim->close();
        QCOMPARE(failure(transcribe(*unreachable)), QStringLiteral("can't reach 127.0.0.1: connection refused"));
    }

    void rateLimitsAreRetriedAWhile()
    {
        SimAudioTranscription limited;
        limited.status = 429;
        limited.retryAfter = 2;
        SimAudioTranscription limitedNoHint;
        limitedNoHint.status = 429;
        SimAudioTranscription answered;
        answered.text = QStringLiteral("Third time lucky.");
        m_sim->setAudioTranscriptions({limited, limitedNoHint, answered});
        const auto result = transcribe(*client());
        QVERIFY(result && result->ok());
        QCOMPARE(result->value().text, QStringLiteral("Third time lucky."));
        QCOMPARE(requests(), 3);

        // Bounded: three retries, and no Retry-After beyond the longest wait.
        m_sim->setAudioTranscriptions({limited, limited, limited, limited});
        QCOMPARE(failure(transcribe(*client())),
                 QStringLiteral("OpenAI is rate-limiting this account (rate_limit_exceeded) — try again in a minute."));
        QCOMPARE(requests(), 7);
        SimAudioTranscription later = limited;
        later.retryAfter = 600;
        m_sim->setAudioTranscriptions({later});
        QVERIFY(failure(transcribe(*client())).startsWith(QStringLiteral("OpenAI is rate-limiting")));
        QCOMPARE(requests(), 8);
    }

    void cancelAbortsWhatIsUnderWay()
    {
        SimAudioTranscription slow;
        slow.delayMs = 60000;
        m_sim->setAudioTranscriptions({slow, slow});
        auto c = client();
        int completions = 0;
        c->transcribe(tone(1), [&completions](const AudioTranscriptionClient::Outcome &) { ++completions; });
        c->transcribe(tone(1), [&completions](const AudioTranscriptionClient::Outcome &) { ++completions; });
        QTRY_COMPARE_WITH_TIMEOUT(requests(), 2, kWait);
        QCOMPARE(m_sim->openHttpConnectionCount(), 2); // both at once
        c->cancel();
        QCOMPARE(c->pending(), 0);
        QTRY_COMPARE_WITH_TIMEOUT(m_sim->openHttpConnectionCount(), 0, kWait);
        QCOMPARE(completions, 0);
    }
};

QTEST_GUILESS_MAIN(TestAudioTranscriptions)
#include "tst_realtime_transcriptions.moc"
