#include "session/AnswerTranscriber.h"

#include "settings/AppSettings.h"

AnswerTranscriber::AnswerTranscriber(AppSettings &settings, MicTranscription &onDevice, ServiceTranscription *service)
    : m_settings(settings)
    , m_onDevice(onDevice)
    , m_service(service)
{
    m_onDevice.onPartial = [this](const QString &text) {
        if (!usesService() && onPartial)
            onPartial(text);
    };
    m_onDevice.onFinal = [this](const QString &text) {
        if (!usesService() && onFinal)
            onFinal(text);
    };
    m_onDevice.onFailure = [this](const QString &message) {
        if (onFailure)
            onFailure(message);
    };
    if (!m_service)
        return;
    m_service->onDelta = [this](const QString &itemID, const QString &delta) { serviceDelta(itemID, delta); };
    m_service->onCompleted = [this](const QString &itemID, const QString &transcript) { serviceCompleted(itemID, transcript); };
    m_service->onFailed = [this](const QString &itemID, const QString &) { serviceCompleted(itemID, m_items.value(itemID)); };
    m_service->onUsage = [this](const QVariantMap &usage) {
        if (onUsage)
            onUsage(usage);
    };
    m_service->onFailure = [this](const QString &message) {
        if (onFailure)
            onFailure(tr("Transcribing your answers with OpenAI failed: %1").arg(message));
    };
}

void AnswerTranscriber::sessionStarted()
{
    const bool useService = m_service && m_settings.transcribeMyAnswers() && m_settings.transcribeAnswersWithService();
    m_items.clear();
    m_serviceSegment = false;
    m_useService.store(useService, std::memory_order_release);
    if (!useService)
        return;
    ServiceTranscription::Config config;
    config.apiKey = m_settings.apiKey().trimmed();
    config.model = m_settings.transcribeModel();
    config.vadThreshold = m_settings.vadThreshold();
    config.prefixPaddingMs = m_settings.prefixPaddingMs();
    config.silenceDurationMs = m_settings.silenceDurationMs();
    m_service->start(config);
}

void AnswerTranscriber::sessionStopped()
{
    if (usesService())
        m_service->stop();
    m_useService.store(false, std::memory_order_release);
    m_serviceSegment = false;
    m_items.clear();
}

void AnswerTranscriber::requestAuthorization(std::function<void(const SpeechAvailability &)> completion)
{
    if (usesService()) {
        if (completion)
            completion(SpeechAvailability::ready());
        return;
    }
    m_onDevice.requestAuthorization(std::move(completion));
}

void AnswerTranscriber::begin()
{
    if (!usesService()) {
        m_onDevice.begin();
        return;
    }
    m_serviceSegment = true;
}

void AnswerTranscriber::end()
{
    if (!usesService()) {
        m_onDevice.end();
        return;
    }
    // The service ends its items by itself; their text still arrives for this card.
    m_serviceSegment = false;
}

void AnswerTranscriber::stopTask(bool silent)
{
    if (!usesService()) {
        m_onDevice.stopTask(silent);
        return;
    }
    m_serviceSegment = false;
    if (silent)
        m_items.clear(); // nothing more of what is under way
}

bool AnswerTranscriber::isSegmentRunning() const
{
    return usesService() ? m_serviceSegment : m_onDevice.isSegmentRunning();
}

void AnswerTranscriber::appendMicBuffer(const float *samples, int frames)
{
    if (m_useService.load(std::memory_order_acquire))
        m_service->appendMicBuffer(samples, frames);
    else
        m_onDevice.appendMicBuffer(samples, frames);
}

void AnswerTranscriber::serviceDelta(const QString &itemID, const QString &delta)
{
    if (!usesService())
        return;
    QString &text = m_items[itemID];
    text += delta;
    const QString shown = text.simplified();
    if (!shown.isEmpty() && onPartial)
        onPartial(shown);
}

void AnswerTranscriber::serviceCompleted(const QString &itemID, const QString &transcript)
{
    if (!usesService())
        return;
    const QString heard = m_items.take(itemID);
    const QString text = (transcript.isEmpty() ? heard : transcript).simplified();
    if (!text.isEmpty() && onFinal)
        onFinal(text);
}
