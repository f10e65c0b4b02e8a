#pragma once

#include "session/RecordingTranscription.h"
#include "speech/RecordingTranscriber.h"

// Presents the recording transcriber to the session controller.
class RecordingTranscriberLink final : public RecordingTranscription
{
public:
    explicit RecordingTranscriberLink(RecordingTranscriber &transcriber) : m_transcriber(transcriber) {}

    void transcribe(const QString &wavPath, std::function<void(const RecordingProgress &)> progress,
                    std::function<void(const Result &)> completion) override
    {
        m_transcriber.transcribe(wavPath, std::move(progress),
                                 [completion = std::move(completion)](const RecordingTranscriber::Result &result) {
                                     if (!completion)
                                         return;
                                     if (const auto *written = std::get_if<RecordingTranscriber::Written>(&result))
                                         completion(Written{written->transcriptPath});
                                     else
                                         completion(Failed{std::get<RecordingTranscriber::Failed>(result).message});
                                 });
    }
    void cancel() override { m_transcriber.cancel(); }

private:
    RecordingTranscriber &m_transcriber;
};
