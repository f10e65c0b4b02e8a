#pragma once

#include <QCoreApplication>
#include <QList>
#include <QMap>
#include <QString>

#include <optional>

struct LoadedSessionReview;

// One session's records read back: the events log ("meeting_<stamp>.events.jsonl") and the
// Markdown transcript beside it, as a plain model for the review page. Times are seconds
// since the events log was opened (its `t`). Whatever a log of an older version lacks stays
// empty here, and `notes` says what could not be shown.
struct SessionReview
{
    struct Span
    {
        double start = 0;
        double end = 0;
        double seconds() const { return end - start; }
    };

    // One of your answers, from the answer timer (you_started / you_stopped).
    struct Answer
    {
        QString pair;
        Span span;
        int words = 0;
        QString text;
        bool startedOverInterviewer = false;   // you began while the interviewer still spoke
    };

    // One question card.
    struct Card
    {
        QString pair;
        QString question;           // as finally asked (a merged follow-up included)
        QStringList followUps;      // the parts merged into it, in order
        QList<double> followUpsAt;  // when each was merged
        QString draft;              // the drafted answer
        QString yourAnswer;         // what you said, when transcribed
        double shownAt = -1;        // the card appeared (the question was transcribed)
        std::optional<double> questionEndedAt;   // the interviewer stopped speaking
        std::optional<double> firstTextAt;       // the first answer text arrived
        bool failed = false;        // no answer came
        bool fromScreen = false;    // asked from a screenshot
        double responseCost = 0;    // answers drafted for it
        double transcriptionCost = 0;   // transcribing its question
        bool hasCost = false;
    };

    // Something that happened to the session: a reconnect, a lost device, a failed file, a
    // banner the window showed.
    struct Notice
    {
        enum class Kind { reconnect, problem, info, banner };
        double at = 0;
        Kind kind = Kind::info;
        QString text;
    };

    QString stamp;                 // "2026-11-21_14-05-09", "demo_…"
    QString eventsPath;
    QString transcriptPath;        // empty when none was found
    double length = 0;             // seconds from the first to the last event
    bool ended = false;            // the log reached session_ended
    bool demo = false;
    QString model;                 // the answers' model
    QString transcribeModel;

    QList<Card> cards;
    QList<Answer> answers;
    QList<Span> interviewer;       // the interviewer speaking, as the service heard it
    bool hasInterviewerSpeech = false;   // the log records the interviewer's speech
    QList<Notice> notices;

    QMap<QString, double> costByModel;
    std::optional<double> totalCost;   // the session's own total, else the sum of the parts
    QStringList notes;                 // what is missing, in plain words

    Q_DECLARE_TR_FUNCTIONS(SessionReview)

public:
    // Reads an events log, or a transcript (whose events log is found beside it). An error
    // message (for the user) when neither can be read. When the log does not record the
    // interviewer's speech (older versions), it is estimated from the session's recording if
    // `readRecording` (RecordingActivity; a long recording takes a moment).
    using Loaded = LoadedSessionReview;
    static Loaded load(const QString &path, bool readRecording = true);

    // The same from text already read; `transcript` may be empty.
    static SessionReview fromText(const QByteArray &events, const QString &transcript);

    // The page's file name beside the records: "meeting_<stamp>.review.html".
    static QString pagePathFor(const QString &eventsOrTranscriptPath);
};

struct LoadedSessionReview
{
    std::optional<SessionReview> review;
    QString error;   // empty when read
};
