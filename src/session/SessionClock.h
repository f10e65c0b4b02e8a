#pragma once

#include "session/Clock.h"

#include <QCoreApplication>

#include <functional>
#include <memory>
#include <optional>

class IdleInhibitor;

// The running time of a session, told once a second, and the idle inhibition the session
// holds while it runs.
class SessionClock
{
    Q_DECLARE_TR_FUNCTIONS(SessionClock)

public:
    SessionClock(Clock &clock, IdleInhibitor &idleInhibitor);

    // Seconds since start (0 at start).
    std::function<void(double seconds)> onElapsed;

    void start();
    // Stops the ticks and releases the inhibition; nothing when not running.
    void stop();

private:
    Clock &m_clock;
    IdleInhibitor &m_idleInhibitor;
    std::optional<Clock::TimePoint> m_start;
    std::unique_ptr<ClockTimer> m_timer;
    bool m_idleInhibited = false;
};
