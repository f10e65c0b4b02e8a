#pragma once

#include <QMetaObject>
#include <QObject>
#include <QString>
#include <QThread>

#include <functional>
#include <utility>

// Runs one connection object on a thread of its own, for a client whose operations only post
// work there and return at once. The connection is deleted on its thread when this goes away.
template<typename Connection>
class ConnectionThread
{
public:
    // Takes `connection`, which must have no parent.
    ConnectionThread(const QString &name, Connection *connection) : m_connection(connection)
    {
        m_connection->moveToThread(&m_thread);
        m_thread.setObjectName(name);
        m_thread.start();
    }
    ~ConnectionThread()
    {
        Connection *connection = m_connection;
        QMetaObject::invokeMethod(connection, [connection] { delete connection; }, Qt::BlockingQueuedConnection);
        m_thread.quit();
        m_thread.wait();
    }
    ConnectionThread(const ConnectionThread &) = delete;
    ConnectionThread &operator=(const ConnectionThread &) = delete;

    // For wiring signals only (connect is safe from any thread); never call it from here.
    Connection *object() const { return m_connection; }

    // Queues `fn(connection)` on the connection's thread; calls run in the order they were posted.
    template<typename Fn>
    void post(Fn &&fn)
    {
        QMetaObject::invokeMethod(
            m_connection, [c = m_connection, fn = std::forward<Fn>(fn)] { fn(*c); }, Qt::QueuedConnection);
    }

private:
    QThread m_thread;
    Connection *m_connection;
};

// A report from the connection's thread for the callback `member` of `owner`: posted to the
// owner, so it runs on the owner's thread, in order, and is dropped if the owner is gone by then.
template<typename Owner, typename... Args>
std::function<void(Args...)> deliverTo(Owner *owner, std::function<void(Args...)> Owner::*member)
{
    return [owner, member](Args... args) {
        QMetaObject::invokeMethod(
            owner, [owner, member, args...] {
                if (owner->*member)
                    (owner->*member)(args...);
            },
            Qt::QueuedConnection);
    };
}
