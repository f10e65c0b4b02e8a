#pragma once

#include "realtime/AudioTranscriptionClient.h"
#include "speech/UtteranceRecogniser.h"

#include <QCoreApplication>

// Recognises a recording's utterances with the service's transcription endpoint: each one goes
// as a small WAV, two at a time, and the service's usage is summed over them. Made and used on
// the recording transcriber's worker thread, whose event loop delivers the answers.
class ServiceUtteranceRecogniser final : public UtteranceRecogniser
{
    Q_DECLARE_TR_FUNCTIONS(ServiceUtteranceRecogniser)

public:
    static constexpr int kInFlight = 2;

    // KQ_REALTIME_URL from the environment chooses the host, as for the realtime connection.
    explicit ServiceUtteranceRecogniser(const AudioTranscriptionConfig &config,
                                        const AudioTranscriptionClient::Timing &timing = {});

    Result<void> prepare() override { return m_client.usable(); }
    int concurrency() const override { return kInFlight; }
    QString description() const override;
    void recognise(std::vector<std::int16_t> samples, Completion completion) override;
    void cancel() override { m_client.cancel(); }
    QVariantMap usage() const override;

private:
    void addUsage(const QVariantMap &usage);

    const QString m_model;
    AudioTranscriptionClient m_client;
    qint64 m_inputTokens = 0;
    qint64 m_outputTokens = 0;
    bool m_tokens = false;
    double m_seconds = 0;
    bool m_duration = false;
};
