// Start-up: the checks, the capture source chosen from the settings, the audio start with
// its watchdogs, and handing over to the realtime service once capture runs.

#include "session/SessionController.h"

#include "audio/CaptureLink.h"
#include "speech/MicTranscription.h"
#include "realtime/RealtimeService.h"
#include "session/SessionLog.h"
#include "session/SessionLogging.h"
#include "session/SessionSnapshot.h"
#include "session/TapQueries.h"
#include "settings/AppSettings.h"

#include <QCoreApplication>
#include <QDir>

namespace {

QString stillStartingBanner()
{
    return SessionController::tr(
        "Still setting up audio capture… if this doesn't clear in a few seconds, check that the sound server is running (pactl info).");
}

QString systemAudioUnreachable()
{
    return SessionController::tr("Ketterbloom can't reach this computer's sound server to listen to the meeting. Make sure PulseAudio or "
    "PipeWire is running (pactl info should answer), then press Start again. Until then, switch \"Meeting audio\" "
    "to your audio device.");
}

::StreamSource captureStreamSource(AppSettings::StreamSource source)
{
    switch (source) {
    case AppSettings::StreamSource::meetingOnly:
        return ::StreamSource::meetingOnly;
    case AppSettings::StreamSource::micOnly:
        return ::StreamSource::micOnly;
    case AppSettings::StreamSource::both:
        return ::StreamSource::both;
    }
    return ::StreamSource::meetingOnly;
}

} // namespace

// ---- Start ---------------------------------------------------------------------------

void SessionController::start()
{
    if (isSessionActive() || isStarting()) {
        return;
    }
    setBannerText(std::nullopt);

    if (m_parts.settings.apiKey().trimmed().isEmpty()) {
        setBanner(apiKeyMissingBanner(), BannerAction::openAccountSettings);
        emit startFailed();
        return;
    }
    setStarting(true);
    warnIfContextThin();

    switch (m_parts.audio.micPermission()) {
    case MicPermission::notDetermined: {
        const std::weak_ptr<bool> alive = m_alive;
        m_parts.audio.requestMicAccess([alive, this](bool granted) {
            if (alive.lock()) {
                continueStartWithMic(granted);
            }
        });
        return;
    }
    case MicPermission::granted:
        continueStartWithMic(true);
        return;
    case MicPermission::denied:
        setBannerText(describe(EngineError::micDenied));
        setStarting(false);
        emit startFailed();
        return;
    }
}

void SessionController::warnIfContextThin()
{
    const bool noJob = m_parts.settings.jobDescription().trimmed().isEmpty();
    const bool noContext = m_parts.settings.contextText().trimmed().isEmpty();
    QString text;
    if (noJob && noContext) {
        text = tr("Starting without a job description or your background. Answers will be generic — add the "
                              "posting and your CV and they'll quote your own projects and match what the role asks for.");
    } else if (noJob) {
        text = tr("No job description loaded. Paste the posting and answers will emphasise the experience this "
                              "particular role is asking for.");
    } else if (noContext) {
        text = tr("No background loaded. Add your CV or a few war stories and answers will cite your actual "
                              "work instead of speaking in generalities.");
    } else {
        return;
    }
    setBanner(text, BannerAction::openContext);
}

void SessionController::continueStartWithMic(bool granted)
{
    if (!isStarting()) {
        return;
    }
    if (!granted) {
        setBannerText(describe(EngineError::micDenied));
        setStarting(false);
        emit startFailed();
        return;
    }

    const AppSettings::MeetingSource meetingSource = m_parts.settings.meetingSource();
    if (meetingSource == AppSettings::MeetingSource::systemOutput || meetingSource == AppSettings::MeetingSource::singleApp) {
        // No permission prompt here: a failed probe gets one more try.
        if (!m_parts.taps.probeTapAccess() && !m_parts.taps.probeTapAccess()) {
            setBannerText(systemAudioUnreachable());
            m_parts.client.stop();
            setSessionActive(false);
            setStarting(false);
            emit startFailed();
            return;
        }
    }

    CaptureSource source;
    const std::optional<QString> micDevice = m_parts.settings.deviceUID().isEmpty()
        ? std::nullopt : std::optional<QString>(m_parts.settings.deviceUID());
    switch (meetingSource) {
    case AppSettings::MeetingSource::systemOutput:
        source = SystemTapSource{TapTarget::systemOutput(), micDevice, m_parts.settings.micChannel()};
        break;
    case AppSettings::MeetingSource::singleApp: {
        const QString bundleID = m_parts.settings.tappedBundleID();
        if (bundleID.isEmpty()) {
            setBannerText(tr("Pick which app to listen to in Settings."));
            m_parts.client.stop();
            setSessionActive(false);
            setStarting(false);
            emit startFailed();
            return;
        }
        if (const std::optional<AudioProcessInfo> app = m_parts.taps.audioObject(bundleID)) {
            const QString appID = app->bundleID.isEmpty() ? bundleID : app->bundleID;
            source = SystemTapSource{TapTarget::process(appID), micDevice, m_parts.settings.micChannel()};
            break;
        }
        source = SystemTapSource{TapTarget::systemOutput(), micDevice, m_parts.settings.micChannel()};
        const QString name = m_narrowing.appDisplayName(bundleID);
        bool playsThroughHelper = false;
        for (const auto &helper : m_parts.taps.audioHelpers()) {
            playsThroughHelper = playsThroughHelper || helper.first == bundleID;
        }
        if (playsThroughHelper) {
            setBannerText(tr("Listening to this computer. %1 plays its call audio through another process, so it "
                             "can't be listened to on its own — everything you hear is captured instead.")
                              .arg(name));
        } else {
            setBannerText(tr("Started, listening to all of this computer's audio. %1 isn't playing anything yet; "
                             "I'll narrow to it alone as soon as it does.")
                              .arg(name));
            m_narrowing.narrowLater(bundleID);
        }
        break;
    }
    case AppSettings::MeetingSource::recording:
        source = RecordingFileSource{m_parts.settings.recordingFile(), !m_parts.settings.stopAtRecordingEnd(),
                                     m_parts.settings.playRecordingAloud()};
        break;
    case AppSettings::MeetingSource::audioDevice: {
        const int meetingChannel = m_parts.settings.meetingChannel();
        source = DeviceChannelsSource{m_parts.settings.deviceUID(), m_parts.settings.micChannel(),
                                      meetingChannel < 0 ? std::nullopt : std::optional<int>(meetingChannel)};
        break;
    }
    }

    // A new session: what is left of the last one can never take this one's answers, and
    // its log opens now so that the audio start is recorded in it.
    closeOpenCards();
    m_usage.begin(m_parts.settings.model(), m_parts.settings.transcribeModel());
    m_scheduler.newSession();
    m_turns.drops.responses.clear();
    m_turns.drops.deltas = 0;
    m_turns.drops.chars = 0;
    m_cards.forgetItems();
    m_turns.speechStartedAt.clear();
    m_turns.heardSeconds.clear();
    startLog();

    const quint64 generation = m_startUp.begin([this] { setBannerText(stillStartingBanner()); }, [this] {
        if (!m_parts.audio.isRunning()) {
            abandonStart(tr("Audio capture didn't finish starting. The step-by-step log is in %1 — send that and it "
                            "will say exactly where it stopped.")
                             .arg(QDir::cleanPath(sessionFolder() + QStringLiteral("/startup.log"))));
        }
    });

    CaptureLink *audio = &m_parts.audio;
    const ::StreamSource streamSource = captureStreamSource(m_parts.settings.streamSource());
    const bool record = m_parts.settings.saveAudio();
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.runInBackground([audio, source, streamSource, record, alive, generation, this] {
        const std::optional<QString> error = audio->start(source, streamSource, record).errorIfAny();
        // Back to the GUI thread; dropped there if the controller has gone meanwhile.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [alive, this, generation, error] {
                if (alive.lock()) {
                    audioStartFinished(generation, error);
                }
            },
            Qt::QueuedConnection);
    });
}

// Ends a start that did not become a session: banner, client stopped, log closed.
void SessionController::abandonStart(const QString &banner)
{
    m_startUp.cancelWatchdogs();
    m_narrowing.stop();
    setBannerText(banner);
    m_parts.client.stop();
    setSessionActive(false);
    setStarting(false);
    m_records.discard();
    emit startFailed();
}

void SessionController::audioStartFinished(quint64 generation, const std::optional<QString> &error)
{
    if (!m_startUp.audioStartReturned(generation) || !isStarting()) {
        // This start was given up (the watchdog, or Stop): capture that starts this late is
        // stopped again, unless a newer start is under way with the same engine.
        if (!error && !isSessionActive() && !m_startUp.audioStartInFlight()) {
            m_parts.audio.stop();
            log(QStringLiteral("Audio capture started after the start was given up; stopped it"));
        }
        return;
    }
    if (error) {
        abandonStart(*error);
        return;
    }
    m_startUp.cancelWatchdogs();
    if (bannerText() == stillStartingBanner()) {
        setBannerText(std::nullopt);
    }
    const double seconds = m_startUp.elapsed();
    appendEvent(QStringLiteral("audio_started"), {{QStringLiteral("setup_seconds"), CostModel::rounded(seconds, 2)}});
    if (seconds > 8.0) {
        qCInfo(lcSession, "[Ketterbloom] audio setup took %.1fs", seconds);
    }
    finishStarting();
}

// The job description, the user's background and the panel, for on-device recognition.
QString SessionController::userDocumentsText() const
{
    QStringList parts{m_parts.settings.jobDescription(), m_parts.settings.contextText()};
    for (const Interviewer &interviewer : m_parts.settings.interviewers())
        parts << interviewer.name << interviewer.title;
    return parts.join(u'\n');
}

void SessionController::finishStarting()
{
    const std::optional<QString> recording = m_parts.audio.recordingPath();
    setLastRecordingURL(recording ? QUrl::fromLocalFile(*recording) : QUrl());

    m_parts.micTranscriber.sessionStarted();
    if (m_parts.settings.transcribeMyAnswers()) {
        m_parts.micTranscriber.setContextText(userDocumentsText());
        const std::weak_ptr<bool> alive = m_alive;
        m_parts.micTranscriber.requestAuthorization([alive, this](const SpeechAvailability &availability) {
            if (!alive.lock()) {
                return;
            }
            switch (availability.kind) {
            case SpeechAvailability::Kind::ready:
                break;
            case SpeechAvailability::Kind::denied:
                m_parts.settings.setTranscribeMyAnswers(false);
                setBannerText(tr("Speech recognition permission was denied, so your answers won't be transcribed."));
                break;
            case SpeechAvailability::Kind::unsupported:
                m_parts.settings.setTranscribeMyAnswers(false);
                setBannerText(availability.message);
                break;
            }
        });
    }

    if (m_parts.settings.meetingSource() == AppSettings::MeetingSource::audioDevice
        && m_parts.settings.streamSource() == AppSettings::StreamSource::meetingOnly && m_parts.settings.meetingChannel() < 0) {
        setBannerText(tr("No meeting channel is mapped, so your mic is being streamed instead. Set a meeting channel in Settings."));
    }

    pushHistory();

    RealtimeConfig config;
    // A key pasted with a stray blank or line end would fail in the Authorization header.
    config.apiKey = m_parts.settings.apiKey().trimmed();
    config.model = m_parts.settings.model();
    config.transcribeModel = m_parts.settings.transcribeModel();
    config.instructions = m_parts.settings.instructions();
    config.vadThreshold = m_parts.settings.vadThreshold();
    config.prefixPaddingMs = m_parts.settings.prefixPaddingMs();
    config.silenceDurationMs = m_parts.settings.silenceDurationMs();
    config.reconnectMinutes = m_parts.settings.reconnectMinutes();
    config.transcriptionLanguage = AnswerStyle::languageCode(m_parts.settings.transcriptionLanguage());
    m_parts.client.start(config);

    setSessionActive(true);
    setStarting(false);
    SessionSnapshot::setSessionActive(true);

    m_sessionClock.start();
    for (const RecordFaults::File file : {RecordFaults::File::events, RecordFaults::File::transcript}) {
        if (m_records.faults().hasFailed(file)) {
            showRecordFault(file);   // found while starting: told now that the session runs
        }
    }
    m_narrowing.startPolling();
}

