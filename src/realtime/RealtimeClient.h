#pragma once

#include "realtime/ConnectionThread.h"
#include "realtime/RealtimeTiming.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <functional>

class RealtimeConnection;

// The client of the realtime model service. Runs its connection on its own thread
// ("kb-realtime"); every operation only posts work there and returns at once, so any thread
// may call it (append() is called from an audio thread). Every callback is delivered on the
// thread that created the client, in the order the events happened; install them before the
// first start().
class RealtimeClient : public QObject
{
    Q_OBJECT
public:
    using Config = RealtimeConfig;
    using Status = RealtimeStatus;
    using Timing = RealtimeTiming;

    explicit RealtimeClient(QObject *parent = nullptr);
    explicit RealtimeClient(const Timing &timing, QObject *parent = nullptr);
    ~RealtimeClient() override;

    void start(const Config &config);
    // Safe to call when not started.
    void stop();
    // 24 kHz mono little-endian 16-bit PCM.
    void append(const QByteArray &pcm16);
    void updateHistory(const History &history);
    void updateInstructions(const QString &instructions);
    // Asks for a fresh answer to `question`, cancelling the answer in progress.
    void regenerate(const QString &question);
    // Sends a picture of the screen (JPEG bytes) with `text` and asks for a response.
    void askAboutImage(const QByteArray &jpeg, const QString &text);

    std::function<void(const RealtimeStatus &)> onStatus;
    std::function<void(const QString &itemID, const QString &transcript)> onTranscript;
    std::function<void(const QString &responseID, const QString &delta)> onDelta;
    std::function<void(const QString &responseID)> onResponseDone;
    std::function<void(const QVariantMap &usage)> onUsage;
    std::function<void(const QString &message)> onLog;
    // Connection lines for the start-up trace ("        websocket open", "        connection lost ...").
    std::function<void(const QString &line)> onTrace;

    // The service heard the other side start / stop talking; `itemID` names the turn's input
    // item, as its transcript events do (empty when the service named none).
    std::function<void(const QString &itemID)> onSpeechStarted;
    std::function<void(const QString &itemID)> onSpeechStopped;
    // A piece of a question while it is being transcribed; the whole text follows in onTranscript.
    std::function<void(const QString &itemID, const QString &delta)> onTranscriptDelta;
    // The service could not transcribe this item; `message` is its explanation.
    std::function<void(const QString &itemID, const QString &message)> onTranscriptFailed;
    // The transcription's own usage for one item ({"type": "tokens", ...} or {"type":
    // "duration", "seconds": ...}), right after onTranscript (also when the transcript was empty).
    std::function<void(const QString &itemID, const QVariantMap &usage)> onTranscriptionUsage;
    // "response.created", just before the empty onDelta that opens the answer. `requested` is
    // true for the first response created after the client itself sent "response.create".
    std::function<void(const QString &responseID, bool requested)> onResponseCreated;
    // A response that ended "failed", "incomplete" or "cancelled", with the service's reason
    // ("max_output_tokens", "turn_detected", an error message ...) and whether it failed for a
    // passing fault of the service (RealtimeFailure::isTransient); after onUsage, before onResponseDone.
    std::function<void(const QString &responseID, const QString &status, const QString &reason, bool transient)> onResponseEnded;
    // A socket has been configured and the history seeded (first connect, reconnects, cycles);
    // right after the `connected` status.
    std::function<void()> onConfigured;
    // The service refused the transcription model `refused`; `model` is used instead until the next start().
    std::function<void(const QString &refused, const QString &model)> onTranscribeModelFallback;
    // One line for the user that does not stop the session: a rate limit, or why the service
    // cannot be reached while the client keeps retrying.
    std::function<void(const QString &message)> onNotice;

private:
    ConnectionThread<RealtimeConnection> m_connection;
};
