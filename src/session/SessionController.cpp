#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/IdleInhibitor.h"
#include "session/MicTranscription.h"
#include "session/RealtimeLink.h"
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
    , m_recordingPrompt(components.recordingPrompt)
    , m_records(components.clock)
    , m_answerClock(components.clock)
    , m_scheduler(components.clock, m_cards)
{
    m_scheduler.ask = [this](const QString &pairID) { return askFor(pairID); };
    m_scheduler.giveUp = [this](const QString &pairID) { giveUpOn(pairID); };
    m_scheduler.log = [this](const QString &message) { log(message); };
    connect(&m_answerClock, &AnswerClock::isSpeakingChanged, this, &SessionController::isSpeakingChanged);
    connect(&m_answerClock, &AnswerClock::isAnsweringChanged, this, &SessionController::isAnsweringChanged);
    connect(&m_answerClock, &AnswerClock::speakingElapsedChanged, this, &SessionController::speakingElapsedChanged);
    connect(&m_answerClock, &AnswerClock::lastAnswerDurationChanged, this, &SessionController::lastAnswerDurationChanged);

    if (!m_runInBackground) {
        m_runInBackground = [](std::function<void()> job) { QThreadPool::globalInstance()->start(std::move(job)); };
    }

    connect(&m_records, &SessionRecords::fileFailed, this, [this](RecordFaults::File file) {
        // A start still running says it when the session begins; a stop says it in its banner.
        if (m_isSessionActive) {
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

    m_client.onStatus = guard([](SessionController *self, const RealtimeStatus &status) {
        self->setStatus(status);
        if (status.isFailed()) {
            // The client's own words stay as the banner after the stop they cause.
            self->setBannerText(status.message());
            self->stopSession(status.message());
        }
    });
    m_client.onTranscript = guard([](SessionController *self, const QString &itemID, const QString &text) {
        self->ingestTranscript(itemID, text);
    });
    m_client.onDelta = guard([](SessionController *self, const QString &responseID, const QString &delta) { self->ingestDelta(responseID, delta); });
    m_client.onResponseDone = guard([](SessionController *self, const QString &responseID) { self->completeResponse(responseID); });
    m_client.onLog = guard([](SessionController *self, const QString &message) { self->log(message); });
    m_client.onUsage = guard([](SessionController *self, const QVariantMap &usage) { self->recordUsage(usage); });
    m_client.onSpeechStarted = guard([](SessionController *self, const QString &itemID) { self->speechStarted(itemID); });
    m_client.onSpeechStopped = guard([](SessionController *self, const QString &itemID) { self->speechStopped(itemID); });
    m_client.onTranscriptDelta = guard([](SessionController *self, const QString &itemID, const QString &delta) {
        self->ingestTranscriptDelta(itemID, delta);
    });
    m_client.onTranscriptFailed = guard([](SessionController *self, const QString &itemID, const QString &message) {
        self->transcriptFailed(itemID, message);
    });
    m_client.onTranscriptionUsage = guard([](SessionController *self, const QString &itemID, const QVariantMap &usage) {
        self->recordTranscriptionUsage(itemID, usage);
    });
    m_client.onResponseCreated = guard([](SessionController *self, const QString &responseID, bool requested) {
        self->responseCreated(responseID, requested);
    });
    m_client.onResponseEnded = guard([](SessionController *self, const QString &responseID, const QString &status,
                                        const QString &reason, bool transient) {
        self->responseEnded(responseID, status, reason, transient);
    });
    m_client.onConfigured = guard([](SessionController *self) { self->connectionConfigured(); });
    m_client.onTranscribeModelFallback = guard([](SessionController *self, const QString &refused, const QString &model) {
        self->transcribeModelFellBack(refused, model);
    });
    m_client.onNotice = guard([](SessionController *self, const QString &message) {
        self->log(message);
        self->setBannerText(message);
    });

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
    m_audio.onRecordingFailed = guard([](SessionController *self, const QString &path, const QString &error) {
        self->recordFailed(RecordFaults::File::recording, path, error);
    });
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

// ---- Stop ----------------------------------------------------------------------------

void SessionController::stop()
{
    stopSession(std::nullopt);
}

void SessionController::stopSession(const std::optional<QString> &keptBanner)
{
    if (m_isStarting && !m_isSessionActive) {
        // Stop while audio capture is starting: the start is given up; capture that starts
        // later is stopped when it reports.
        abandonStart(keptBanner.value_or(QStringLiteral("Start cancelled.")));
        return;
    }
    if (!m_isSessionActive && !m_audio.isRunning()) {
        return;
    }
    m_audio.stop();   // the recording is closed (and its last writes checked) when this returns
    if (const std::optional<QString> error = m_audio.recordingError()) {
        recordFailed(RecordFaults::File::recording, m_audio.recordingPath().value_or(m_lastRecordingURL.toLocalFile()), *error);
    }
    endCaptureWatch();
    m_client.stop();
    m_micTranscriber.stopTask(true);
    m_micTranscriber.sessionStopped();

    setSessionActive(false);
    SessionSnapshot::setSessionActive(false);
    SessionEvents::instance().postSessionEnded();

    // The user's answer ends on its own card before that card is forgotten.
    endSpeaking();
    m_speakingPairID.reset();
    setListening(false);
    stopSessionClock();
    closeOpenCards();
    finishLog();

    m_answerClock.forgetLastAnswer();
    setLevels(0, 0);
    showStopSummary(keptBanner);
}
