// The service transcription of the user's answers (opt-in): its usage in the session log.
#include "session/SessionController.h"

#include "session/CostModel.h"

void SessionController::recordAnswerTranscriptionUsage(const QVariantMap &usage)
{
    QVariantMap fields{{QStringLiteral("type"), usage.value(QStringLiteral("type"))}};
    if (usage.value(QStringLiteral("type")).toString() == QLatin1String("duration")) {
        fields.insert(QStringLiteral("seconds"), usage.value(QStringLiteral("seconds")));
    } else {
        for (const char *key : {"input_tokens", "output_tokens", "total_tokens"})
            fields.insert(QLatin1String(key), usage.value(QLatin1String(key)).toLongLong());
        const QVariantMap details = usage.value(QStringLiteral("input_token_details")).toMap();
        fields.insert(QStringLiteral("audio_tokens"), details.value(QStringLiteral("audio_tokens")).toLongLong());
    }
    appendEvent(QStringLiteral("answer_transcription_usage"), fields);
}
