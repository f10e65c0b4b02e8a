#pragma once

#include "realtime/RealtimeTypes.h"

#include <QObject>
#include <QString>
#include <QVariantMap>

// Everything the realtime service reports, declared once. The connection emits these on its
// own thread; RealtimeClient relays them to the thread that created it, in the order they
// happened; the session connects to them on the GUI thread.
class RealtimeEvents : public QObject
{
    Q_OBJECT
public:
    explicit RealtimeEvents(QObject *parent = nullptr);
    ~RealtimeEvents() override;

    // Re-emits every signal of `from` from `to`, queued to `to`'s thread (in order); nothing
    // is delivered once `to` is gone.
    static void relay(const RealtimeEvents *from, RealtimeEvents *to);

signals:
    void statusChanged(const RealtimeStatus &status);
    // A completed transcript of the meeting (a question); never empty.
    void transcriptCompleted(const QString &itemID, const QString &transcript);
    // A piece of an answer; an empty one opens the answer right after responseCreated.
    void answerDelta(const QString &responseID, const QString &delta);
    void responseDone(const QString &responseID);
    // A response's token usage.
    void usageReported(const QVariantMap &usage);
    void logLine(const QString &message);
    // Connection lines for the start-up trace ("        websocket open", "        connection lost ...").
    void traceLine(const QString &line);

    // The service heard the other side start / stop talking; `itemID` names the turn's input
    // item, as its transcript events do (empty when the service named none).
    void meetingSpeechStarted(const QString &itemID);
    void meetingSpeechStopped(const QString &itemID);
    // A piece of a question while it is being transcribed; the whole text follows in
    // transcriptCompleted.
    void transcriptDeltaReceived(const QString &itemID, const QString &delta);
    // The service could not transcribe this item; `message` is its explanation.
    void transcriptionFailed(const QString &itemID, const QString &message);
    // The meeting transcription's own usage for one item ({"type": "tokens", ...} or
    // {"type": "duration", "seconds": ...}), billed by the transcription model; right after
    // transcriptCompleted (also when the transcript was empty).
    void transcriptionUsageReported(const QString &itemID, const QVariantMap &usage);
    // "response.created", just before the empty answerDelta that opens the answer. `requested`
    // is true for the first response created after the client itself sent "response.create"
    // (regenerate, a screen question, or any other request of ours).
    void responseCreated(const QString &responseID, bool requested);
    // A response that ended "failed", "incomplete" or "cancelled", with the service's reason
    // ("max_output_tokens", "turn_detected", an error message ...) and whether it failed for a
    // passing fault of the service (RealtimeFailure::isTransient), so asking again may work;
    // after usageReported, before responseDone.
    void responseEnded(const QString &responseID, const QString &status, const QString &reason, bool transient);
    // A socket has been configured and the history seeded (first connect, reconnects, cycles);
    // right after the `connected` status.
    void sessionConfigured();
    // The service refused the transcription model `refused`; `model` is used instead until the
    // next start().
    void transcribeModelFellBack(const QString &refused, const QString &model);
    // One line for the user that does not stop the session: a rate limit, or why the service
    // cannot be reached while the client keeps retrying.
    void noticeRaised(const QString &message);
};
