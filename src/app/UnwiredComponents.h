#pragma once

// Stand-ins for the audio, realtime and speech components until they are wired into the
// application. Each does nothing, or refuses with a sentence the user can read, so the
// window runs and a press of Start ends in a clear banner instead of a hang. The wiring
// step replaces every class in this file with the adapters of the real components.

#include "session/CaptureLink.h"
#include "session/MicTranscription.h"
#include "session/RealtimeLink.h"
#include "session/RecordingTranscription.h"
#include "session/TapQueries.h"
#include "ui/AudioEnvironment.h"

class UnwiredRealtimeLink final : public RealtimeLink
{
public:
    void start(const RealtimeConfig &) override {}
    void stop() override {}
    void append(const QByteArray &) override {}
    void updateHistory(const History &) override {}
    void updateInstructions(const QString &) override {}
    void regenerate(const QString &) override {}
};

class UnwiredCaptureLink final : public CaptureLink
{
public:
    MicPermission micPermission() const override { return MicPermission::granted; }
    void requestMicAccess(std::function<void(bool)> completion) override { completion(true); }
    std::optional<QString> start(const CaptureSource &, StreamSource, bool) override;
    void stop() override {}
    bool isRunning() const override { return false; }
    std::optional<QString> recordingPath() const override { return std::nullopt; }
    std::optional<QString> retarget(const TapTarget &) override { return std::nullopt; }

    static QString notConnectedMessage();
};

class UnwiredTapQueries final : public TapQueries
{
public:
    bool probeTapAccess() override { return true; }
    std::optional<AudioProcessInfo> audioObject(const QString &) override { return std::nullopt; }
    QList<AudioProcessInfo> selectableApps() override { return {}; }
    QList<QPair<QString, QStringList>> audioHelpers() const override { return {}; }
};

class UnwiredMicTranscription final : public MicTranscription
{
public:
    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override;
    void begin() override {}
    void end() override {}
    void stopTask(bool) override {}
    bool isSegmentRunning() const override { return false; }
    void appendMicBuffer(const float *, int) override {}
};

class UnwiredRecordingTranscription final : public RecordingTranscription
{
public:
    void transcribe(const QString &, std::function<void(const RecordingProgress &)>,
                    std::function<void(const Result &)> completion) override;
    void cancel() override {}
};

class UnwiredAudioEnvironment final : public AudioEnvironment
{
public:
    bool soundServerAvailable() override { return false; }
    QList<InputDevice> inputDevices() override { return {}; }
    bool startMicLevel(const QString &, std::function<void(float)>) override { return false; }
    void stopMicLevel() override {}
};
