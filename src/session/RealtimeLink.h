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

    std::function<void(const RealtimeStatus &)> onStatus;
    std::function<void(const QString &itemID, const QString &transcript)> onTranscript;
    std::function<void(const QString &responseID, const QString &delta)> onDelta;
    std::function<void(const QString &responseID)> onResponseDone;
    std::function<void(const QVariantMap &usage)> onUsage;
    std::function<void(const QString &message)> onLog;
};
