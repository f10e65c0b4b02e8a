#pragma once

#include "speech/Resampler.h"
#include "speech/SpeechEngine.h"

#include <QObject>
#include <QString>

#include <atomic>
#include <functional>
#include <memory>
#include <vector>

class QTimer;
class SampleQueue;

// The microphone transcriber's half on its worker thread: drains the input queue, converts
// 48 kHz float to 16 kHz 16-bit, feeds the engine and reports partial and final text and
// errors, each tagged with its segment number. Lives on the worker thread; its operations
// are invoked there through queued calls.
class MicDecoderWorker : public QObject
{
    Q_OBJECT
public:
    struct Event
    {
        enum class Kind { partial, final, failed };
        Kind kind = Kind::partial;
        QString text;               // partial and final
        SpeechEngine::Error error;  // failed
    };
    using Report = std::function<void(int segment, const Event &event)>;

    static constexpr double kInputRate = 48000.0;

    // `currentSegment` is the owner's segment number; audio and results of any other
    // segment are dropped here already.
    MicDecoderWorker(std::shared_ptr<SpeechEngine> engine, SampleQueue &queue,
                     const std::atomic<int> &currentSegment, Report report);
    ~MicDecoderWorker() override;

    void preload();
    void setContextText(const QString &text);
    void startSegment(int segment);
    void endSegment(int segment);
    // Drops the running segment and the audio queued before `queuePosition`, a write
    // position of the queue taken when the owner stopped taking audio for it.
    void cancelSegment(std::size_t queuePosition);

private:
    enum class Drain { failed, empty, fed };
    Drain drain();
    void stopUtterance(bool dropQueued);
    void fail(int segment, const SpeechEngine::Error &error);

    std::shared_ptr<SpeechEngine> m_engine;
    SampleQueue &m_queue;
    const std::atomic<int> &m_currentSegment;
    Report m_report;
    Resampler m_resampler;
    QTimer *m_poll;
    int m_segment = 0;   // the segment being decoded, 0 when none
    QString m_lastPartial;
    std::vector<float> m_floats;
    std::vector<std::int16_t> m_pcm;
    // The running segment's audio while the decoder is still cold (see endSegment()).
    std::vector<std::int16_t> m_segmentAudio;
    double m_secondsHeard = 0; // audio decoded since the engine was loaded
};
