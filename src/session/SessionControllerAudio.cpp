// SessionController: capture health (CaptureWatch shows its banners) and the microphone
// picked in Settings during a session.

#include "session/SessionController.h"

#include "audio/CaptureLink.h"
#include "session/SessionLogging.h"
#include "settings/AppSettings.h"

void SessionController::captureHealthChanged(const CaptureHealth &health)
{
    if (!isSessionActive() && !m_parts.audio.isRunning()) {
        return;
    }
    qCInfo(lcSession, "[Ketterbloom] capture: sound server %s, meeting %s, microphone %s",
           health.soundServer ? "up" : "lost", health.meetingOutput ? "up" : "lost", health.microphone ? "up" : "lost");
    appendEvent(QStringLiteral("audio_health"), {{QStringLiteral("sound_server"), health.soundServer},
                                                 {QStringLiteral("meeting"), health.meetingOutput},
                                                 {QStringLiteral("microphone"), health.microphone}});
    // The microphone's meter drops at once; the meeting's meter keeps running from its side.
    if (m_captureWatch.update(health)) {
        setLevels(0, meetingLevel());
    }
    m_captureWatch.refreshBanner();
}

void SessionController::watchMicrophoneSettings()
{
    // A microphone picked in Settings during a session is used at once (the meeting side
    // and the session go on); with both sides on one device, the change waits for Start.
    auto switchMic = [this] {
        const AppSettings::MeetingSource source = m_parts.settings.meetingSource();
        if (!isSessionActive() || source == AppSettings::MeetingSource::audioDevice
            || source == AppSettings::MeetingSource::recording) {
            return;
        }
        const QString uid = m_parts.settings.deviceUID();
        m_parts.audio.switchMicrophone(uid.isEmpty() ? std::nullopt : std::optional<QString>(uid), m_parts.settings.micChannel());
    };
    connect(&m_parts.settings, &AppSettings::deviceUIDChanged, this, switchMic);
    connect(&m_parts.settings, &AppSettings::micChannelChanged, this, switchMic);
}
