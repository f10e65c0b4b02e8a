#pragma once

#include "session/Clock.h"

#include <QByteArray>
#include <QCoreApplication>
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
    // The question. While `questionInProgress` it holds the partial transcript (possibly
    // empty); afterwards the completed one. Empty when the question never arrived.
    QString question;
    QString answer;                       // deltas appended in arrival order
    bool isComplete = false;              // the response writing `answer` has finished
    std::optional<QString> responseID;    // the response writing `answer`
    bool wasExtended = false;             // a follow-up was merged into the question
    Clock::TimePoint lastQuestionAt{};    // when the question was last set or extended
    QString myAnswer;                     // the user's own transcribed answer
    bool myAnswerInProgress = false;      // the user's answer is still being transcribed
    QByteArray screenThumbnail;           // a screen question's picture, small, as JPEG; else empty

    // The service's input item this card's question comes from (empty when not known).
    QString itemID;
    // The question is still being heard or transcribed: `question` is partial text (shown
    // in the secondary colour), or empty while the other side talks ("Listening…").
    bool questionInProgress = false;
    // The service could not transcribe the question; `question` is empty and the card
    // shows "(the question could not be transcribed)". The answer is kept.
    bool questionFailed = false;
    // No transcript came for the question: its answer finished and the service went on (5 s,
    // or the next turn began). The card shows "(the question was not transcribed)" until a
    // late transcript replaces it.
    bool questionMissing = false;
    // A short note under the answer, or empty: "answer cut short", "answer truncated",
    // "the service could not answer: <reason>".
    QString answerNote;

    // A fresh card: new id, time stamp from `wallNow`, `lastQuestionAt` = `now`.
    static QAPair make(const QString &question, std::optional<QString> responseID,
                       Clock::TimePoint now, const QDateTime &wallNow);

    // What a view shows for the question: the question itself, "Listening…" while it is in
    // progress with no text yet, or the could-not-be-transcribed / was-not-transcribed line.
    QString displayQuestion() const;
    // The question as the records and the headless output write it: the question, or the
    // could-not-be-transcribed / was-not-transcribed line; empty when none of those.
    QString recordedQuestion() const;

    Q_DECLARE_TR_FUNCTIONS(QAPair)

public:
    // Card texts.
    static const QString listeningText;
          // "Listening…"
    static const QString untranscribedText;      // "(the question could not be transcribed)"
    static const QString notTranscribedText;     // "(the question was not transcribed)"
    static const QString cutShortNote;           // "answer cut short"
    static const QString truncatedNote;          // "answer truncated"
    // "the service could not answer: <reason>" ("the service could not answer" without one).
    static QString couldNotAnswerNote(const QString &reason);

    friend bool operator==(const QAPair &, const QAPair &) = default;
};

size_t qHash(const QAPair &pair, size_t seed = 0);
