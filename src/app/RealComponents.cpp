#include "app/RealComponents.h"

#include "app/PulseAudioEnvironment.h"
#include "app/PulseTapQueries.h"
#include "app/RecordingTranscriberLink.h"
#include "app/ServiceTranscriptionLink.h"
#include "session/AnswerTranscriber.h"
#include "audio/AudioCaptureEngine.h"
#include "audio/StartupTrace.h"
#include "speech/MicTranscriber.h"
#include "realtime/RealtimeClient.h"

struct RealComponents::Parts
{
    explicit Parts(AppSettings &settings) : answers(settings, micTranscriber, &serviceTranscription) {}

    RealtimeClient realtimeClient;
    TranscriptionClient transcriptionClient;
    AudioCaptureEngine captureEngine;
    MicTranscriber micTranscriber;
    RecordingTranscriber recordingTranscriber;

    PulseTapQueries taps;
    RecordingTranscriberLink recordingTranscription{recordingTranscriber};
    ServiceTranscriptionLink serviceTranscription{transcriptionClient};
    AnswerTranscriber answers; // the on-device transcriber, or the service when the user opted in
    PulseAudioEnvironment audioEnvironment;
};

RealComponents::RealComponents(AppSettings &settings)
    : m_parts(std::make_unique<Parts>(settings))
{
    RealtimeClient *client = &m_parts->realtimeClient;
    QObject::connect(client, &RealtimeEvents::traceLine, client, [](const QString &line) { StartupTrace::write(line); });
}

RealComponents::~RealComponents()
{
    // The adapters go before the parts they present, and the capture's audio threads call
    // straight into them: stop those threads first. (The other parts only post to this
    // thread, and nothing is delivered while it is tearing down.)
    m_parts->captureEngine.stop();
}

RealtimeService &RealComponents::realtime() { return m_parts->realtimeClient; }
CaptureLink &RealComponents::capture() { return m_parts->captureEngine; }
TapQueries &RealComponents::taps() { return m_parts->taps; }
MicTranscription &RealComponents::micTranscription() { return m_parts->answers; }
RecordingTranscription &RealComponents::recordingTranscription() { return m_parts->recordingTranscription; }
AudioEnvironment &RealComponents::audioEnvironment() { return m_parts->audioEnvironment; }

void RealComponents::setRecordingEndedHandler(std::function<void()> handler)
{
    m_parts->captureEngine.onRecordingEnded = std::move(handler);
}
