// The service transcription of the user's answers (opt-in): its usage in the session log and
// in the session's transcription cost.
#include "session/SessionController.h"

#include "settings/AppSettings.h"

// Usage of the service that transcribes the user's answers (when the user opted in).
void SessionController::recordAnswerTranscriptionUsage(const QVariantMap &usage)
{
    appendEvent(QStringLiteral("answer_transcription_usage"), m_usage.addAnswerTranscription(usage, m_parts.settings.transcribeModel()));
}
