#pragma once

#include "audio/AudioTypes.h"
#include "common/Result.h"

#include <QByteArray>
#include <QString>

#include <functional>
#include <optional>

// The capture of a session's audio as its user (the session controller) sees it: implemented by
// AudioCaptureEngine, and by fakes in tests.
class CaptureLink
{
public:
    virtual ~CaptureLink() = default;

    virtual MicPermission micPermission() const = 0;
    // Asks the user for microphone access; the answer arrives on the GUI thread.
    virtual void requestMicAccess(std::function<void(bool granted)> completion) = 0;

    // May block for seconds; called off the GUI thread. Does nothing (and succeeds) when already
    // running. On failure, a user-readable description.
    virtual Result<void> start(const CaptureSource &source, StreamSource streamSource, bool record) = 0;
    // Idempotent; closes the recording before returning.
    virtual void stop() = 0;
    // Safe to read from any thread.
    virtual bool isRunning() const = 0;
    // The WAV being written in this session, if any.
    virtual std::optional<QString> recordingPath() const = 0;
    // Why that WAV is not complete (a write failed); none while all is well. Also after stop().
    // A state to read at any time, not the outcome of a call: hence no Result.
    virtual std::optional<QString> recordingError() const = 0;
    // Points the meeting tap at another target while a tap session runs (otherwise does
    // nothing); on failure, a user-readable description.
    virtual Result<void> retarget(const TapTarget &meeting) = 0;
    // Records from another microphone (`deviceUID`, or the default input when none) without
    // restarting the session. Returns at once; onHealth reports one that cannot be opened.
    virtual void switchMicrophone(const std::optional<QString> &deviceUID, int channel) = 0;

    // Audio thread: 24 kHz mono PCM16 for the model.
    std::function<void(const QByteArray &pcm16)> onPCM16;
    // GUI thread, at most every 0.05 s: peak levels 0...1.
    std::function<void(float mic, float meeting)> onLevels;
    // GUI thread: the microphone is lost for this session.
    std::function<void(const QString &message)> onMicUnavailable;
    // Audio thread: the selected microphone channel, 48 kHz float mono.
    std::function<void(const float *samples, int frames)> onMicBuffer;
    // GUI thread: an asynchronous failure after start.
    std::function<void(const QString &message)> onError;
    // GUI thread: a part of the running capture was lost or came back (the sound server, the
    // meeting output, the microphone). Parts that are down are being reattached meanwhile.
    std::function<void(const CaptureHealth &health)> onHealth;
    // GUI thread: the recording `path` could not be written (`error`, the system's reason) and
    // has stopped; capture goes on. Once per recording.
    std::function<void(const QString &path, const QString &error)> onRecordingFailed;
};
