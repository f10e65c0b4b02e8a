#pragma once

#include <QString>

#include <functional>
#include <optional>

// Lets the user choose a saved recording (WAV) to transcribe. The answer, or none when the
// user cancels, arrives on the GUI thread.
class RecordingPicker
{
public:
    virtual ~RecordingPicker() = default;
    virtual void pickRecording(std::function<void(const std::optional<QString> &path)> completion) = 0;
};
