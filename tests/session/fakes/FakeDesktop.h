#pragma once

#include "session/FileRevealer.h"
#include "session/IdleInhibitor.h"
#include "session/RecordingPicker.h"
#include "session/RecordingTranscriptionPrompt.h"

#include <QList>
#include <QStringList>

class FakeIdleInhibitor final : public IdleInhibitor
{
public:
    void inhibit(const QString &reason) override
    {
        reasons.append(reason);
        inhibiting = true;
    }
    void release() override
    {
        ++releaseCount;
        inhibiting = false;
    }

    QStringList reasons;
    int releaseCount = 0;
    bool inhibiting = false;
};

class FakeFileRevealer final : public FileRevealer
{
public:
    void reveal(const QStringList &paths) override { revealed.append(paths); }
    QList<QStringList> revealed;
};

// Answers with `choice` at once (none = the user cancelled).
class FakeRecordingPicker final : public RecordingPicker
{
public:
    void pickRecording(std::function<void(const std::optional<QString> &)> completion) override
    {
        ++pickCount;
        completion(choice);
    }
    std::optional<QString> choice;
    int pickCount = 0;
};

// Keeps each question; answers with `answer` at once unless `hold` is set.
class FakeRecordingTranscriptionPrompt final : public RecordingTranscriptionPrompt
{
public:
    void ask(const Question &question, std::function<void(Answer)> completion) override
    {
        questions.append(question);
        if (hold)
            pending = std::move(completion);
        else
            completion(answer);
    }
    Answer answer = Answer::onThisComputer;
    bool hold = false;
    std::function<void(Answer)> pending;
    QList<Question> questions;
};
