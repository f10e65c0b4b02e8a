#include "audio/PulseConnection.h"


#include <pulse/rtclock.h>

PulseConnection::PulseConnection(const QByteArray &clientName)
{
    m_loop = pa_threaded_mainloop_new();
    if (!m_loop)
        return;
    pa_proplist *props = pa_proplist_new();
    pa_proplist_sets(props, PA_PROP_APPLICATION_NAME, "Ketterbloom");
    pa_proplist_sets(props, PA_PROP_APPLICATION_ID, "com.velorquin.ketterbloom");
    pa_proplist_sets(props, PA_PROP_MEDIA_ROLE, "production");
    m_context = pa_context_new_with_proplist(pa_threaded_mainloop_get_api(m_loop), clientName.constData(), props);
    pa_proplist_free(props);
    if (m_context) {
        pa_context_set_state_callback(m_context, &PulseConnection::contextStateCallback, this);
        pa_context_set_subscribe_callback(m_context, &PulseConnection::subscriptionCallback, this);
    }
}

PulseConnection::~PulseConnection()
{
    if (m_started) {
        pa_threaded_mainloop_lock(m_loop);
        if (m_context) {
            pa_context_set_state_callback(m_context, nullptr, nullptr);
            pa_context_set_subscribe_callback(m_context, nullptr, nullptr);
            pa_context_disconnect(m_context);
        }
        pa_threaded_mainloop_unlock(m_loop);
        pa_threaded_mainloop_stop(m_loop);
    }
    if (m_context)
        pa_context_unref(m_context);
    if (m_loop)
        pa_threaded_mainloop_free(m_loop);
}

Result<void> PulseConnection::connect(int timeoutMs)
{
    auto fail = [](const QString &why) { return Result<void>::failure(why); };
    if (!m_loop || !m_context)
        return fail(tr("no sound server client"));
    if (m_ready)
        return {};
    if (!m_started) {
        if (pa_threaded_mainloop_start(m_loop) < 0)
            return fail(tr("could not start the sound server client thread"));
        m_started = true;
    }
    PulseLock lock(*this);
    if (pa_context_connect(m_context, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0)
        return fail(QString::fromUtf8(pa_strerror(pa_context_errno(m_context))));
    waitUntil([this] {
        const auto s = pa_context_get_state(m_context);
        return s == PA_CONTEXT_READY || !PA_CONTEXT_IS_GOOD(s);
    }, timeoutMs);
    const auto state = pa_context_get_state(m_context);
    if (state == PA_CONTEXT_READY) {
        m_ready = true;
        return {};
    }
    if (PA_CONTEXT_IS_GOOD(state))
        return fail(tr("the sound server did not answer"));
    return fail(QString::fromUtf8(pa_strerror(pa_context_errno(m_context))));
}

bool PulseConnection::isConnected() const
{
    return m_ready;
}

void PulseConnection::lock()
{
    pa_threaded_mainloop_lock(m_loop);
}

void PulseConnection::unlock()
{
    pa_threaded_mainloop_unlock(m_loop);
}

void PulseConnection::signal()
{
    pa_threaded_mainloop_signal(m_loop, 0);
}

namespace {
struct Deadline
{
    PulseConnection *connection;
    bool expired = false;
};

void deadlineCallback(pa_mainloop_api *, pa_time_event *, const struct timeval *, void *userdata)
{
    auto *d = static_cast<Deadline *>(userdata);
    d->expired = true;
    d->connection->signal();
}
} // namespace

bool PulseConnection::waitUntil(const std::function<bool()> &done, int timeoutMs)
{
    if (done())
        return true;
    Deadline deadline{this};
    pa_time_event *event = pa_context_rttime_new(m_context, pa_rtclock_now() + pa_usec_t(timeoutMs) * 1000,
                                                 &deadlineCallback, &deadline);
    while (!done() && !deadline.expired)
        pa_threaded_mainloop_wait(m_loop);
    if (event)
        pa_threaded_mainloop_get_api(m_loop)->time_free(event);
    return done();
}

bool PulseConnection::waitFor(pa_operation *op, int timeoutMs)
{
    if (!op)
        return false;
    const bool finished = waitUntil([op] { return pa_operation_get_state(op) != PA_OPERATION_RUNNING; }, timeoutMs);
    if (!finished)
        pa_operation_cancel(op);
    pa_operation_unref(op);
    return finished;
}

namespace {
void successSignal(pa_context *, int, void *userdata)
{
    static_cast<PulseConnection *>(userdata)->signal();
}
} // namespace

bool PulseConnection::subscribe(pa_subscription_mask_t mask, int timeoutMs)
{
    return waitFor(pa_context_subscribe(m_context, mask, &successSignal, this), timeoutMs);
}

void PulseConnection::contextStateCallback(pa_context *c, void *userdata)
{
    auto *self = static_cast<PulseConnection *>(userdata);
    const auto state = pa_context_get_state(c);
    if (self->m_ready && !PA_CONTEXT_IS_GOOD(state)) {
        self->m_ready = false;
        if (self->onConnectionLost)
            self->onConnectionLost();
    }
    self->signal();
}

void PulseConnection::subscriptionCallback(pa_context *, pa_subscription_event_type_t t, uint32_t idx, void *userdata)
{
    auto *self = static_cast<PulseConnection *>(userdata);
    if (self->onEvent)
        self->onEvent(t, idx);
}
