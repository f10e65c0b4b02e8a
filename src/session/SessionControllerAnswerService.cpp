// The service transcription of the user's answers (opt-in): its usage in the session log and
// in the session's transcription cost.
#include "session/SessionController.h"

#include "session/CostModel.h"
#include "settings/AppSettings.h"

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
    const CostModel::TranscriptionUsage used = CostModel::parseTranscription(usage);
    const double cost = CostModel::transcriptionCost(used, m_settings.transcribeModel());
    m_transcriptionUsage.add(used);
    m_transcriptionCost += cost;
    fields.insert(QStringLiteral("cost_usd"), CostModel::rounded(cost, 6));
    fields.insert(QStringLiteral("transcription_cost_usd"), CostModel::rounded(m_transcriptionCost, 5));
    appendEvent(QStringLiteral("answer_transcription_usage"), fields);
}
