#pragma once

#include <QJsonObject>
#include <QString>

// One message a client sent to the simulator. The audio of "input_audio_buffer.append" is
// not kept: `message` holds "audio_bytes" (the decoded size) instead of "audio".
struct SimRecord
{
    int connection = 0; // 1 for the first connection the simulator accepted
    QString type;       // the message's "type"; empty for a frame that was not a JSON object
    QJsonObject message;
};

// How a client opened its connection. The key itself is never kept.
struct SimConnectionInfo
{
    int index = 0;
    QString path;
    QString model;
    QString intent;        // "transcription" for a transcription-only connection
    QString authorization; // "valid", "invalid" or "missing"
    bool beta = false;     // the handshake carried "OpenAI-Beta: realtime=v1"
    bool open = true;
};
