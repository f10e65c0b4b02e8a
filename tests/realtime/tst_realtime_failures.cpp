// How the realtime client fails, against the simulator on 127.0.0.1 with shortened timers:
// a socket that never gets configured, the service's final refusals (key, quota, model; three
// service closes in a row), the rate limit that only warrants a notice, and honest reasons for
// a service that cannot be reached at all.

#include "RealtimeTestBase.h"

#include <QSslSocket>
#include <QTcpServer>
#include <QTcpSocket>

namespace {

const QString kKeyRefused = QStringLiteral("The service refused the API key (invalid_api_key). Check it in Settings.");
const QString kNoQuota = QStringLiteral("Your OpenAI account has no quota left — add credit, then press Start again.");
const QString kNoModel = QStringLiteral("The model gpt-realtime isn't available to your OpenAI account (model_not_found). "
                                        "Choose another model in Settings.");

} // namespace

class TestRealtimeFailures : public RealtimeTestBase
{
    Q_OBJECT
private slots:
    void init() { setUpSimulator(); }
    void cleanup() { tearDown(); }

    void aSocketThatIsNeverConfiguredIsReplaced()
    {
        sim->setWithholdSessionCreated(1);
        RealtimeClient::Timing timing = fastTiming();
        timing.configTimeoutMs = 300;
        makeClient(timing);
        startAndWaitConnected();
        QCOMPARE(probe.logs.filter("Reconnecting in"),
                 QStringList{QStringLiteral("Reconnecting in 1s — no session configuration within 0.3 s")});
        QCOMPARE(sim->connectionCount(), 2);
        QCOMPARE(probe.statuses, (QList<RealtimeStatus>{RealtimeStatus::connecting(), RealtimeStatus::reconnecting(),
                                                         RealtimeStatus::reconnecting(), RealtimeStatus::connected()}));
        // Once configured, the time-out no longer applies.
        QTest::qWait(600);
        QCOMPARE(sim->connectionCount(), 2);
        QCOMPARE(probe.configured, 1);
    }

    void finalRefusalsStopWithOneMessage_data()
    {
        QTest::addColumn<QString>("how");
        QTest::addColumn<QString>("message");
        QTest::newRow("bad key: close 3000") << "realistic-bad-key" << kKeyRefused;
        QTest::newRow("bad key: error event") << "classic-bad-key" << kKeyRefused;
        QTest::newRow("key revoked while connected") << "error invalid_api_key" << kKeyRefused;
        QTest::newRow("quota after configuration") << "quota" << kNoQuota;
        QTest::newRow("quota close") << "close insufficient_quota" << kNoQuota;
        QTest::newRow("model_not_found error") << "error model_not_found" << kNoModel;
        QTest::newRow("model not available message") << "error model-message" << kNoModel;
        QTest::newRow("model_not_found close") << "close invalid_request_error.model_not_found" << kNoModel;
        QTest::newRow("three service closes in a row")
            << "three-closes"
            << "The service closed the connection 3 times in a row (maintenance). Press Start to try again.";
    }

    void finalRefusalsStopWithOneMessage()
    {
        QFETCH(QString, how);
        QFETCH(QString, message);
        makeClient();
        int expectedConnections = 1;
        if (how == "realistic-bad-key" || how == "classic-bad-key") {
            sim->setRealistic(how.startsWith("realistic"));
            sim->setExpectedKey(QStringLiteral("sk-another-key"));
            client->start(config());
        } else if (how == "quota") {
            sim->setRealistic(true);
            sim->setInsufficientQuotaAfterConfiguration(true);
            client->start(config());
        } else if (how == "three-closes") {
            // Every connection is closed by the service before it can be configured.
            sim->setWithholdSessionCreated(-1);
            connect(sim.get(), &RealtimeSimulator::connectionOpened, this,
                    [this] { sim->closeConnection(4000, QStringLiteral("maintenance")); });
            expectedConnections = 3;
            client->start(config());
        } else {
            startAndWaitConnected();
            const QString what = how.section(' ', 1);
            if (how.startsWith("close"))
                QVERIFY(sim->closeConnection(4001, what));
            else if (what == "model-message")
                QVERIFY(sim->sendError(QString(), QStringLiteral("The model gpt-realtime is not available to this account.")));
            else
                QVERIFY(sim->sendError(what, QStringLiteral("Refused.")));
        }
        QTRY_VERIFY_WITH_TIMEOUT(probe.last().isFailed(), kWait);
        QCOMPARE(probe.last(), RealtimeStatus::failed(message));
        QTest::qWait(300); // any reconnect would have begun by now (back-off unit 10 ms)
        QCOMPARE(probe.failedCount(), 1);
        QCOMPARE(probe.last(), RealtimeStatus::failed(message));
        QCOMPARE(sim->connectionCount(), expectedConnections);
        QCOMPARE(probe.reconnectDelays().size(), expectedConnections - 1);
        QTRY_COMPARE_WITH_TIMEOUT(sim->openConnectionCount(), 0, kWait);
        QCOMPARE(probe.logsContaining("Not reconnecting — "), 1);

        // Start tries again from scratch.
        sim->setExpectedKey(QString());
        sim->setInsufficientQuotaAfterConfiguration(false);
        sim->setWithholdSessionCreated(0);
        disconnect(sim.get(), &RealtimeSimulator::connectionOpened, this, nullptr);
        startAndWaitConnected();
    }

    void twoServiceClosesAndAConfiguredSocketStartTheCountAgain()
    {
        makeClient();
        startAndWaitConnected();
        for (int round = 1; round <= 3; ++round) {
            // A reason that echoes the key is logged without it (checked at the end of every test).
            QVERIFY(sim->closeConnection(4000, QStringLiteral("maintenance for ") + kTestKey));
            QTRY_COMPARE_WITH_TIMEOUT(probe.configured, round + 1, kWait);
        }
        QCOMPARE(probe.failedCount(), 0);
        QCOMPARE(probe.logsContaining("socket closed (maintenance for [key])"), 3);
    }

    void aRateLimitIsANoticeAndTheSessionGoesOn()
    {
        makeClient();
        startAndWaitConnected();
        QVERIFY(sim->sendError(QStringLiteral("rate_limit_exceeded"), QStringLiteral("Rate limit reached for requests.")));
        QTRY_COMPARE_WITH_TIMEOUT(probe.notices.size(), 1, kWait);
        QCOMPARE(probe.notices.first(),
                 QStringLiteral("OpenAI is rate-limiting this account (rate_limit_exceeded); answers may pause for a moment."));
        QVERIFY(sim->triggerTurn());
        QTRY_COMPARE_WITH_TIMEOUT(probe.done.size(), 1, kWait);
        QCOMPARE(probe.failedCount(), 0);
        QCOMPARE(probe.last(), RealtimeStatus::connected());
        QCOMPARE(sim->connectionCount(), 1);
    }

    void unreachableServiceIsNamedHonestly_data()
    {
        QTest::addColumn<QString>("where");
        QTest::addColumn<QString>("reason");
        QTest::newRow("refused") << "refused" << "can't reach 127.0.0.1: connection refused";
        QTest::newRow("host not found") << "unknown-host" << "can't reach kb-no-such-host.invalid: host not found";
        QTest::newRow("TLS") << "tls" << "can't reach 127.0.0.1: TLS handshake failed";
    }

    void unreachableServiceIsNamedHonestly()
    {
        QFETCH(QString, where);
        QFETCH(QString, reason);
        if (where == "tls" && !QSslSocket::supportsSsl())
            QSKIP("no TLS backend");
        QString url;
        // Answers a TLS hello with plain text, as a server that does not speak TLS would.
        QTcpServer plain;
        connect(&plain, &QTcpServer::newConnection, this, [&plain] {
            QTcpSocket *socket = plain.nextPendingConnection();
            connect(socket, &QTcpSocket::readyRead, socket, [socket] {
                socket->readAll();
                socket->write("HTTP/1.1 400 Bad Request\r\nContent-Length: 0\r\n\r\n");
            });
        });
        if (where == "refused") {
            QTcpServer probeServer; // a port that was free a moment ago
            QVERIFY(probeServer.listen(QHostAddress::LocalHost));
            url = QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(probeServer.serverPort());
        } else if (where == "unknown-host") {
            url = QStringLiteral("wss://kb-no-such-host.invalid/v1/realtime");
        } else {
            QVERIFY(plain.listen(QHostAddress::LocalHost));
            url = QStringLiteral("wss://127.0.0.1:%1/v1/realtime").arg(plain.serverPort());
        }
        qputenv("KQ_REALTIME_URL", url.toUtf8());
        makeClient();
        client->start(config());
        QTRY_VERIFY_WITH_TIMEOUT(probe.reconnectDelays().size() >= 3, kWait);
        client->stop();
        const QString line = probe.logs.filter("Reconnecting in").value(0);
        QVERIFY2(line.startsWith(QStringLiteral("Reconnecting in 1s — ") + reason), qPrintable(line));
        QVERIFY(probe.logs.filter("socket closed").isEmpty());
        // The user is told once, not on every attempt.
        QCOMPARE(probe.notices.size(), 1);
        QVERIFY2(probe.notices.first().startsWith(reason.at(0).toUpper() + reason.mid(1)), qPrintable(probe.notices.first()));
        QCOMPARE(probe.failedCount(), 0);
    }
};

QTEST_GUILESS_MAIN(TestRealtimeFailures)
#include "tst_realtime_failures.moc"
