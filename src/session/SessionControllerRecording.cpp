// Transcribing a saved recording: on the device, or, for a recording the user sends there
// (asked once per recording, and only while they have opted in to the service), with the
// service's transcription endpoint. Progress and Cancel stay in the banner.

#include "session/SessionController.h"

#include "session/CostModel.h"
#include "session/FileRevealer.h"
#include "speech/MicTranscription.h"
#include "session/RecordingPicker.h"
#include "session/RecordingTranscription.h"
#include "session/RecordingTranscriptionPrompt.h"
#include "session/SessionLogging.h"
#include "settings/AppSettings.h"

#include <QFileInfo>

#include <cmath>

namespace {

// "14 minutes", "1 minute", "45 seconds".
QString lengthText(double seconds)
{
    if (seconds < 59.5) {
        const auto whole = std::max<qint64>(std::llround(seconds), 1);
        return whole == 1 ? QStringLiteral("1 second") : QStringLiteral("%1 seconds").arg(whole);
    }
    const auto minutes = std::llround(seconds / 60.0);
    return minutes == 1 ? QStringLiteral("1 minute") : QStringLiteral("%1 minutes").arg(minutes);
}

RecordingTranscriptionPrompt::Question serviceQuestion(const QString &name, const QString &model,
                                                       std::optional<double> seconds)
{
    QString cost;
    if (seconds) {
        cost = QStringLiteral(" For this recording (%1) that costs about %2.")
                   .arg(lengthText(*seconds), CostModel::money(CostModel::estimatedTranscriptionCost(model, *seconds)));
    } else {
        cost = QStringLiteral(" The cost depends on the recording's length.");
    }
    return {QStringLiteral("Transcribe ") + name,
            QStringLiteral("With OpenAI, the recording's audio — both sides of the conversation — is sent to the "
                           "service and transcribed with %1 (more accurate).%2\n\n"
                           "On this computer, nothing leaves your machine.")
                .arg(model, cost)};
}

} // namespace

// Stops a running transcription of a recording (the banner's action while it runs).
void SessionController::cancelRecordingTranscription()
{
    m_parts.recordingTranscriber.cancel();
}

// Lets the user pick a saved recording and transcribes it on the device. With "Transcribe
// my answers with OpenAI" on, it first asks, once for the picked file, whether the
// recording goes to the service instead.
void SessionController::transcribeRecording()
{
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.recordingPicker.pickRecording([alive, this](const std::optional<QString> &picked) {
        if (!alive.lock() || !picked) {
            return;
        }
        const QString path = *picked;
        // The service only for someone who opted in to it, and only when they say so for this file.
        if (!m_parts.settings.transcribeAnswersWithService() || !m_parts.recordingPrompt) {
            transcribeRecordingOnDevice(path);
            return;
        }
        const RecordingTranscriptionPrompt::Question question = serviceQuestion(
            QFileInfo(path).fileName(), m_parts.settings.transcribeModel(), m_parts.recordingTranscriber.recordingSeconds(path));
        m_parts.recordingPrompt->ask(question, [alive, this, path](RecordingTranscriptionPrompt::Answer answer) {
            if (!alive.lock()) {
                return;
            }
            switch (answer) {
            case RecordingTranscriptionPrompt::Answer::withService:
                transcribeRecordingWithService(path);
                break;
            case RecordingTranscriptionPrompt::Answer::onThisComputer:
                transcribeRecordingOnDevice(path);
                break;
            case RecordingTranscriptionPrompt::Answer::cancel:
                break;
            }
        });
    });
}

void SessionController::transcribeRecordingOnDevice(const QString &path)
{
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.micTranscriber.requestAuthorization([alive, this, path](const SpeechAvailability &availability) {
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
        m_parts.recordingTranscriber.transcribe(
            path,
            [alive, this, name](const RecordingProgress &progress) {
                if (alive.lock()) {
                    showRecordingProgress(name, progress);
                }
            },
            [alive, this](const RecordingTranscription::Result &result) {
                if (!alive.lock()) {
                    return;
                }
                if (result.ok()) {
                    recordingTranscriptWritten(result->transcriptPath, {});
                } else {
                    setBannerAction(std::nullopt);
                    setBannerText(QStringLiteral("Transcription failed: ") + result.error());
                }
            });
    });
}

void SessionController::transcribeRecordingWithService(const QString &path)
{
    RecordingTranscription::ServiceOptions options;
    options.apiKey = m_parts.settings.apiKey().trimmed();
    options.model = m_parts.settings.transcribeModel();
    options.language = m_parts.settings.transcriptionLanguage();
    if (options.apiKey.isEmpty()) {
        setBanner(QStringLiteral("Add your OpenAI API key to transcribe recordings with OpenAI."), BannerAction::openAccountSettings);
        return;
    }
    const QString name = QFileInfo(path).fileName();
    qCInfo(lcSession, "[Ketterbloom] transcribing %s with the service (%s)", qUtf8Printable(name),
           qUtf8Printable(options.model));
    setBanner(QStringLiteral("Transcribing ") + name + QStringLiteral(" with OpenAI…"), BannerAction::cancelTranscription);
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.recordingTranscriber.transcribeWithService(
        path, options,
        [alive, this, name](const RecordingProgress &progress) {
            if (alive.lock()) {
                showRecordingProgress(name, progress);
            }
        },
        [alive, this, model = options.model](const RecordingTranscription::Result &result) {
            if (!alive.lock()) {
                return;
            }
            if (result.ok()) {
                const std::optional<QString> used = CostModel::transcriptionSummary(result->usage, model, result->secondsSent);
                recordingTranscriptWritten(result->transcriptPath, used ? QStringLiteral("OpenAI: ") + *used : QString());
            } else {
                setBannerAction(std::nullopt);
                setBannerText(QStringLiteral("Transcription failed: ") + result.error());
            }
        });
}

void SessionController::showRecordingProgress(const QString &name, const RecordingProgress &progress)
{
    const auto percent = static_cast<qint64>(progress.secondsDone / std::max(progress.secondsTotal, 1.0) * 100.0);
    // The Cancel button stays with every progress line.
    setBanner(QStringLiteral("Transcribing ") + name + QStringLiteral(" — ") + QString::number(percent)
                  + QStringLiteral("% (") + QString::number(static_cast<qint64>(progress.secondsDone))
                  + QStringLiteral("s of ") + QString::number(static_cast<qint64>(progress.secondsTotal))
                  + QStringLiteral("s)"),
              BannerAction::cancelTranscription);
}

// `usageNote`: what the service used, or empty.
void SessionController::recordingTranscriptWritten(const QString &transcriptPath, const QString &usageNote)
{
    setBannerAction(std::nullopt);
    QString text = QStringLiteral("Transcript written: ") + QFileInfo(transcriptPath).fileName();
    if (!usageNote.isEmpty()) {
        text += QStringLiteral(" (") + usageNote + QStringLiteral(")");
    }
    setBanner(text, {makeLink(QStringLiteral("Transcript"), QUrl::fromLocalFile(transcriptPath))});
    m_parts.fileRevealer.reveal({transcriptPath});
}
