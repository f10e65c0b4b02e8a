#pragma once

#include "session/RecordingTranscription.h"

// Keeps the callbacks so the test reports progress and completion when it likes.
class FakeRecordingTranscription final : public RecordingTranscription
{
public:
    void transcribe(const QString &wavPath, std::function<void(const RecordingProgress &)> progressCallback,
                    std::function<void(const Result &)> completionCallback) override
    {
        path = wavPath;
        service.reset();
        progress = std::move(progressCallback);
        completion = std::move(completionCallback);
    }
    void transcribeWithService(const QString &wavPath, const ServiceOptions &options,
                               std::function<void(const RecordingProgress &)> progressCallback,
                               std::function<void(const Result &)> completionCallback) override
    {
        transcribe(wavPath, std::move(progressCallback), std::move(completionCallback));
        service = options;
    }
    void cancel() override { ++cancelCount; }
    std::optional<double> recordingSeconds(const QString &) override { return seconds; }

    QString path;
    std::optional<ServiceOptions> service; // set when the last transcription went to the service
    std::function<void(const RecordingProgress &)> progress;
    std::function<void(const Result &)> completion;
    int cancelCount = 0;
    std::optional<double> seconds = 600.0;
};
