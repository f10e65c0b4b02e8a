// Session records (events log, transcript, cost), the session clock and the narrowing of
// system audio to one application.

#include "session/SessionController.h"

#include "session/CaptureLink.h"
#include "session/IdleInhibitor.h"
#include "session/SessionLog.h"
#include "session/TapQueries.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <QDir>
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

    QString name = bundleID;
    for (const AudioProcessInfo &candidate : m_taps.selectableApps()) {
        if (candidate.bundleID == bundleID && !candidate.name.isEmpty()) {
            name = candidate.name;
            break;
        }
    }
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
