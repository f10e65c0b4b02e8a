// ServiceSocket against a loopback QWebSocketServer: what the connection tests over the
// simulator do not see — how a socket is let go, and the configure time-out being optional.

#include "realtime/ServiceSocket.h"

#include <QHostAddress>
#include <QNetworkRequest>
#include <QSignalSpy>
#include <QTest>
#include <QWebSocket>
#include <QWebSocketServer>

#include <memory>

namespace {

RealtimeTiming shortTiming()
{
    RealtimeTiming timing;
    timing.backoffUnitMs = 10;
    timing.configTimeoutMs = 50;
    return timing;
}

} // namespace

class TestServiceSocket : public QObject
{
    Q_OBJECT

private slots:
    void init()
    {
        m_server = std::make_unique<QWebSocketServer>(QStringLiteral("loopback"), QWebSocketServer::NonSecureMode);
        QVERIFY(m_server->listen(QHostAddress::LocalHost));
        connect(m_server.get(), &QWebSocketServer::newConnection, this, [this] {
            while (QWebSocket *peer = m_server->nextPendingConnection()) {
                peer->setParent(m_server.get());
                m_peers << peer;
            }
        });
    }
    void cleanup()
    {
        m_peers.clear();
        m_server.reset();
    }

    // A healthy socket is closed with "going away"; after the peer closed one, nothing is
    // written to it, and a retry opens a fresh socket.
    void lettingGo()
    {
        ServiceSocket socket(shortTiming());
        QSignalSpy opened(&socket, &ServiceSocket::opened);
        QSignalSpy closed(&socket, &ServiceSocket::closed);
        QSignalSpy retries(&socket, &ServiceSocket::retryDue);
        socket.open(request());
        QTRY_COMPARE(opened.size(), 1);
        QTRY_COMPARE(m_peers.size(), 1);
        QSignalSpy peerClosed(m_peers[0].data(), &QWebSocket::disconnected);
        socket.close();
        QTRY_COMPARE(peerClosed.size(), 1);
        QCOMPARE(m_peers[0]->closeCode(), QWebSocketProtocol::CloseCodeGoingAway);

        socket.open(request());
        QTRY_COMPARE(m_peers.size(), 2);
        QTRY_COMPARE(opened.size(), 2);
        m_peers[1]->close(QWebSocketProtocol::CloseCodePolicyViolated, QStringLiteral("maintenance"));
        QTRY_COMPARE(closed.size(), 1);
        QCOMPARE(closed[0][0].toInt(), int(QWebSocketProtocol::CloseCodePolicyViolated));
        QCOMPARE(closed[0][1].toString(), QStringLiteral("maintenance"));

        // One retry at a time; the delays follow the back-off sequence.
        QCOMPARE(socket.scheduleRetry(), 1);
        QCOMPARE(socket.scheduleRetry(), -1);
        QTRY_COMPARE(retries.size(), 1);
        QCOMPARE(socket.attempt(), 1);
        QCOMPARE(socket.scheduleRetry(), 2);
        socket.cancelRetry();
        socket.resetBackoff();
        QCOMPARE(socket.scheduleRetry(), 1);
        socket.cancelRetry();
        QTest::qWait(50);
        QCOMPARE(retries.size(), 1);
    }

    // The configure time-out runs only when asked for, and configured() stops it.
    void configureTimeout()
    {
        ServiceSocket plain(shortTiming());
        ServiceSocket strict(shortTiming());
        ServiceSocket acknowledged(shortTiming());
        strict.setConfigureTimeout(true);
        acknowledged.setConfigureTimeout(true);
        QSignalSpy plainTimedOut(&plain, &ServiceSocket::timedOut);
        QSignalSpy strictTimedOut(&strict, &ServiceSocket::timedOut);
        QSignalSpy acknowledgedTimedOut(&acknowledged, &ServiceSocket::timedOut);
        connect(&acknowledged, &ServiceSocket::opened, &acknowledged, &ServiceSocket::configured);

        for (ServiceSocket *socket : {&plain, &strict, &acknowledged})
            socket->open(request());
        QTRY_COMPARE(strictTimedOut.size(), 1);
        QCOMPARE(strictTimedOut[0][0].toString(), QStringLiteral("no session configuration within 0.05 s"));
        QTest::qWait(100);
        QCOMPARE(plainTimedOut.size(), 0);
        QCOMPARE(acknowledgedTimedOut.size(), 0);
    }

    void redaction()
    {
        ServiceSocket socket(shortTiming());
        socket.setKey(QStringLiteral("sk-secret"));
        QCOMPARE(socket.redact(QStringLiteral("Bearer sk-secret refused")), QStringLiteral("Bearer [key] refused"));
        // Too short to be a key: ordinary words stay as they are.
        socket.setKey(QStringLiteral("an"));
        QCOMPARE(socket.redact(QStringLiteral("an error")), QStringLiteral("an error"));
    }

private:
    QNetworkRequest request() const
    {
        return QNetworkRequest(QUrl(QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(m_server->serverPort())));
    }

    std::unique_ptr<QWebSocketServer> m_server;
    QList<QPointer<QWebSocket>> m_peers;
};

QTEST_GUILESS_MAIN(TestServiceSocket)
#include "tst_realtime_service_socket.moc"
