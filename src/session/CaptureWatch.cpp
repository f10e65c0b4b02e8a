#include "session/CaptureWatch.h"

const QString CaptureWatch::soundServerLostBanner = tr("Lost the connection to the sound server — reconnecting…");
const QString CaptureWatch::outputLostBanner = tr("Lost this computer's audio output — waiting for it to come back.");

QString CaptureWatch::microphoneLostBanner(const QString &name)
{
    return tr("Your microphone (%1) disconnected — answers aren't being timed until it's back.").arg(name);
}

CaptureWatch::CaptureWatch(Clock &clock)
    : m_clock(clock)
{
}

bool CaptureWatch::update(const CaptureHealth &health)
{
    const CaptureHealth before = m_health;
    m_health = health;
    // The output banner waits: an output that is replaced (a headset profile switch, a USB
    // replug) is usually back within a few seconds, and the meeting line carries silence.
    if (!health.meetingOutput && !m_meetingLostAt) {
        m_meetingLostAt = m_clock.now();
        m_outputLostTimer = m_clock.schedule(outputLostBannerDelay, false, [this] { refreshBanner(); });
    } else if (health.meetingOutput) {
        m_meetingLostAt.reset();
        m_outputLostTimer.reset();
    }
    return before.microphone && !health.microphone;
}

void CaptureWatch::refreshBanner()
{
    std::optional<QString> text;
    if (!m_health.soundServer) {
        text = soundServerLostBanner;
    } else if (m_meetingLostAt && Clock::secondsBetween(*m_meetingLostAt, m_clock.now()) >= outputLostBannerDelay - 1e-6) {
        text = outputLostBanner;
    } else if (!m_health.microphone) {
        text = microphoneLostBanner(m_health.microphoneName.isEmpty() ? tr("microphone") : m_health.microphoneName);
    }
    if (text) {
        if (shownBanner() != text) {
            showBanner(text);
        }
        m_banner = text;
        return;
    }
    // Everything is back: clear this watch's banner, but never someone else's.
    if (m_banner && shownBanner() == m_banner) {
        showBanner(std::nullopt);
    }
    m_banner.reset();
}

void CaptureWatch::end()
{
    m_outputLostTimer.reset();
    m_meetingLostAt.reset();
    m_health = CaptureHealth{};
    if (m_banner && shownBanner() == m_banner) {
        showBanner(std::nullopt);
    }
    m_banner.reset();
}
