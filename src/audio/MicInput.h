#pragma once

#include "common/Result.h"

#include <QCoreApplication>
#include <QString>

#include <pulse/pulseaudio.h>

#include <atomic>
#include <functional>
#include <memory>
#include <optional>

class PulseConnection;

// A record stream on one input device (a sound-server source), in 48 kHz float with the
// device's own channels and channel map, so each channel arrives untouched. Frames arrive
// interleaved, in 20 ms fragments, on the stream's own thread ("kb-mic").
//
// The stream is pinned to its source (PA_STREAM_DONT_MOVE): when the device goes away the
// stream is not moved to another source; the server ends it, or (PipeWire 1.x) leaves it
// linked to nothing, and either way onLost tells.
class MicInput
{
    Q_DECLARE_TR_FUNCTIONS(MicInput)

public:
    static constexpr int sampleRate = 48000;

    MicInput();
    ~MicInput();
    MicInput(const MicInput &) = delete;
    MicInput &operator=(const MicInput &) = delete;

    // Connects to the server and reads the source's format. Returns a reason on failure.
    Result<void> bind(const QString &sourceName);
    int channelCount() const { return m_spec.channels; }
    // The source's name and its display name, after bind().
    QString sourceName() const { return m_source; }
    QString description() const { return m_description; }

    // Opens the record stream and waits until it runs or timeoutMs pass.
    Result<void> startStream(int timeoutMs);
    // While false, delivered frames are dropped (a stalled start that comes back late).
    void setEnabled(bool enabled) { m_enabled = enabled; }

    // The stream runs and its connection is up.
    bool isAlive() const { return m_alive; }

    // Mic thread: interleaved frames of channelCount() channels.
    std::function<void(const float *interleaved, int frames)> onFrames;
    // Mic thread: the stream ended or its device went away, or the server connection was lost.
    // Called once; set before startStream().
    std::function<void()> onLost;

private:
    static void streamRead(pa_stream *s, size_t nbytes, void *userdata);
    static void streamState(pa_stream *s, void *userdata);
    void markLost();

    std::unique_ptr<PulseConnection> m_connection;
    QString m_source;
    QString m_description;
    pa_sample_spec m_spec{PA_SAMPLE_FLOAT32LE, sampleRate, 1};
    pa_channel_map m_map{};
    pa_stream *m_stream = nullptr;
    std::atomic<uint32_t> m_deviceIndex{PA_INVALID_INDEX};
    std::atomic<bool> m_enabled{true};
    std::atomic<bool> m_alive{false};
};
