#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>
#include <QStringList>

#include <optional>

// Something the simulator does to the client on purpose.
struct SimFault
{
    enum class Kind { none, close, drop, freeze, malformed, error, sessionExpired, insufficientQuota };

    Kind kind = Kind::none;
    int code = 1000;         // close
    QString reason;          // close
    QString errorCode;       // error
    QString message;         // error
    bool beforeResponse = false; // in a turn: before the response instead of after it

    static std::optional<SimFault> fromJson(const QJsonObject &object, QString *error);
    static std::optional<Kind> kindFromName(const QString &name);
    static SimFault of(Kind kind)
    {
        SimFault fault;
        fault.kind = kind;
        return fault;
    }
};

// One question the simulated service "hears", and the answer it streams back.
struct SimTurn
{
    QString question;
    QString answer;
    bool transcriptAfterResponse = false;
    int delayMs = 0;       // pause after the end of speech before anything is sent
    int deltaDelayMs = 15; // pause between answer deltas
    int deltaCount = 0;    // 0: one delta per few words
    SimFault fault;
    // How the response ends: "completed", "incomplete" (about half the answer, then
    // max_output_tokens) or "failed" (after the first delta, with a server error).
    QString responseStatus = QStringLiteral("completed");
    bool transcriptionFails = false; // "...transcription.failed" instead of "...completed"
    // When set, text for a response that was never announced, sent as the turn begins (a
    // delta, "response.output_text.done" and "response.done", no "response.created").
    QString strayDelta;
};

// What the transcription endpoint (POST /v1/audio/transcriptions) answers to one request.
struct SimAudioTranscription
{
    QString text;           // the transcript; empty: the next of the simulator's transcription texts
    int status = 200;       // any other status answers with the service's error object
    QString errorType;      // for an error: by default what the service sends for its status and code
    QString errorCode;      // for a 429: "rate_limit_exceeded" unless given ("insufficient_quota" …)
    QString message;        // for an error: by default the service's own words
    double retryAfter = -1; // seconds, sent as "retry-after" when 0 or more
    int delayMs = 0;        // pause before the answer

    static std::optional<SimAudioTranscription> fromJson(const QJsonObject &object, QString *error);
};

struct SimScript
{
    QList<SimTurn> turns;
    bool loop = true;               // start again at the first turn when all were used
    bool rejectCurrentShape = false; // answer the current session shape with "Unknown parameter"
    bool rejectOutputText = false;   // refuse assistant items whose content type is "output_text"
    QString apiKey;                  // when set, only this key is accepted
    int cancelDelayMs = 40;          // a cancelled response ends this long after "response.cancel"
    QString imageAnswer;             // the answer to a user item with a picture ("image_answer")
    // Behave as the real service does (see tools/README.md) instead of the simpler, ordered way.
    bool realistic = false;
    // The first this many connections never get "session.created"; -1: every connection.
    int withholdSessionCreated = 0;
    // Answer the first configuration of every connection with "insufficient_quota".
    bool insufficientQuotaAfterConfiguration = false;
    // Transcription models refused in a configuration; unset means none, or in the realistic mode
    // the one the service does not support on /v1/realtime.
    std::optional<QStringList> refusedTranscribeModels;

    // The texts transcription-only connections and the transcription endpoint answer with, in
    // turn; empty: the simulator's own.
    QStringList transcriptionTexts;
    // What the transcription endpoint answers, one request after another; later requests get
    // the next transcription text.
    QList<SimAudioTranscription> audioTranscriptions;

    QStringList effectiveRefusedTranscribeModels() const;

    static std::optional<SimScript> fromJson(const QByteArray &json, QString *error);
    static std::optional<SimScript> load(const QString &path, QString *error);
    // A short interview, used when no script is given.
    static SimScript builtin();
};
