#include "session/StartSequence.h"

StartSequence::StartSequence(Clock &clock)
    : m_clock(clock)
{
}

quint64 StartSequence::begin(std::function<void()> stillStarting, std::function<void()> tooLong)
{
    m_begunAt = m_clock.now();
    ++m_generation;
    m_stillStartingWatchdog = m_clock.schedule(8.0, false, std::move(stillStarting));
    m_tooLongWatchdog = m_clock.schedule(25.0, false, std::move(tooLong));
    m_audioStartInFlight = true;
    return m_generation;
}

bool StartSequence::audioStartReturned(quint64 generation)
{
    if (generation != m_generation) {
        return false;
    }
    m_audioStartInFlight = false;
    return true;
}

double StartSequence::elapsed() const
{
    return Clock::secondsBetween(m_begunAt, m_clock.now());
}

void StartSequence::cancelWatchdogs()
{
    m_stillStartingWatchdog.reset();
    m_tooLongWatchdog.reset();
}
