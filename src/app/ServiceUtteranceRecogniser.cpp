#include "app/ServiceUtteranceRecogniser.h"

#include "realtime/RealtimeProtocol.h"

#include <algorithm>

namespace {

QString realtimeOverride()
{
    const QString value = qEnvironmentVariable(RealtimeProtocol::endpointVariable);
    return value.trimmed().isEmpty() ? QString() : value;
}

} // namespace

ServiceUtteranceRecogniser::ServiceUtteranceRecogniser(const AudioTranscriptionConfig &config,
                                                       const AudioTranscriptionClient::Timing &timing)
    : m_model(config.model)
    , m_client(config, realtimeOverride(), timing)
{
}

QString ServiceUtteranceRecogniser::description() const
{
    return QStringLiteral("Transcribed with OpenAI (%1).").arg(m_model);
}

void ServiceUtteranceRecogniser::recognise(std::vector<std::int16_t> samples, Completion completion)
{
    const QByteArray wav = AudioTranscriptionClient::wavFile(samples.data(), samples.size(), kSampleRate);
    m_client.transcribe(wav, [this, completion = std::move(completion)](const AudioTranscriptionClient::Result &result) {
        if (const auto *failure = std::get_if<AudioTranscriptionClient::Failure>(&result)) {
            completion(Failure{failure->message});
            return;
        }
        const auto &text = std::get<AudioTranscriptionClient::Text>(result);
        addUsage(text.usage);
        completion(text.text.simplified());
    });
}

void ServiceUtteranceRecogniser::addUsage(const QVariantMap &usage)
{
    if (usage.value(QStringLiteral("type")).toString() == QLatin1String("duration")) {
        m_seconds += std::max(usage.value(QStringLiteral("seconds")).toDouble(), 0.0);
        m_duration = true;
    } else if (!usage.isEmpty()) {
        m_inputTokens += std::max<qint64>(usage.value(QStringLiteral("input_tokens")).toLongLong(), 0);
        m_outputTokens += std::max<qint64>(usage.value(QStringLiteral("output_tokens")).toLongLong(), 0);
        m_tokens = true;
    }
}

QVariantMap ServiceUtteranceRecogniser::usage() const
{
    if (m_tokens)
        return {{QStringLiteral("type"), QStringLiteral("tokens")},
                {QStringLiteral("input_tokens"), m_inputTokens},
                {QStringLiteral("output_tokens"), m_outputTokens},
                {QStringLiteral("total_tokens"), m_inputTokens + m_outputTokens}};
    if (m_duration)
        return {{QStringLiteral("type"), QStringLiteral("duration")}, {QStringLiteral("seconds"), m_seconds}};
    return {};
}
