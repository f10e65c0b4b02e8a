#pragma once

// Records everything a RealtimeClient emits, for the realtime tests.

#include "realtime/RealtimeClient.h"

#include <QCoreApplication>
#include <algorithm>
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
    QStringList speech; // "started <item>" / "stopped <item>"
    QList<QPair<QString, QString>> transcriptDeltas;
    QList<QPair<QString, QString>> transcriptFailures;
    QList<QPair<QString, QVariantMap>> transcriptionUsages;
    QList<QPair<QString, bool>> created;
    QStringList ended; // "<response> <status> <reason>"
    int configured = 0;
    QList<QPair<QString, QString>> transcribeFallbacks;
    QStringList notices;
    // "status", "transcript", "delta", "usage", "done", "speech", "transcript-delta",
    // "transcript-failed", "transcription-usage", "created", "ended", "configured", "fallback",
    // "notice" in delivery order
    QStringList order;
    int offThreadCalls = 0;

    void attach(RealtimeClient &client)
    {
        auto mark = [this](const char *what) {
            if (QThread::currentThread() != QCoreApplication::instance()->thread())
                ++offThreadCalls;
            order.append(QString::fromLatin1(what));
        };
        QObject::connect(&client, &RealtimeEvents::statusChanged, &client, [this, mark](const RealtimeStatus &status) { mark("status"); statuses.append(status); });
        QObject::connect(&client, &RealtimeEvents::transcriptCompleted, &client, [this, mark](const QString &id, const QString &text) { mark("transcript"); transcripts.append({id, text}); });
        QObject::connect(&client, &RealtimeEvents::answerDelta, &client, [this, mark](const QString &id, const QString &delta) { mark("delta"); deltas.append({id, delta}); });
        QObject::connect(&client, &RealtimeEvents::responseDone, &client, [this, mark](const QString &id) { mark("done"); done.append(id); });
        QObject::connect(&client, &RealtimeEvents::usageReported, &client, [this, mark](const QVariantMap &usage) { mark("usage"); usages.append(usage); });
        QObject::connect(&client, &RealtimeEvents::logLine, &client, [this](const QString &line) { logs.append(line); });
        QObject::connect(&client, &RealtimeEvents::traceLine, &client, [this](const QString &line) { traces.append(line); });
        QObject::connect(&client, &RealtimeEvents::meetingSpeechStarted, &client, [this, mark](const QString &id) { mark("speech"); speech.append("started " + id); });
        QObject::connect(&client, &RealtimeEvents::meetingSpeechStopped, &client, [this, mark](const QString &id) { mark("speech"); speech.append("stopped " + id); });
        QObject::connect(&client, &RealtimeEvents::transcriptDeltaReceived, &client, [this, mark](const QString &id, const QString &delta) { mark("transcript-delta"); transcriptDeltas.append({id, delta}); });
        QObject::connect(&client, &RealtimeEvents::transcriptionFailed, &client, [this, mark](const QString &id, const QString &message) { mark("transcript-failed"); transcriptFailures.append({id, message}); });
        QObject::connect(&client, &RealtimeEvents::transcriptionUsageReported, &client, [this, mark](const QString &id, const QVariantMap &usage) { mark("transcription-usage"); transcriptionUsages.append({id, usage}); });
        QObject::connect(&client, &RealtimeEvents::responseCreated, &client, [this, mark](const QString &id, bool requested) { mark("created"); created.append({id, requested}); });
        QObject::connect(&client, &RealtimeEvents::responseEnded, &client, [this, mark](const QString &id, const QString &status, const QString &reason, bool transient) {
            mark("ended");
            ended.append(id + " " + status + " " + reason + (transient ? " (transient)" : ""));
        });
        QObject::connect(&client, &RealtimeEvents::sessionConfigured, &client, [this, mark] { mark("configured"); ++configured; });
        QObject::connect(&client, &RealtimeEvents::transcribeModelFellBack, &client, [this, mark](const QString &refused, const QString &model) { mark("fallback"); transcribeFallbacks.append({refused, model}); });
        QObject::connect(&client, &RealtimeEvents::noticeRaised, &client, [this, mark](const QString &message) { mark("notice"); notices.append(message); });
    }

    int failedCount() const
    {
        return int(std::count_if(statuses.cbegin(), statuses.cend(), [](const RealtimeStatus &s) { return s.isFailed(); }));
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
