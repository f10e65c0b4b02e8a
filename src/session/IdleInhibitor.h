#pragma once

#include <QString>

// Keeps the desktop from idling or sleeping while a session runs.
class IdleInhibitor
{
public:
    virtual ~IdleInhibitor() = default;
    virtual void inhibit(const QString &reason) = 0;
    // Does nothing when not inhibiting.
    virtual void release() = 0;
};
