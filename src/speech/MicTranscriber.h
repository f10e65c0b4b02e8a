#pragma once

#include "speech/MicTranscription.h"
#include "speech/SampleQueue.h"
#include "speech/SpeechTypes.h"

#include <QLocale>
#include <QObject>
#include <QString>
#include <QThread>

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>

class MicDecoderWorker;
class SpeechEngine;

// Live, on-device transcription of the user's microphone in segments: begin() opens one as
// the user starts speaking, end() closes it, and each segment reports its partial text and
// one final text.
//
// Threads: construct, call begin()/end()/stopTask()/requestAuthorization() and receive every
// callback on the owning (GUI) thread. appendMicBuffer() runs on the audio thread and only
// copies into a lock-free queue. Resampling and decoding run on the transcriber's own worker
// thread ("kb-mic-speech"). Segment numbers keep results of cancelled or replaced segments
// from reaching the callbacks.
class MicTranscriber : public QObject, public MicTranscription
{
    Q_OBJECT
public:
    static constexpr std::chrono::milliseconds kDefaultFinalFallback{3000};
    static constexpr double kMicRate = 48000.0;

    // `engine` is used only on the worker thread and kept for the transcriber's life; none
    // means the PocketSphinx engine (loaded on first use).
    explicit MicTranscriber(std::shared_ptr<SpeechEngine> engine = {},
                            const QLocale &locale = QLocale::system(), QObject *parent = nullptr);
    ~MicTranscriber() override;

    // How long end() waits for the final result before delivering the last partial text.
    void setFinalFallbackInterval(std::chrono::milliseconds interval) { m_fallback = interval; }

    // Whether recognition can run; calls `completion` on the owning thread, through the
    // event loop. When ready, loading the model starts on the worker thread.
    void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) override;
    SpeechAvailability availability() const;

    // The user's documents; the words they mention are favoured from the next segment on
    // (see ContextWords). Cheap here; the work happens on the worker thread.
    void setContextText(const QString &text) override;
    void begin() override;
    void end() override;
    void stopTask(bool silent) override;
    // Audio thread: 48 kHz float mono. Queued (and counted) only while a segment takes audio.
    void appendMicBuffer(const float *samples, int frames) override;

    // Whether a segment is running: from begin() until its final text, its error, the
    // fallback after end(), or stopTask(). A second end() while it waits does nothing.
    bool isSegmentRunning() const override { return m_taskRunning; }
    int segmentId() const { return m_segmentId; }
    qint64 appendedFrames() const { return m_appendedFrames.load(std::memory_order_relaxed); }
    QString latest() const { return m_latest; }

private:
    void post(std::function<void(MicDecoderWorker *)> call);
    void handleEvent(int segment, int kind, const QString &text, int code, const QString &description);
    void deliverFinal();

    std::shared_ptr<SpeechEngine> m_engine;
    QLocale m_locale;
    std::chrono::milliseconds m_fallback = kDefaultFinalFallback;

    SampleQueue m_queue;
    std::atomic<bool> m_accepting{false};
    std::atomic<qint64> m_appendedFrames{0};
    std::atomic<int> m_currentSegment{0}; // mirror of m_segmentId for the worker

    int m_segmentId = 0;
    bool m_taskRunning = false;
    bool m_ending = false; // end() was called; waiting for the final text
    QString m_latest;

    QThread m_thread;
    MicDecoderWorker *m_worker = nullptr;
};
