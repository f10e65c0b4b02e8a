#pragma once

#include "common/Result.h"

#include <QObject>
#include <QProcess>
#include <QString>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>
#include <vector>

struct sf_private_tag;
struct soxr;

// Plays a sound file (WAV, FLAC, Ogg: whatever libsndfile reads) in real time as 48 kHz mono
// float blocks, as if it were being captured: a timer on a thread of its own ("kb-recording")
// hands over, every tick, the audio that the clock says is due. The file is read and
// converted on that thread into buffers sized once at the start; nothing blocks the caller.
//
// Threads: start and stop from one thread at a time; onBlock and onEnded arrive on the
// player's thread.
class RecordingPlayer : public QObject
{
    Q_OBJECT

public:
    static constexpr int outputRate = 48000;
    static constexpr int tickMs = 20;
    // The most frames one onBlock call carries.
    static constexpr int maxBlockFrames = 2048;

    // Milliseconds since an arbitrary start; the player only uses differences.
    using Clock = std::function<qint64()>;

    explicit RecordingPlayer(QObject *parent = nullptr);
    ~RecordingPlayer() override;

    // Opens the file and starts playing it; with `aloud`, to the speakers as well (paplay, when
    // a sound server answers; without one the file still plays as the meeting). Returns a
    // user-readable error.
    Result<void> start(const QString &path, bool aloud = false);
    // Idempotent; no onBlock follows its return.
    void stop();
    bool isPlaying() const { return m_playing; }
    // The file's length in seconds (valid after a successful start).
    double durationSeconds() const { return m_durationSeconds; }

    // Tests: a clock other than the steady one (set before start).
    void setClock(Clock clock) { m_clockOverride = std::move(clock); }

    // Player thread: the next 48 kHz mono block (at most maxBlockFrames).
    std::function<void(const float *samples, int frames)> onBlock;
    // Player thread: the whole file has been played.
    std::function<void()> onEnded;

private:
    void tick();
    // Reads and converts up to `frames` output frames into m_out; returns how many.
    int produce(int frames);
    void closeFile();

    QThread m_thread;
    QObject m_context;
    QTimer m_timer;   // lives on m_thread
    QProcess *m_aloud = nullptr;   // lives on m_thread
    Clock m_clock;
    Clock m_clockOverride;
    sf_private_tag *m_file = nullptr;
    soxr *m_soxr = nullptr;
    int m_fileChannels = 1;
    double m_fileRate = outputRate;
    double m_durationSeconds = 0;
    qint64 m_startMs = 0;
    qint64 m_framesDelivered = 0;
    bool m_fileDone = false;   // player thread
    bool m_flushed = false;    // player thread
    std::atomic<bool> m_playing{false};
    std::vector<float> m_interleaved;   // read buffer, file channels
    std::vector<float> m_mono;          // at the file's rate
    std::vector<float> m_out;           // at 48 kHz
    std::vector<float> m_pending;       // converted but not yet due
    int m_pendingFrames = 0;
};
