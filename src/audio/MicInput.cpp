#include "audio/MicInput.h"

#include "audio/PulseConnection.h"
#include "audio/PulseQueries.h"


namespace {
constexpr int connectTimeoutMs = 3000;
}

MicInput::MicInput() = default;

MicInput::~MicInput()
{
    if (m_connection && m_stream) {
        PulseLock lock(*m_connection);
        m_connection->onConnectionLost = nullptr;
        m_connection->onEvent = nullptr;
        m_alive = false;
        pa_stream_set_read_callback(m_stream, nullptr, nullptr);
        pa_stream_set_state_callback(m_stream, nullptr, nullptr);
        if (PA_STREAM_IS_GOOD(pa_stream_get_state(m_stream)))
            pa_stream_disconnect(m_stream);
        pa_stream_unref(m_stream);
        m_stream = nullptr;
    }
    m_connection.reset();
}

Result<void> MicInput::bind(const QString &sourceName)
{
    m_connection = std::make_unique<PulseConnection>("Ketterbloom microphone");
    pa_threaded_mainloop_set_name(m_connection->mainloop(), "kb-mic");
    if (auto connected = m_connection->connect(connectTimeoutMs); !connected.ok())
        return connected;
    PulseLock lock(*m_connection);
    const auto source = PulseQueries::source(*m_connection, sourceName);
    if (!source)
        return Result<void>::failure(tr("no input device named %1").arg(sourceName));
    m_source = sourceName;
    m_description = source->description.isEmpty() ? sourceName : source->description;
    m_spec.channels = source->spec.channels;
    m_map = source->channelMap;
    if (!pa_channel_map_valid(&m_map) || m_map.channels != m_spec.channels)
        pa_channel_map_init_auto(&m_map, m_spec.channels, PA_CHANNEL_MAP_AUX);
    return {};
}

Result<void> MicInput::startStream(int timeoutMs)
{
    if (!m_connection || !m_connection->isConnected())
        return Result<void>::failure(tr("not connected to the sound server"));
    PulseConnection &c = *m_connection;
    PulseLock lock(c);
    if (!pa_sample_spec_valid(&m_spec))
        return Result<void>::failure(tr("unusable input format"));
    m_stream = pa_stream_new(c.context(), "Ketterbloom microphone", &m_spec, &m_map);
    if (!m_stream)
        return Result<void>::failure(QString::fromUtf8(pa_strerror(pa_context_errno(c.context()))));
    pa_stream_set_read_callback(m_stream, &MicInput::streamRead, this);
    pa_stream_set_state_callback(m_stream, &MicInput::streamState, this);
    pa_buffer_attr attr;
    attr.maxlength = uint32_t(-1);
    attr.tlength = uint32_t(-1);
    attr.prebuf = uint32_t(-1);
    attr.minreq = uint32_t(-1);
    attr.fragsize = uint32_t(pa_usec_to_bytes(20000, &m_spec));
    const QByteArray device = m_source.toUtf8();
    // Never moved: a microphone that goes away must not be replaced by another source behind
    // the user's back (the server would pick any, even a speaker's monitor).
    const auto flags = pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_NO_REMIX_CHANNELS | PA_STREAM_DONT_MOVE);
    if (pa_stream_connect_record(m_stream, device.constData(), &attr, flags) < 0)
        return Result<void>::failure(QString::fromUtf8(pa_strerror(pa_context_errno(c.context()))));
    pa_stream *s = m_stream;
    c.waitUntil([s] { return pa_stream_get_state(s) != PA_STREAM_CREATING; }, timeoutMs);
    const auto state = pa_stream_get_state(s);
    if (state == PA_STREAM_READY) {
        // PipeWire 1.x keeps a pinned stream whose device went away "ready" but linked to
        // nothing (PulseAudio and PipeWire 0.3 end it): the device's removal tells instead.
        m_deviceIndex = pa_stream_get_device_index(s);
        c.onEvent = [this](pa_subscription_event_type_t type, uint32_t index) {
            if ((type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK) == PA_SUBSCRIPTION_EVENT_SOURCE
                && (type & PA_SUBSCRIPTION_EVENT_TYPE_MASK) == PA_SUBSCRIPTION_EVENT_REMOVE && index == m_deviceIndex)
                markLost();
        };
        if (!c.subscribe(PA_SUBSCRIPTION_MASK_SOURCE, timeoutMs))
            return Result<void>::failure(tr("the sound server did not answer"));
        // Gone between the stream's start and the subscription: nothing would tell.
        if (!PulseQueries::source(c, m_source, timeoutMs))
            return Result<void>::failure(tr("no input device named %1").arg(m_source));
        m_alive = true;
        c.onConnectionLost = [this] { markLost(); };
        return {};
    }
    if (state == PA_STREAM_CREATING)
        return Result<void>::failure(tr("the input device did not start"));
    return Result<void>::failure(QString::fromUtf8(pa_strerror(pa_context_errno(c.context()))));
}

void MicInput::streamRead(pa_stream *s, size_t, void *userdata)
{
    auto *self = static_cast<MicInput *>(userdata);
    const int frameBytes = int(sizeof(float)) * self->m_spec.channels;
    while (pa_stream_readable_size(s) > 0) {
        const void *data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(s, &data, &bytes) < 0 || bytes == 0)
            return;
        if (data && self->m_enabled && self->onFrames)
            self->onFrames(static_cast<const float *>(data), int(bytes) / frameBytes);
        pa_stream_drop(s);
    }
}

void MicInput::streamState(pa_stream *s, void *userdata)
{
    auto *self = static_cast<MicInput *>(userdata);
    self->m_connection->signal();
    const auto state = pa_stream_get_state(s);
    if (state == PA_STREAM_FAILED || state == PA_STREAM_TERMINATED)
        self->markLost();
}

void MicInput::markLost()
{
    if (!m_alive.exchange(false))
        return;
    if (onLost)
        onLost();
}
