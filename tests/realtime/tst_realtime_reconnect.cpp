// How the realtime client loses and regains its connection, against the simulator on
// 127.0.0.1: back-off, each way a socket can die, session cycling, stop during a pending
// reconnect, and the checks that keep the key from going anywhere it should not.

#include "RealtimeTestBase.h"

#include <QTcpServer>
#include <QTcpSocket>

class TestRealtimeReconnect : public RealtimeTestBase
{
    Q_OBJECT
private slots:
    void init() { setUpSimulator(); }
    void cleanup() { tearDown(); }

    void backsOffExactlyAndResetsOnceConfigured()
    {
        makeClient();
        startAndWaitConnected();
        const quint16 port = sim->port();

        // Nobody listens any more: every attempt fails and announces the next, longer delay.
        sim->close();
        QTRY_VERIFY_WITH_TIMEOUT(probe.reconnectDelays().size() >= 8, kWait);
        QCOMPARE(probe.reconnectDelays().mid(0, 8), (QList<int>{1, 2, 4, 8, 16, 20, 20, 20}));
        QVERIFY(probe.traces.value(1).startsWith(QStringLiteral("        connection lost (attempt 1) — ")));
        QVERIFY(probe.traces.value(8).startsWith(QStringLiteral("        connection lost (attempt 8) — ")));
        QVERIFY(probe.statuses.contains(RealtimeStatus::reconnecting()));
        QVERIFY(!probe.last().isFailed());

        // The service comes back; a configured socket resets the counter.
        QVERIFY(sim->listen(port));
        QTRY_COMPARE_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()), 2, kWait);
        const int announced = int(probe.reconnectDelays().size());
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()), 3, kWait);
        QCOMPARE(probe.reconnectDelays().mid(announced), QList<int>{1});
    }

    void everyFailingSocketReconnectsOnce_data()
    {
        QTest::addColumn<QString>("fault");
        QTest::addColumn<QString>("reason");
        QTest::newRow("close frame with reason") << "close" << "socket closed (going for lunch)";
        QTest::newRow("close frame without reason") << "close-silent" << "socket closed (code 4001)";
        QTest::newRow("dropped connection") << "drop" << "";
        QTest::newRow("no pong") << "freeze" << "ping failed: no pong within 0.5 s";
        QTest::newRow("session expired") << "expire" << "session expired";
    }

    void everyFailingSocketReconnectsOnce()
    {
        QFETCH(QString, fault);
        QFETCH(QString, reason);
        RealtimeClient::Timing timing = fastTiming();
        timing.pingIntervalMs = 100;
        timing.pongTimeoutMs = 500;
        makeClient(timing);
        client->updateHistory({{QStringLiteral("Earlier question?"), QStringLiteral("Earlier answer.")}});
        startAndWaitConnected();
        QTest::qWait(300); // a few pings are answered before anything goes wrong
        QVERIFY(probe.reconnectDelays().isEmpty());

        if (fault == "close")
            QVERIFY(sim->closeConnection(4000, QStringLiteral("going for lunch")));
        else if (fault == "close-silent")
            QVERIFY(sim->closeConnection(4001, QString()));
        else if (fault == "drop")
            QVERIFY(sim->dropConnection());
        else if (fault == "freeze")
            QVERIFY(sim->freeze());
        else if (fault == "expire")
            QVERIFY(sim->expireSession());

        QTRY_COMPARE_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()), 2, kWait);
        QTest::qWait(200); // any second reconnect for the same socket would show by now
        QCOMPARE(probe.reconnectDelays(), QList<int>{1});
        const QString line = probe.logs.filter(QStringLiteral("Reconnecting in")).value(0);
        if (!reason.isEmpty())
            QCOMPARE(line, QStringLiteral("Reconnecting in 1s — ") + reason);
        QCOMPARE(sim->connectionCount(), 2);
        QVERIFY(!std::any_of(probe.statuses.cbegin(), probe.statuses.cend(), [](const auto &s) { return s.isFailed(); }));
        // The new socket is configured afresh and seeded.
        QCOMPARE(sim->received("session.update", 2).size(), 1);
        QCOMPARE(items(2), (QStringList{"user/input_text/Earlier question?", "assistant/output_text/Earlier answer."}));
    }

    void aHandshakeThatNeverCompletesTimesOut()
    {
        // Accepts the TCP connection and never answers the upgrade request.
        QTcpServer silent;
        QVERIFY(silent.listen(QHostAddress::LocalHost));
        QList<QTcpSocket *> held;
        connect(&silent, &QTcpServer::newConnection, this, [&] { held.append(silent.nextPendingConnection()); });
        qputenv("KQ_REALTIME_URL", QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(silent.serverPort()).toUtf8());
        RealtimeClient::Timing timing = fastTiming();
        timing.connectTimeoutMs = 300;
        makeClient(timing);
        client->start(config());
        QTRY_VERIFY_WITH_TIMEOUT(probe.reconnectDelays().size() >= 2, kWait);
        QCOMPARE(probe.logs.filter("Reconnecting in").value(0), QStringLiteral("Reconnecting in 1s — connection timed out after 0.3 s"));
        QCOMPARE(probe.count(RealtimeStatus::connected()), 0);
        client->stop();
        QTRY_COMPARE_WITH_TIMEOUT(probe.last(), RealtimeStatus::idle(), kWait);
    }

    void cyclesTheSessionAndSeedsTheNewSocket()
    {
        RealtimeClient::Timing timing = fastTiming();
        timing.cycleMs = 400;
        makeClient(timing);
        client->updateHistory({{QStringLiteral("Q1?"), QStringLiteral("A1.")}});
        RealtimeConfig cfg = config();
        cfg.reconnectMinutes = 3;
        startAndWaitConnected(cfg);
        QTRY_VERIFY_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()) >= 2, kWait);
        client->stop(); // the short period would go on cycling
        QCOMPARE(probe.logs.filter(QStringLiteral("Cycling session")).value(0), QStringLiteral("Cycling session (3 min limit)"));
        QVERIFY(probe.reconnectDelays().isEmpty());
        QCOMPARE(probe.statuses.mid(0, 4), (QList<RealtimeStatus>{RealtimeStatus::connecting(), RealtimeStatus::connected(),
                                                                   RealtimeStatus::connecting(), RealtimeStatus::connected()}));
        QCOMPARE(items(2), (QStringList{"user/input_text/Q1?", "assistant/output_text/A1."}));
    }

    void stopDuringPendingReconnectOpensNothing()
    {
        RealtimeClient::Timing timing = fastTiming();
        timing.backoffUnitMs = 400;
        makeClient(timing);
        startAndWaitConnected();
        QVERIFY(sim->dropConnection());
        QTRY_COMPARE_WITH_TIMEOUT(probe.last(), RealtimeStatus::reconnecting(), kWait);
        client->stop();
        QTRY_COMPARE_WITH_TIMEOUT(probe.last(), RealtimeStatus::idle(), kWait);
        QTest::qWait(900); // past the 400 ms the reconnect would have waited
        QCOMPARE(probe.last(), RealtimeStatus::idle());
        QCOMPARE(sim->connectionCount(), 1);
    }

    void refusesToConnectWithoutAKeyOrToAnUnsafeAddress()
    {
        makeClient();
        RealtimeConfig noKey = config();
        noKey.apiKey.clear();
        client->start(noKey);
        QTRY_VERIFY_WITH_TIMEOUT(probe.last().isFailed(), kWait);
        QCOMPARE(probe.statuses, (QList<RealtimeStatus>{RealtimeStatus::connecting(),
                                                         RealtimeStatus::failed(QStringLiteral(
                                                             "No API key set — open Settings and paste your OpenAI key."))}));

        // A plain listener on this machine stands in for a host that must not see the key:
        // whatever the address, nothing may connect to it.
        QTcpServer bystander;
        QVERIFY(bystander.listen(QHostAddress::LocalHost));
        const QString port = QString::number(bystander.serverPort());
        for (const QString &address : {QStringLiteral("http://127.0.0.1:%1/v1/realtime").arg(port),
                                       QStringLiteral("ws//127.0.0.1:%1").arg(port), QStringLiteral(":::"),
                                       QStringLiteral("ws://192.0.2.1:%1/v1/realtime").arg(port)}) {
            probe.statuses.clear();
            qputenv("KQ_REALTIME_URL", address.toUtf8());
            client->start(config());
            QTRY_VERIFY_WITH_TIMEOUT(probe.last().isFailed(), kWait);
            QVERIFY2(probe.last().message().contains(QLatin1String("KQ_REALTIME_URL")), qPrintable(address));
            client->stop();
        }
        QTest::qWait(100);
        QVERIFY(!bystander.hasPendingConnections());
        QCOMPARE(sim->connectionCount(), 0);

        // A loopback name is fine.
        qputenv("KQ_REALTIME_URL", QStringLiteral("ws://localhost:%1/v1/realtime").arg(sim->port()).toUtf8());
        startAndWaitConnected();
    }

    void destroyingTheClientMidSessionIsClean()
    {
        makeClient();
        startAndWaitConnected();
        client->append(QByteArray(2000, 'a'));
        client.reset(); // blocks until its thread is gone; nothing reaches the probe afterwards
        QTRY_COMPARE_WITH_TIMEOUT(sim->openConnectionCount(), 0, kWait);
        makeClient();
    }
};

QTEST_GUILESS_MAIN(TestRealtimeReconnect)
#include "tst_realtime_reconnect.moc"
