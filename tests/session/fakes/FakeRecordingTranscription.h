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
        progress = std::move(progressCallback);
        completion = std::move(completionCallback);
    }
    void cancel() override { ++cancelCount; }

    QString path;
    std::function<void(const RecordingProgress &)> progress;
    std::function<void(const Result &)> completion;
    int cancelCount = 0;
};
