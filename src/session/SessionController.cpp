#include "session/SessionController.h"

#include "audio/CaptureLink.h"
#include "session/IdleInhibitor.h"
#include "speech/MicTranscription.h"
#include "realtime/RealtimeService.h"
#include "session/SessionSnapshot.h"
#include "session/TapQueries.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <QCoreApplication>
#include <QDir>
#include <QFileInfo>
#include <QStandardPaths>
#include <QThreadPool>

QString SessionController::apiKeyMissingBanner()
{
    return tr("Add your OpenAI API key before starting.");
}

SessionController::SessionController(const Components &components, QObject *parent)
    : SessionStatus(parent)
    , m_parts(components)
    , m_records(components.clock)
    , m_answerClock(components.clock)
    , m_scheduler(components.clock, m_cards)
    , m_startUp(components.clock)
    , m_captureWatch(components.clock)
    , m_narrowing(components.clock, components.taps, components.audio)
    , m_sessionClock(components.clock, components.idleInhibitor)
    , m_recordingFlow(m_parts, *this)
{
    m_scheduler.ask = [this](const QString &pairID) { return askFor(pairID); };
    m_scheduler.giveUp = [this](const QString &pairID) { giveUpOn(pairID); };
    m_scheduler.log = [this](const QString &message) { log(message); };
    m_captureWatch.shownBanner = [this] { return bannerText(); };
    m_captureWatch.showBanner = [this](const std::optional<QString> &text) { setBannerText(text); };
    m_narrowing.sessionActive = [this] { return isSessionActive(); };
    m_narrowing.appendEvent = [this](const QString &event, const QVariantMap &fields) { appendEvent(event, fields); };
    m_narrowing.showBanner = [this](const QString &text) { setBannerText(text); };
    m_sessionClock.onElapsed = [this](double seconds) { setSessionElapsed(seconds); };
    connect(&m_answerClock, &AnswerClock::isSpeakingChanged, this, &SessionController::isSpeakingChanged);
    connect(&m_answerClock, &AnswerClock::isAnsweringChanged, this, &SessionController::isAnsweringChanged);
    connect(&m_answerClock, &AnswerClock::speakingElapsedChanged, this, &SessionController::speakingElapsedChanged);
    connect(&m_answerClock, &AnswerClock::lastAnswerDurationChanged, this, &SessionController::lastAnswerDurationChanged);

    if (!m_parts.runInBackground) {
        m_parts.runInBackground = [](std::function<void()> job) { QThreadPool::globalInstance()->start(std::move(job)); };
    }

    connect(&m_records, &SessionRecords::fileFailed, this, [this](RecordFaults::File file) {
        // A start still running says it when the session begins; a stop says it in its banner.
        if (isSessionActive()) {
            showRecordFault(file);
        }
    });

    // The components deliver these on the GUI thread; each is ignored once this object is gone.
    const std::weak_ptr<bool> alive = m_alive;
    auto guard = [alive, this](auto body) {
        return [alive, this, body](auto &&...args) {
            if (alive.lock()) {
                body(this, std::forward<decltype(args)>(args)...);
            }
        };
    };

    // The service emits these on the GUI thread; connected to this object, none arrives once it is gone.
    RealtimeService *client = &m_parts.client;
    connect(client, &RealtimeEvents::statusChanged, this, [this](const RealtimeStatus &status) {
        setStatus(status);
        if (status.isFailed()) {
            // The client's own words stay as the banner after the stop they cause.
            setBannerText(status.message());
            stopSession(status.message());
        }
    });
    connect(client, &RealtimeEvents::transcriptCompleted, this, &SessionController::ingestTranscript);
    connect(client, &RealtimeEvents::answerDelta, this, &SessionController::ingestDelta);
    connect(client, &RealtimeEvents::responseDone, this, &SessionController::completeResponse);
    connect(client, &RealtimeEvents::logLine, this, &SessionController::log);
    connect(client, &RealtimeEvents::usageReported, this, &SessionController::recordUsage);
    connect(client, &RealtimeEvents::meetingSpeechStarted, this, &SessionController::speechStarted);
    connect(client, &RealtimeEvents::meetingSpeechStopped, this, &SessionController::speechStopped);
    connect(client, &RealtimeEvents::transcriptDeltaReceived, this, &SessionController::ingestTranscriptDelta);
    connect(client, &RealtimeEvents::transcriptionFailed, this, &SessionController::transcriptFailed);
    connect(client, &RealtimeEvents::transcriptionUsageReported, this, &SessionController::recordTranscriptionUsage);
    connect(client, &RealtimeEvents::responseCreated, this, &SessionController::responseCreated);
    connect(client, &RealtimeEvents::responseEnded, this, &SessionController::responseEnded);
    connect(client, &RealtimeEvents::sessionConfigured, this, &SessionController::connectionConfigured);
    connect(client, &RealtimeEvents::transcribeModelFellBack, this, &SessionController::transcribeModelFellBack);
    connect(client, &RealtimeEvents::noticeRaised, this, [this](const QString &message) {
        log(message);
        setBannerText(message);
    });

    // Audio thread: forward only, touch no state.
    m_parts.audio.onPCM16 = [client](const QByteArray &pcm16) { client->append(pcm16); };
    MicTranscription *transcriber = &m_parts.micTranscriber;
    m_parts.audio.onMicBuffer = [transcriber](const float *samples, int frames) { transcriber->appendMicBuffer(samples, frames); };

    m_parts.audio.onLevels = guard([](SessionController *self, float mic, float meeting) {
        self->setLevels(mic, meeting);
        self->trackSpeaking(mic);
    });
    m_parts.audio.onError = guard([](SessionController *self, const QString &message) { self->setBannerText(message); });
    m_parts.audio.onHealth = guard([](SessionController *self, const CaptureHealth &health) { self->captureHealthChanged(health); });
    m_parts.audio.onRecordingFailed = guard([](SessionController *self, const QString &path, const QString &error) {
        self->recordFailed(RecordFaults::File::recording, path, error);
    });
    watchMicrophoneSettings();
    m_parts.audio.onMicUnavailable = guard([](SessionController *self, const QString &message) {
        self->setBannerText(message);
        self->m_parts.settings.setTranscribeMyAnswers(false);
    });

    m_parts.micTranscriber.onPartial = guard([](SessionController *self, const QString &text) { self->updateMyAnswer(text, false); });
    m_parts.micTranscriber.onFinal = guard([](SessionController *self, const QString &text) { self->updateMyAnswer(text, true); });
    m_parts.micTranscriber.onFailure = guard([](SessionController *self, const QString &message) { self->setBannerText(message); });
    m_parts.micTranscriber.onUsage = guard([](SessionController *self, const QVariantMap &usage) { self->recordAnswerTranscriptionUsage(usage); });
}

// A sample interview against a local stand-in for the service: its records are named
// "meeting_demo_…", say so in the events log, and cost nothing.
void SessionController::setDemo(bool demo)
{
    m_demo = demo;
    m_usage.setFree(demo);
}

// A new banner goes on the review's timeline while a session runs.
void SessionController::bannerShown(const QString &text)
{
    if (isSessionActive())
        appendEvent(QStringLiteral("banner"), {{QStringLiteral("text"), text}});
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

// ---- Stop ----------------------------------------------------------------------------

void SessionController::stop()
{
    stopSession(std::nullopt);
}

// `keptBanner` (a failure message) stays as the banner, with the saved files' links after it.
void SessionController::stopSession(const std::optional<QString> &keptBanner)
{
    if (isStarting() && !isSessionActive()) {
        // Stop while audio capture is starting: the start is given up; capture that starts
        // later is stopped when it reports.
        abandonStart(keptBanner.value_or(tr("Start cancelled.")));
        return;
    }
    if (!isSessionActive() && !m_parts.audio.isRunning()) {
        return;
    }
    m_parts.audio.stop();   // the recording is closed (and its last writes checked) when this returns
    if (const std::optional<QString> error = m_parts.audio.recordingError()) {
        recordFailed(RecordFaults::File::recording, m_parts.audio.recordingPath().value_or(lastRecordingURL().toLocalFile()), *error);
    }
    m_captureWatch.end();
    m_narrowing.stop();
    m_parts.client.stop();
    m_parts.micTranscriber.stopTask(true);
    m_parts.micTranscriber.sessionStopped();

    setSessionActive(false);
    SessionSnapshot::setSessionActive(false);
    SessionEvents::instance().postSessionEnded();

    // The user's answer ends on its own card before that card is forgotten.
    endSpeaking();
    m_turns.speakingPairID.reset();
    setListening(false);
    m_sessionClock.stop();
    closeOpenCards();
    finishLog();

    m_answerClock.forgetLastAnswer();
    setLevels(0, 0);
    showStopSummary(keptBanner);
}
