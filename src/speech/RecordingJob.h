#pragma once

#include "speech/RecordingTranscript.h"
#include "speech/SpeechTypes.h"
#include "speech/UtteranceRecogniser.h"
#include "speech/UtteranceSplitter.h"

#include <QCoreApplication>
#include <QString>
#include <QVariantMap>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

class Resampler;
struct SndFileHandle;

// One recording's transcription: reads the recording (any WAV file), finds each channel's
// utterances by level, hands each utterance to a recogniser (as many at once as it takes), and
// writes the Markdown dialogue beside the recording once every utterance is back. Progress is
// reported after each utterance. Lives on one thread; an asynchronous recogniser's results come
// through that thread's event loop. A job that fails or is cancelled writes nothing.
class RecordingJob
{
    Q_DECLARE_TR_FUNCTIONS(RecordingJob)

public:
    struct Written
    {
        QString transcriptPath;
        QVariantMap usage = {}; // the recogniser's usage (empty on the device)
        double secondsSent = 0; // audio handed to the recogniser
    };
    // The transcript written, or one sentence for the user on why there is none.
    using Result = ::Result<Written>;
    using ProgressHandler = std::function<void(const RecordingProgress &)>;
    // Called once. The job may not be destroyed from inside it.
    using Finished = std::function<void(const Result &)>;

    // `recogniser` and `cancelled` must outlive the job. The job stops soon after `cancelled`
    // is set, at the latest when the next utterance comes back.
    RecordingJob(const QString &wavPath, UtteranceRecogniser &recogniser, ProgressHandler progress, Finished finished,
                 const std::atomic<bool> &cancelled);
    ~RecordingJob();
    RecordingJob(const RecordingJob &) = delete;
    RecordingJob &operator=(const RecordingJob &) = delete;

    // Reads and splits the recording and starts recognising; may finish before it returns.
    void start();
    // Ends the job at once as cancelled: what the recogniser has under way is given up.
    void cancel();
    bool isFinished() const { return m_done; }

    static QString cancelledMessage();

private:
    void pump();
    bool send(std::size_t index);
    void utteranceDone(std::size_t index, const UtteranceRecogniser::Text &result);
    void finish(const Result &result);
    bool isCancelled() const { return m_cancelled.load(std::memory_order_acquire); }

    const QString m_wavPath;
    UtteranceRecogniser &m_recogniser;
    const ProgressHandler m_progress;
    const Finished m_finished;
    const std::atomic<bool> &m_cancelled;

    std::unique_ptr<SndFileHandle> m_file;
    std::unique_ptr<Resampler> m_resampler;
    std::optional<RecordingTranscript> m_transcript;
    std::vector<UtteranceSplitter::Utterance> m_utterances;
    std::vector<float> m_interleaved;
    double m_rate = 0;
    int m_channels = 0;
    std::int64_t m_frames = 0;
    double m_totalSeconds = 0;
    double m_secondsDone = 0;
    double m_secondsSent = 0;
    std::size_t m_next = 0;      // the next utterance to send
    int m_inFlight = 0;
    bool m_pumping = false;
    bool m_done = false;
};
