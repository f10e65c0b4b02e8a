// Checking an API key: the request goes to the realtime host's /v1/models with the key, and
// each answer of a stand-in service on 127.0.0.1 becomes the right verdict.
#include "keycheck/ApiKeyCheck.h"

#include "HttpHeaders.h"

#include <QSignalSpy>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTest>

Q_DECLARE_METATYPE(ApiKeyCheck::Result)

namespace {
// Answers one HTTP request per connection: 200 for "Bearer sk-good", 401 otherwise, or
// nothing at all when `silent`.
class StandInService : public QObject
{
public:
    StandInService()
    {
        QVERIFY(m_server.listen(QHostAddress::LocalHost));
        connect(&m_server, &QTcpServer::newConnection, this, [this] {
            while (QTcpSocket *socket = m_server.nextPendingConnection()) {
                connect(socket, &QTcpSocket::readyRead, socket, [this, socket] {
                    m_buffer += socket->readAll();
                    if (!m_buffer.contains("\r\n\r\n"))
                        return;
                    requests.append(m_buffer);
                    m_buffer.clear();
                    if (silent)
                        return;
                    const bool good = kbtest::httpHeader(requests.last(), "Authorization") == "Bearer sk-good";
                    const QByteArray body = good ? R"({"object":"list","data":[]})" : R"({"error":{}})";
                    socket->write((good ? "HTTP/1.1 200 OK\r\n" : "HTTP/1.1 401 Unauthorized\r\n")
                                  + QByteArray("Content-Type: application/json\r\nContent-Length: ")
                                  + QByteArray::number(body.size()) + "\r\nConnection: close\r\n\r\n" + body);
                    socket->disconnectFromHost();
                });
            }
        });
    }

    QString realtimeUrl() const { return QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(m_server.serverPort()); }

    QList<QByteArray> requests;
    bool silent = false;

private:
    QTcpServer m_server;
    QByteArray m_buffer;
};

ApiKeyCheck::Result run(ApiKeyCheck &check, const QString &key, const QString &url)
{
    QSignalSpy finished(&check, &ApiKeyCheck::finished);
    check.check(key, url);
    if (!finished.wait(20000))
        return {ApiKeyCheck::Outcome::unreachable, QStringLiteral("no answer")};
    return finished.first().first().value<ApiKeyCheck::Result>();
}
} // namespace

class ApiKeyCheckTest : public QObject
{
    Q_OBJECT

private slots:
    void initTestCase() { qRegisterMetaType<ApiKeyCheck::Result>(); }

    void addressFollowsTheRealtimeHost()
    {
        QCOMPARE(ApiKeyCheck::modelsUrl(QString()).valueOr({}), QUrl(QStringLiteral("https://api.openai.com/v1/models")));
        QCOMPARE(ApiKeyCheck::modelsUrl(QStringLiteral("ws://127.0.0.1:8099/v1/realtime")).valueOr({}),
                 QUrl(QStringLiteral("http://127.0.0.1:8099/v1/models")));
        QCOMPARE(ApiKeyCheck::modelsUrl(QStringLiteral("wss://proxy.example.com:8443/v1/realtime")).valueOr({}),
                 QUrl(QStringLiteral("https://proxy.example.com:8443/v1/models")));
        // Where the realtime connection would not send the key, neither does the check.
        const auto refused = ApiKeyCheck::modelsUrl(QStringLiteral("ws://192.0.2.7:8099/v1/realtime"));
        QVERIFY(!refused.ok());
        QVERIFY(refused.error().contains(QStringLiteral("unencrypted")));
    }

    void verdicts()
    {
        StandInService service;
        ApiKeyCheck check;
        const ApiKeyCheck::Result good = run(check, QStringLiteral(" sk-good\n"), service.realtimeUrl());
        QCOMPARE(good.outcome, ApiKeyCheck::Outcome::works);
        QVERIFY(good.message.contains(QStringLiteral("works")));
        QCOMPARE(service.requests.size(), 1);
        QVERIFY(service.requests.first().startsWith("GET /v1/models HTTP/1.1\r\n"));

        const ApiKeyCheck::Result bad = run(check, QStringLiteral("sk-typo"), service.realtimeUrl());
        QCOMPARE(bad.outcome, ApiKeyCheck::Outcome::rejected);
        QVERIFY(bad.message.contains(QStringLiteral("401")));

        // No key, or an address the key may not go to: nothing is sent.
        QCOMPARE(run(check, QStringLiteral("  "), service.realtimeUrl()).outcome, ApiKeyCheck::Outcome::refused);
        QCOMPARE(run(check, QStringLiteral("sk-good"), QStringLiteral("ws://192.0.2.7:1/v1/realtime")).outcome,
                 ApiKeyCheck::Outcome::refused);
        QCOMPARE(service.requests.size(), 2);
    }

    void serviceThatIsNotThere()
    {
        QTcpServer closed;
        QVERIFY(closed.listen(QHostAddress::LocalHost));
        const quint16 port = closed.serverPort();
        closed.close();
        ApiKeyCheck check;
        const ApiKeyCheck::Result result =
            run(check, QStringLiteral("sk-good"), QStringLiteral("ws://127.0.0.1:%1/v1/realtime").arg(port));
        QCOMPARE(result.outcome, ApiKeyCheck::Outcome::unreachable);
        QVERIFY(result.message.startsWith(QStringLiteral("Couldn't reach the service")));

        // A service that accepts but never answers runs into the time limit.
        StandInService silent;
        silent.silent = true;
        check.setTimeout(300);
        const ApiKeyCheck::Result timedOut = run(check, QStringLiteral("sk-good"), silent.realtimeUrl());
        QCOMPARE(timedOut.outcome, ApiKeyCheck::Outcome::unreachable);
        QVERIFY(timedOut.message.contains(QStringLiteral("did not answer")));
        QVERIFY(!check.isRunning());
    }

    void statusMeanings()
    {
        QCOMPARE(ApiKeyCheck::fromStatus(200).outcome, ApiKeyCheck::Outcome::works);
        QCOMPARE(ApiKeyCheck::fromStatus(403).outcome, ApiKeyCheck::Outcome::rejected);
        QCOMPARE(ApiKeyCheck::fromStatus(429).outcome, ApiKeyCheck::Outcome::rejected);
        QCOMPARE(ApiKeyCheck::fromStatus(503).outcome, ApiKeyCheck::Outcome::unreachable);
        QVERIFY(ApiKeyCheck::fromStatus(503).message.contains(QStringLiteral("503")));
    }
};

QTEST_GUILESS_MAIN(ApiKeyCheckTest)
#include "tst_apikeycheck.moc"
