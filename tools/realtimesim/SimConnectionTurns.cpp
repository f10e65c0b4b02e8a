// The simulated service's turns and answers: what it sends when a turn of speech ends, in the
// simpler ordered mode and in the realistic one.

#include "realtimesim/SimConnection.h"

#include "realtimesim/RealtimeSimulator.h"

#include <QJsonArray>
#include <QWebSocket>

namespace {

// Splits a text into about one piece per three words, or into `count` pieces.
QStringList pieces(const QString &text, int count)
{
    const QStringList words = text.split(QLatin1Char(' '));
    const int per = count > 0 ? std::max<int>(1, int((words.size() + count - 1) / count)) : 3;
    QStringList result;
    for (qsizetype i = 0; i < words.size(); i += per) {
        QString piece = words.mid(i, per).join(QLatin1Char(' '));
        if (i + per < words.size())
            piece += QLatin1Char(' ');
        result.append(piece);
    }
    return result;
}

} // namespace

void SimConnection::runTurn(const SimTurn &turn, bool heard)
{
    if (!turn.strayDelta.isEmpty()) {
        // Events of a response this connection never announced.
        const QString id = nextId("resp_stray");
        sendEvent({{"type", "response.output_text.delta"}, {"response_id", id}, {"item_id", id + "_msg"},
                   {"output_index", 0}, {"content_index", 0}, {"delta", turn.strayDelta}});
        sendEvent({{"type", "response.output_text.done"}, {"response_id", id}, {"item_id", id + "_msg"},
                   {"output_index", 0}, {"content_index", 0}, {"text", turn.strayDelta}});
        sendEvent({{"type", "response.done"},
                   {"response", QJsonObject{{"id", id}, {"object", "realtime.response"}, {"status", "completed"}}}});
    }
    if (!script().realistic) {
        runClassicTurn(turn);
        return;
    }
    if (!heard) {
        m_speechItemID = nextId("item");
        sendEvent({{"type", "input_audio_buffer.speech_started"}, {"audio_start_ms", 0}, {"item_id", m_speechItemID}});
        sendEvent({{"type", "input_audio_buffer.speech_stopped"}, {"audio_end_ms", 1500}, {"item_id", m_speechItemID}});
    }
    runRealisticTurn(turn);
}

void SimConnection::runClassicTurn(const SimTurn &turn)
{
    const QString itemID = m_speechItemID.isEmpty() ? nextId("item") : std::exchange(m_speechItemID, QString());
    const QJsonObject transcript{{"type", "conversation.item.input_audio_transcription.completed"},
                                 {"item_id", itemID},
                                 {"content_index", 0},
                                 {"transcript", turn.question}};
    enqueue(turn.delayMs, [this, itemID] {
        sendEvent({{"type", "input_audio_buffer.committed"}, {"previous_item_id", QJsonValue()}, {"item_id", itemID}});
    });
    if (turn.fault.kind != SimFault::Kind::none && turn.fault.beforeResponse)
        enqueue(0, [this, fault = turn.fault] { applyFault(fault); });
    if (!turn.transcriptAfterResponse)
        enqueue(0, [this, transcript] { sendEvent(transcript); });
    m_lastUserText = turn.question;
    m_lastUserImages = 0;
    enqueue(0, [this, turn, transcript] {
        m_responseBusy = true;
        startResponse(turn, {}, [this, turn, transcript] {
            if (turn.transcriptAfterResponse)
                sendEvent(transcript);
            if (turn.fault.kind != SimFault::Kind::none && !turn.fault.beforeResponse)
                applyFault(turn.fault);
        });
    });
}

// As the service does it: the answer starts first, the question is transcribed in pieces while
// it streams, and a turn that ends while an answer streams gets no answer of its own unless
// the configuration lets a new turn interrupt the running one.
void SimConnection::runRealisticTurn(const SimTurn &turn)
{
    const QString itemID = m_speechItemID.isEmpty() ? nextId("item") : std::exchange(m_speechItemID, QString());
    m_lastUserText = turn.question;
    m_lastUserImages = 0;
    const QJsonObject detection = turnDetection();
    const bool createResponse = detection.value("create_response").toBool(true);
    const bool interrupt = detection.value("interrupt_response").toBool(true);
    if (m_responseBusy && interrupt && !m_activeResponseID.isEmpty())
        finishResponse(QStringLiteral("cancelled"), {{"type", "cancelled"}, {"reason", "turn_detected"}});
    const bool respond = createResponse && !m_responseBusy;

    // The question in pieces, the last one followed by the whole text (or the failure).
    QList<std::function<void()>> transcription;
    if (turn.transcriptionFails) {
        transcription.append([this, itemID] { sendEvent(transcriptionFailed(itemID)); });
    } else {
        const QStringList questionPieces = pieces(turn.question, 0);
        const QJsonObject completed = transcriptionCompleted(itemID, turn.question);
        for (qsizetype i = 0; i < questionPieces.size(); ++i) {
            const bool final = i + 1 == questionPieces.size();
            transcription.append([this, itemID, piece = questionPieces[i], final, completed] {
                sendEvent(transcriptionDelta(itemID, piece));
                if (final)
                    sendEvent(completed);
            });
        }
    }
    const auto committed = [this, itemID] {
        sendEvent({{"type", "input_audio_buffer.committed"}, {"previous_item_id", QJsonValue()}, {"item_id", itemID}});
    };

    if (!respond) {
        // Transcribed on the side, while the running answer goes on.
        enqueue(m_side, turn.delayMs, committed);
        for (const auto &step : std::as_const(transcription))
            enqueue(m_side, turn.deltaDelayMs, step);
        return;
    }
    m_responseBusy = true;
    enqueue(turn.delayMs, committed);
    if (turn.fault.kind != SimFault::Kind::none && turn.fault.beforeResponse)
        enqueue(0, [this, fault = turn.fault] { applyFault(fault); });
    enqueue(0, [this, turn, transcription] {
        const QList<std::function<void()>> between = turn.transcriptAfterResponse ? QList<std::function<void()>>{}
                                                                                  : transcription;
        startResponse(turn, between, [this, turn, transcription] {
            if (turn.transcriptAfterResponse) {
                for (const auto &step : transcription)
                    step();
            }
            if (turn.fault.kind != SimFault::Kind::none && !turn.fault.beforeResponse)
                applyFault(turn.fault);
        });
    });
}

QJsonObject SimConnection::transcriptionDelta(const QString &itemID, const QString &piece) const
{
    return {{"type", "conversation.item.input_audio_transcription.delta"},
            {"item_id", itemID},
            {"content_index", 0},
            {"delta", piece}};
}

QJsonObject SimConnection::transcriptionCompleted(const QString &itemID, const QString &question) const
{
    QJsonObject event{{"type", "conversation.item.input_audio_transcription.completed"},
                      {"item_id", itemID},
                      {"content_index", 0},
                      {"transcript", question}};
    if (!script().realistic)
        return event;
    // Billed by the transcription model: whisper-1 by the second, the others by the token.
    const QJsonObject input = m_session.value("audio").toObject().value("input").toObject();
    const QString model = (m_session.contains("type") ? input.value("transcription")
                                                      : m_session.value("input_audio_transcription"))
                              .toObject().value("model").toString();
    const int words = int(question.split(QLatin1Char(' '), Qt::SkipEmptyParts).size());
    if (model == QLatin1String("whisper-1")) {
        event.insert("usage", QJsonObject{{"type", "duration"}, {"seconds", std::max(1, (words * 2 + 4) / 5)}});
    } else {
        const int audio = 20 + words * 6;
        const int output = words + words / 3;
        event.insert("usage", QJsonObject{{"type", "tokens"}, {"input_tokens", audio}, {"output_tokens", output},
                                          {"total_tokens", audio + output},
                                          {"input_token_details", QJsonObject{{"audio_tokens", audio}, {"text_tokens", 0}}}});
    }
    return event;
}

QJsonObject SimConnection::transcriptionFailed(const QString &itemID) const
{
    return {{"type", "conversation.item.input_audio_transcription.failed"},
            {"item_id", itemID},
            {"content_index", 0},
            {"error", QJsonObject{{"type", "transcription_error"}, {"code", "audio_unintelligible"},
                                  {"message", "The audio could not be transcribed."}, {"param", QJsonValue()}}}};
}

void SimConnection::startResponse(const SimTurn &turn, const QList<std::function<void()>> &between,
                                  const std::function<void()> &afterDone)
{
    const QString id = nextId("resp");
    m_activeResponseID = id;
    m_responseCancelled = false;
    m_responseOutputChars = 0;
    sendEvent({{"type", "response.created"},
               {"response", QJsonObject{{"id", id}, {"object", "realtime.response"}, {"status", "in_progress"}}}});
    QStringList answer = pieces(turn.answer, turn.deltaCount);
    QJsonObject details;
    if (turn.responseStatus == QLatin1String("incomplete")) {
        answer = answer.mid(0, (answer.size() + 1) / 2);
        details = {{"type", "incomplete"}, {"reason", "max_output_tokens"}};
    } else if (turn.responseStatus == QLatin1String("failed")) {
        answer = answer.mid(0, 1);
        details = {{"type", "failed"},
                   {"error", QJsonObject{{"type", "server_error"}, {"code", "server_error"},
                                         {"message", "The server had an error while processing your request."}}}};
    }
    const int delay = turn.deltaDelayMs;
    for (qsizetype i = 0; i < answer.size(); ++i) {
        enqueue(delay, [this, id, piece = answer[i], extra = between.value(i)] {
            if (m_activeResponseID == id && !m_responseCancelled) {
                m_responseOutputChars += int(piece.size());
                sendEvent({{"type", "response.output_text.delta"}, {"response_id", id}, {"item_id", id + "_msg"},
                           {"output_index", 0}, {"content_index", 0}, {"delta", piece}});
            }
            if (extra)
                extra();
        });
    }
    for (qsizetype i = answer.size(); i < between.size(); ++i)
        enqueue(delay, between[i]);
    enqueue(delay, [this, id, afterDone, status = turn.responseStatus, details] {
        if (m_activeResponseID != id || m_responseCancelled)
            return;
        finishResponse(status, details);
        if (afterDone)
            afterDone();
    });
}

void SimConnection::finishResponse(const QString &status, const QJsonObject &details)
{
    const int outputTokens = std::max(1, m_responseOutputChars / 4);
    const int inputText = 180 + int(m_counter % 40);
    const int inputAudio = 95;
    const int cachedText = inputText / 2;
    const QJsonObject usage{
        {"total_tokens", inputText + inputAudio + outputTokens},
        {"input_tokens", inputText + inputAudio},
        {"output_tokens", outputTokens},
        {"input_token_details", QJsonObject{{"text_tokens", inputText}, {"audio_tokens", inputAudio},
                                            {"image_tokens", 0}, {"cached_tokens", cachedText},
                                            {"cached_tokens_details", QJsonObject{{"text_tokens", cachedText},
                                                                                  {"audio_tokens", 0},
                                                                                  {"image_tokens", 0}}}}},
        {"output_token_details", QJsonObject{{"text_tokens", outputTokens}, {"audio_tokens", 0}}},
    };
    const QString id = std::exchange(m_activeResponseID, QString());
    m_responseCancelled = false;
    m_responseBusy = false;
    QJsonObject response{{"id", id}, {"object", "realtime.response"}, {"status", status}, {"usage", usage}};
    if (!details.isEmpty())
        response.insert("status_details", details);
    sendEvent({{"type", "response.done"}, {"response", response}});
    if (script().realistic) {
        sendEvent({{"type", "rate_limits.updated"},
                   {"rate_limits", QJsonArray{QJsonObject{{"name", "requests"}, {"limit", 5000}, {"remaining", 4999},
                                                          {"reset_seconds", 0.012}},
                                              QJsonObject{{"name", "tokens"}, {"limit", 40000},
                                                          {"remaining", 40000 - inputText - inputAudio - outputTokens},
                                                          {"reset_seconds", 0.6}}}}});
    }
}

QJsonObject SimConnection::turnDetection() const
{
    const QJsonObject input = m_session.value("audio").toObject().value("input").toObject();
    return (m_session.contains("type") ? input : m_session).value("turn_detection").toObject();
}

void SimConnection::enqueue(Lane &lane, int delayMs, std::function<void()> step)
{
    lane.steps.enqueue({delayMs, std::move(step)});
    if (!lane.timer->isActive() && lane.steps.size() == 1)
        lane.timer->start(lane.steps.head().delayMs);
}

void SimConnection::runNextStep(Lane &lane)
{
    if (lane.steps.isEmpty() || m_frozen || !m_info.open)
        return;
    const Step step = lane.steps.dequeue();
    step.run();
    if (!lane.steps.isEmpty() && !lane.timer->isActive())
        lane.timer->start(lane.steps.head().delayMs);
}
