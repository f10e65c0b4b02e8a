#pragma once

#include <QCoreApplication>
#include <QString>
#include <QtGlobal>

#include <optional>
#include <variant>

// What goes to the model: the meeting, the microphone, or both mixed.
enum class StreamSource { meetingOnly, micOnly, both };

// What the meeting tap listens to: everything this computer plays, or one application
// (identified by its application id, or its process binary when it has none).
struct TapTarget
{
    enum class Kind { process, systemOutput };

    Kind kind = Kind::systemOutput;
    QString appID;   // only for Kind::process

    static TapTarget systemOutput() { return {}; }
    static TapTarget process(const QString &appID) { return {Kind::process, appID}; }

    friend bool operator==(const TapTarget &, const TapTarget &) = default;
};

// An application that is playing (or can play) audio.
struct AudioProcessInfo
{
    quint32 objectID = 0;   // server index of one of its playing streams + 1; 0 when none plays
    QString bundleID;       // application id, or process binary when it has no id
    QString name;           // display name

    friend bool operator==(const AudioProcessInfo &, const AudioProcessInfo &) = default;
};

// Both sides are channels of one input device.
struct DeviceChannelsSource
{
    QString deviceUID;
    int micChannel = 0;
    std::optional<int> meetingChannel;

    friend bool operator==(const DeviceChannelsSource &, const DeviceChannelsSource &) = default;
};

// The meeting comes from the output tap; the microphone is a channel of the given (or the
// default) input device.
struct SystemTapSource
{
    TapTarget target;
    std::optional<QString> micDeviceUID;
    int micChannel = 0;

    friend bool operator==(const SystemTapSource &, const SystemTapSource &) = default;
};

// The meeting is a sound file played in real time (rehearsal, a reproduced session, a sample
// interview); there is no microphone. After its end the model hears silence in real time, or
// nothing more. It can be played to the speakers as well (when there is a sound server).
struct RecordingFileSource
{
    QString path;
    bool silenceAfterEnd = false;
    bool playAloud = false;

    friend bool operator==(const RecordingFileSource &, const RecordingFileSource &) = default;
};

using CaptureSource = std::variant<DeviceChannelsSource, SystemTapSource, RecordingFileSource>;

enum class MicPermission { notDetermined, granted, denied };

// Errors of the capture engine that the user must act on.
enum class EngineError { noDevice, badFormat, micDenied };

inline QString describe(EngineError error)
{
    switch (error) {
    case EngineError::noDevice:
        return QCoreApplication::translate("EngineError", "Selected audio input device is not available.");
    case EngineError::badFormat:
        return QCoreApplication::translate("EngineError", "Could not read a valid input format from the device.");
    case EngineError::micDenied:
        return QCoreApplication::translate(
            "EngineError", "Microphone access was denied. Enable it in your desktop's Settings ▸ Privacy ▸ Microphone.");
    }
    return {};
}

// How the running capture is doing, reported whenever any part of it changes. A part that is
// down is being reattached in the background (with back-off) for as long as the session runs.
struct CaptureHealth
{
    bool soundServer = true;     // connected to PulseAudio / PipeWire
    bool meetingOutput = true;   // the meeting side is captured (the output's monitor, the app, the device)
    bool microphone = true;      // the microphone is captured (always true when the session runs without one)
    QString microphoneName;      // the microphone's display name

    bool allGood() const { return soundServer && meetingOutput && microphone; }
    friend bool operator==(const CaptureHealth &, const CaptureHealth &) = default;
};
