#pragma once

#include "session/Clock.h"

#include <QHash>
#include <QSet>
#include <QString>

#include <memory>
#include <optional>
#include <unordered_map>

// The session controller's bookkeeping of turns and answers within one session.
struct SessionTurns
{
    // Answer text dropped this session: one log line per response, totals at the end.
    struct Drops
    {
        QSet<QString> responses;
        qint64 deltas = 0;
        qint64 chars = 0;
    };

    std::optional<QString> speakingPairID;        // the card the user's answer is timed on
    QHash<QString, QString> committedAnswers;     // card id -> the user's finished answer text
    QHash<QString, Clock::TimePoint> questionAt;  // card id -> when its question was asked
    QSet<QString> firstTokenSeen;                 // card ids whose answer has begun
    QHash<QString, Clock::TimePoint> speechStartedAt;   // input item -> when speech began
    QHash<QString, double> heardSeconds;                // input item -> seconds of speech heard
    std::unordered_map<QString, std::unique_ptr<ClockTimer>> questionWaits;   // card id -> late-question wait
    Drops drops;
};
