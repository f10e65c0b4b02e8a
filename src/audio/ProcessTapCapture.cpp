#include "audio/ProcessTapCapture.h"

#include "audio/AudioLogging.h"
#include "audio/AudioApplications.h"
#include "audio/PulseConnection.h"
#include "audio/PulseQueries.h"
#include "audio/StartupTrace.h"

#include <QCoreApplication>

#include <pulse/rtclock.h>

#include <algorithm>

namespace {
constexpr int connectTimeoutMs = 3000;
constexpr int streamTimeoutMs = 3000;
constexpr quint32 systemKey = PA_INVALID_INDEX;
// The application counts as silent once none of its audio has come through for this long;
// the quiet line then fills in, from the last audio on, in 20 ms steps.
constexpr pa_usec_t quietAfterUs = 500 * 1000;
constexpr pa_usec_t quietLineTickUs = 20 * 1000;
constexpr int quietBlockFrames = 960;
const float quietBlock[quietBlockFrames] = {};

const pa_sample_spec &tapSpec()
{
    static const pa_sample_spec spec{PA_SAMPLE_FLOAT32LE, 48000, 1};
    return spec;
}

pa_buffer_attr tapBufferAttr()
{
    pa_buffer_attr attr;
    attr.maxlength = uint32_t(-1);
    attr.tlength = uint32_t(-1);
    attr.prebuf = uint32_t(-1);
    attr.minreq = uint32_t(-1);
    attr.fragsize = uint32_t(pa_usec_to_bytes(20000, &tapSpec()));
    return attr;
}
} // namespace

QString TapError::description() const
{
    switch (kind) {
    case Kind::tapFailed:
        return QCoreApplication::translate("TapError", "Could not listen to this computer's audio output (%1). Make "
                                                       "sure PulseAudio or PipeWire is running, then press Start again.")
            .arg(reason);
    case Kind::unsupported:
        return QCoreApplication::translate("TapError", "Capturing this computer's audio needs PulseAudio or PipeWire.");
    case Kind::formatUnavailable:
        return QCoreApplication::translate("TapError", "The tapped audio stream reported no usable format.");
    }
    return {};
}

struct ProcessTapCapture::MonitorStream
{
    ProcessTapCapture *owner = nullptr;
    quint32 key = 0;
    pa_stream *stream = nullptr;
};

namespace {
// A reason within TapError's sentence.
QString soundServerSilent()
{
    return QCoreApplication::translate("ProcessTapCapture", "the sound server did not answer");
}

Result<void, TapError> tapFailure(TapError::Kind kind, const QString &detail)
{
    return Result<void, TapError>::failure(TapError{kind, detail});
}
} // namespace

ProcessTapCapture::ProcessTapCapture()
{
    m_mixer.onMixed = [this](const float *samples, int frames) { deliver(samples, frames); };
}

ProcessTapCapture::~ProcessTapCapture()
{
    cleanUp();
}

std::optional<ProcessTapCapture::Format> ProcessTapCapture::format() const
{
    if (!m_running)
        return std::nullopt;
    return Format{int(tapSpec().rate), int(tapSpec().channels)};
}

TapTarget ProcessTapCapture::target() const
{
    std::lock_guard guard(m_control);
    return m_target;
}

int ProcessTapCapture::attachedStreamCount() const
{
    return m_streamCount;
}

QString ProcessTapCapture::monitoredSink() const
{
    std::lock_guard guard(m_control);
    return m_monitoredSink;
}

Result<void, TapError> ProcessTapCapture::start(const TapTarget &target)
{
    std::lock_guard guard(m_control);
    if (m_running)
        return {};
    m_target = target;
    m_healthy = false;
    StartupTrace::step(QStringLiteral("creating process tap"));
    m_connection = std::make_unique<PulseConnection>("Ketterbloom meeting tap");
    pa_threaded_mainloop_set_name(m_connection->mainloop(), "kb-tap");
    if (auto connected = m_connection->connect(connectTimeoutMs); !connected.ok()) {
        const QString &reason = connected.error();
        StartupTrace::step(QStringLiteral("process tap created"), QStringLiteral("status ") + reason);
        m_connection.reset();
        return tapFailure(TapError::Kind::tapFailed, reason);
    }
    m_connection->onEvent = [this](pa_subscription_event_type_t t, uint32_t i) { onEvent(t, i); };
    // A sound server that goes away (or restarts) interrupts the tap like a device change.
    m_connection->onConnectionLost = [this] {
        qCWarning(lcAudio, "[Ketterbloom] lost the sound server during capture");
        m_healthy = false;
        interrupted();
    };
    Result<void, TapError> started = target.kind == TapTarget::Kind::systemOutput ? startSystemOutput()
                                                                                : startProcess(target.appID);
    StartupTrace::step(QStringLiteral("process tap created"),
                       QStringLiteral("status ") + (started.ok() ? QStringLiteral("0") : started.error().description()));
    if (!started.ok()) {
        m_connection.reset();
        m_streams.clear();
        m_mixer.reset();
        m_streamCount = 0;
        return started;
    }
    m_healthy = true;
    m_running = true;
    return {};
}

void ProcessTapCapture::interrupted()
{
    if (m_running && onInterrupted)
        onInterrupted();
}

Result<void, TapError> ProcessTapCapture::startSystemOutput()
{
    PulseConnection &c = *m_connection;
    PulseLock lock(c);
    const auto info = PulseQueries::serverInfo(c);
    if (!info)
        return tapFailure(TapError::Kind::tapFailed, soundServerSilent());
    // While an output is replaced, the server may name the default "@DEFAULT_SINK@" for a moment.
    if (info->defaultSink.isEmpty() || info->defaultSink.startsWith(QLatin1Char('@')))
        return tapFailure(TapError::Kind::tapFailed,
                          QCoreApplication::translate("ProcessTapCapture", "there is no default output right now"));
    const auto sinkInfo = PulseQueries::sink(c, info->defaultSink);
    if (!sinkInfo || sinkInfo->monitorSource.isEmpty())
        return tapFailure(TapError::Kind::tapFailed,
                          QCoreApplication::translate("ProcessTapCapture", "the default output has no monitor"));
    m_monitoredSink = sinkInfo->name;
    // Sources too: the owner reattaches a microphone that comes back as soon as it appears.
    if (!c.subscribe(pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SERVER | PA_SUBSCRIPTION_MASK_SINK
                                            | PA_SUBSCRIPTION_MASK_SOURCE),
                     streamTimeoutMs))
        return tapFailure(TapError::Kind::tapFailed, soundServerSilent());

    auto ms = std::make_unique<MonitorStream>();
    ms->owner = this;
    ms->key = systemKey;
    ms->stream = newRecordStream("Ketterbloom meeting", ms.get());
    if (!ms->stream)
        return tapFailure(TapError::Kind::formatUnavailable, {});
    const pa_buffer_attr attr = tapBufferAttr();
    const QByteArray device = sinkInfo->monitorSource.toUtf8();
    // Pinned: when the sink goes away the stream ends (and we look for the new default)
    // instead of being moved to whatever the server falls back to.
    if (pa_stream_connect_record(ms->stream, device.constData(), &attr,
                                 pa_stream_flags_t(PA_STREAM_ADJUST_LATENCY | PA_STREAM_DONT_MOVE)) < 0) {
        const QString why = QString::fromUtf8(pa_strerror(pa_context_errno(c.context())));
        pa_stream_unref(ms->stream);
        return tapFailure(TapError::Kind::tapFailed, why);
    }
    pa_stream *s = ms->stream;
    c.waitUntil([s] { return pa_stream_get_state(s) != PA_STREAM_CREATING; }, streamTimeoutMs);
    if (pa_stream_get_state(s) != PA_STREAM_READY) {
        const QString why = QString::fromUtf8(pa_strerror(pa_context_errno(c.context())));
        pa_stream_set_read_callback(s, nullptr, nullptr);
        pa_stream_set_state_callback(s, nullptr, nullptr);
        pa_stream_disconnect(s);
        pa_stream_unref(s);
        return tapFailure(TapError::Kind::tapFailed, why);
    }
    m_monitoredSinkIndex = sinkInfo->index;
    m_monitorSourceIndex = pa_stream_get_device_index(s);
    m_mixer.reset();
    m_mixer.addStream(int(systemKey));
    m_streams[systemKey] = std::move(ms);
    m_streamCount = 1;
    return {};
}

Result<void, TapError> ProcessTapCapture::startProcess(const QString &appID)
{
    PulseConnection &c = *m_connection;
    PulseLock lock(c);
    const auto info = PulseQueries::serverInfo(c);
    if (!info)
        return tapFailure(TapError::Kind::tapFailed, soundServerSilent());
    if (info->protocolVersion < 13)
        return tapFailure(TapError::Kind::unsupported, {});
    m_monitoredSink.clear();
    m_mixer.reset();
    if (!c.subscribe(pa_subscription_mask_t(PA_SUBSCRIPTION_MASK_SINK_INPUT | PA_SUBSCRIPTION_MASK_SOURCE), streamTimeoutMs))
        return tapFailure(TapError::Kind::tapFailed, soundServerSilent());
    for (const auto &e : PulseQueries::sinkInputs(c)) {
        if (e.sink != PA_INVALID_INDEX && AudioApplications::belongsToOrHelper(e.properties, appID))
            attachSinkInput(e.index);
    }
    qCInfo(lcAudio, "[Ketterbloom] tapping %s: %d stream(s)", qUtf8Printable(appID), int(m_streamCount));
    m_lastAudioUs = pa_rtclock_now();
    m_quietFrames = 0;
    m_quietLineClock = pa_context_rttime_new(c.context(), m_lastAudioUs + quietLineTickUs,
                                             &ProcessTapCapture::quietLineTick, this);
    return {};
}

pa_stream *ProcessTapCapture::newRecordStream(const char *name, void *userdata)
{
    pa_proplist *props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_MEDIA_ROLE, "production");
    pa_stream *s = pa_stream_new_with_proplist(m_connection->context(), name, &tapSpec(), nullptr, props);
    pa_proplist_free(props);
    if (!s)
        return nullptr;
    pa_stream_set_read_callback(s, &ProcessTapCapture::streamRead, userdata);
    pa_stream_set_state_callback(s, &ProcessTapCapture::streamState, userdata);
    return s;
}

void ProcessTapCapture::attachSinkInput(quint32 sinkInput)
{
    if (m_streams.count(sinkInput))
        return;
    auto ms = std::make_unique<MonitorStream>();
    ms->owner = this;
    ms->key = sinkInput;
    ms->stream = newRecordStream("Ketterbloom meeting (application)", ms.get());
    if (!ms->stream)
        return;
    pa_stream_set_monitor_stream(ms->stream, sinkInput);
    const pa_buffer_attr attr = tapBufferAttr();
    if (pa_stream_connect_record(ms->stream, nullptr, &attr, PA_STREAM_ADJUST_LATENCY) < 0) {
        qCWarning(lcAudio, "[Ketterbloom] could not record sink input %u: %s", sinkInput,
                  pa_strerror(pa_context_errno(m_connection->context())));
        pa_stream_unref(ms->stream);
        return;
    }
    m_mixer.addStream(int(sinkInput));
    m_streams[sinkInput] = std::move(ms);
    m_streamCount = int(m_streams.size());
}

void ProcessTapCapture::dropStream(quint32 key)
{
    auto it = m_streams.find(key);
    if (it == m_streams.end())
        return;
    pa_stream *s = it->second->stream;
    pa_stream_set_read_callback(s, nullptr, nullptr);
    pa_stream_set_state_callback(s, nullptr, nullptr);
    if (PA_STREAM_IS_GOOD(pa_stream_get_state(s)))
        pa_stream_disconnect(s);
    pa_stream_unref(s);
    m_streams.erase(it);
    m_mixer.removeStream(int(key));
    m_streamCount = int(m_streams.size());
}

void ProcessTapCapture::cleanUp()
{
    std::lock_guard guard(m_control);
    m_running = false;
    m_healthy = false;
    if (!m_connection)
        return;
    {
        PulseLock lock(*m_connection);
        m_connection->onEvent = nullptr;
        m_connection->onConnectionLost = nullptr;
        if (m_quietLineClock) {
            pa_threaded_mainloop_get_api(m_connection->mainloop())->time_free(m_quietLineClock);
            m_quietLineClock = nullptr;
        }
        m_mixer.reset();   // nothing pending is delivered from this thread
        while (!m_streams.empty())
            dropStream(m_streams.begin()->first);
    }
    m_connection.reset();
    m_mixer.reset();
    m_streamCount = 0;
    m_monitoredSinkIndex = PA_INVALID_INDEX;
    m_monitorSourceIndex = PA_INVALID_INDEX;
}

void ProcessTapCapture::deliver(const float *samples, int frames)
{
    m_lastAudioUs = pa_rtclock_now();
    m_quietFrames = 0;
    if (onAudio)
        onAudio(samples, frames);
}

void ProcessTapCapture::streamRead(pa_stream *s, size_t, void *userdata)
{
    auto *ms = static_cast<MonitorStream *>(userdata);
    while (pa_stream_readable_size(s) > 0) {
        const void *data = nullptr;
        size_t bytes = 0;
        if (pa_stream_peek(s, &data, &bytes) < 0 || bytes == 0)
            return;
        if (data)
            ms->owner->m_mixer.feed(int(ms->key), static_cast<const float *>(data), int(bytes / sizeof(float)));
        pa_stream_drop(s);
    }
}

namespace {
struct DeferredDrop
{
    ProcessTapCapture *owner;
    quint32 key;
};
} // namespace

void ProcessTapCapture::streamState(pa_stream *s, void *userdata)
{
    auto *ms = static_cast<MonitorStream *>(userdata);
    PulseConnection *c = ms->owner->m_connection.get();
    if (c)
        c->signal();
    const auto state = pa_stream_get_state(s);
    if (state != PA_STREAM_FAILED && state != PA_STREAM_TERMINATED)
        return;
    if (!c)
        return;
    if (ms->key == systemKey) {
        // The output went away (or the server ended the stream): the owner starts it again.
        ms->owner->m_healthy = false;
        ms->owner->interrupted();
        return;
    }
    // A sink input that ended takes its monitor with it; drop ours outside this callback.
    auto *d = new DeferredDrop{ms->owner, ms->key};
    pa_mainloop_api_once(pa_threaded_mainloop_get_api(c->mainloop()), [](pa_mainloop_api *, void *userdata) {
        auto *d = static_cast<DeferredDrop *>(userdata);
        d->owner->dropStream(d->key);
        delete d;
    }, d);
}

void ProcessTapCapture::onEvent(pa_subscription_event_type_t type, uint32_t index)
{
    const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    const auto kind = type & PA_SUBSCRIPTION_EVENT_TYPE_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SERVER || facility == PA_SUBSCRIPTION_EVENT_SINK
        || facility == PA_SUBSCRIPTION_EVENT_SOURCE) {
        // PipeWire 1.x leaves a pinned stream whose output went away "ready" but linked to
        // nothing, and links it to nothing when an output of that name returns (PulseAudio and
        // PipeWire 0.3 end it): the removal of the output or of its monitor is the end.
        if (kind == PA_SUBSCRIPTION_EVENT_REMOVE && m_target.kind == TapTarget::Kind::systemOutput
            && ((facility == PA_SUBSCRIPTION_EVENT_SINK && index == m_monitoredSinkIndex)
                || (facility == PA_SUBSCRIPTION_EVENT_SOURCE && index == m_monitorSourceIndex)))
            m_healthy = false;
        if (m_target.kind == TapTarget::Kind::systemOutput || facility == PA_SUBSCRIPTION_EVENT_SOURCE)
            interrupted();
        return;
    }
    if (facility != PA_SUBSCRIPTION_EVENT_SINK_INPUT || m_target.kind != TapTarget::Kind::process)
        return;
    if (kind == PA_SUBSCRIPTION_EVENT_REMOVE)
        dropStream(index);
    else if (!m_streams.count(index))
        checkSinkInput(index);
}

namespace {
struct PendingSinkInput
{
    ProcessTapCapture *owner;
    PulseQueries::SinkInputEntry entry;
    std::function<void(const PulseQueries::SinkInputEntry &)> decide;
};
} // namespace

void ProcessTapCapture::checkSinkInput(uint32_t index)
{
    auto *pending = new PendingSinkInput{this, {}, [this](const PulseQueries::SinkInputEntry &e) {
        if (e.sink != PA_INVALID_INDEX && AudioApplications::belongsToOrHelper(e.properties, m_target.appID))
            attachSinkInput(e.index);
    }};
    pending->entry.index = PA_INVALID_INDEX;
    auto sinkInputCb = [](pa_context *ctx, const pa_sink_input_info *i, int eol, void *userdata) {
        auto *p = static_cast<PendingSinkInput *>(userdata);
        if (eol == 0 && i) {
            p->entry.index = i->index;
            p->entry.client = i->client;
            p->entry.sink = i->sink;
            p->entry.corked = i->corked != 0;
            p->entry.properties = PulseQueries::toProperties(i->proplist);
            return;
        }
        if (p->entry.index == PA_INVALID_INDEX) {
            delete p;
            return;
        }
        if (p->entry.client == PA_INVALID_INDEX) {
            p->decide(p->entry);
            delete p;
            return;
        }
        auto clientCb = [](pa_context *, const pa_client_info *ci, int eol, void *userdata) {
            auto *p = static_cast<PendingSinkInput *>(userdata);
            if (eol == 0 && ci) {
                PulseQueries::mergeMissing(p->entry.properties, PulseQueries::toProperties(ci->proplist));
                return;
            }
            p->decide(p->entry);
            delete p;
        };
        if (pa_operation *op = pa_context_get_client_info(ctx, p->entry.client, clientCb, p))
            pa_operation_unref(op);
        else
            delete p;
    };
    if (pa_operation *op = pa_context_get_sink_input_info(m_connection->context(), index, sinkInputCb, pending))
        pa_operation_unref(op);
    else
        delete pending;
}

void ProcessTapCapture::quietLineTick(pa_mainloop_api *, pa_time_event *e, const struct timeval *, void *userdata)
{
    auto *self = static_cast<ProcessTapCapture *>(userdata);
    self->deliverQuietLine();
    pa_context_rttime_restart(self->m_connection->context(), e, pa_rtclock_now() + quietLineTickUs);
}

void ProcessTapCapture::deliverQuietLine()
{
    const pa_usec_t now = pa_rtclock_now();
    if (now < m_lastAudioUs + quietAfterUs)
        return;
    // Silence for the whole time since the application's last audio, so the line keeps time.
    const long long due = (long long)((now - m_lastAudioUs) * tapSpec().rate / PA_USEC_PER_SEC);
    while (m_quietFrames < due) {
        const int frames = int(std::min<long long>(quietBlockFrames, due - m_quietFrames));
        m_quietFrames += frames;
        if (onAudio)
            onAudio(quietBlock, frames);
    }
}

std::optional<QString> ProcessTapCapture::usableDefaultSink(int timeoutMs)
{
    PulseConnection c("Ketterbloom output check");
    if (!c.connect(timeoutMs).ok())
        return std::nullopt;
    PulseLock lock(c);
    const auto info = PulseQueries::serverInfo(c, timeoutMs);
    if (!info)
        return std::nullopt;
    if (info->defaultSink.isEmpty() || info->defaultSink.startsWith(QLatin1Char('@')))
        return QString();
    const auto sink = PulseQueries::sink(c, info->defaultSink, timeoutMs);
    if (!sink || sink->monitorSource.isEmpty())
        return QString();
    return sink->name;
}
