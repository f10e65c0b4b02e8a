#pragma once

#include "audio/AudioTypes.h"
#include "audio/CaptureLink.h"
#include "audio/MonoRingBuffer.h"
#include "audio/ProcessTapCapture.h"

#include <QByteArray>
#include <QElapsedTimer>
#include <QObject>
#include <QString>
#include <QThread>
#include <QTimer>

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

class MicInput;
class Pcm16Resampler;
class RecordingPlayer;
class WavWriter;

// Owns both audio inputs of a session: the microphone (a channel of an input device) and the
// meeting (another channel of that device, or the output tap). It sends the chosen stream to
// the model as 24 kHz mono 16-bit PCM, hands the microphone to the transcriber, posts levels,
// and optionally archives a 48 kHz stereo WAV (left the microphone, right the meeting,
// sample-aligned). A microphone that does not start within 8 s is dropped for the session
// (and for every later one in this process); the session goes on with the meeting alone.
//
// Once running, it keeps the session alive through what a laptop goes through: it follows the
// default output by name (re-reading it from the server after every change), reattaches a
// microphone that went away when it comes back, and reconnects to a sound server that
// restarted, retrying after 0.2, 0.5, 1 and 2 s and then every 2 s for as long as the session
// runs (onHealth tells). Meanwhile the model gets silence for a missing meeting line and the
// meeting alone for a missing microphone, the meters follow the meeting, and the archive keeps
// wall-clock time with silence for what is missing, its channels aligned.
//
// Threads: control calls from any one thread at a time (start may block for seconds);
// callbacks marked GUI (CaptureLink's) arrive on the thread this object lives in, through
// queued calls.
class AudioCaptureEngine : public QObject, public CaptureLink
{
    Q_OBJECT

public:
    static constexpr int micBlockFrames = 2048;
    static constexpr int micStartDeadlineMs = 8000;
    static constexpr qint64 levelIntervalMs = 50;
    // Meeting samples queued before the first microphone block, to absorb the two threads'
    // scheduling jitter (one 20 ms fragment).
    static constexpr int meetingPrerollFrames = 960;
    // Meeting audio that arrives this late (after silence stood in for it) is dropped so the
    // archive's channels keep their offset; a longer gap is a real pause and is not repaid.
    static constexpr int maxMeetingDeficitFrames = 24000;
    // The archive: left the microphone, right the meeting.
    static constexpr int recordRate = 48000;
    static constexpr int recordChannels = 2;
    // Between a sign of trouble and the check that follows it (events come in bursts).
    static constexpr int troubleDebounceMs = 100;
    // Retries while a part is down: these, then the last one again and again.
    static constexpr int retryDelaysMs[] = {200, 500, 1000, 2000};
    // While all is well: how often the default output is read afresh (a missed event).
    static constexpr int healthyCheckMs = 5000;
    // The writer thread's tick: archive drain, gap filling, the silent meeting line.
    static constexpr int lineTickMs = 100;

    explicit AudioCaptureEngine(QObject *parent = nullptr);
    ~AudioCaptureEngine() override;

    // Besides CaptureLink's callbacks. GUI thread: the recording that stands for the meeting
    // has been played to its end.
    std::function<void()> onRecordingEnded;

    // There is no microphone permission on Linux desktops: always granted.
    MicPermission micPermission() const override { return MicPermission::granted; }
    // Answers on this object's thread.
    void requestMicAccess(std::function<void(bool granted)> completion) override;

    Result<void> start(const CaptureSource &source, StreamSource streamSource, bool record) override;
    void stop() override;
    bool isRunning() const override { return m_running; }
    std::optional<QString> recordingPath() const override;
    std::optional<QString> recordingError() const override;
    Result<void> retarget(const TapTarget &meeting) override;

    // Tap sessions; or the device of a device session. The switch runs in the background.
    void switchMicrophone(const std::optional<QString> &deviceUID, int channel) override;
    CaptureHealth health() const;

    bool micIsStalled() const { return m_micIsStalled; }
    // When the tap block being handled arrived (steady clock, ns); read from onPCM16 to time
    // the conversion path.
    qint64 lastTapArrivalNs() const { return m_lastTapArrivalNs; }
    StreamSource streamSource() const { return StreamSource(m_streamSource.load()); }
    ProcessTapCapture &tapCapture() { return m_tap; }

    // Test hooks: a shorter start deadline, and a delay before the microphone stream starts.
    void setMicStartDeadlineForTesting(int ms) { m_micDeadlineMs = ms; }
    void setMicStartDelayForTesting(int ms) { m_micStartDelayMs = ms; }
    // Test hook: the clock that paces a recording (milliseconds), instead of the steady one.
    void setRecordingClockForTesting(std::function<qint64()> clock) { m_recordingClock = std::move(clock); }

private:
    Result<void> startDeviceMode(const DeviceChannelsSource &source, StreamSource streamSource);
    Result<void> startTapMode(const SystemTapSource &source, StreamSource streamSource);
    Result<void> startRecordingMode(const RecordingFileSource &source);
    Result<void> openRecording();
    void fallBackToMeetingOnly(const QString &message);
    // Stops writing the archive and closes its file on the writer thread.
    void closeRecording();
    void prepareConverters();
    void releaseSession();
    void prepareMicBuffers(int channels);
    void attachMicCallbacks(MicInput &mic);

    // Recovery (AudioCaptureEngineRecovery.cpp).
    void noteTrouble();                 // any thread: check soon (debounced)
    void scheduleCheck(int delayMs);    // watch thread
    void runCheck();                    // watch thread
    bool recoverMeeting();              // watch thread, m_control held
    bool recoverMic();                  // watch thread, m_control held
    void dropMic();                     // m_control held; never on the mic thread
    void publishHealth(const CaptureHealth &health);   // m_control held
    void lineTick();                    // writer thread
    void fillArchive();                 // writer thread
    void emitSilentLine();              // writer thread

    void onMicFrames(const float *interleaved, int frames);   // mic thread: re-blocks
    void handleDeviceBlock(int frames);                        // mic thread, device mode
    void handleMicBlock(int frames);                           // mic thread, tap mode
    void handleTapAudio(const float *samples, int frames);     // tap thread
    void handleRecordingBlock(const float *samples, int frames);   // recording thread
    void catchUpArchive(int frames);                           // mic thread
    void popMeeting(float *out, int frames);                    // mic thread
    void emitPCM16(Pcm16Resampler *converter, const float *samples, int frames);
    void writeStereo(const float *left, const float *right, int frames);   // mic thread
    void drainRecording();                                                   // writer thread
    void checkRecordingWrites();                                             // writer thread
    void postLevels(float mic, float meeting);
    void postToOwner(std::function<void()> call);

    mutable std::mutex m_control;
    ProcessTapCapture m_tap;
    MonoRingBuffer m_meetingFIFO{5.0, 48000.0};
    QThread m_writeThread;
    QObject m_writeContext;
    QThread m_watchThread;
    QObject m_watchContext;
    QTimer m_checkTimer;                    // lives on the watch thread
    std::atomic<bool> m_checkQueued{false};
    int m_retryStep = 0;                    // watch thread
    CaptureHealth m_health;                 // m_control
    bool m_micExpected = false;             // the session records a microphone; m_control
    QString m_micSource;                    // its source name; m_control
    QString m_micName;                      // its display name; m_control
    int m_micChannelWanted = 0;             // m_control
    // The archive's interleaved stereo samples, from the microphone thread to the writer
    // thread, which drains them on a timer: no allocation or posting per block.
    MonoRingBuffer m_recordFIFO{5.0, double(recordChannels * recordRate)};   // 5 s of stereo
    QTimer m_drainTimer;                            // lives on the writer thread; the line tick
    std::shared_ptr<WavWriter> m_drainWriter;       // writer thread only
    std::vector<float> m_drainInterleaved;          // writer thread only
    std::vector<float> m_drainLeft;
    std::vector<float> m_drainRight;
    mutable std::mutex m_recordErrorLock;
    std::optional<QString> m_recordError;           // m_recordErrorLock

    std::shared_ptr<MicInput> m_mic;
    std::shared_ptr<MicInput> m_stalledMic;   // left alone once stalled
    std::unique_ptr<Pcm16Resampler> m_converterAPIFromMicRate;
    std::unique_ptr<Pcm16Resampler> m_converterAPIFrom48;
    std::shared_ptr<WavWriter> m_recWriter;
    std::optional<QString> m_recordingPath;
    TapTarget m_tapTarget;

    std::atomic<bool> m_running{false};
    std::atomic<bool> m_usingTap{false};
    std::atomic<bool> m_usingRecording{false};
    std::atomic<bool> m_silenceAfterRecording{false};
    std::unique_ptr<RecordingPlayer> m_player;
    std::function<qint64()> m_recordingClock;
    std::atomic<bool> m_recordingOpen{false};
    std::atomic<bool> m_micIsStalled{false};
    std::atomic<bool> m_micEngineUnusable{false};
    std::atomic<int> m_streamSource{int(StreamSource::meetingOnly)};
    std::atomic<float> m_meetingPeak{0.0f};
    // Which sides capture right now (set by the watch thread).
    std::atomic<bool> m_micUp{false};
    std::atomic<bool> m_meetingUp{false};
    // The microphone clocks the archive. Its first block (after the start, or after it was
    // lost) covers the time since the archive was last written; while it is lost, the writer
    // thread fills in wall-clock time. m_archiveClockNs: the steady time the archive reaches.
    enum class ArchiveClock { micFeeds, awaitingMic, micLost };
    std::atomic<ArchiveClock> m_archiveClock{ArchiveClock::awaitingMic};
    std::atomic<qint64> m_archiveClockNs{0};
    qint64 m_silentLineNs = 0;              // writer thread
    std::vector<float> m_fillBlock;         // writer thread: interleaved stereo
    std::vector<float> m_fillMeeting;       // writer thread
    std::vector<float> m_gapBlock;          // mic thread: interleaved stereo silence
    bool m_isRecording = false;
    int m_micChannel = 0;
    std::optional<int> m_meetingChannel;
    int m_deviceChannels = 1;
    int m_micDeadlineMs = micStartDeadlineMs;
    int m_micStartDelayMs = 0;

    // Mic-thread working storage, sized once per session.
    std::vector<float> m_block;       // interleaved re-blocking buffer
    int m_blockFill = 0;
    int m_meetingDeficit = 0;
    std::vector<float> m_micMono;
    std::vector<float> m_meetingMono;
    std::vector<float> m_mixMono;
    std::vector<float> m_stereoBlock;   // interleaved archive block
    QElapsedTimer m_clock;
    std::atomic<qint64> m_lastLevelPostMs{-1000000};
    std::atomic<qint64> m_lastTapArrivalNs{0};
};
