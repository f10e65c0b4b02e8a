#include "speech/MicTranscriber.h"

#include "speech/MicDecoderWorker.h"
#include "speech/PocketSphinxEngine.h"
#include "speech/SpeechLogging.h"
#include "speech/SpeechText.h"

#include <QPointer>
#include <QTimer>

namespace {
constexpr std::size_t kQueueFrames = 1 << 19; // about 11 s at 48 kHz
}

MicTranscriber::MicTranscriber(std::shared_ptr<SpeechEngine> engine, const QLocale &locale, QObject *parent)
    : QObject(parent)
    , m_engine(engine ? std::move(engine) : std::make_shared<PocketSphinxEngine>())
    , m_locale(locale)
    , m_queue(kQueueFrames)
{
    // The worker reports on its thread; the report hops to this object's thread. The worker
    // never outlives this object: the destructor stops its thread first.
    auto report = [this](int segment, const MicDecoderWorker::Event &event) {
        const int kind = static_cast<int>(event.kind);
        QMetaObject::invokeMethod(this, [this, segment, kind, text = event.text, code = event.error.code,
                                         description = event.error.description] {
            handleEvent(segment, kind, text, code, description);
        }, Qt::QueuedConnection);
    };
    m_worker = new MicDecoderWorker(m_engine, m_queue, m_currentSegment, std::move(report));
    m_worker->moveToThread(&m_thread);
    connect(&m_thread, &QThread::finished, m_worker, &QObject::deleteLater);
    m_thread.setObjectName(QStringLiteral("kb-mic-speech"));
    m_thread.start();
}

MicTranscriber::~MicTranscriber()
{
    m_accepting.store(false, std::memory_order_release);
    m_currentSegment.store(-1, std::memory_order_release);
    m_thread.quit();
    m_thread.wait();
}

void MicTranscriber::post(std::function<void(MicDecoderWorker *)> call)
{
    MicDecoderWorker *worker = m_worker;
    QMetaObject::invokeMethod(worker, [worker, call = std::move(call)] { call(worker); }, Qt::QueuedConnection);
}

SpeechAvailability MicTranscriber::availability() const
{
    return m_engine->availability(m_locale);
}

void MicTranscriber::requestAuthorization(std::function<void(const SpeechAvailability &)> completion)
{
    const SpeechAvailability result = availability();
    if (result.kind == SpeechAvailability::Kind::ready)
        post([](MicDecoderWorker *worker) { worker->preload(); });
    QMetaObject::invokeMethod(this, [result, completion = std::move(completion)] {
        if (completion)
            completion(result);
    }, Qt::QueuedConnection);
}

void MicTranscriber::setContextText(const QString &text)
{
    post([text](MicDecoderWorker *worker) { worker->setContextText(text); });
}

void MicTranscriber::begin()
{
    if (m_taskRunning)
        stopTask(true);
    if (availability().kind != SpeechAvailability::Kind::ready)
        return;
    ++m_segmentId;
    m_currentSegment.store(m_segmentId, std::memory_order_release);
    m_appendedFrames.store(0, std::memory_order_relaxed);
    m_latest.clear();
    m_taskRunning = true;
    m_ending = false;
    const int segment = m_segmentId;
    post([segment](MicDecoderWorker *worker) { worker->startSegment(segment); });
    m_accepting.store(true, std::memory_order_release);
}

void MicTranscriber::end()
{
    if (m_ending)
        return; // already waiting for this segment's final text
    const int segment = m_segmentId;
    qCInfo(lcSpeech, "[Ketterbloom] speech segment ended: %.1fs of audio, %d chars",
           static_cast<double>(appendedFrames()) / kMicRate, static_cast<int>(m_latest.size()));
    if (m_taskRunning) {
        m_ending = true;
        m_accepting.store(false, std::memory_order_release);
        post([segment](MicDecoderWorker *worker) { worker->endSegment(segment); });
    }
    QTimer::singleShot(m_fallback, this, [this, segment] {
        if (!m_taskRunning || m_segmentId != segment)
            return; // the final result came, or the segment was replaced
        const QString text = m_latest;
        stopTask(true);
        if (!text.isEmpty() && onFinal)
            onFinal(text);
    });
}

void MicTranscriber::stopTask(bool silent)
{
    if (silent) {
        ++m_segmentId;
        m_currentSegment.store(m_segmentId, std::memory_order_release);
    }
    m_accepting.store(false, std::memory_order_release);
    if (m_taskRunning) {
        const std::size_t position = m_queue.writePosition();
        post([position](MicDecoderWorker *worker) { worker->cancelSegment(position); });
    }
    m_taskRunning = false;
    m_ending = false;
    m_latest.clear();
}

void MicTranscriber::appendMicBuffer(const float *samples, int frames)
{
    if (frames <= 0 || !m_accepting.load(std::memory_order_acquire))
        return;
    m_queue.push(samples, static_cast<std::size_t>(frames));
    m_appendedFrames.fetch_add(frames, std::memory_order_relaxed);
}

void MicTranscriber::handleEvent(int segment, int kind, const QString &text, int code, const QString &description)
{
    if (segment != m_segmentId || !m_taskRunning)
        return;
    switch (static_cast<MicDecoderWorker::Event::Kind>(kind)) {
    case MicDecoderWorker::Event::Kind::partial:
        m_latest = SpeechText::format(text);
        if (onPartial)
            onPartial(m_latest);
        return;
    case MicDecoderWorker::Event::Kind::final: {
        // The final text is also the segment's last partial text.
        const QString formatted = SpeechText::format(text);
        if (!formatted.isEmpty() && formatted != m_latest) {
            m_latest = formatted;
            if (onPartial)
                onPartial(m_latest);
        }
        deliverFinal();
        return;
    }
    case MicDecoderWorker::Event::Kind::failed:
        if (!m_latest.isEmpty()) {
            deliverFinal(); // the words heard so far are the segment's text
            return;
        }
        m_taskRunning = false;
        m_ending = false;
        m_accepting.store(false, std::memory_order_release);
        if (SpeechEngine::isSilentError(code))
            return;
        qCWarning(lcSpeech, "[Ketterbloom] speech recognition failed: %s (%d)", qUtf8Printable(description), code);
        if (onFailure)
            onFailure(tr("On-device transcription failed: %1").arg(description));
        return;
    }
}

void MicTranscriber::deliverFinal()
{
    const QString text = m_latest;
    m_taskRunning = false;
    m_ending = false;
    m_accepting.store(false, std::memory_order_release);
    if (!text.isEmpty() && onFinal)
        onFinal(text);
}
