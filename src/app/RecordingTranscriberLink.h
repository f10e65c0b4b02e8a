#pragma once

#include "app/ServiceUtteranceRecogniser.h"
#include "session/RecordingTranscription.h"
#include "speech/RecordingTranscriber.h"

// Presents the recording transcriber to the session controller: on the device, or with the
// service's transcription endpoint as the recogniser of each utterance.
class RecordingTranscriberLink final : public RecordingTranscription
{
public:
    explicit RecordingTranscriberLink(RecordingTranscriber &transcriber) : m_transcriber(transcriber) {}

    void transcribe(const QString &wavPath, std::function<void(const RecordingProgress &)> progress,
                    std::function<void(const Result &)> completion) override
    {
        m_transcriber.transcribe(wavPath, std::move(progress), adapt(std::move(completion)));
    }
    void transcribeWithService(const QString &wavPath, const ServiceOptions &options,
                               std::function<void(const RecordingProgress &)> progress,
                               std::function<void(const Result &)> completion) override
    {
        const AudioTranscriptionConfig config{options.apiKey, options.model, options.language};
        m_transcriber.transcribe(
            wavPath, [config] { return std::make_unique<ServiceUtteranceRecogniser>(config); }, std::move(progress),
            adapt(std::move(completion)));
    }
    void cancel() override { m_transcriber.cancel(); }
    std::optional<double> recordingSeconds(const QString &wavPath) override
    {
        return RecordingTranscriber::recordingSeconds(wavPath);
    }

private:
    static std::function<void(const RecordingTranscriber::Result &)> adapt(std::function<void(const Result &)> completion)
    {
        return [completion = std::move(completion)](const RecordingTranscriber::Result &result) {
            if (!completion)
                return;
            if (const auto *written = std::get_if<RecordingTranscriber::Written>(&result))
                completion(Written{written->transcriptPath, written->usage, written->secondsSent});
            else
                completion(Failed{std::get<RecordingTranscriber::Failed>(result).message});
        };
    }

    RecordingTranscriber &m_transcriber;
};
