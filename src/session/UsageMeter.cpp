#include "session/UsageMeter.h"

void UsageMeter::begin(const QString &realtimeModel, const QString &transcribeModel)
{
    m_usage = CostModel::Usage{};
    m_transcription = CostModel::TranscriptionUsage{};
    m_transcriptionCost = 0;
    m_pricedModel = realtimeModel;
    m_transcribeModel = transcribeModel;
}

double UsageMeter::cost() const
{
    if (m_free)
        return 0.0;   // the local stand-in charges nothing
    return m_usage.cost(CostModel::pricesFor(m_pricedModel)) + m_transcriptionCost;
}

std::optional<QString> UsageMeter::summary(double sessionElapsed) const
{
    return CostModel::summary(cost(), tokens(), sessionElapsed);
}

QVariantMap UsageMeter::addResponse(const QVariantMap &usage, double sessionElapsed)
{
    const CostModel::Usage response = CostModel::parse(usage);
    m_usage.add(response);
    const double minutes = CostModel::minutes(sessionElapsed);
    const double total = cost();
    return {{QStringLiteral("audio_in"), response.audioInput},
            {QStringLiteral("audio_in_cached"), response.audioInputCached},
            {QStringLiteral("text_in"), response.textInput},
            {QStringLiteral("text_in_cached"), response.textInputCached},
            {QStringLiteral("text_out"), response.textOutput},
            {QStringLiteral("response_cost_usd"), CostModel::rounded(response.cost(CostModel::pricesFor(m_pricedModel)), 5)},
            {QStringLiteral("transcription_cost_usd"), CostModel::rounded(m_transcriptionCost, 5)},
            {QStringLiteral("session_cost_usd"), CostModel::rounded(total, 5)},
            {QStringLiteral("session_cost_per_min_usd"), CostModel::rounded(total / minutes, 4)}};
}

QVariantMap UsageMeter::addMeetingTranscription(const QVariantMap &usage, const QString &model, double heardSeconds)
{
    const CostModel::TranscriptionUsage used = CostModel::parseTranscription(usage);
    const double cost = CostModel::transcriptionCost(used, model, heardSeconds);
    m_transcription.add(used);
    m_transcriptionCost += cost;
    return {{QStringLiteral("model"), model},
            {QStringLiteral("input_tokens"), used.inputTokens},
            {QStringLiteral("output_tokens"), used.outputTokens},
            {QStringLiteral("seconds"), CostModel::rounded(used.seconds, 3)},
            {QStringLiteral("cost_usd"), CostModel::rounded(cost, 6)},
            {QStringLiteral("transcription_cost_usd"), CostModel::rounded(m_transcriptionCost, 5)}};
}

QVariantMap UsageMeter::addAnswerTranscription(const QVariantMap &usage, const QString &model)
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
    const double cost = CostModel::transcriptionCost(used, model);
    m_transcription.add(used);
    m_transcriptionCost += cost;
    fields.insert(QStringLiteral("cost_usd"), CostModel::rounded(cost, 6));
    fields.insert(QStringLiteral("transcription_cost_usd"), CostModel::rounded(m_transcriptionCost, 5));
    return fields;
}

std::optional<QVariantMap> UsageMeter::totals(double sessionElapsed) const
{
    if (tokens() < 1 && m_transcriptionCost <= 0) {
        return std::nullopt;
    }
    const double minutes = CostModel::minutes(sessionElapsed);
    const double total = cost();
    return QVariantMap{{QStringLiteral("minutes"), CostModel::rounded(minutes, 2)},
                       {QStringLiteral("tokens"), tokens()},
                       {QStringLiteral("cost_usd"), CostModel::rounded(total, 5)},
                       {QStringLiteral("cost_per_min_usd"), CostModel::rounded(total / minutes, 4)},
                       {QStringLiteral("transcription_cost_usd"), CostModel::rounded(m_transcriptionCost, 5)},
                       {QStringLiteral("audio_in"), m_usage.audioInput},
                       {QStringLiteral("audio_in_cached"), m_usage.audioInputCached},
                       {QStringLiteral("text_in"), m_usage.textInput},
                       {QStringLiteral("text_in_cached"), m_usage.textInputCached},
                       {QStringLiteral("text_out"), m_usage.textOutput + m_usage.audioOutput}};
}
