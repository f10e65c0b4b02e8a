#pragma once

#include <QDateTime>

#include <chrono>
#include <functional>
#include <memory>

// A scheduled action. Destroying the handle cancels it; a handle may be destroyed from
// inside its own action.
class ClockTimer
{
public:
    virtual ~ClockTimer() = default;
};

// Time as the session sees it: a monotonic now for durations, the local wall clock for time
// stamps, and timers on the GUI thread. Tests use a manual clock that fires due timers when
// advanced, so nothing in the session waits on real time.
class Clock
{
public:
    using TimePoint = std::chrono::steady_clock::time_point;

    virtual ~Clock() = default;

    virtual TimePoint now() const = 0;
    virtual QDateTime wallNow() const = 0;
    // Runs `action` on the GUI thread after `seconds`, then every `seconds` when repeating,
    // until the returned handle is destroyed.
    virtual std::unique_ptr<ClockTimer> schedule(double seconds, bool repeating, std::function<void()> action) = 0;

    static double secondsBetween(TimePoint from, TimePoint to)
    {
        return std::chrono::duration<double>(to - from).count();
    }
};
