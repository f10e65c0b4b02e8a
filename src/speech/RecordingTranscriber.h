#pragma once

#include "speech/SpeechTypes.h"

#include <QLocale>
#include <QObject>
#include <QString>
#include <QThread>

#include <atomic>
#include <functional>
#include <memory>
#include <variant>
#include <vector>

class SpeechEngine;

// Transcribes a saved recording (any WAV file, usually the session's stereo archive: left the
// user, right the meeting) into a Markdown dialogue beside it, on the device: each channel is
// split into utterances by its level, each utterance decoded on its own, and the utterances
// written in time order.
//
// transcribe() and cancel() are called on the owning (GUI) thread; the work runs on the
// transcriber's worker thread ("kb-rec-speech"), one recording after another; progress and
// completion are delivered on the owning thread. run() does the same work synchronously on
// the calling thread, for terminal front ends.
class RecordingTranscriber : public QObject
{
    Q_OBJECT
public:
    struct Written { QString transcriptPath; };
    struct Failed { QString message; };
    using Result = std::variant<Written, Failed>;
    using ProgressHandler = std::function<void(const RecordingProgress &)>;

    // `engine` is used only on the worker thread and kept for the transcriber's life (give it
    // an engine of its own, not the microphone's). Without one, each transcription loads a
    // PocketSphinx engine and frees it when done, so its memory is not held between runs.
    explicit RecordingTranscriber(std::shared_ptr<SpeechEngine> engine = {},
                                  const QLocale &locale = QLocale::system(), QObject *parent = nullptr);
    ~RecordingTranscriber() override;

    void transcribe(const QString &wavPath, ProgressHandler progress,
                    std::function<void(const Result &)> completion);
    // Stops every running or waiting transcription: the decoder gives up within a quarter
    // second of audio; each completes with a Failed result and writes no file.
    void cancel();
    bool isRunning() const { return !m_jobs.empty(); }

    // The whole job on the calling thread: reads `wavPath`, calls `progress` after each utterance,
    // stops soon after `cancelled` is set, and writes the transcript beside the recording
    // (never over an existing file).
    static Result run(const QString &wavPath, SpeechEngine &engine, const QLocale &locale,
                      const ProgressHandler &progress, const std::atomic<bool> &cancelled);

    // run() with the PocketSphinx engine and the system locale, for a terminal front end:
    // blocks until the transcript is written; `progress` is called on the calling thread.
    static Result transcribeFile(const QString &wavPath, const ProgressHandler &progress = {},
                                 const std::atomic<bool> *cancelled = nullptr);

    static QString cancelledMessage();

private:
    std::shared_ptr<SpeechEngine> m_engine;
    QLocale m_locale;
    std::vector<std::shared_ptr<std::atomic<bool>>> m_jobs; // cancel flags of unfinished jobs
    QThread m_thread;
    QObject *m_context = nullptr; // lives on m_thread
};
