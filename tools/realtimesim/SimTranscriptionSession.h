#pragma once

#include "realtimesim/EnergyVad.h"

#include <QJsonObject>
#include <QString>
#include <QStringList>

#include <functional>

// The service side of a transcription-only connection (opened with "intent=transcription"):
// checks the session configuration, hears items in the uploaded audio, and answers each with
// the next scripted text as transcription deltas and a completed event with usage.
class SimTranscriptionSession
{
public:
    using Send = std::function<void(const QJsonObject &event)>;
    using NextId = std::function<QString(const char *prefix)>;
    using NextText = std::function<QString()>;

    SimTranscriptionSession(Send send, NextId nextId, NextText nextText);

    // The greeting sent when the connection opens.
    QJsonObject created();
    // One client message; returns false for a type this session does not accept.
    bool handle(const QString &type, const QJsonObject &message);
    // An item with `text` (the next scripted text when empty), as if speech had just ended.
    void transcribe(const QString &text = {});
    bool isConfigured() const { return m_configured; }

private:
    void error(const QString &code, const QString &message, const QString &param = {});

    Send m_send;
    NextId m_nextId;
    NextText m_nextText;
    EnergyVad m_vad;
    bool m_configured = false;
    QString m_itemID;
    qint64 m_audioBytes = 0; // since the last item
};
