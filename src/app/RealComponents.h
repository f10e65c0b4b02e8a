#pragma once

#include <functional>
#include <memory>

class AppSettings;
class AudioEnvironment;
class CaptureLink;
class MicTranscription;
class RealtimeService;
class RecordingTranscription;
class TapQueries;

// The real audio capture, realtime client and on-device transcribers, presented through
// the interfaces the session controller and the views use. Create it on the GUI thread
// before the controller, and destroy it after.
class RealComponents
{
public:
    explicit RealComponents(AppSettings &settings);
    ~RealComponents();

    RealtimeService &realtime();
    CaptureLink &capture();
    TapQueries &taps();
    MicTranscription &micTranscription();
    RecordingTranscription &recordingTranscription();
    AudioEnvironment &audioEnvironment();
    // GUI thread: the recording played as the meeting has ended.
    void setRecordingEndedHandler(std::function<void()> handler);

private:
    struct Parts;
    std::unique_ptr<Parts> m_parts;
};
