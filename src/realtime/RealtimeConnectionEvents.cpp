// What the realtime connection does with each event the service sends.

#include "realtime/RealtimeConnection.h"

#include "realtime/RealtimeFailure.h"
#include "realtime/RealtimeProtocol.h"

#include <QJsonDocument>
#include <QUuid>

namespace {

const QString kActiveResponseCode = QStringLiteral("conversation_already_has_active_response");
const QString kSessionExpiredCode = QStringLiteral("session_expired");
const QString kFallbackTranscribeModel = QStringLiteral("whisper-1");
constexpr int kMaxCreateRetries = 3;

QString stringOr(const QJsonObject &object, const char *key, const QString &fallback = {})
{
    const QJsonValue value = object.value(QLatin1String(key));
    return value.isString() ? value.toString() : fallback;
}

// Why a response ended early, from its "status_details": the reason ("max_output_tokens",
// "turn_detected", ...), else the error's message or code, else the details' type.
QString endReason(const QJsonObject &response)
{
    const QJsonObject details = response.value(QLatin1String("status_details")).toObject();
    const QString reason = stringOr(details, "reason");
    if (!reason.isEmpty())
        return reason;
    const QJsonObject error = details.value(QLatin1String("error")).toObject();
    for (const char *key : {"message", "code", "type"}) {
        const QString text = stringOr(error, key);
        if (!text.isEmpty())
            return text;
    }
    return stringOr(details, "type");
}

} // namespace

void RealtimeConnection::handleText(const QString &text)
{
    const QJsonDocument document = QJsonDocument::fromJson(text.toUtf8());
    if (!document.isObject())
        return;
    const QJsonObject event = document.object();
    const QJsonValue typeValue = event.value(QLatin1String("type"));
    if (!typeValue.isString())
        return;
    const QString type = typeValue.toString();

    if (type == QLatin1String("session.created")) {
        sendSessionUpdate(m_usedLegacyShape);
    } else if (type == QLatin1String("session.updated")) {
        handleConfigured();
    } else if (type.startsWith(QLatin1String("conversation.item.input_audio_transcription."))) {
        handleTranscription(type, event);
    } else if (type == QLatin1String("input_audio_buffer.speech_started")) {
        emit m_events.meetingSpeechStarted(stringOr(event, "item_id"));
    } else if (type == QLatin1String("input_audio_buffer.speech_stopped")) {
        emit m_events.meetingSpeechStopped(stringOr(event, "item_id"));
    } else if (type == QLatin1String("response.created")) {
        handleResponseCreated(event);
    } else if (type == QLatin1String("response.output_text.delta") || type == QLatin1String("response.text.delta")) {
        const QString responseID = stringOr(event, "response_id", QStringLiteral("current"));
        const QString delta = stringOr(event, "delta");
        if (!delta.isEmpty())
            emit m_events.answerDelta(responseID, delta);
    } else if (type == QLatin1String("response.done")) {
        handleResponseDone(event);
    } else if (type == QLatin1String("error")) {
        handleError(event);
    }
}

void RealtimeConnection::handleConfigured()
{
    // Later acknowledgements (live instruction changes) are silent.
    if (m_isConfigured)
        return;
    m_isConfigured = true;
    m_socket.resetBackoff();
    m_serviceClosesInARow = 0;
    m_lastNotice.clear();
    seedHistory();
    sendPendingImage();
    startTimers();
    report(RealtimeStatus::connected());
    emit m_events.sessionConfigured();
}

void RealtimeConnection::handleTranscription(const QString &type, const QJsonObject &event)
{
    const QString suffix = type.mid(type.lastIndexOf(QLatin1Char('.')) + 1);
    if (suffix == QLatin1String("delta")) {
        const QString delta = stringOr(event, "delta");
        if (!delta.isEmpty())
            emit m_events.transcriptDeltaReceived(stringOr(event, "item_id"), delta);
    } else if (suffix == QLatin1String("completed")) {
        const QString itemID = stringOr(event, "item_id", QUuid::createUuid().toString(QUuid::WithoutBraces));
        const QString transcript = stringOr(event, "transcript").trimmed();
        if (!transcript.isEmpty())
            emit m_events.transcriptCompleted(itemID, transcript);
        // Billed even when nothing was understood.
        const QJsonValue usage = event.value(QLatin1String("usage"));
        if (usage.isObject())
            emit m_events.transcriptionUsageReported(itemID, usage.toObject().toVariantMap());
    } else if (suffix == QLatin1String("failed")) {
        const RealtimeFailure::ServiceError error = RealtimeFailure::ServiceError::fromEvent(event);
        log(QStringLiteral("Transcription failed: %1").arg(error.message));
        emit m_events.transcriptionFailed(stringOr(event, "item_id"), redact(error.message));
    }
}

void RealtimeConnection::handleResponseCreated(const QJsonObject &event)
{
    const QJsonValue response = event.value(QLatin1String("response"));
    const QJsonValue id = response.toObject().value(QLatin1String("id"));
    if (!response.isObject() || !id.isString())
        return;
    m_activeResponseID = id.toString();
    const bool requested = std::exchange(m_awaitingRegeneratedResponse, false);
    emit m_events.responseCreated(id.toString(), requested);
    emit m_events.answerDelta(id.toString(), QString());
}

void RealtimeConnection::handleResponseDone(const QJsonObject &event)
{
    const QJsonValue responseValue = event.value(QLatin1String("response"));
    const QJsonObject response = responseValue.toObject();
    const QString responseID = responseValue.isObject() ? stringOr(response, "id", QStringLiteral("current"))
                                                        : QStringLiteral("current");
    if (m_activeResponseID == responseID)
        m_activeResponseID.reset();
    if (m_cancelledResponseID == responseID)
        m_cancelledResponseID.reset();
    const QJsonValue usage = response.value(QLatin1String("usage"));
    if (usage.isObject())
        emit m_events.usageReported(usage.toObject().toVariantMap());
    const QString status = stringOr(response, "status");
    if (status == QLatin1String("failed") || status == QLatin1String("incomplete")
        || status == QLatin1String("cancelled")) {
        const QString reason = redact(endReason(response));
        log(QStringLiteral("Answer %1 ended %2%3").arg(responseID, status,
                                                       reason.isEmpty() ? QString() : QStringLiteral(" (%1)").arg(reason)));
        const QJsonObject error = response.value(QLatin1String("status_details")).toObject().value(QLatin1String("error")).toObject();
        const bool transient = status == QLatin1String("failed")
                               && RealtimeFailure::isTransient(RealtimeFailure::ServiceError::fromObject(error));
        emit m_events.responseEnded(responseID, status, reason, transient);
    }
    emit m_events.responseDone(responseID);

    if (m_retryCreateOnDone && !m_cancelledResponseID && !m_activeResponseID) {
        m_retryCreateOnDone = false;
        ++m_createRetries;
        log(QStringLiteral("Previous answer ended; asking again for the extended question"));
        send(RealtimeProtocol::typed("response.create"));
    }
}

void RealtimeConnection::handleError(const QJsonObject &event)
{
    const RealtimeFailure::ServiceError error = RealtimeFailure::ServiceError::fromEvent(event);

    if (error.code == kSessionExpiredCode) {
        log(QStringLiteral("Session expired: %1").arg(error.message));
        scheduleReconnect(QStringLiteral("session expired"));
        return;
    }
    if (error.code == kActiveResponseCode && m_awaitingRegeneratedResponse && m_createRetries < kMaxCreateRetries) {
        if (m_cancelledResponseID || m_activeResponseID) {
            m_retryCreateOnDone = true;
            log(QStringLiteral("Previous answer still active; asking again when it ends"));
        } else {
            ++m_createRetries;
            send(RealtimeProtocol::typed("response.create"));
        }
        return;
    }
    if (handleFallback(event))
        return;

    log(QStringLiteral("API error: %1").arg(error.message));
    if (const auto message = RealtimeFailure::finalMessage(error, m_config ? m_config->model : QString())) {
        fail(*message, QStringLiteral("API error: %1").arg(error.code.isEmpty() ? error.message : error.code));
        return;
    }
    if (RealtimeFailure::isRateLimit(error)) {
        emit m_events.noticeRaised(RealtimeFailure::rateLimitNotice());
        return;
    }
    if (!m_isConfigured)
        report(RealtimeStatus::failed(redact(error.message)));
}

// The three ways the service can refuse a configuration that a change on our side can fix.
bool RealtimeConnection::handleFallback(const QJsonObject &event)
{
    const RealtimeFailure::ServiceError error = RealtimeFailure::ServiceError::fromEvent(event);
    if (!m_config)
        return false;

    // The transcription model: the configuration is sent again, once, with whisper-1.
    const QString transcribeModel = m_config->transcribeModel;
    const bool namesTranscription = error.param.contains(QLatin1String("transcription"))
                                    || (!transcribeModel.isEmpty() && error.message.contains(transcribeModel));
    if (!m_isConfigured && !m_transcribeFallback && transcribeModel != kFallbackTranscribeModel && namesTranscription) {
        m_transcribeFallback = true;
        m_config->transcribeModel = kFallbackTranscribeModel;
        log(QStringLiteral("Transcription model %1 refused; using %2").arg(transcribeModel, kFallbackTranscribeModel));
        emit m_events.transcribeModelFellBack(transcribeModel, kFallbackTranscribeModel);
        sendSessionUpdate(m_usedLegacyShape);
        return true;
    }

    // The session shape: only the beta interface knows the legacy one, so the socket is reopened.
    const QString lower = error.message.toLower();
    const bool shapeRefused = lower.contains(QLatin1String("unknown parameter"))
                              || lower.contains(QLatin1String("invalid_value"))
                              || lower.contains(QLatin1String("additional properties"))
                              || error.code == QLatin1String("unknown_parameter")
                              || (error.code == QLatin1String("invalid_value") && error.param.startsWith(QLatin1String("session")));
    if (!m_isConfigured && !m_usedLegacyShape && shapeRefused) {
        log(QStringLiteral("Falling back to legacy session shape"));
        switchToBetaInterface(QStringLiteral("the service refused the session shape; reopening on the beta interface"));
        return true;
    }

    // The assistant content type of re-sent answers: likewise only "text" on the beta interface.
    const bool contentRefused = error.message.contains(QLatin1String("output_text"))
                                || error.param.contains(QLatin1String("output_text"))
                                || (error.code == QLatin1String("invalid_value") && m_sentAssistantItems
                                    && error.param.contains(QLatin1String("content")));
    if (contentRefused && m_assistantContentType == QLatin1String("output_text")) {
        log(QStringLiteral("Re-seeding history with legacy assistant content type"));
        switchToBetaInterface(QStringLiteral("the service refused the answers' content type; reopening on the beta interface"));
        return true;
    }
    return false;
}
