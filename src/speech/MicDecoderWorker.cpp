#include "speech/MicDecoderWorker.h"

#include "speech/ContextWords.h"
#include "speech/SampleQueue.h"
#include "speech/SpeechLogging.h"

#include <QTimer>

namespace {
constexpr int kPollMs = 40;
constexpr std::size_t kBlockFrames = 4800; // 0.1 s at 48 kHz
// Until the decoder has heard this much, its running normalisation still comes from the
// model's defaults rather than this microphone, and a segment's final text comes from
// decoding the segment a second time, now with the normalisation its first pass adapted.
constexpr double kColdSeconds = 20.0;
// Longer segments are not decoded again: it would take too long.
constexpr std::size_t kMaxRedecodeSamples = 10 * SpeechEngine::kSampleRate;
} // namespace

MicDecoderWorker::MicDecoderWorker(std::shared_ptr<SpeechEngine> engine, SampleQueue &queue,
                                   const std::atomic<int> &currentSegment, Report report)
    : m_engine(std::move(engine))
    , m_queue(queue)
    , m_currentSegment(currentSegment)
    , m_report(std::move(report))
    , m_resampler(kInputRate, SpeechEngine::kSampleRate)
    , m_poll(new QTimer(this))
    , m_floats(kBlockFrames)
{
    m_poll->setInterval(kPollMs);
    connect(m_poll, &QTimer::timeout, this, [this] {
        if (m_segment != 0 && m_segment != m_currentSegment.load(std::memory_order_acquire)) {
            stopUtterance(false); // replaced or cancelled; its own cancel call is on the way
            return;
        }
        if (drain() != Drain::fed)
            return;
        const QString partial = m_engine->partialHypothesis();
        if (!partial.isEmpty() && partial != m_lastPartial) {
            m_lastPartial = partial;
            m_report(m_segment, {Event::Kind::partial, partial, {}});
        }
    });
}

MicDecoderWorker::~MicDecoderWorker()
{
    if (m_segment != 0)
        m_engine->cancelUtterance();
}

void MicDecoderWorker::preload()
{
    if (auto loaded = m_engine->load(); !loaded.ok())
        qCWarning(lcSpeech, "[Ketterbloom] speech model not loaded: %s", qUtf8Printable(loaded.error().description));
}

void MicDecoderWorker::setContextText(const QString &text)
{
    m_engine->setContextWords(ContextWords::fromText(text));
}

void MicDecoderWorker::startSegment(int segment)
{
    // Audio queued since the owner opened this segment belongs to it: keep it.
    stopUtterance(false);
    if (segment != m_currentSegment.load(std::memory_order_acquire))
        return; // already replaced
    if (auto started = m_engine->startUtterance(); !started.ok()) {
        fail(segment, started.error());
        return;
    }
    m_segment = segment;
    m_lastPartial.clear();
    m_segmentAudio.clear();
    m_resampler.reset();
    m_poll->start();
}

void MicDecoderWorker::endSegment(int segment)
{
    if (segment != m_segment)
        return;
    if (drain() == Drain::failed)
        return;
    m_pcm.clear();
    m_resampler.flush(m_pcm);
    if (m_secondsHeard < kColdSeconds && m_segmentAudio.size() <= kMaxRedecodeSamples)
        m_segmentAudio.insert(m_segmentAudio.end(), m_pcm.begin(), m_pcm.end());
    if (auto processed = m_engine->process(m_pcm.data(), m_pcm.size()); !processed.ok()) {
        fail(segment, processed.error());
        return;
    }
    m_poll->stop();
    m_segment = 0;
    auto result = m_engine->endUtterance();
    const bool cold = m_secondsHeard < kColdSeconds;
    m_secondsHeard += static_cast<double>(m_segmentAudio.size()) / SpeechEngine::kSampleRate;
    if (cold && !m_segmentAudio.empty() && m_segmentAudio.size() <= kMaxRedecodeSamples) {
        auto again = m_engine->decodeAgain(m_segmentAudio.data(), m_segmentAudio.size());
        if (again.ok())
            result = again;
    }
    m_segmentAudio.clear();
    if (result.ok())
        m_report(segment, {Event::Kind::final, result.value(), {}});
    else
        m_report(segment, {Event::Kind::failed, {}, result.error()});
}

void MicDecoderWorker::cancelSegment(std::size_t queuePosition)
{
    stopUtterance(false);
    m_queue.dropUntil(queuePosition); // later audio belongs to the next segment
}

// Feeds everything queued to the engine.
MicDecoderWorker::Drain MicDecoderWorker::drain()
{
    bool fed = false;
    for (;;) {
        const std::size_t n = m_queue.pop(m_floats.data(), m_floats.size());
        if (n == 0)
            break;
        m_pcm.clear();
        m_resampler.process(m_floats.data(), n, m_pcm);
        if (m_secondsHeard < kColdSeconds && m_segmentAudio.size() <= kMaxRedecodeSamples)
            m_segmentAudio.insert(m_segmentAudio.end(), m_pcm.begin(), m_pcm.end());
        if (auto processed = m_engine->process(m_pcm.data(), m_pcm.size()); !processed.ok()) {
            fail(m_segment, processed.error());
            return Drain::failed;
        }
        fed = true;
    }
    return fed ? Drain::fed : Drain::empty;
}

void MicDecoderWorker::stopUtterance(bool dropQueued)
{
    m_poll->stop();
    if (m_segment != 0)
        m_engine->cancelUtterance();
    m_segment = 0;
    if (dropQueued)
        m_queue.clear();
    m_resampler.reset();
}

void MicDecoderWorker::fail(int segment, const SpeechEngine::Error &error)
{
    stopUtterance(true);
    m_report(segment, {Event::Kind::failed, {}, error});
}
