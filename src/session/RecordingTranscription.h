#pragma once

#include "speech/SpeechTypes.h"

#include <QString>

#include <functional>
#include <variant>

// Transcribes a saved session recording into Markdown beside it, on the device. Works off
// the GUI thread; progress and completion arrive on the GUI thread.
class RecordingTranscription
{
public:
    virtual ~RecordingTranscription() = default;

    struct Written { QString transcriptPath; };
    struct Failed { QString message; };
    using Result = std::variant<Written, Failed>;

    virtual void transcribe(const QString &wavPath,
                            std::function<void(const RecordingProgress &)> progress,
                            std::function<void(const Result &)> completion) = 0;
    // Stops before the next chunk.
    virtual void cancel() = 0;
};
