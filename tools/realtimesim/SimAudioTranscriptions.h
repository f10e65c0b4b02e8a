#pragma once

#include "realtimesim/SimHttpConnection.h"

#include <QJsonObject>
#include <QString>

class RealtimeSimulator;

// The service's transcription endpoint, POST /v1/audio/transcriptions, as the simulator answers
// it: checks the Bearer key, reads the multipart/form-data body (a "file" that must be a WAV
// of at least 0.1 s, a "model", and the optional "response_format" and "language") and
// answers with the next scripted result: the text and a usage object as the service reports
// it (seconds for whisper-1, tokens for the others), or an error with the service's error
// object. Every request is recorded (without its audio) as "POST /v1/audio/transcriptions".
class SimAudioTranscriptions
{
public:
    static constexpr const char *path = "/v1/audio/transcriptions";
    static constexpr const char *recordType = "POST /v1/audio/transcriptions";

    explicit SimAudioTranscriptions(RealtimeSimulator *simulator);

    // Any HTTP request that reached the simulator's port.
    SimHttpResponse answer(const SimHttpRequest &request);

    // The service's error answer: {"error": {"message", "type", "param", "code"}}.
    static SimHttpResponse error(int status, const QString &message, const QString &type = QStringLiteral("invalid_request_error"),
                                 const QString &code = {}, const QString &param = {});

private:
    SimHttpResponse check(const SimHttpRequest &request, QJsonObject &record);

    RealtimeSimulator *m_simulator;
};
