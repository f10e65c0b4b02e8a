#pragma once

#include "audio/AudioCaptureEngine.h"
#include "session/CaptureLink.h"

// Presents the audio capture engine to the session controller.
class AudioCaptureLink final : public CaptureLink
{
public:
    explicit AudioCaptureLink(AudioCaptureEngine &engine) : m_engine(engine)
    {
        m_engine.onPCM16 = [this](const QByteArray &pcm16) { if (onPCM16) onPCM16(pcm16); };
        m_engine.onLevels = [this](float mic, float meeting) { if (onLevels) onLevels(mic, meeting); };
        m_engine.onMicUnavailable = [this](const QString &message) { if (onMicUnavailable) onMicUnavailable(message); };
        m_engine.onMicBuffer = [this](const float *samples, int frames) { if (onMicBuffer) onMicBuffer(samples, frames); };
        m_engine.onError = [this](const QString &message) { if (onError) onError(message); };
        m_engine.onHealth = [this](const CaptureHealth &health) { if (onHealth) onHealth(health); };
        m_engine.onRecordingFailed = [this](const QString &path, const QString &error) {
            if (onRecordingFailed)
                onRecordingFailed(path, error);
        };
    }

    MicPermission micPermission() const override { return m_engine.micPermission(); }
    void requestMicAccess(std::function<void(bool)> completion) override { m_engine.requestMicAccess(std::move(completion)); }
    std::optional<QString> start(const CaptureSource &source, StreamSource streamSource, bool record) override
    {
        return m_engine.start(source, streamSource, record);
    }
    void stop() override { m_engine.stop(); }
    bool isRunning() const override { return m_engine.isRunning(); }
    std::optional<QString> recordingPath() const override { return m_engine.recordingPath(); }
    std::optional<QString> recordingError() const override { return m_engine.recordingError(); }
    std::optional<QString> retarget(const TapTarget &meeting) override { return m_engine.retarget(meeting); }
    void switchMicrophone(const std::optional<QString> &deviceUID, int channel) override
    {
        m_engine.switchMicrophone(deviceUID, channel);
    }

private:
    AudioCaptureEngine &m_engine;
};
