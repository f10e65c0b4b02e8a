// Session records (events log, transcript, cost, saved files), the session clock, the
// narrowing of system audio to one application, and the live instructions update.

#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/FileRevealer.h"
#include "session/IdleInhibitor.h"
#include "session/MicTranscription.h"
#include "session/RealtimeLink.h"
#include "session/RecordingPicker.h"
#include "session/RecordingTranscription.h"
#include "session/SessionLog.h"
#include "session/TapQueries.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <QDir>
#include <QFileInfo>
#include <QLoggingCategory>

Q_DECLARE_LOGGING_CATEGORY(lcSession)

// ---- Records -------------------------------------------------------------------------

void SessionController::appendEvent(const QString &event, const QVariantMap &fields)
{
    if (m_log) {
        m_log->append(event, fields);
    }
}

void SessionController::log(const QString &message)
{
    qCInfo(lcSession).noquote() << QStringLiteral("[Ketterbloom] ") + message;
    appendEvent(QStringLiteral("client"), {{QStringLiteral("message"), message}});
}

void SessionController::startLog()
{
    m_logStamp = TextRules::sessionStamp(m_clock.wallNow());
    const QString folder = sessionFolder();
    QDir().mkpath(folder);   // a failure leaves the log unopened; the session goes on
    m_log = std::make_unique<SessionLog>(folder, m_logStamp, m_clock);
    appendEvent(QStringLiteral("config"),
                {{QStringLiteral("model"), m_settings.model()},
                 {QStringLiteral("transcribe_model"), m_settings.transcribeModel()},
                 {QStringLiteral("vad_threshold"), m_settings.vadThreshold()},
                 {QStringLiteral("silence_ms"), m_settings.silenceDurationMs()},
                 {QStringLiteral("prefix_padding_ms"), m_settings.prefixPaddingMs()},
                 {QStringLiteral("follow_up_window_s"), m_settings.followUpWindow()},
                 {QStringLiteral("instructions_chars"), qint64(TextRules::characterCount(m_settings.instructions()))}});
}

void SessionController::finishLog()
{
    if (!m_log) {
        return;
    }
    const qint64 tokens = m_sessionUsage.total();
    if (tokens >= 1) {
        const double minutes = CostModel::minutes(m_sessionElapsed);
        const double cost = m_sessionUsage.cost();
        appendEvent(QStringLiteral("session_cost"),
                    {{QStringLiteral("minutes"), CostModel::rounded(minutes, 2)},
                     {QStringLiteral("tokens"), tokens},
                     {QStringLiteral("cost_usd"), CostModel::rounded(cost, 5)},
                     {QStringLiteral("cost_per_min_usd"), CostModel::rounded(cost / minutes, 4)},
                     {QStringLiteral("audio_in"), m_sessionUsage.audioInput},
                     {QStringLiteral("audio_in_cached"), m_sessionUsage.audioInputCached},
                     {QStringLiteral("text_in"), m_sessionUsage.textInput},
                     {QStringLiteral("text_in_cached"), m_sessionUsage.textInputCached},
                     {QStringLiteral("text_out"), m_sessionUsage.textOutput + m_sessionUsage.audioOutput}});
    }
    const QString transcript = m_log->writeMarkdown(m_pairs, sessionFolder(), m_logStamp);
    m_log->close();
    m_log.reset();
    if (!transcript.isEmpty()) {
        setLastTranscriptURL(QUrl::fromLocalFile(transcript));
    }
    m_questionAt.clear();
    m_firstTokenSeen.clear();
}

std::optional<QString> SessionController::costSummary() const
{
    return CostModel::summary(m_sessionUsage, m_sessionElapsed);
}

QString SessionController::transcriptForExport() const
{
    QStringList blocks;
    for (const QAPair &pair : m_pairs) {
        blocks << QStringLiteral("[") + pair.timestamp + QStringLiteral("] Q: ") + pair.question
                + QStringLiteral("\nA: ") + pair.answer;
    }
    return blocks.join(QStringLiteral("\n\n"));
}

// ---- Session clock -------------------------------------------------------------------

void SessionController::startSessionClock()
{
    m_idleInhibitor.inhibit(QStringLiteral("Live meeting transcription"));
    m_idleInhibited = true;
    m_sessionStart = m_clock.now();
    setSessionElapsed(0);
    m_sessionTimer = m_clock.schedule(1.0, true, [this] {
        if (m_sessionStart) {
            setSessionElapsed(Clock::secondsBetween(*m_sessionStart, m_clock.now()));
        }
    });
}

void SessionController::stopSessionClock()
{
    m_sessionTimer.reset();
    m_sessionStart.reset();
    if (m_idleInhibited) {
        m_idleInhibitor.release();
        m_idleInhibited = false;
    }
}

// ---- Narrowing to one application ----------------------------------------------------

void SessionController::startAppTapPollIfNeeded()
{
    m_appTapPoll.reset();
    if (!m_pendingAppTap) {
        return;
    }
    m_appTapPollBundleID = *m_pendingAppTap;
    m_appTapPollArmedAt = m_clock.now();
    m_appTapPoll = m_clock.schedule(3.0, true, [this] { appTapPollTick(); });
}

void SessionController::appTapPollTick()
{
    if (!m_isSessionActive || !m_pendingAppTap || *m_pendingAppTap != m_appTapPollBundleID) {
        return;
    }
    const QString bundleID = m_appTapPollBundleID;
    const std::optional<AudioProcessInfo> app = m_taps.audioObject(bundleID);
    if (!app && Clock::secondsBetween(m_appTapPollArmedAt, m_clock.now()) <= 120.0) {
        return;
    }

    const QString name = appDisplayName(bundleID);
    m_pendingAppTap.reset();
    // The timer may be dropped here: the clock allows a timer to end itself from its action.
    m_appTapPoll.reset();

    if (!app) {
        appendEvent(QStringLiteral("tap_narrow_timeout"), {{QStringLiteral("app"), bundleID}});
        setBannerText(QStringLiteral("Still listening to this whole computer — no audio has been credited to ") + name
                      + QStringLiteral(". That is normal for apps that play sound through another process, and the "
                                       "meeting is being captured either way."));
        return;
    }
    appendEvent(QStringLiteral("tap_narrowed"), {{QStringLiteral("app"), bundleID}});
    const QString appID = app->bundleID.isEmpty() ? bundleID : app->bundleID;
    if (const std::optional<QString> error = m_audio.retarget(TapTarget::process(appID))) {
        setBannerText(QStringLiteral("Stayed on this computer's audio — could not switch to ") + name + QStringLiteral(": ") + *error);
    } else {
        setBannerText(QStringLiteral("Now listening to ") + name + QStringLiteral(" only."));
    }
}

// ---- Other operations ----------------------------------------------------------------

void SessionController::applyInstructionsLive()
{
    if (m_isSessionActive) {
        const QString instructions = m_settings.instructions();
        m_client.updateInstructions(instructions);
        setBannerText(QStringLiteral("Job context pushed to the live session (")
                      + QString::number(TextRules::characterCount(instructions)) + QStringLiteral(" chars)."));
    } else {
        setBannerText(QStringLiteral("Saved — applies on the next Start."));
    }
}

void SessionController::revealRecording()
{
    QStringList paths;
    if (!m_lastTranscriptURL.isEmpty()) {
        paths << m_lastTranscriptURL.toLocalFile();
    }
    if (!m_lastRecordingURL.isEmpty()) {
        paths << m_lastRecordingURL.toLocalFile();
    }
    if (!paths.isEmpty()) {
        m_fileRevealer.reveal(paths);
    }
}

void SessionController::cancelRecordingTranscription()
{
    m_recordingTranscriber.cancel();
}

void SessionController::transcribeRecording()
{
    const std::weak_ptr<bool> alive = m_alive;
    m_recordingPicker.pickRecording([alive, this](const std::optional<QString> &picked) {
        if (!alive.lock() || !picked) {
            return;
        }
        const QString path = *picked;
        m_micTranscriber.requestAuthorization([alive, this, path](const SpeechAvailability &availability) {
            if (!alive.lock()) {
                return;
            }
            if (availability.kind != SpeechAvailability::Kind::ready) {
                setBannerText(QStringLiteral("On-device speech recognition is not available, so the recording can't be transcribed here."));
                return;
            }
            const QString name = QFileInfo(path).fileName();
            setBanner(QStringLiteral("Transcribing ") + name + QStringLiteral("… this runs locally and takes a while."),
                      BannerAction::cancelTranscription);
            m_recordingTranscriber.transcribe(
                path,
                [alive, this, name](const RecordingProgress &progress) {
                    if (!alive.lock()) {
                        return;
                    }
                    const auto percent = static_cast<qint64>(progress.secondsDone / std::max(progress.secondsTotal, 1.0) * 100.0);
                    setBannerText(QStringLiteral("Transcribing ") + name + QStringLiteral(" — ") + QString::number(percent)
                                  + QStringLiteral("% (") + QString::number(static_cast<qint64>(progress.secondsDone))
                                  + QStringLiteral("s of ") + QString::number(static_cast<qint64>(progress.secondsTotal))
                                  + QStringLiteral("s)"));
                },
                [alive, this](const RecordingTranscription::Result &result) {
                    if (!alive.lock()) {
                        return;
                    }
                    setBannerAction(std::nullopt);
                    if (const auto *written = std::get_if<RecordingTranscription::Written>(&result)) {
                        setBanner(QStringLiteral("Transcript written: ") + QFileInfo(written->transcriptPath).fileName(),
                                  {makeLink(QStringLiteral("Transcript"), QUrl::fromLocalFile(written->transcriptPath))});
                        m_fileRevealer.reveal({written->transcriptPath});
                    } else {
                        setBannerText(QStringLiteral("Transcription failed: ") + std::get<RecordingTranscription::Failed>(result).message);
                    }
                });
        });
    });
}
