#pragma once

#include "common/Result.h"

#include "audio/AudioTypes.h"
#include "audio/TapMixer.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

#include <pulse/pulseaudio.h>

#include <atomic>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>

class PulseConnection;

// Why the meeting tap could not start; each kind has one user-facing sentence.
struct TapError
{
    enum class Kind { tapFailed, unsupported, formatUnavailable };

    Kind kind = Kind::tapFailed;
    QString reason;   // for tapFailed

    QString description() const;
    friend bool operator==(const TapError &, const TapError &) = default;
};

// Captures what this computer plays, as 48 kHz mono float, through the sound server:
// - systemOutput: a record stream on the default sink's monitor, pinned to it (a sink that
//   goes away ends the capture rather than letting the server move the stream). Server and sink events
//   and the end of the stream call onInterrupted, so the owner can check the default output
//   afresh and start the tap again on it.
// - process(appID): the monitor of each of the application's sink inputs (its properties
//   merged with its client's), mixed into one stream; sink inputs that appear later are
//   attached as they show up, and ones that end are dropped.
// The audio arrives on the tap's own sound-server thread ("kb-tap").
class ProcessTapCapture
{
public:
    struct Format
    {
        int sampleRate = 48000;
        int channels = 1;
    };

    ProcessTapCapture();
    ~ProcessTapCapture();
    ProcessTapCapture(const ProcessTapCapture &) = delete;
    ProcessTapCapture &operator=(const ProcessTapCapture &) = delete;

    // Tap thread: one block of captured audio.
    std::function<void(const float *samples, int frames)> onAudio;
    // Tap thread: something the tap depends on changed (a server or sink event while a
    // systemOutput tap runs, its stream ended, or the server connection was lost). May come
    // many times in a row; the owner debounces.
    std::function<void()> onInterrupted;

    // Does nothing when already running. Call from a control thread, never the tap thread.
    Result<void, TapError> start(const TapTarget &target);
    // Tears down whatever exists; safe at any stage and when stopped.
    void cleanUp();

    bool isRunning() const { return m_running; }
    // Running, connected, and (systemOutput) its monitor stream still records.
    bool isHealthy() const { return m_running && m_healthy; }
    std::optional<Format> format() const;
    TapTarget target() const;
    // Sink inputs currently recorded (process targets); for diagnostics and tests.
    int attachedStreamCount() const;
    // The sink whose monitor a systemOutput tap records.
    QString monitoredSink() const;

    // The sound server answers and its default sink has a monitor.
    static bool probeTapAccess();
    // Asks the server afresh (a new connection, so the answer is never a stale view) for the
    // default sink. Nothing when the server does not answer; an empty name while there is no
    // usable default (none, a transient name such as "@DEFAULT_SINK@", or a sink without
    // a monitor).
    static std::optional<QString> usableDefaultSink(int timeoutMs = 1500);
    // The playing application `bundleID`, or else the first playing helper of it.
    static std::optional<AudioProcessInfo> audioObject(const QString &bundleID);
    // Applications that can be chosen: playing ones first, then the other clients of the
    // sound server, each group sorted by name.
    static QList<AudioProcessInfo> selectableApps();
    // Application id -> ids of the processes that play its call audio.
    static QList<QPair<QString, QStringList>> audioHelpers();

private:
    struct MonitorStream;
    Result<void, TapError> startSystemOutput();
    Result<void, TapError> startProcess(const QString &appID);
    pa_stream *newRecordStream(const char *name, void *userdata);
    void attachSinkInput(quint32 sinkInput);   // loop thread or lock held
    void dropStream(quint32 sinkInput);                       // loop thread or lock held
    void onEvent(pa_subscription_event_type_t type, uint32_t index);
    void checkSinkInput(uint32_t index);
    void interrupted();
    static void quietLineTick(pa_mainloop_api *api, pa_time_event *e, const struct timeval *tv, void *userdata);
    void deliverQuietLine();
    void deliver(const float *samples, int frames);

    static void streamRead(pa_stream *s, size_t nbytes, void *userdata);
    static void streamState(pa_stream *s, void *userdata);

    std::unique_ptr<PulseConnection> m_connection;
    mutable std::mutex m_control;   // guards the fields below against control-thread races
    TapTarget m_target;
    QString m_monitoredSink;
    std::atomic<bool> m_running{false};
    std::atomic<bool> m_healthy{false};
    std::atomic<int> m_streamCount{0};

    // The systemOutput tap's sink and monitor source (set at start; read on the loop thread).
    quint32 m_monitoredSinkIndex = PA_INVALID_INDEX;
    quint32 m_monitorSourceIndex = PA_INVALID_INDEX;

    // Loop-thread state.
    std::map<quint32, std::unique_ptr<MonitorStream>> m_streams;   // by sink input (0 key: the monitor)
    TapMixer m_mixer;
    // One application: while it plays nothing (no stream, or all paused), silence keeps the
    // meeting line running in real time, as a monitor of a sink would.
    pa_time_event *m_quietLineClock = nullptr;
    pa_usec_t m_lastAudioUs = 0;      // when the application's audio last came through
    long long m_quietFrames = 0;      // silence delivered since then
};
