#include "session/RecordingTranscriptionFlow.h"

#include "session/CostModel.h"
#include "session/FileRevealer.h"
#include "speech/MicTranscription.h"
#include "session/RecordingPicker.h"
#include "session/RecordingTranscription.h"
#include "session/RecordingTranscriptionPrompt.h"
#include "session/SessionLogging.h"
#include "session/SessionStatus.h"
#include "settings/AppSettings.h"

#include <QFileInfo>

#include <cmath>

namespace {

// "14 minutes", "1 minute", "45 seconds".
QString lengthText(double seconds)
{
    if (seconds < 59.5) {
        const auto whole = std::max<qint64>(std::llround(seconds), 1);
        return whole == 1 ? RecordingTranscriptionFlow::tr("1 second") : RecordingTranscriptionFlow::tr("%1 seconds").arg(whole);
    }
    const auto minutes = std::llround(seconds / 60.0);
    return minutes == 1 ? RecordingTranscriptionFlow::tr("1 minute") : RecordingTranscriptionFlow::tr("%1 minutes").arg(minutes);
}

RecordingTranscriptionPrompt::Question serviceQuestion(const QString &name, const QString &model,
                                                       std::optional<double> seconds)
{
    QString cost;
    if (seconds) {
        cost = RecordingTranscriptionFlow::tr(" For this recording (%1) that costs about %2.")
                   .arg(lengthText(*seconds), CostModel::money(CostModel::estimatedTranscriptionCost(model, *seconds)));
    } else {
        cost = RecordingTranscriptionFlow::tr(" The cost depends on the recording's length.");
    }
    return {RecordingTranscriptionFlow::tr("Transcribe %1").arg(name),
            RecordingTranscriptionFlow::tr("With OpenAI, the recording's audio — both sides of the conversation — is sent to the "
                           "service and transcribed with %1 (more accurate).%2\n\n"
                           "On this computer, nothing leaves your machine.")
                .arg(model, cost)};
}

} // namespace

RecordingTranscriptionFlow::RecordingTranscriptionFlow(const SessionComponents &parts, SessionStatus &banner)
    : m_parts(parts)
    , m_banner(banner)
{
}

RecordingTranscriptionFlow::~RecordingTranscriptionFlow()
{
    *m_alive = false;
}

void RecordingTranscriptionFlow::cancel()
{
    m_parts.recordingTranscriber.cancel();
}

// With "Transcribe my answers with OpenAI" on, it first asks, once for the picked file,
// whether the recording goes to the service instead.
void RecordingTranscriptionFlow::pickAndTranscribe()
{
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.recordingPicker.pickRecording([alive, this](const std::optional<QString> &picked) {
        if (!alive.lock() || !picked) {
            return;
        }
        const QString path = *picked;
        // The service only for someone who opted in to it, and only when they say so for this file.
        if (!m_parts.settings.transcribeAnswersWithService() || !m_parts.recordingPrompt) {
            onDevice(path);
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
                withService(path);
                break;
            case RecordingTranscriptionPrompt::Answer::onThisComputer:
                onDevice(path);
                break;
            case RecordingTranscriptionPrompt::Answer::cancel:
                break;
            }
        });
    });
}

void RecordingTranscriptionFlow::onDevice(const QString &path)
{
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.micTranscriber.requestAuthorization([alive, this, path](const SpeechAvailability &availability) {
        if (!alive.lock()) {
            return;
        }
        if (availability.kind != SpeechAvailability::Kind::ready) {
            m_banner.setBannerText(tr("On-device speech recognition is not available, so the recording can't be transcribed here."));
            return;
        }
        const QString name = QFileInfo(path).fileName();
        m_banner.setBanner(tr("Transcribing %1… this runs locally and takes a while.").arg(name),
                           SessionStatus::BannerAction::cancelTranscription);
        m_parts.recordingTranscriber.transcribe(
            path,
            [alive, this, name](const RecordingProgress &progress) {
                if (alive.lock()) {
                    showProgress(name, progress);
                }
            },
            [alive, this](const RecordingTranscription::Result &result) {
                if (!alive.lock()) {
                    return;
                }
                if (result.ok()) {
                    finished(result->transcriptPath, {});
                } else {
                    failed(result.error());
                }
            });
    });
}

void RecordingTranscriptionFlow::withService(const QString &path)
{
    RecordingTranscription::ServiceOptions options;
    options.apiKey = m_parts.settings.apiKey().trimmed();
    options.model = m_parts.settings.transcribeModel();
    options.language = m_parts.settings.transcriptionLanguage();
    if (options.apiKey.isEmpty()) {
        m_banner.setBanner(tr("Add your OpenAI API key to transcribe recordings with OpenAI."), SessionStatus::BannerAction::openAccountSettings);
        return;
    }
    const QString name = QFileInfo(path).fileName();
    qCInfo(lcSession, "[Ketterbloom] transcribing %s with the service (%s)", qUtf8Printable(name),
           qUtf8Printable(options.model));
    m_banner.setBanner(tr("Transcribing %1 with OpenAI…").arg(name), SessionStatus::BannerAction::cancelTranscription);
    const std::weak_ptr<bool> alive = m_alive;
    m_parts.recordingTranscriber.transcribeWithService(
        path, options,
        [alive, this, name](const RecordingProgress &progress) {
            if (alive.lock()) {
                showProgress(name, progress);
            }
        },
        [alive, this, model = options.model](const RecordingTranscription::Result &result) {
            if (!alive.lock()) {
                return;
            }
            if (result.ok()) {
                const std::optional<QString> used = CostModel::transcriptionSummary(result->usage, model, result->secondsSent);
                finished(result->transcriptPath, used ? tr("OpenAI: %1").arg(*used) : QString());
            } else {
                failed(result.error());
            }
        });
}

void RecordingTranscriptionFlow::showProgress(const QString &name, const RecordingProgress &progress)
{
    const auto percent = static_cast<qint64>(progress.secondsDone / std::max(progress.secondsTotal, 1.0) * 100.0);
    // The Cancel button stays with every progress line.
    m_banner.setBanner(tr("Transcribing %1 — %2% (%3s of %4s)")
                           .arg(name)
                           .arg(percent)
                           .arg(static_cast<qint64>(progress.secondsDone))
                           .arg(static_cast<qint64>(progress.secondsTotal)),
                       SessionStatus::BannerAction::cancelTranscription);
}

void RecordingTranscriptionFlow::finished(const QString &transcriptPath, const QString &usageNote)
{
    const QString name = QFileInfo(transcriptPath).fileName();
    const QString text = usageNote.isEmpty() ? tr("Transcript written: %1").arg(name)
                                             : tr("Transcript written: %1 (%2)").arg(name, usageNote);
    m_banner.setBanner(text, {SessionStatus::makeLink(tr("Transcript"), QUrl::fromLocalFile(transcriptPath))});
    m_parts.fileRevealer.reveal({transcriptPath});
}

void RecordingTranscriptionFlow::failed(const QString &message)
{
    m_banner.setBannerText(tr("Transcription failed: %1").arg(message));
}
