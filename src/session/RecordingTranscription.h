#pragma once

#include "speech/SpeechTypes.h"

#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>
#include <variant>

// Transcribes a saved session recording into Markdown beside it: on the device, or, when the
// user chooses it for that recording, with the service. Works off the GUI thread; progress
// and completion arrive on the GUI thread.
class RecordingTranscription
{
public:
    virtual ~RecordingTranscription() = default;

    struct Written
    {
        QString transcriptPath;
        QVariantMap usage = {}; // with the service: its usage summed over the recording
        double secondsSent = 0; // with the service: the audio sent to it
    };
    struct Failed { QString message; };
    using Result = std::variant<Written, Failed>;

    // What transcribing with the service needs, from the settings.
    struct ServiceOptions
    {
        QString apiKey;
        QString model;    // the transcription model
        QString language; // ISO-639-1, empty = none
    };

    // On the device.
    virtual void transcribe(const QString &wavPath,
                            std::function<void(const RecordingProgress &)> progress,
                            std::function<void(const Result &)> completion) = 0;
    // With the service's transcription endpoint: the same utterances, dialogue and file.
    virtual void transcribeWithService(const QString &wavPath, const ServiceOptions &options,
                                       std::function<void(const RecordingProgress &)> progress,
                                       std::function<void(const Result &)> completion) = 0;
    // Stops before the next chunk; requests under way are aborted. Nothing is written.
    virtual void cancel() = 0;
    // The recording's length in seconds (cheap: reads its header); none when it can't be read.
    virtual std::optional<double> recordingSeconds(const QString &wavPath) = 0;
};
