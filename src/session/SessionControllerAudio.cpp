// SessionController: what the session shows and does while a part of the capture is lost —
// the sound server, the meeting output, the microphone — and the microphone picked in
// Settings during a session. The engine reattaches lost parts by itself; the session tells
// the user meanwhile and clears its banner when the part is back.

#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/SessionLog.h"
#include "settings/AppSettings.h"

#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcSession)

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
    if (!m_isSessionActive && !m_audio.isRunning()) {
        return;
    }
    const CaptureHealth before = m_captureHealth;
    m_captureHealth = health;
    qCInfo(lcSession, "[Ketterbloom] capture: sound server %s, meeting %s, microphone %s",
           health.soundServer ? "up" : "lost", health.meetingOutput ? "up" : "lost", health.microphone ? "up" : "lost");
    appendEvent(QStringLiteral("audio_health"), {{QStringLiteral("sound_server"), health.soundServer},
                                                 {QStringLiteral("meeting"), health.meetingOutput},
                                                 {QStringLiteral("microphone"), health.microphone}});

    // The output banner waits: an output that is replaced (a headset profile switch, a USB
    // replug) is usually back within a few seconds, and the meeting line carries silence.
    if (!health.meetingOutput && !m_meetingLostAt) {
        m_meetingLostAt = m_clock.now();
        m_outputLostTimer = m_clock.schedule(outputLostBannerDelay, false, [this] { updateAudioBanner(); });
    } else if (health.meetingOutput) {
        m_meetingLostAt.reset();
        m_outputLostTimer.reset();
    }
    // The microphone's meter drops at once; the meeting's meter keeps running from its side.
    if (before.microphone && !health.microphone) {
        setLevels(0, m_meetingLevel);
    }
    updateAudioBanner();
}

void SessionController::updateAudioBanner()
{
    const CaptureHealth &h = m_captureHealth;
    std::optional<QString> text;
    if (!h.soundServer) {
        text = soundServerLostBanner;
    } else if (m_meetingLostAt && Clock::secondsBetween(*m_meetingLostAt, m_clock.now()) >= outputLostBannerDelay - 1e-6) {
        text = outputLostBanner;
    } else if (!h.microphone) {
        text = microphoneLostBanner(h.microphoneName.isEmpty() ? QStringLiteral("microphone") : h.microphoneName);
    }
    if (text) {
        if (m_banner != text) {
            setBannerText(*text);
        }
        m_audioBanner = text;
        return;
    }
    // Everything is back: clear our banner, but never someone else's.
    if (m_audioBanner && m_banner == m_audioBanner) {
        setBannerText(std::nullopt);
    }
    m_audioBanner.reset();
}

void SessionController::endCaptureWatch()
{
    m_outputLostTimer.reset();
    m_meetingLostAt.reset();
    m_captureHealth = CaptureHealth{};
    if (m_audioBanner && m_banner == m_audioBanner) {
        setBannerText(std::nullopt);
    }
    m_audioBanner.reset();
}

void SessionController::watchMicrophoneSettings()
{
    // A microphone picked in Settings during a session is used at once (the meeting side
    // and the session go on); with both sides on one device, the change waits for Start.
    auto switchMic = [this] {
        const AppSettings::MeetingSource source = m_settings.meetingSource();
        if (!m_isSessionActive || source == AppSettings::MeetingSource::audioDevice
            || source == AppSettings::MeetingSource::recording) {
            return;
        }
        const QString uid = m_settings.deviceUID();
        m_audio.switchMicrophone(uid.isEmpty() ? std::nullopt : std::optional<QString>(uid), m_settings.micChannel());
    };
    connect(&m_settings, &AppSettings::deviceUIDChanged, this, switchMic);
    connect(&m_settings, &AppSettings::micChannelChanged, this, switchMic);
}
