#pragma once

#include "session/MicTranscription.h"
#include "speech/MicTranscriber.h"

// Presents the on-device microphone transcriber to the session controller.
class MicTranscriberLink final : public MicTranscription
{
public:
    explicit MicTranscriberLink(MicTranscriber &transcriber) : m_transcriber(transcriber)
    {
        m_transcriber.onPartial = [this](const QString &text) { if (onPartial) onPartial(text); };
        m_transcriber.onFinal = [this](const QString &text) { if (onFinal) onFinal(text); };
        m_transcriber.onFailure = [this](const QString &message) { if (onFailure) onFailure(message); };
    }

    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override
    {
        m_transcriber.requestAuthorization(std::move(completion));
    }
    void setContextText(const QString &text) override { m_transcriber.setContextText(text); }
    void begin() override { m_transcriber.begin(); }
    void end() override { m_transcriber.end(); }
    void stopTask(bool silent) override { m_transcriber.stopTask(silent); }
    bool isSegmentRunning() const override { return m_transcriber.isSegmentRunning(); }
    void appendMicBuffer(const float *samples, int frames) override { m_transcriber.appendMicBuffer(samples, frames); }

private:
    MicTranscriber &m_transcriber;
};
