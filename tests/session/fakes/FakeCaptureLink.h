#pragma once

#include "audio/CaptureLink.h"

#include <QList>

#include <atomic>

// A capture engine whose answers the test sets. start() may run on any thread.
class FakeCaptureLink final : public CaptureLink
{
public:
    MicPermission micPermission() const override { return permission; }
    void requestMicAccess(std::function<void(bool)> completion) override { pendingMicRequest = std::move(completion); }

    Result<void> start(const CaptureSource &source, StreamSource streamSource, bool record) override
    {
        startedSource = source;
        startedStreamSource = streamSource;
        startedRecord = record;
        ++startCount;
        if (!startError) {
            running = true;
            return {};
        }
        return Result<void>::failure(*startError);
    }
    void stop() override
    {
        ++stopCount;
        running = false;
    }
    bool isRunning() const override { return running; }
    std::optional<QString> recordingPath() const override { return recording; }
    std::optional<QString> recordingError() const override { return recordError; }
    // The recording stops for `error` (a full disk ...), as the engine reports it.
    void recordingFails(const QString &error)
    {
        recordError = error;
        onRecordingFailed(recording.value_or(QString()), error);
    }
    Result<void> retarget(const TapTarget &meeting) override
    {
        retargets.append(meeting);
        if (retargetError) {
            return Result<void>::failure(*retargetError);
        }
        return {};
    }

    void switchMicrophone(const std::optional<QString> &deviceUID, int channel) override
    {
        micSwitches.append({deviceUID.value_or(QString()), channel});
    }

    void levels(float mic, float meeting = 0) { onLevels(mic, meeting); }

    // Answers.
    MicPermission permission = MicPermission::granted;
    std::optional<QString> startError;
    std::optional<QString> recording;
    std::optional<QString> recordError;
    std::optional<QString> retargetError;

    // What happened.
    std::function<void(bool)> pendingMicRequest;
    std::optional<CaptureSource> startedSource;
    StreamSource startedStreamSource = StreamSource::meetingOnly;
    bool startedRecord = false;
    int startCount = 0;
    int stopCount = 0;
    std::atomic<bool> running{false};
    QList<TapTarget> retargets;
    QList<QPair<QString, int>> micSwitches;
};
