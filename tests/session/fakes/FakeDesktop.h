#pragma once

#include "session/FileRevealer.h"
#include "session/IdleInhibitor.h"
#include "session/RecordingPicker.h"

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
