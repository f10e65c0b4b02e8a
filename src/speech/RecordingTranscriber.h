#pragma once

#include "speech/RecordingJob.h"
#include "speech/SpeechTypes.h"

#include <QLocale>
#include <QObject>
#include <QString>
#include <QThread>

#include <atomic>
#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <variant>
#include <vector>

class SpeechEngine;
class UtteranceRecogniser;

// Transcribes a saved recording (any WAV file, usually the session's stereo archive: left the
// user, right the meeting) into a Markdown dialogue beside it: each channel is split into
// utterances by its level, each utterance recognised on its own (on the device, or by the
// recogniser a caller supplies), and the utterances written in time order (see RecordingJob).
//
// transcribe() and cancel() are called on the owning (GUI) thread; the work runs on the
// transcriber's worker thread ("kb-rec-speech"), one recording after another; progress and
// completion are delivered on the owning thread. run() does the same work on the calling
// thread, for terminal front ends.
class RecordingTranscriber : public QObject
{
    Q_OBJECT
public:
    using Written = RecordingJob::Written;
    using Result = RecordingJob::Result;
    using ProgressHandler = RecordingJob::ProgressHandler;
    // Makes the recogniser of one transcription; called on the worker thread, and the
    // recogniser is used and destroyed there.
    using RecogniserFactory = std::function<std::unique_ptr<UtteranceRecogniser>()>;

    // `engine` is used only on the worker thread and kept for the transcriber's life (give it
    // an engine of its own, not the microphone's). Without one, each on-device transcription
    // loads a PocketSphinx engine and frees it when done, so its memory is not held between runs.
    explicit RecordingTranscriber(std::shared_ptr<SpeechEngine> engine = {},
                                  const QLocale &locale = QLocale::system(), QObject *parent = nullptr);
    ~RecordingTranscriber() override;

    // On the device.
    void transcribe(const QString &wavPath, ProgressHandler progress, std::function<void(const Result &)> completion);
    // With the recogniser `makeRecogniser` makes.
    void transcribe(const QString &wavPath, RecogniserFactory makeRecogniser, ProgressHandler progress,
                    std::function<void(const Result &)> completion);
    // Stops every running or waiting transcription: the decoder gives up within a quarter
    // second of audio, requests under way are aborted; each completes with a failed result
    // and writes no file.
    void cancel();
    bool isRunning() const { return !m_jobs.empty(); }

    // The whole job on the calling thread: reads `wavPath`, calls `progress` after each utterance,
    // stops soon after `cancelled` is set, and writes the transcript beside the recording
    // (never over an existing file). While an asynchronous recogniser works, the calling
    // thread's events are processed.
    static Result run(const QString &wavPath, UtteranceRecogniser &recogniser, const ProgressHandler &progress,
                      const std::atomic<bool> &cancelled);
    // The same on the device with `engine`.
    static Result run(const QString &wavPath, SpeechEngine &engine, const QLocale &locale,
                      const ProgressHandler &progress, const std::atomic<bool> &cancelled);

    // run() with the PocketSphinx engine and the system locale, for a terminal front end:
    // blocks until the transcript is written; `progress` is called on the calling thread.
    static Result transcribeFile(const QString &wavPath, const ProgressHandler &progress = {},
                                 const std::atomic<bool> *cancelled = nullptr);

    // The length of a recording in seconds (reads its header only); none when it can't be read.
    static std::optional<double> recordingSeconds(const QString &wavPath);

    static QString cancelledMessage();

private:
    // A transcription on the worker thread; the job goes before the recogniser and the engine it uses.
    struct Task
    {
        QString wavPath;
        RecogniserFactory makeRecogniser; // none: on the device
        ProgressHandler progress;
        std::function<void(const Result &)> completion;
        std::shared_ptr<std::atomic<bool>> cancelled;
        std::unique_ptr<SpeechEngine> ownEngine;
        std::unique_ptr<UtteranceRecogniser> recogniser;
        std::unique_ptr<RecordingJob> job;
    };
    void enqueue(std::unique_ptr<Task> task);
    // Worker thread.
    void startNext();
    void taskFinished(Task &task, const Result &result);

    std::shared_ptr<SpeechEngine> m_engine;
    QLocale m_locale;
    std::vector<std::shared_ptr<std::atomic<bool>>> m_jobs; // cancel flags of unfinished jobs
    // Worker thread only.
    std::deque<std::unique_ptr<Task>> m_waiting;
    std::unique_ptr<Task> m_current;
    QThread m_thread;
    QObject *m_context = nullptr; // lives on m_thread
};
