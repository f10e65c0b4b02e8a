// Session records (events log, transcript, cost, saved files), the session clock, the
// narrowing of system audio to one application, and the live instructions update.

#include "session/SessionController.h"

#include "audio/CaptureLink.h"
#include "session/FileRevealer.h"
#include "realtime/RealtimeService.h"
#include "session/SessionLogging.h"
#include "session/TapQueries.h"
#include "session/TextRules.h"
#include "settings/AppSettings.h"

#include <QDir>
#include <QFileInfo>

// ---- Records -------------------------------------------------------------------------

void SessionController::showRecordFault(RecordFaults::File file)
{
    if (file == RecordFaults::File::transcript) {
        setBanner(m_records.faults().banner(file), BannerAction::copyTranscript);
    } else {
        setBannerText(m_records.faults().banner(file));
    }
}

void SessionController::log(const QString &message)
{
    qCInfo(lcSession).noquote() << QStringLiteral("[Ketterbloom] ") + message;
    appendEvent(QStringLiteral("client"), {{QStringLiteral("message"), message}});
}

void SessionController::startLog()
{
    m_records.open(sessionFolder(), (m_demo ? QStringLiteral("demo_") : QString()) + TextRules::sessionStamp(m_parts.clock.wallNow()));
    QVariantMap config{{QStringLiteral("model"), m_parts.settings.model()},
                       {QStringLiteral("transcribe_model"), m_parts.settings.transcribeModel()},
                       {QStringLiteral("vad_threshold"), m_parts.settings.vadThreshold()},
                       {QStringLiteral("silence_ms"), m_parts.settings.silenceDurationMs()},
                       {QStringLiteral("prefix_padding_ms"), m_parts.settings.prefixPaddingMs()},
                       {QStringLiteral("follow_up_window_s"), m_parts.settings.followUpWindow()},
                       {QStringLiteral("instructions_chars"),
                        qint64(TextRules::characterCount(m_parts.settings.instructions()))}};
    // Only a sample interview says so: a real session's config line is as it always was.
    if (m_demo)
        config.insert(QStringLiteral("demo"), true);
    appendEvent(QStringLiteral("config"), config);
}

void SessionController::finishLog()
{
    if (!m_records.isOpen()) {
        return;
    }
    if (const std::optional<QVariantMap> totals = m_usage.totals(sessionElapsed())) {
        appendEvent(QStringLiteral("session_cost"), *totals);
    }
    if (m_turns.drops.deltas > 0) {
        appendEvent(QStringLiteral("deltas_dropped"), {{QStringLiteral("count"), m_turns.drops.deltas},
                                                       {QStringLiteral("chars"), m_turns.drops.chars}});
    }
    saveTranscript();
    m_records.close();
    // Only a file that was written completely is offered.
    setLastTranscriptURL(QUrl::fromLocalFile(m_records.completeTranscriptPath()));
    m_turns.questionAt.clear();
    m_turns.firstTokenSeen.clear();
}

// The banner and links at Stop: complete files are linked and called saved, the others
// named with their reason.
void SessionController::showStopSummary(const std::optional<QString> &keptBanner)
{
    using File = RecordFaults::File;
    const RecordFaults &faults = m_records.faults();
    if (faults.hasFailed(File::recording)) {
        setLastRecordingURL(QUrl());   // an incomplete recording is not offered
    }
    QList<BannerLink> links;
    if (!lastTranscriptURL().isEmpty()) {
        links << makeLink(tr("Transcript"), lastTranscriptURL());
        if (const QUrl review = m_reviewWriter ? m_reviewWriter(m_records.eventsPath())
                                               : QUrl();
            !review.isEmpty()) {
            links << makeLink(tr("Review"), review);
        }
    }
    if (!lastRecordingURL().isEmpty()) {
        links << makeLink(tr("Recording"), lastRecordingURL());
    }
    if (!links.isEmpty()) {
        const QString folder = QFileInfo(links.first().url.toLocalFile()).absolutePath();
        links << makeLink(tr("Folder"), QUrl::fromLocalFile(folder));
    }

    QString saved;
    if (!links.isEmpty()) {
        const bool hasTranscript = !lastTranscriptURL().isEmpty();
        const bool hasRecording = !lastRecordingURL().isEmpty();
        saved = hasTranscript && hasRecording ? tr("Session saved — transcript and recording")
            : hasRecording                    ? tr("Recording saved")
                                              : tr("Transcript saved");
        if (const std::optional<QString> cost = costSummary()) {
            saved += QStringLiteral(" · ") + *cost;
        }
    }
    QStringList parts;
    if (keptBanner) {
        parts << *keptBanner;   // the reason the session ended comes first
    }
    if (faults.any()) {
        parts << faults.stopText() << tr("Copy the cards with Copy Transcript.");
    }
    if (!saved.isEmpty() && (!keptBanner || faults.any())) {
        parts << saved;
    }
    if (parts.isEmpty()) {
        return;
    }
    setBanner(parts.join(QLatin1Char(' ')), links);
    if (faults.any()) {
        setBannerAction(BannerAction::copyTranscript);
    }
}

// "$0.27 this session · $0.0093/min · 15210 tokens"; none without tokens or time.
std::optional<QString> SessionController::costSummary() const
{
    return m_usage.summary(sessionElapsed());
}

void SessionController::recordUsage(const QVariantMap &usage)
{
    appendEvent(QStringLiteral("usage"), m_usage.addResponse(usage, sessionElapsed()));
}

void SessionController::recordTranscriptionUsage(const QString &itemID, const QVariantMap &usage)
{
    const QString model = m_usage.transcribeModel().isEmpty() ? m_parts.settings.transcribeModel() : m_usage.transcribeModel();
    QVariantMap fields = m_usage.addMeetingTranscription(usage, model, m_turns.heardSeconds.value(itemID));
    int index = m_cards.cardForItem(itemID);
    fields.insert(QStringLiteral("pair"), index >= 0 ? m_cards.at(index).id : QString());
    appendEvent(QStringLiteral("transcription_usage"), fields);
    // The usage follows the completed transcript at once; a turn still waiting for its
    // question then had nothing in it that could be transcribed.
    if (index >= 0 && m_cards.at(index).questionInProgress) {
        questionNotHeard(index);
    }
}

void SessionController::transcribeModelFellBack(const QString &refused, const QString &model)
{
    m_usage.setTranscribeModel(model);
    appendEvent(QStringLiteral("transcribe_model_fallback"), {{QStringLiteral("refused"), refused}, {QStringLiteral("model"), model}});
    setBannerText(tr("The service doesn't offer %1 for transcribing the meeting, so %2 is used instead (and priced as such).")
                      .arg(refused, model));
}

// "[HH:mm:ss] Q: …\nA: …" blocks joined by a blank line.
QString SessionController::transcriptForExport() const
{
    return m_cards.exportText();
}

// ---- Other operations ----------------------------------------------------------------

void SessionController::applyInstructionsLive()
{
    if (isSessionActive()) {
        const QString instructions = m_parts.settings.instructions();
        m_parts.client.updateInstructions(instructions);
        setBannerText(tr("Job context pushed to the live session (%1 chars).").arg(TextRules::characterCount(instructions)));
    } else {
        setBannerText(tr("Saved — applies on the next Start."));
    }
}

// Shows the last transcript and recording in the file manager.
void SessionController::revealRecording()
{
    QStringList paths;
    if (!lastTranscriptURL().isEmpty()) {
        paths << lastTranscriptURL().toLocalFile();
    }
    if (!lastRecordingURL().isEmpty()) {
        paths << lastRecordingURL().toLocalFile();
    }
    if (!paths.isEmpty()) {
        m_parts.fileRevealer.reveal(paths);
    }
}
