#pragma once

#include "speech/MicTranscription.h"

#include <atomic>
#include <optional>

// A transcriber whose segments the test opens and whose texts it delivers.
class FakeMicTranscription final : public MicTranscription
{
public:
    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override
    {
        ++authorizationRequests;
        if (availability) {
            completion(*availability);
        } else {
            pendingAuthorization = std::move(completion);
        }
    }
    void begin() override
    {
        ++beginCount;
        segmentRunning = true;
    }
    void end() override
    {
        ++endCount;
        segmentRunning = false;
    }
    void stopTask(bool silent) override
    {
        ++stopTaskCount;
        lastStopSilent = silent;
        segmentRunning = false;
    }
    bool isSegmentRunning() const override { return segmentRunning; }
    void setContextText(const QString &text) override { contextText = text; }
    void appendMicBuffer(const float *, int frames) override
    {
        if (segmentRunning) {
            appendedFrames += frames;
        }
    }

    void partial(const QString &text) { onPartial(text); }
    void final(const QString &text) { onFinal(text); }

    std::optional<SpeechAvailability> availability = SpeechAvailability::ready();
    std::function<void(const SpeechAvailability &)> pendingAuthorization;
    int authorizationRequests = 0;
    int beginCount = 0;
    int endCount = 0;
    int stopTaskCount = 0;
    bool lastStopSilent = false;
    bool segmentRunning = false;
    std::atomic<long long> appendedFrames{0};
    QString contextText;
};
