#pragma once

#include "common/Result.h"

#include <QCoreApplication>
#include <QByteArray>
#include <QString>

#include <pulse/pulseaudio.h>

#include <atomic>
#include <functional>

// One connection to the sound server with its own event-loop thread (pa_threaded_mainloop).
// Read and event callbacks of streams made on this connection run on that thread.
//
// Control calls (everything but signal()) take the loop lock themselves or must be made with
// it held, as each says. Never call them from the loop thread except where noted.
class PulseConnection
{
    Q_DECLARE_TR_FUNCTIONS(PulseConnection)

public:
    explicit PulseConnection(const QByteArray &clientName);
    ~PulseConnection();
    PulseConnection(const PulseConnection &) = delete;
    PulseConnection &operator=(const PulseConnection &) = delete;

    // Starts the loop thread and connects to the server named by the environment (or the
    // default one). On failure or time-out, a short reason.
    Result<void> connect(int timeoutMs);
    bool isConnected() const;

    pa_threaded_mainloop *mainloop() const { return m_loop; }
    pa_context *context() const { return m_context; }

    void lock();
    void unlock();

    // With the lock held: waits until done() holds or timeoutMs pass; callbacks that change
    // what done() reads must call signal(). Returns done().
    bool waitUntil(const std::function<bool()> &done, int timeoutMs);
    // With the lock held: waits for an operation to complete (its callback must signal()),
    // then unrefs it. False on time-out or a null operation.
    bool waitFor(pa_operation *op, int timeoutMs);
    // Loop thread (or lock held): wakes every waiter.
    void signal();

    // Loop thread: server events after subscribe().
    std::function<void(pa_subscription_event_type_t type, uint32_t index)> onEvent;
    // With the lock held: subscribes to the given event facilities.
    bool subscribe(pa_subscription_mask_t mask, int timeoutMs);

    // Loop thread: the context failed or was terminated after it had connected.
    std::function<void()> onConnectionLost;

private:
    static void contextStateCallback(pa_context *c, void *userdata);
    static void subscriptionCallback(pa_context *c, pa_subscription_event_type_t t, uint32_t idx, void *userdata);

    pa_threaded_mainloop *m_loop = nullptr;
    pa_context *m_context = nullptr;
    bool m_started = false;
    std::atomic<bool> m_ready{false};
};

// RAII lock of a connection's loop.
class PulseLock
{
public:
    explicit PulseLock(PulseConnection &c) : m_c(c) { m_c.lock(); }
    ~PulseLock() { m_c.unlock(); }
    PulseLock(const PulseLock &) = delete;
    PulseLock &operator=(const PulseLock &) = delete;

private:
    PulseConnection &m_c;
};
