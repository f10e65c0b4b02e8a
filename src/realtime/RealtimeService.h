#pragma once

#include "realtime/RealtimeEvents.h"
#include "realtime/RealtimeTypes.h"

#include <QByteArray>
#include <QString>

// What the session needs of the realtime model service: the operations below, and the events
// it connects to (RealtimeEvents), every one delivered on the GUI thread. RealtimeClient is
// the real one; the session's tests use a fake.
class RealtimeService : public RealtimeEvents
{
    Q_OBJECT
public:
    using RealtimeEvents::RealtimeEvents;

    virtual void start(const RealtimeConfig &config) = 0;
    // Safe to call when not started.
    virtual void stop() = 0;
    // 24 kHz mono little-endian 16-bit PCM. Called from an audio thread; must not block.
    virtual void append(const QByteArray &pcm16) = 0;
    virtual void updateHistory(const History &history) = 0;
    virtual void updateInstructions(const QString &instructions) = 0;
    // Asks for a fresh answer to `question`, cancelling the answer in progress.
    virtual void regenerate(const QString &question) = 0;
    // Sends a picture of the screen (JPEG bytes) with `text` and asks for a response, which
    // then arrives through responseCreated(id, requested = true). Returns false when this
    // service cannot send pictures.
    virtual bool askAboutImage(const QByteArray &jpeg, const QString &text) = 0;
};
