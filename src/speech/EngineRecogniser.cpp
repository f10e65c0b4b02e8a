#include "speech/EngineRecogniser.h"

#include "speech/SpeechEngine.h"
#include "speech/SpeechLogging.h"
#include "speech/SpeechText.h"

EngineRecogniser::EngineRecogniser(SpeechEngine &engine, const QLocale &locale, const std::atomic<bool> &stop)
    : m_engine(engine)
    , m_locale(locale)
    , m_stop(stop)
{
}

std::optional<QString> EngineRecogniser::prepare()
{
    const SpeechAvailability availability = m_engine.availability(m_locale);
    if (availability.kind != SpeechAvailability::Kind::ready)
        return availability.message;
    if (auto error = m_engine.load())
        return QStringLiteral("On-device transcription failed: ") + error->description;
    return std::nullopt;
}

QString EngineRecogniser::description() const
{
    return QStringLiteral("Transcribed on-device.");
}

void EngineRecogniser::recognise(std::vector<std::int16_t> samples, Completion completion)
{
    auto result = m_engine.recognise(samples.data(), samples.size(), m_stop);
    QString text;
    if (auto *error = std::get_if<SpeechEngine::Error>(&result)) {
        // An utterance the decoder could not make out stays out of the transcript.
        if (!SpeechEngine::isSilentError(error->code))
            qCWarning(lcSpeech, "[Ketterbloom] speech recognition failed: %s (%d)",
                      qUtf8Printable(error->description), error->code);
    } else {
        text = SpeechText::format(std::get<QString>(result));
    }
    if (completion)
        completion(text);
}
