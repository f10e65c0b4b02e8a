#pragma once

#include <QString>

#include <functional>

// Asks the user, once for a recording picked for transcription, whether it goes to the service
// or stays on this computer (only asked while the user has opted in to the service for their
// answers). The window shows it as a small modal question; the answer arrives on the GUI thread.
class RecordingTranscriptionPrompt
{
public:
    enum class Answer { withService, onThisComputer, cancel };
    struct Question
    {
        QString title;
        QString text;
    };

    virtual ~RecordingTranscriptionPrompt() = default;
    // Buttons "With OpenAI", "On This Computer" and "Cancel"; closing the question is Cancel.
    virtual void ask(const Question &question, std::function<void(Answer)> completion) = 0;
};
