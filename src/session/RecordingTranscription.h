#pragma once

#include "speech/RecordingJob.h"
#include "speech/SpeechTypes.h"

#include <QString>
#include <QVariantMap>

#include <functional>
#include <optional>

// Transcribes a saved session recording into Markdown beside it: on the device, or, when the
// user chooses it for that recording, with the service. Works off the GUI thread; progress
// and completion arrive on the GUI thread.
class RecordingTranscription
{
public:
    virtual ~RecordingTranscription() = default;

    // The transcript's path; with the service, its usage summed over the recording and the
    // seconds of audio sent to it. Or one sentence for the user on why there is none.
    using Written = RecordingJob::Written;
    using Result = RecordingJob::Result;

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
