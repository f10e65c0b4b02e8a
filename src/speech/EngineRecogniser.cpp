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

Result<void> EngineRecogniser::prepare()
{
    const SpeechAvailability availability = m_engine.availability(m_locale);
    if (availability.kind != SpeechAvailability::Kind::ready)
        return Result<void>::failure(availability.message);
    if (auto loaded = m_engine.load(); !loaded.ok())
        return Result<void>::failure(tr("On-device transcription failed: %1")
                                         .arg(loaded.error().description));
    return {};
}

QString EngineRecogniser::description() const
{
    return QStringLiteral("Transcribed on-device.");
}

void EngineRecogniser::recognise(std::vector<std::int16_t> samples, Completion completion)
{
    auto result = m_engine.recognise(samples.data(), samples.size(), m_stop);
    QString text;
    if (!result.ok()) {
        // An utterance the decoder could not make out stays out of the transcript.
        const SpeechEngine::Error &error = result.error();
        if (!SpeechEngine::isSilentError(error.code))
            qCWarning(lcSpeech, "[Ketterbloom] speech recognition failed: %s (%d)",
                      qUtf8Printable(error.description), error.code);
    } else {
        text = SpeechText::format(result.value());
    }
    if (completion)
        completion(text);
}
