#include "app/ServiceUtteranceRecogniser.h"

#include "audio/WavWriter.h"
#include "realtime/RealtimeProtocol.h"

#include <QtEndian>

#include <algorithm>

ServiceUtteranceRecogniser::ServiceUtteranceRecogniser(const AudioTranscriptionConfig &config,
                                                       const AudioTranscriptionClient::Timing &timing)
    : m_model(config.model)
    , m_client(config, RealtimeProtocol::endpointOverride(), timing)
{
}

QString ServiceUtteranceRecogniser::description() const
{
    return tr("Transcribed with OpenAI (%1).").arg(m_model);
}

void ServiceUtteranceRecogniser::recognise(std::vector<std::int16_t> samples, Completion completion)
{
    // The clip as a 16-bit mono WAV file.
    qToLittleEndian<qint16>(samples.data(), static_cast<qsizetype>(samples.size()), samples.data());
    const auto bytes = static_cast<qsizetype>(samples.size() * sizeof(std::int16_t));
    QByteArray wav = WavWriter::header(kSampleRate, 1, bytes);
    wav.append(reinterpret_cast<const char *>(samples.data()), bytes);
    m_client.transcribe(wav, [this, completion = std::move(completion)](const AudioTranscriptionClient::Outcome &result) {
        if (!result.ok()) {
            completion(Text::failure(result.error()));
            return;
        }
        const AudioTranscriptionClient::Text &text = result.value();
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
