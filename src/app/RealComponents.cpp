#include "app/RealComponents.h"

#include "app/AudioCaptureLink.h"
#include "app/MicTranscriberLink.h"
#include "app/PulseAudioEnvironment.h"
#include "app/PulseTapQueries.h"
#include "app/RealtimeClientLink.h"
#include "app/RecordingTranscriberLink.h"
#include "audio/StartupTrace.h"

struct RealComponents::Parts
{
    RealtimeClient realtimeClient;
    AudioCaptureEngine captureEngine;
    MicTranscriber micTranscriber;
    RecordingTranscriber recordingTranscriber;

    RealtimeClientLink realtime{realtimeClient};
    AudioCaptureLink capture{captureEngine};
    PulseTapQueries taps;
    MicTranscriberLink micTranscription{micTranscriber};
    RecordingTranscriberLink recordingTranscription{recordingTranscriber};
    PulseAudioEnvironment audioEnvironment;
};

RealComponents::RealComponents()
    : m_parts(std::make_unique<Parts>())
{
    m_parts->realtimeClient.onTrace = [](const QString &line) { StartupTrace::write(line); };
}

RealComponents::~RealComponents()
{
    // The adapters go before the parts they present, and the capture's audio threads call
    // straight into them: stop those threads first. (The other parts only post to this
    // thread, and nothing is delivered while it is tearing down.)
    m_parts->captureEngine.stop();
}

RealtimeLink &RealComponents::realtime() { return m_parts->realtime; }
CaptureLink &RealComponents::capture() { return m_parts->capture; }
TapQueries &RealComponents::taps() { return m_parts->taps; }
MicTranscription &RealComponents::micTranscription() { return m_parts->micTranscription; }
RecordingTranscription &RealComponents::recordingTranscription() { return m_parts->recordingTranscription; }
AudioEnvironment &RealComponents::audioEnvironment() { return m_parts->audioEnvironment; }
