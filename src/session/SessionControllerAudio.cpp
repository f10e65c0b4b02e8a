// SessionController: what the session shows and does while a part of the capture is lost —
// the sound server, the meeting output, the microphone — and the microphone picked in
// Settings during a session. The engine reattaches lost parts by itself; the session tells
// the user meanwhile and clears its banner when the part is back.

#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/SessionLog.h"
#include "session/SessionLogging.h"
#include "settings/AppSettings.h"


const QString SessionController::soundServerLostBanner =
    QStringLiteral("Lost the connection to the sound server — reconnecting…");
const QString SessionController::outputLostBanner =
    QStringLiteral("Lost this computer's audio output — waiting for it to come back.");

QString SessionController::microphoneLostBanner(const QString &name)
{
    return QStringLiteral("Your microphone (") + name
        + QStringLiteral(") disconnected — answers aren't being timed until it's back.");
}

void SessionController::captureHealthChanged(const CaptureHealth &health)
{
    if (!m_isSessionActive && !m_parts.audio.isRunning()) {
        return;
    }
    const CaptureHealth before = m_capture.health;
    m_capture.health = health;
    qCInfo(lcSession, "[Ketterbloom] capture: sound server %s, meeting %s, microphone %s",
           health.soundServer ? "up" : "lost", health.meetingOutput ? "up" : "lost", health.microphone ? "up" : "lost");
    appendEvent(QStringLiteral("audio_health"), {{QStringLiteral("sound_server"), health.soundServer},
                                                 {QStringLiteral("meeting"), health.meetingOutput},
                                                 {QStringLiteral("microphone"), health.microphone}});

    // The output banner waits: an output that is replaced (a headset profile switch, a USB
    // replug) is usually back within a few seconds, and the meeting line carries silence.
    if (!health.meetingOutput && !m_capture.meetingLostAt) {
        m_capture.meetingLostAt = m_parts.clock.now();
        m_capture.outputLostTimer = m_parts.clock.schedule(outputLostBannerDelay, false, [this] { updateAudioBanner(); });
    } else if (health.meetingOutput) {
        m_capture.meetingLostAt.reset();
        m_capture.outputLostTimer.reset();
    }
    // The microphone's meter drops at once; the meeting's meter keeps running from its side.
    if (before.microphone && !health.microphone) {
        setLevels(0, m_meetingLevel);
    }
    updateAudioBanner();
}

void SessionController::updateAudioBanner()
{
    const CaptureHealth &h = m_capture.health;
    std::optional<QString> text;
    if (!h.soundServer) {
        text = soundServerLostBanner;
    } else if (m_capture.meetingLostAt && Clock::secondsBetween(*m_capture.meetingLostAt, m_parts.clock.now()) >= outputLostBannerDelay - 1e-6) {
        text = outputLostBanner;
    } else if (!h.microphone) {
        text = microphoneLostBanner(h.microphoneName.isEmpty() ? QStringLiteral("microphone") : h.microphoneName);
    }
    if (text) {
        if (m_banner != text) {
            setBannerText(*text);
        }
        m_capture.banner = text;
        return;
    }
    // Everything is back: clear our banner, but never someone else's.
    if (m_capture.banner && m_banner == m_capture.banner) {
        setBannerText(std::nullopt);
    }
    m_capture.banner.reset();
}

void SessionController::endCaptureWatch()
{
    m_capture.outputLostTimer.reset();
    m_capture.meetingLostAt.reset();
    m_capture.health = CaptureHealth{};
    if (m_capture.banner && m_banner == m_capture.banner) {
        setBannerText(std::nullopt);
    }
    m_capture.banner.reset();
}

void SessionController::watchMicrophoneSettings()
{
    // A microphone picked in Settings during a session is used at once (the meeting side
    // and the session go on); with both sides on one device, the change waits for Start.
    auto switchMic = [this] {
        const AppSettings::MeetingSource source = m_parts.settings.meetingSource();
        if (!m_isSessionActive || source == AppSettings::MeetingSource::audioDevice
            || source == AppSettings::MeetingSource::recording) {
            return;
        }
        const QString uid = m_parts.settings.deviceUID();
        m_parts.audio.switchMicrophone(uid.isEmpty() ? std::nullopt : std::optional<QString>(uid), m_parts.settings.micChannel());
    };
    connect(&m_parts.settings, &AppSettings::deviceUIDChanged, this, switchMic);
    connect(&m_parts.settings, &AppSettings::micChannelChanged, this, switchMic);
}
