#pragma once

#include "session/CostModel.h"

#include <QString>
#include <QVariantMap>

#include <optional>

// What one session has used of the service: the realtime responses' tokens and the
// transcriptions' usage (the meeting's and, when opted in, the user's answers), priced by
// CostModel. Each add returns the fields of the events-log line that records it.
class UsageMeter
{
public:
    // A new session, priced with its realtime model and its meeting transcription model.
    void begin(const QString &realtimeModel, const QString &transcribeModel);
    // A sample interview against a local stand-in: it costs nothing.
    void setFree(bool free) { m_free = free; }

    // The meeting is transcribed with another model from now on (the service refused one).
    void setTranscribeModel(const QString &model) { m_transcribeModel = model; }
    // The meeting transcription model in use; empty before the first session.
    QString transcribeModel() const { return m_transcribeModel; }

    // A finished response's `usage`: the "usage" event's fields.
    QVariantMap addResponse(const QVariantMap &usage, double sessionElapsed);
    // A meeting transcription's `usage` with `model` over `heardSeconds` of speech: the
    // "transcription_usage" event's fields.
    QVariantMap addMeetingTranscription(const QVariantMap &usage, const QString &model, double heardSeconds);
    // The user's answer transcription's `usage` with `model`: the
    // "answer_transcription_usage" event's fields.
    QVariantMap addAnswerTranscription(const QVariantMap &usage, const QString &model);

    CostModel::Usage usage() const { return m_usage; }
    CostModel::TranscriptionUsage transcriptionUsage() const { return m_transcription; }
    // USD so far: responses at the realtime model's prices plus the transcriptions.
    double cost() const;
    // "$0.27 this session · $0.0093/min · 15210 tokens"; none without tokens or time.
    std::optional<QString> summary(double sessionElapsed) const;
    // The "session_cost" event's fields; none when nothing was used.
    std::optional<QVariantMap> totals(double sessionElapsed) const;

private:
    qint64 tokens() const { return m_usage.total() + m_transcription.tokens(); }

    CostModel::Usage m_usage;
    CostModel::TranscriptionUsage m_transcription;
    double m_transcriptionCost = 0;
    QString m_pricedModel;
    QString m_transcribeModel;
    bool m_free = false;
};
