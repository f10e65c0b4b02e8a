#pragma once

#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QString>
#include <QVariantMap>

#include <functional>

// What the session controller needs of the realtime model service. The owner installs the
// callbacks once, before the first start; every callback is delivered on the GUI thread.
class RealtimeLink
{
public:
    virtual ~RealtimeLink() = default;

    virtual void start(const RealtimeConfig &config) = 0;
    // Safe to call when not started.
    virtual void stop() = 0;
    // 24 kHz mono little-endian 16-bit PCM. Called from an audio thread; must not block.
    virtual void append(const QByteArray &pcm16) = 0;
    virtual void updateHistory(const History &history) = 0;
    virtual void updateInstructions(const QString &instructions) = 0;
    virtual void regenerate(const QString &question) = 0;
    // Sends a picture of the screen (JPEG bytes) with `text` and asks for a response, which
    // then arrives through onResponseCreated(id, requested = true). Returns false when this
    // link cannot send pictures.
    virtual bool askAboutImage(const QByteArray &jpeg, const QString &text)
    {
        Q_UNUSED(jpeg);
        Q_UNUSED(text);
        return false;
    }

    std::function<void(const RealtimeStatus &)> onStatus;
    std::function<void(const QString &itemID, const QString &transcript)> onTranscript;
    std::function<void(const QString &responseID, const QString &delta)> onDelta;
    std::function<void(const QString &responseID)> onResponseDone;
    std::function<void(const QVariantMap &usage)> onUsage;
    std::function<void(const QString &message)> onLog;

    // The service heard the other side start / stop talking; `itemID` names the turn's input
    // item (the same id its transcript events carry).
    std::function<void(const QString &itemID)> onSpeechStarted;
    std::function<void(const QString &itemID)> onSpeechStopped;
    // A piece of a question's transcript while it is being transcribed; the completed text
    // follows through onTranscript.
    std::function<void(const QString &itemID, const QString &delta)> onTranscriptDelta;
    // The service could not transcribe this item.
    std::function<void(const QString &itemID, const QString &message)> onTranscriptFailed;
    // The meeting transcription's own usage for one item ({"type":"tokens",...} or
    // {"type":"duration","seconds":...}), billed by the transcription model.
    std::function<void(const QString &itemID, const QVariantMap &usage)> onTranscriptionUsage;
    // "response.created". `requested` is true for the first response created after the
    // client itself asked for one (regenerate, or any other request of ours).
    std::function<void(const QString &responseID, bool requested)> onResponseCreated;
    // A response that ended "failed", "incomplete" or "cancelled"; `reason` is the service's
    // status details (reason or error message); `transient`: it failed for a passing fault of
    // the service (a server error), so asking again may work. Delivered before onResponseDone.
    std::function<void(const QString &responseID, const QString &status, const QString &reason, bool transient)> onResponseEnded;
    // A socket has been configured and the history seeded: after the first connect, every
    // reconnect and every periodic cycle.
    std::function<void()> onConfigured;
    // The service refused the configured transcription model; `model` is the one used instead.
    std::function<void(const QString &refused, const QString &model)> onTranscribeModelFallback;
    // A line for the user that does not end the session (e.g. a rate limit).
    std::function<void(const QString &message)> onNotice;
};
