#include "realtimesim/SimTranscriptionSession.h"

SimTranscriptionSession::SimTranscriptionSession(Send send, NextId nextId, NextText nextText)
    : m_send(std::move(send))
    , m_nextId(std::move(nextId))
    , m_nextText(std::move(nextText))
{
}

QJsonObject SimTranscriptionSession::created()
{
    return {{"type", "session.created"},
            {"session", QJsonObject{{"id", m_nextId("sess")}, {"object", "realtime.transcription_session"}, {"type", "transcription"}}}};
}

void SimTranscriptionSession::error(const QString &code, const QString &message, const QString &param)
{
    QJsonObject details{{"type", "invalid_request_error"}, {"code", code}, {"message", message}};
    details.insert("param", param.isEmpty() ? QJsonValue() : QJsonValue(param));
    m_send({{"type", "error"}, {"event_id", m_nextId("event")}, {"error", details}});
}

bool SimTranscriptionSession::handle(const QString &type, const QJsonObject &message)
{
    if (type == QLatin1String("session.update")) {
        const QJsonObject session = message.value("session").toObject();
        const QJsonObject input = session.value("audio").toObject().value("input").toObject();
        const QJsonObject format = input.value("format").toObject();
        const QJsonObject turnDetection = input.value("turn_detection").toObject();
        QString bad;
        if (session.value("type").toString() != QLatin1String("transcription"))
            bad = "session.type";
        else if (format.value("type").toString() != QLatin1String("audio/pcm") || format.value("rate").toInt() != 24000)
            bad = "session.audio.input.format";
        else if (input.value("transcription").toObject().value("model").toString().isEmpty())
            bad = "session.audio.input.transcription.model";
        else if (turnDetection.value("type").toString() != QLatin1String("server_vad"))
            bad = "session.audio.input.turn_detection.type";
        if (!bad.isEmpty()) {
            error(QStringLiteral("invalid_value"), QStringLiteral("Invalid value for '%1'.").arg(bad), bad);
            return true;
        }
        m_vad.configure(turnDetection.value("threshold").toDouble(0.5), turnDetection.value("prefix_padding_ms").toInt(300),
                        turnDetection.value("silence_duration_ms").toInt(500));
        m_configured = true;
        QJsonObject echoed = session;
        echoed.insert("id", m_nextId("sess"));
        m_send({{"type", "session.updated"}, {"session", echoed}});
        return true;
    }
    if (type == QLatin1String("input_audio_buffer.append")) {
        const QByteArray pcm = QByteArray::fromBase64(message.value("audio").toString().toLatin1());
        m_audioBytes += pcm.size();
        for (const EnergyVad::Event &event : m_vad.feed(pcm)) {
            if (event.started) {
                m_itemID = m_nextId("item");
                m_send({{"type", "input_audio_buffer.speech_started"}, {"audio_start_ms", event.audioMs}, {"item_id", m_itemID}});
            } else {
                m_send({{"type", "input_audio_buffer.speech_stopped"}, {"audio_end_ms", event.audioMs}, {"item_id", m_itemID}});
                transcribe();
            }
        }
        return true;
    }
    return false;
}

void SimTranscriptionSession::transcribe(const QString &text)
{
    const QString transcript = text.isEmpty() ? m_nextText() : text;
    const QString itemID = m_itemID.isEmpty() ? m_nextId("item") : m_itemID;
    m_itemID.clear();
    m_send({{"type", "input_audio_buffer.committed"}, {"item_id", itemID}});
    // About three words per delta.
    const QStringList words = transcript.split(QLatin1Char(' '), Qt::SkipEmptyParts);
    for (qsizetype i = 0; i < words.size(); i += 3) {
        QString piece = words.mid(i, 3).join(QLatin1Char(' '));
        if (i > 0)
            piece.prepend(QLatin1Char(' '));
        m_send({{"type", "conversation.item.input_audio_transcription.delta"}, {"item_id", itemID}, {"content_index", 0}, {"delta", piece}});
    }
    // 24 kHz 16-bit: about 10 audio tokens a second.
    const int audioTokens = static_cast<int>(m_audioBytes / 4800);
    m_audioBytes = 0;
    const int outputTokens = static_cast<int>(words.size());
    const QJsonObject usage{{"type", "tokens"}, {"input_tokens", audioTokens}, {"output_tokens", outputTokens},
                            {"total_tokens", audioTokens + outputTokens},
                            {"input_token_details", QJsonObject{{"audio_tokens", audioTokens}, {"text_tokens", 0}}}};
    m_send({{"type", "conversation.item.input_audio_transcription.completed"}, {"item_id", itemID}, {"content_index", 0},
            {"transcript", transcript}, {"usage", usage}});
}
