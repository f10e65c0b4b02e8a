#pragma once

// Records everything a RealtimeClient reports, for the realtime tests.

#include "realtime/RealtimeClient.h"

#include <QCoreApplication>
#include <QList>
#include <QRegularExpression>
#include <QStringList>
#include <QThread>
#include <QVariantMap>

struct ClientProbe
{
    QList<RealtimeStatus> statuses;
    QStringList logs;
    QStringList traces;
    QList<QPair<QString, QString>> transcripts;
    QList<QPair<QString, QString>> deltas;
    QStringList done;
    QList<QVariantMap> usages;
    QStringList order; // "status", "transcript", "delta", "usage", "done" in delivery order
    int offThreadCalls = 0;

    void attach(RealtimeClient &client)
    {
        auto mark = [this](const char *what) {
            if (QThread::currentThread() != QCoreApplication::instance()->thread())
                ++offThreadCalls;
            order.append(QString::fromLatin1(what));
        };
        client.onStatus = [this, mark](const RealtimeStatus &status) { mark("status"); statuses.append(status); };
        client.onTranscript = [this, mark](const QString &id, const QString &text) { mark("transcript"); transcripts.append({id, text}); };
        client.onDelta = [this, mark](const QString &id, const QString &delta) { mark("delta"); deltas.append({id, delta}); };
        client.onResponseDone = [this, mark](const QString &id) { mark("done"); done.append(id); };
        client.onUsage = [this, mark](const QVariantMap &usage) { mark("usage"); usages.append(usage); };
        client.onLog = [this](const QString &line) { logs.append(line); };
        client.onTrace = [this](const QString &line) { traces.append(line); };
    }

    bool has(const RealtimeStatus &status) const { return statuses.contains(status); }
    RealtimeStatus last() const { return statuses.isEmpty() ? RealtimeStatus() : statuses.last(); }
    int count(const RealtimeStatus &status) const { return int(statuses.count(status)); }
    int logsContaining(const QString &text) const { return int(logs.filter(text).size()); }

    // The announced delays of every "Reconnecting in Ns" line, in order.
    QList<int> reconnectDelays() const
    {
        static const QRegularExpression pattern(QStringLiteral("^Reconnecting in (\\d+)s — "));
        QList<int> result;
        for (const QString &line : logs) {
            const auto match = pattern.match(line);
            if (match.hasMatch())
                result.append(match.captured(1).toInt());
        }
        return result;
    }

    // The answer text streamed for `responseID`.
    QString answer(const QString &responseID) const
    {
        QString text;
        for (const auto &delta : deltas)
            if (delta.first == responseID)
                text += delta.second;
        return text;
    }
};
