#pragma once

#include "audio/Pcm16Resampler.h"
#include "realtime/TranscriptionClient.h"
#include "session/ServiceTranscription.h"

#include <atomic>

// Presents the service's transcription session to the session controller. An adapter because
// it translates: the microphone (48 kHz float, from the audio thread) is converted to 24 kHz
// 16-bit PCM there and handed to the client, which sends it from its own thread; the session's
// configuration becomes the client's; and a failed status becomes onFailure.
class ServiceTranscriptionLink final : public ServiceTranscription
{
public:
    explicit ServiceTranscriptionLink(TranscriptionClient &client) : m_client(client)
    {
        m_client.onDelta = [this](const QString &item, const QString &delta) { if (onDelta) onDelta(item, delta); };
        m_client.onCompleted = [this](const QString &item, const QString &text) { if (onCompleted) onCompleted(item, text); };
        m_client.onFailed = [this](const QString &item, const QString &message) { if (onFailed) onFailed(item, message); };
        m_client.onUsage = [this](const QVariantMap &usage) { if (onUsage) onUsage(usage); };
        m_client.onStatus = [this](const RealtimeStatus &status) {
            if (status.isFailed() && onFailure)
                onFailure(status.message());
        };
    }

    void start(const Config &config) override
    {
        TranscriptionConfig c;
        c.apiKey = config.apiKey;
        c.model = config.model;
        c.vadThreshold = config.vadThreshold;
        c.prefixPaddingMs = config.prefixPaddingMs;
        c.silenceDurationMs = config.silenceDurationMs;
        m_client.start(c);
        m_running.store(true, std::memory_order_release);
    }
    void stop() override
    {
        m_running.store(false, std::memory_order_release);
        m_client.stop();
    }
    void appendMicBuffer(const float *samples, int frames) override
    {
        if (!m_running.load(std::memory_order_acquire) || frames <= 0)
            return;
        const QByteArray pcm = m_resampler.process(samples, frames);
        if (!pcm.isEmpty())
            m_client.append(pcm);
    }

private:
    TranscriptionClient &m_client;
    Pcm16Resampler m_resampler; // audio thread only
    std::atomic<bool> m_running{false};
};
