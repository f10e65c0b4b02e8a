#include "realtimesim/SimScript.h"

#include <QFile>
#include <QJsonArray>
#include <QJsonDocument>

namespace {

bool fail(QString *error, const QString &message)
{
    if (error)
        *error = message;
    return false;
}

} // namespace

std::optional<SimFault::Kind> SimFault::kindFromName(const QString &name)
{
    if (name == QLatin1String("close")) return Kind::close;
    if (name == QLatin1String("drop")) return Kind::drop;
    if (name == QLatin1String("freeze") || name == QLatin1String("withhold_pongs")) return Kind::freeze;
    if (name == QLatin1String("malformed")) return Kind::malformed;
    if (name == QLatin1String("error")) return Kind::error;
    if (name == QLatin1String("session_expired")) return Kind::sessionExpired;
    if (name == QLatin1String("insufficient_quota")) return Kind::insufficientQuota;
    return std::nullopt;
}

std::optional<SimFault> SimFault::fromJson(const QJsonObject &object, QString *error)
{
    SimFault fault;
    const auto kind = kindFromName(object.value("kind").toString());
    if (!kind) {
        fail(error, QStringLiteral("unknown fault kind \"%1\"").arg(object.value("kind").toString()));
        return std::nullopt;
    }
    fault.kind = *kind;
    fault.code = object.value("code").toInt(fault.kind == Kind::close ? 1000 : 0);
    fault.reason = object.value("reason").toString();
    fault.errorCode = object.value("error_code").toString(QStringLiteral("server_error"));
    fault.message = object.value("message").toString(QStringLiteral("The server had an error while processing your request."));
    const QString when = object.value("when").toString(QStringLiteral("after"));
    if (when != QLatin1String("before") && when != QLatin1String("after")) {
        fail(error, QStringLiteral("fault \"when\" must be \"before\" or \"after\""));
        return std::nullopt;
    }
    fault.beforeResponse = when == QLatin1String("before");
    return fault;
}

std::optional<SimAudioTranscription> SimAudioTranscription::fromJson(const QJsonObject &object, QString *error)
{
    SimAudioTranscription step;
    step.text = object.value("text").toString();
    step.status = object.value("status").toInt(200);
    if (step.status < 200 || step.status > 599) {
        fail(error, QStringLiteral("\"status\" must be an HTTP status"));
        return std::nullopt;
    }
    step.errorType = object.value("error_type").toString();
    step.errorCode = object.value("error_code").toString();
    step.message = object.value("message").toString();
    step.retryAfter = object.value("retry_after").toDouble(-1);
    step.delayMs = object.value("delay_ms").toInt(0);
    return step;
}

std::optional<SimScript> SimScript::fromJson(const QByteArray &json, QString *error)
{
    QJsonParseError parseError;
    const QJsonDocument document = QJsonDocument::fromJson(json, &parseError);
    if (!document.isObject()) {
        fail(error, parseError.error != QJsonParseError::NoError ? parseError.errorString()
                                                                 : QStringLiteral("the script must be a JSON object"));
        return std::nullopt;
    }
    const QJsonObject root = document.object();
    SimScript script;
    script.loop = root.value("loop").toBool(true);
    script.rejectCurrentShape = root.value("reject_current_shape").toBool(false);
    script.rejectOutputText = root.value("reject_output_text").toBool(false);
    script.apiKey = root.value("api_key").toString();
    script.cancelDelayMs = root.value("cancel_delay_ms").toInt(script.cancelDelayMs);
    script.imageAnswer = root.value("image_answer").toString(SimScript().imageAnswer);
    script.realistic = root.value("realistic").toBool(false);
    const QJsonValue withhold = root.value("withhold_session_created");
    script.withholdSessionCreated = withhold.isBool() ? (withhold.toBool() ? -1 : 0) : withhold.toInt(0);
    script.insufficientQuotaAfterConfiguration = root.value("insufficient_quota_after_configuration").toBool(false);
    if (root.value("refused_transcribe_models").isArray()) {
        QStringList models;
        for (const QJsonValue &model : root.value("refused_transcribe_models").toArray())
            models.append(model.toString());
        script.refusedTranscribeModels = models;
    }
    for (const QJsonValue &text : root.value("transcription_texts").toArray())
        script.transcriptionTexts.append(text.toString());
    const QJsonArray transcriptions = root.value("audio_transcriptions").toArray();
    for (qsizetype i = 0; i < transcriptions.size(); ++i) {
        const auto step = SimAudioTranscription::fromJson(transcriptions.at(i).toObject(), error);
        if (!step) {
            if (error)
                error->prepend(QStringLiteral("audio transcription %1: ").arg(i + 1));
            return std::nullopt;
        }
        script.audioTranscriptions.append(*step);
    }
    const QJsonArray turns = root.value("turns").toArray();
    for (qsizetype i = 0; i < turns.size(); ++i) {
        const QJsonObject object = turns.at(i).toObject();
        SimTurn turn;
        turn.question = object.value("question").toString();
        turn.answer = object.value("answer").toString();
        if (turn.question.isEmpty()) {
            fail(error, QStringLiteral("turn %1 has no \"question\"").arg(i + 1));
            return std::nullopt;
        }
        const QString transcript = object.value("transcript").toString(QStringLiteral("before"));
        if (transcript != QLatin1String("before") && transcript != QLatin1String("after")) {
            fail(error, QStringLiteral("turn %1: \"transcript\" must be \"before\" or \"after\"").arg(i + 1));
            return std::nullopt;
        }
        turn.transcriptAfterResponse = transcript == QLatin1String("after");
        turn.delayMs = object.value("delay_ms").toInt(0);
        turn.deltaDelayMs = object.value("delta_delay_ms").toInt(turn.deltaDelayMs);
        turn.deltaCount = object.value("delta_count").toInt(0);
        turn.responseStatus = object.value("response_status").toString(QStringLiteral("completed"));
        if (!QStringList{"completed", "incomplete", "failed"}.contains(turn.responseStatus)) {
            fail(error, QStringLiteral("turn %1: \"response_status\" must be \"completed\", \"incomplete\" or \"failed\"")
                            .arg(i + 1));
            return std::nullopt;
        }
        turn.transcriptionFails = object.value("transcription_fails").toBool(false);
        turn.strayDelta = object.value("stray_delta").toString();
        if (object.value("fault").isObject()) {
            const auto fault = SimFault::fromJson(object.value("fault").toObject(), error);
            if (!fault) {
                if (error)
                    error->prepend(QStringLiteral("turn %1: ").arg(i + 1));
                return std::nullopt;
            }
            turn.fault = *fault;
        }
        script.turns.append(turn);
    }
    return script;
}

std::optional<SimScript> SimScript::load(const QString &path, QString *error)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        fail(error, QStringLiteral("cannot read %1: %2").arg(path, file.errorString()));
        return std::nullopt;
    }
    return fromJson(file.readAll(), error);
}

QStringList SimScript::effectiveRefusedTranscribeModels() const
{
    if (refusedTranscribeModels)
        return *refusedTranscribeModels;
    // The service's own model page lists it as not supported on /v1/realtime.
    return realistic ? QStringList{QStringLiteral("gpt-live-transcribe")} : QStringList{};
}

SimScript SimScript::builtin()
{
    SimScript script;
    script.imageAnswer = QStringLiteral(
        "Approach: walk the list once, keeping a map from each value to its index; for each item, "
        "look up its complement first. Code: seen = {}; for i, x in enumerate(nums): if target - x in "
        "seen: return [seen[target - x], i]; seen[x] = i");
    auto turn = [](const char *question, const char *answer) {
        SimTurn t;
        t.question = QString::fromUtf8(question);
        t.answer = QString::fromUtf8(answer);
        t.deltaDelayMs = 60;
        return t;
    };
    script.turns = {
        turn("Can you tell us a little about yourself?",
             "I'm a software engineer with eight years of experience, most recently leading a team "
             "that builds real-time data pipelines."),
        turn("Why do you want to work here?",
             "Your focus on reliable developer tools matches what I enjoy most: making complex "
             "systems simple to use."),
        turn("Tell me about a difficult bug you fixed.",
             "A race in our audio pipeline dropped frames under load; I added tracing, found a lock "
             "held across a callback, and replaced it with a lock-free queue."),
    };
    return script;
}
