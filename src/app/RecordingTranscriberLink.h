#pragma once

#include "app/ServiceUtteranceRecogniser.h"
#include "session/RecordingTranscription.h"
#include "speech/RecordingTranscriber.h"

// Presents the recording transcriber to the session controller: on the device, or with the
// service's transcription endpoint as the recogniser of each utterance. Kept as an adapter
// because it translates: the session's ServiceOptions become the service's recogniser, which
// the speech library, which knows nothing of the realtime client, cannot make itself.
class RecordingTranscriberLink final : public RecordingTranscription
{
public:
    explicit RecordingTranscriberLink(RecordingTranscriber &transcriber) : m_transcriber(transcriber) {}

    void transcribe(const QString &wavPath, std::function<void(const RecordingProgress &)> progress,
                    std::function<void(const Result &)> completion) override
    {
        m_transcriber.transcribe(wavPath, std::move(progress), std::move(completion));
    }
    void transcribeWithService(const QString &wavPath, const ServiceOptions &options,
                               std::function<void(const RecordingProgress &)> progress,
                               std::function<void(const Result &)> completion) override
    {
        const AudioTranscriptionConfig config{options.apiKey, options.model, options.language};
        m_transcriber.transcribe(
            wavPath, [config] { return std::make_unique<ServiceUtteranceRecogniser>(config); }, std::move(progress),
            std::move(completion));
    }
    void cancel() override { m_transcriber.cancel(); }
    std::optional<double> recordingSeconds(const QString &wavPath) override
    {
        return RecordingTranscriber::recordingSeconds(wavPath);
    }

private:
    RecordingTranscriber &m_transcriber;
};
