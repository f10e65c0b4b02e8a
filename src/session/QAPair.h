#pragma once

#include "session/Clock.h"

#include <QByteArray>
#include <QDateTime>
#include <QHashFunctions>
#include <QString>

#include <optional>

// One question/answer card. A plain value: equal and hashed over all fields, identified by
// `id`.
struct QAPair
{
    QString id;                           // upper-case UUID, made at creation
    QString timestamp;                    // local wall-clock time of creation, "HH:mm:ss"
    QString question;                     // empty while the answer has overtaken its question
    QString answer;                       // deltas appended in arrival order
    bool isComplete = false;              // the response writing `answer` has finished
    std::optional<QString> responseID;    // the response writing `answer`
    bool wasExtended = false;             // a follow-up was merged into the question
    Clock::TimePoint lastQuestionAt{};    // when the question was last set or extended
    QString myAnswer;                     // the user's own transcribed answer
    bool myAnswerInProgress = false;      // the user's answer is still being transcribed
    QByteArray screenThumbnail;           // a screen question's picture, small, as JPEG; else empty

    // A fresh card: new id, time stamp from `wallNow`, `lastQuestionAt` = `now`.
    static QAPair make(const QString &question, std::optional<QString> responseID,
                       Clock::TimePoint now, const QDateTime &wallNow);

    friend bool operator==(const QAPair &, const QAPair &) = default;
};

size_t qHash(const QAPair &pair, size_t seed = 0);
