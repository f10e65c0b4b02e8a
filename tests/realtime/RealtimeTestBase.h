#pragma once

// Shared set-up of the realtime client tests: a simulator on 127.0.0.1 that KQ_REALTIME_URL
// points to, a client with shortened timings, and a probe that records what it reports.

#include "ClientProbe.h"

#include "realtime/RealtimeClient.h"
#include "realtimesim/RealtimeSimulator.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QTest>

#include <memory>

inline const QString kTestKey = QStringLiteral("sk-test-0123456789abcdefSECRETKEY");
constexpr int kWait = 15000; // generous: the machine may be busy

class RealtimeTestBase : public QObject
{
protected:
    static RealtimeClient::Timing fastTiming()
    {
        RealtimeClient::Timing timing;
        timing.backoffUnitMs = 10;
        return timing;
    }

    static RealtimeConfig config()
    {
        RealtimeConfig config;
        config.apiKey = kTestKey;
        config.model = QStringLiteral("gpt-realtime");
        config.transcribeModel = QStringLiteral("gpt-4o-mini-transcribe");
        config.instructions = QStringLiteral("Answer briefly.");
        return config;
    }

    void setUpSimulator()
    {
        sim = std::make_unique<RealtimeSimulator>();
        QVERIFY(sim->listen());
        qputenv("KQ_REALTIME_URL", sim->url().toString().toUtf8());
    }

    void makeClient(const RealtimeClient::Timing &timing = fastTiming())
    {
        client.reset();
        probe = ClientProbe();
        client = std::make_unique<RealtimeClient>(timing);
        probe.attach(*client);
    }

    void startAndWaitConnected(const RealtimeConfig &cfg = config())
    {
        const int before = probe.count(RealtimeStatus::connected());
        client->start(cfg);
        QTRY_VERIFY_WITH_TIMEOUT(probe.count(RealtimeStatus::connected()) > before, kWait);
    }

    // "role/content type/text" of every conversation item a connection received.
    QStringList items(int connection) const
    {
        QStringList result;
        for (const QJsonObject &message : sim->received(QStringLiteral("conversation.item.create"), connection)) {
            const QJsonObject item = message.value("item").toObject();
            const QJsonObject part = item.value("content").toArray().first().toObject();
            result.append(item.value("role").toString() + "/" + part.value("type").toString() + "/"
                          + part.value("text").toString());
        }
        return result;
    }

    // The key must appear in nothing the client reported and nothing the simulator recorded.
    void verifyKeyNeverShown()
    {
        QStringList seen = probe.logs + probe.traces + probe.notices + probe.ended;
        for (const RealtimeStatus &status : probe.statuses)
            seen.append(status.message());
        for (const auto &failure : probe.transcriptFailures)
            seen.append(failure.second);
        for (const SimRecord &record : sim->records())
            seen.append(QString::fromUtf8(QJsonDocument(record.message).toJson()));
        for (const SimConnectionInfo &info : sim->connections())
            seen.append(info.authorization + info.model + info.path);
        for (const QString &text : seen)
            QVERIFY2(!text.contains(kTestKey) && !text.contains(QStringLiteral("SECRETKEY")), qPrintable(text));
    }

    void tearDown()
    {
        if (sim && client)
            verifyKeyNeverShown();
        client.reset();
        sim.reset();
        qunsetenv("KQ_REALTIME_URL");
    }

    std::unique_ptr<RealtimeSimulator> sim;
    std::unique_ptr<RealtimeClient> client;
    ClientProbe probe;
};
