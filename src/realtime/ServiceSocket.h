#pragma once

#include "realtime/RealtimeTiming.h"

#include <QAbstractSocket>
#include <QJsonObject>
#include <QObject>
#include <QPointer>
#include <QString>
#include <QTimer>

class QNetworkRequest;
class QWebSocket;

// The socket side of a connection to the realtime service, shared by the answer and the
// transcription connections: one WebSocket at a time with its connect and configure time-outs,
// the keep-alive ping, the back-off between attempts, the teardown of a socket that is let go,
// and the redaction of the key from any text about it. What the service says and what a
// connection sends stay with the connection. Lives on its owner's thread; its signals are
// emitted there, after the socket they are about has become the current one.
class ServiceSocket : public QObject
{
    Q_OBJECT
public:
    ServiceSocket(const RealtimeTiming &timing, QObject *parent = nullptr);
    ~ServiceSocket() override;

    // The key to keep out of every reason and line this socket's owner shows; keys shorter
    // than 4 characters are not redacted (they would blank ordinary words).
    void setKey(const QString &key);
    QString redact(QString text) const;

    // Whether, once the handshake completed, the service must acknowledge the configuration
    // within RealtimeTiming::configTimeoutMs (see configured()). Off by default.
    void setConfigureTimeout(bool enabled);

    // Lets go of the current socket, if any, and opens a new one; a pending retry is dropped.
    void open(const QNetworkRequest &request);
    // Lets go of the current socket and stops its time-outs and keep-alive. The back-off is kept.
    void close();
    // The service acknowledged the configuration: the configure time-out stops, the keep-alive starts.
    void configured();
    // Sends one compact JSON message when the socket is open; otherwise drops it.
    void send(const QJsonObject &message);

    // Back-off. scheduleRetry() closes the socket and, unless a retry is already pending,
    // arms retryDue() after the next delay of the sequence and returns that delay in seconds
    // (see RealtimeProtocol::backoffSeconds), or -1 when one was pending.
    int scheduleRetry();
    void cancelRetry();
    bool retryPending() const { return m_retryPending; }
    // Failed attempts since the last resetBackoff().
    int attempt() const { return m_attempt; }
    void resetBackoff() { m_attempt = 0; }

signals:
    void opened();
    void textReceived(const QString &text);
    // The network or TLS failed (also for a socket closed before its handshake completed).
    void failed(QAbstractSocket::SocketError error, const QString &host, const QString &errorString);
    // An open socket was closed; `reason` is the peer's close reason, possibly empty.
    void closed(int code, const QString &reason);
    // The connect or configure time-out expired, or a ping went unanswered; `reason` says which.
    void timedOut(const QString &reason);
    void retryDue();

private:
    void ping();
    void reportFailure(QWebSocket *socket, QAbstractSocket::SocketError error);
    void handleDisconnected(QWebSocket *socket);

    const RealtimeTiming m_timing;
    QString m_key;
    bool m_configureTimeout = false;

    QPointer<QWebSocket> m_socket;
    bool m_opened = false; // the WebSocket handshake of the current socket completed
    bool m_broken = false; // the network broke it: aborted, not closed
    int m_attempt = 0;
    bool m_retryPending = false;

    QTimer m_retryTimer;
    QTimer m_connectTimer;
    QTimer m_configureTimer;
    QTimer m_pingTimer;
    QTimer m_pongTimer;
};
