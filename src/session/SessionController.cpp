#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/IdleInhibitor.h"
#include "session/MicTranscription.h"
#include "session/RealtimeLink.h"
#include "session/SessionLog.h"
#include "session/SessionSnapshot.h"
#include "session/TapQueries.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>
#include <QStandardPaths>
#include <QThreadPool>

Q_LOGGING_CATEGORY(lcSession, "ketterbloom.session")

const QString SessionController::apiKeyMissingBanner = QStringLiteral("Add your OpenAI API key before starting.");
const QString SessionController::stillStartingBanner = QStringLiteral(
    "Still setting up audio capture… if this doesn't clear in a few seconds, check that the sound server is running (pactl info).");

namespace {

const QString kSystemAudioUnreachable = QStringLiteral(
    "Ketterbloom can't reach this computer's sound server to listen to the meeting. Make sure PulseAudio or "
    "PipeWire is running (pactl info should answer), then press Start again. Until then, switch \"Meeting audio\" "
    "to your audio device.");

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

QString SessionController::appDisplayName(const QString &bundleID) const
{
    const QList<AudioProcessInfo> apps = m_taps.selectableApps();
    for (const AudioProcessInfo &app : apps) {
        if (app.bundleID == bundleID && !app.name.isEmpty()) {
            return app.name;
        }
    }
    return bundleID;
}

SessionController::SessionController(const Components &components, QObject *parent)
    : QObject(parent)
    , m_settings(components.settings)
    , m_client(components.client)
    , m_audio(components.audio)
    , m_taps(components.taps)
    , m_micTranscriber(components.micTranscriber)
    , m_recordingTranscriber(components.recordingTranscriber)
    , m_clock(components.clock)
    , m_idleInhibitor(components.idleInhibitor)
    , m_fileRevealer(components.fileRevealer)
    , m_recordingPicker(components.recordingPicker)
    , m_runInBackground(components.runInBackground)
{
    if (!m_runInBackground) {
        m_runInBackground = [](std::function<void()> job) { QThreadPool::globalInstance()->start(std::move(job)); };
    }

    // The components deliver these on the GUI thread; each is ignored once this object is gone.
    const std::weak_ptr<bool> alive = m_alive;
    auto guard = [alive, this](auto body) {
        return [alive, this, body](auto &&...args) {
            if (alive.lock()) {
                body(this, std::forward<decltype(args)>(args)...);
            }
        };
    };

    m_client.onStatus = guard([](SessionController *self, const RealtimeStatus &status) {
        self->setStatus(status);
        if (status.isFailed()) {
            self->setBannerText(status.message());
            self->stop();
        }
    });
    m_client.onTranscript = guard([](SessionController *self, const QString &, const QString &text) { self->ingestTranscript(text); });
    m_client.onDelta = guard([](SessionController *self, const QString &responseID, const QString &delta) { self->ingestDelta(responseID, delta); });
    m_client.onResponseDone = guard([](SessionController *self, const QString &responseID) { self->completeResponse(responseID); });
    m_client.onLog = guard([](SessionController *self, const QString &message) { self->log(message); });
    m_client.onUsage = guard([](SessionController *self, const QVariantMap &usage) { self->recordUsage(usage); });

    // Audio thread: forward only, touch no state.
    RealtimeLink *client = &m_client;
    m_audio.onPCM16 = [client](const QByteArray &pcm16) { client->append(pcm16); };
    MicTranscription *transcriber = &m_micTranscriber;
    m_audio.onMicBuffer = [transcriber](const float *samples, int frames) { transcriber->appendMicBuffer(samples, frames); };

    m_audio.onLevels = guard([](SessionController *self, float mic, float meeting) {
        self->setLevels(mic, meeting);
        self->trackSpeaking(mic);
    });
    m_audio.onError = guard([](SessionController *self, const QString &message) { self->setBannerText(message); });
    m_audio.onHealth = guard([](SessionController *self, const CaptureHealth &health) { self->captureHealthChanged(health); });
    watchMicrophoneSettings();
    m_audio.onMicUnavailable = guard([](SessionController *self, const QString &message) {
        self->setBannerText(message);
        self->m_settings.setTranscribeMyAnswers(false);
    });

    m_micTranscriber.onPartial = guard([](SessionController *self, const QString &text) { self->updateMyAnswer(text, false); });
    m_micTranscriber.onFinal = guard([](SessionController *self, const QString &text) { self->updateMyAnswer(text, true); });
    m_micTranscriber.onFailure = guard([](SessionController *self, const QString &message) { self->setBannerText(message); });
    m_micTranscriber.onUsage = guard([](SessionController *self, const QVariantMap &usage) { self->recordAnswerTranscriptionUsage(usage); });
}

SessionController::~SessionController()
{
    *m_alive = false;
    m_alive.reset();
}

QString SessionController::sessionFolder()
{
    return QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation) + QStringLiteral("/Ketterbloom");
}

// ---- Start ---------------------------------------------------------------------------

void SessionController::start()
{
    if (m_isSessionActive) {
        return;
    }
    setBannerText(std::nullopt);

    if (m_settings.apiKey().trimmed().isEmpty()) {
        setBanner(apiKeyMissingBanner, BannerAction::openAccountSettings);
        emit startFailed();
        return;
    }
    warnIfContextThin();

    switch (m_audio.micPermission()) {
    case MicPermission::notDetermined: {
        const std::weak_ptr<bool> alive = m_alive;
        m_audio.requestMicAccess([alive, this](bool granted) {
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
        emit startFailed();
        return;
    }
}

void SessionController::warnIfContextThin()
{
    const bool noJob = m_settings.jobDescription().trimmed().isEmpty();
    const bool noContext = m_settings.contextText().trimmed().isEmpty();
    QString text;
    if (noJob && noContext) {
        text = QStringLiteral("Starting without a job description or your background. Answers will be generic — add the "
                              "posting and your CV and they'll quote your own projects and match what the role asks for.");
    } else if (noJob) {
        text = QStringLiteral("No job description loaded. Paste the posting and answers will emphasise the experience this "
                              "particular role is asking for.");
    } else if (noContext) {
        text = QStringLiteral("No background loaded. Add your CV or a few war stories and answers will cite your actual "
                              "work instead of speaking in generalities.");
    } else {
        return;
    }
    setBanner(text, BannerAction::openContext);
}

void SessionController::continueStartWithMic(bool granted)
{
    if (!granted) {
        setBannerText(describe(EngineError::micDenied));
        emit startFailed();
        return;
    }

    const AppSettings::MeetingSource meetingSource = m_settings.meetingSource();
    if (meetingSource != AppSettings::MeetingSource::audioDevice) {
        // No permission prompt here: a failed probe gets one more try.
        if (!m_taps.probeTapAccess() && !m_taps.probeTapAccess()) {
            setBannerText(kSystemAudioUnreachable);
            m_client.stop();
            setSessionActive(false);
            emit startFailed();
            return;
        }
    }

    CaptureSource source;
    const std::optional<QString> micDevice = m_settings.deviceUID().isEmpty()
        ? std::nullopt : std::optional<QString>(m_settings.deviceUID());
    switch (meetingSource) {
    case AppSettings::MeetingSource::systemOutput:
        source = SystemTapSource{TapTarget::systemOutput(), micDevice, m_settings.micChannel()};
        break;
    case AppSettings::MeetingSource::singleApp: {
        const QString bundleID = m_settings.tappedBundleID();
        if (bundleID.isEmpty()) {
            setBannerText(QStringLiteral("Pick which app to listen to in Settings."));
            m_client.stop();
            setSessionActive(false);
            emit startFailed();
            return;
        }
        if (const std::optional<AudioProcessInfo> app = m_taps.audioObject(bundleID)) {
            const QString appID = app->bundleID.isEmpty() ? bundleID : app->bundleID;
            source = SystemTapSource{TapTarget::process(appID), micDevice, m_settings.micChannel()};
            break;
        }
        source = SystemTapSource{TapTarget::systemOutput(), micDevice, m_settings.micChannel()};
        const QString name = appDisplayName(bundleID);
        bool playsThroughHelper = false;
        for (const auto &helper : m_taps.audioHelpers()) {
            playsThroughHelper = playsThroughHelper || helper.first == bundleID;
        }
        if (playsThroughHelper) {
            setBannerText(QStringLiteral("Listening to this computer. ") + name
                          + QStringLiteral(" plays its call audio through another process, so it can't be listened to "
                                           "on its own — everything you hear is captured instead."));
        } else {
            setBannerText(QStringLiteral("Started, listening to all of this computer's audio. ") + name
                          + QStringLiteral(" isn't playing anything yet; I'll narrow to it alone as soon as it does."));
            m_pendingAppTap = bundleID;
        }
        break;
    }
    case AppSettings::MeetingSource::audioDevice: {
        const int meetingChannel = m_settings.meetingChannel();
        source = DeviceChannelsSource{m_settings.deviceUID(), m_settings.micChannel(),
                                      meetingChannel < 0 ? std::nullopt : std::optional<int>(meetingChannel)};
        break;
    }
    }

    m_audioStartRequestedAt = m_clock.now();
    m_watchdog8 = m_clock.schedule(8.0, false, [this] { setBannerText(stillStartingBanner); });
    m_watchdog25 = m_clock.schedule(25.0, false, [this] {
        if (!m_audio.isRunning()) {
            setBannerText(QStringLiteral("Audio capture didn't finish starting. The step-by-step log is in ")
                          + QDir::cleanPath(sessionFolder() + QStringLiteral("/startup.log"))
                          + QStringLiteral(" — send that and it will say exactly where it stopped."));
            m_client.stop();
            setSessionActive(false);
            emit startFailed();
        }
    });

    CaptureLink *audio = &m_audio;
    const ::StreamSource streamSource = captureStreamSource(m_settings.streamSource());
    const bool record = m_settings.saveAudio();
    const std::weak_ptr<bool> alive = m_alive;
    m_runInBackground([audio, source, streamSource, record, alive, this] {
        const std::optional<QString> error = audio->start(source, streamSource, record);
        // Back to the GUI thread; dropped there if the controller has gone meanwhile.
        QMetaObject::invokeMethod(
            QCoreApplication::instance(),
            [alive, this, error] {
                if (alive.lock()) {
                    audioStartFinished(error);
                }
            },
            Qt::QueuedConnection);
    });
}

void SessionController::cancelWatchdogs()
{
    m_watchdog8.reset();
    m_watchdog25.reset();
}

void SessionController::audioStartFinished(const std::optional<QString> &error)
{
    cancelWatchdogs();
    if (error) {
        setBannerText(*error);
        m_client.stop();
        setSessionActive(false);
        emit startFailed();
        return;
    }
    if (m_banner == stillStartingBanner) {
        setBannerText(std::nullopt);
    }
    const double seconds = Clock::secondsBetween(m_audioStartRequestedAt, m_clock.now());
    appendEvent(QStringLiteral("audio_started"), {{QStringLiteral("setup_seconds"), CostModel::rounded(seconds, 2)}});
    if (seconds > 8.0) {
        qCInfo(lcSession, "[Ketterbloom] audio setup took %.1fs", seconds);
    }
    finishStarting();
}

void SessionController::finishStarting()
{
    const std::optional<QString> recording = m_audio.recordingPath();
    setLastRecordingURL(recording ? QUrl::fromLocalFile(*recording) : QUrl());

    m_micTranscriber.sessionStarted();
    if (m_settings.transcribeMyAnswers()) {
        const std::weak_ptr<bool> alive = m_alive;
        m_micTranscriber.requestAuthorization([alive, this](const SpeechAvailability &availability) {
            if (!alive.lock()) {
                return;
            }
            switch (availability.kind) {
            case SpeechAvailability::Kind::ready:
                break;
            case SpeechAvailability::Kind::denied:
                m_settings.setTranscribeMyAnswers(false);
                setBannerText(QStringLiteral("Speech recognition permission was denied, so your answers won't be transcribed."));
                break;
            case SpeechAvailability::Kind::unsupported:
                m_settings.setTranscribeMyAnswers(false);
                setBannerText(availability.message);
                break;
            }
        });
    }

    if (m_settings.meetingSource() == AppSettings::MeetingSource::audioDevice
        && m_settings.streamSource() == AppSettings::StreamSource::meetingOnly && m_settings.meetingChannel() < 0) {
        setBannerText(QStringLiteral("No meeting channel is mapped, so your mic is being streamed instead. Set a meeting channel in Settings."));
    }

    pushHistory();

    RealtimeConfig config;
    // A key pasted with a stray blank or line end would fail in the Authorization header.
    config.apiKey = m_settings.apiKey().trimmed();
    config.model = m_settings.model();
    config.transcribeModel = m_settings.transcribeModel();
    config.instructions = m_settings.instructions();
    config.vadThreshold = m_settings.vadThreshold();
    config.prefixPaddingMs = m_settings.prefixPaddingMs();
    config.silenceDurationMs = m_settings.silenceDurationMs();
    config.reconnectMinutes = m_settings.reconnectMinutes();
    m_client.start(config);

    setSessionActive(true);
    SessionSnapshot::setSessionActive(true);

    startSessionClock();
    startLog();
    startAppTapPollIfNeeded();
}

// ---- Stop ----------------------------------------------------------------------------

void SessionController::stop()
{
    if (!m_isSessionActive && !m_audio.isRunning()) {
        return;
    }
    m_audio.stop();
    endCaptureWatch();
    m_client.stop();
    m_micTranscriber.stopTask(true);
    m_micTranscriber.sessionStopped();

    m_speakingPairID.reset();
    setSessionActive(false);
    SessionSnapshot::setSessionActive(false);
    SessionEvents::instance().postSessionEnded();

    endSpeaking();
    stopSessionClock();
    finishLog();

    setLastAnswerDuration(std::nullopt);
    setLevels(0, 0);

    QList<BannerLink> links;
    if (!m_lastTranscriptURL.isEmpty()) {
        links << makeLink(QStringLiteral("Transcript"), m_lastTranscriptURL);
    }
    if (!m_lastRecordingURL.isEmpty()) {
        links << makeLink(QStringLiteral("Recording"), m_lastRecordingURL);
    }
    if (!links.isEmpty()) {
        const QString folder = QFileInfo(links.first().url.toLocalFile()).absolutePath();
        links << makeLink(QStringLiteral("Folder"), QUrl::fromLocalFile(folder));
        const bool hasTranscript = !m_lastTranscriptURL.isEmpty();
        const bool hasRecording = !m_lastRecordingURL.isEmpty();
        QString message = hasTranscript && hasRecording ? QStringLiteral("Session saved — transcript and recording")
            : hasRecording                              ? QStringLiteral("Recording saved")
                                                        : QStringLiteral("Transcript saved");
        if (const std::optional<QString> cost = costSummary()) {
            message += QStringLiteral(" · ") + *cost;
        }
        setBanner(message, links);
    }

    m_sessionUsage = CostModel::Usage{};
}
