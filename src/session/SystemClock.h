#pragma once

#include "session/Clock.h"

// The real clock: steady time, local wall time, and QTimer-driven timers.
class SystemClock final : public Clock
{
public:
    TimePoint now() const override;
    QDateTime wallNow() const override;
    std::unique_ptr<ClockTimer> schedule(double seconds, bool repeating, std::function<void()> action) override;
};
