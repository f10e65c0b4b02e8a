#pragma once

#include "session/Clock.h"

#include <QtGlobal>

#include <functional>
#include <memory>

// One press of Start until the session runs: its generation (an audio start that returns
// for an older press is not this one's), whether the audio start is still running, and
// the two watchdogs over it.
class StartSequence
{
public:
    explicit StartSequence(Clock &clock);

    // A new attempt, its audio start about to run: arms the watchdogs (`stillStarting` after
    // 8 s, `tooLong` after 25 s) and gives the attempt's generation.
    quint64 begin(std::function<void()> stillStarting, std::function<void()> tooLong);
    // The audio start of `generation` returned; true when that is the current attempt.
    bool audioStartReturned(quint64 generation);
    bool audioStartInFlight() const { return m_audioStartInFlight; }
    // Seconds since the current attempt began.
    double elapsed() const;
    void cancelWatchdogs();

private:
    Clock &m_clock;
    Clock::TimePoint m_begunAt{};
    quint64 m_generation = 0;
    bool m_audioStartInFlight = false;
    std::unique_ptr<ClockTimer> m_stillStartingWatchdog;
    std::unique_ptr<ClockTimer> m_tooLongWatchdog;
};
