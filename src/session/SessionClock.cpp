#include "session/SessionClock.h"

#include "session/IdleInhibitor.h"

#include <QString>

SessionClock::SessionClock(Clock &clock, IdleInhibitor &idleInhibitor)
    : m_clock(clock)
    , m_idleInhibitor(idleInhibitor)
{
}

void SessionClock::start()
{
    m_idleInhibitor.inhibit(tr("Live meeting transcription"));
    m_idleInhibited = true;
    m_start = m_clock.now();
    onElapsed(0);
    m_timer = m_clock.schedule(1.0, true, [this] {
        if (m_start) {
            onElapsed(Clock::secondsBetween(*m_start, m_clock.now()));
        }
    });
}

void SessionClock::stop()
{
    m_timer.reset();
    m_start.reset();
    if (m_idleInhibited) {
        m_idleInhibitor.release();
        m_idleInhibited = false;
    }
}
