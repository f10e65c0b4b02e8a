#pragma once

// Records everything a RealtimeClient reports, for the realtime tests.

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
        client.onStatus = [this, mark](const RealtimeStatus &status) { mark("status"); statuses.append(status); };
        client.onTranscript = [this, mark](const QString &id, const QString &text) { mark("transcript"); transcripts.append({id, text}); };
        client.onDelta = [this, mark](const QString &id, const QString &delta) { mark("delta"); deltas.append({id, delta}); };
        client.onResponseDone = [this, mark](const QString &id) { mark("done"); done.append(id); };
        client.onUsage = [this, mark](const QVariantMap &usage) { mark("usage"); usages.append(usage); };
        client.onLog = [this](const QString &line) { logs.append(line); };
        client.onTrace = [this](const QString &line) { traces.append(line); };
        client.onSpeechStarted = [this, mark](const QString &id) { mark("speech"); speech.append("started " + id); };
        client.onSpeechStopped = [this, mark](const QString &id) { mark("speech"); speech.append("stopped " + id); };
        client.onTranscriptDelta = [this, mark](const QString &id, const QString &delta) { mark("transcript-delta"); transcriptDeltas.append({id, delta}); };
        client.onTranscriptFailed = [this, mark](const QString &id, const QString &message) { mark("transcript-failed"); transcriptFailures.append({id, message}); };
        client.onTranscriptionUsage = [this, mark](const QString &id, const QVariantMap &usage) { mark("transcription-usage"); transcriptionUsages.append({id, usage}); };
        client.onResponseCreated = [this, mark](const QString &id, bool requested) { mark("created"); created.append({id, requested}); };
        client.onResponseEnded = [this, mark](const QString &id, const QString &status, const QString &reason, bool transient) {
            mark("ended");
            ended.append(id + " " + status + " " + reason + (transient ? " (transient)" : ""));
        };
        client.onConfigured = [this, mark] { mark("configured"); ++configured; };
        client.onTranscribeModelFallback = [this, mark](const QString &refused, const QString &model) { mark("fallback"); transcribeFallbacks.append({refused, model}); };
        client.onNotice = [this, mark](const QString &message) { mark("notice"); notices.append(message); };
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
