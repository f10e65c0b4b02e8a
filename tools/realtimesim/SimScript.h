#pragma once

#include <QByteArray>
#include <QJsonObject>
#include <QList>
#include <QString>

#include <optional>

// Something the simulator does to the client on purpose.
struct SimFault
{
    enum class Kind { none, close, drop, freeze, malformed, error, sessionExpired };

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

    static std::optional<SimScript> fromJson(const QByteArray &json, QString *error);
    static std::optional<SimScript> load(const QString &path, QString *error);
    // A short interview, used when no script is given.
    static SimScript builtin();
};
