#pragma once

#include <functional>

class AppSettings;
class CaptureLink;
class Clock;
class FileRevealer;
class IdleInhibitor;
class MicTranscription;
class RealtimeService;
class RecordingPicker;
class RecordingTranscription;
class RecordingTranscriptionPrompt;
class TapQueries;

// Everything the session controller uses (SessionController::Components); none of it is
// owned, all must outlive the controller.
struct SessionComponents
{
    // Runs a job off the GUI thread. The default uses the global thread pool; tests pass
    // one that runs the job at once or keeps it until they release it.
    using BackgroundRunner = std::function<void(std::function<void()> job)>;

    AppSettings &settings;
    RealtimeService &client;
    CaptureLink &audio;
    TapQueries &taps;
    MicTranscription &micTranscriber;
    RecordingTranscription &recordingTranscriber;
    Clock &clock;
    IdleInhibitor &idleInhibitor;
    FileRevealer &fileRevealer;
    RecordingPicker &recordingPicker;
    BackgroundRunner runInBackground = {};
    // Asks whether a recording goes to the service, while the user has opted in to the
    // service for their answers; none (headless): recordings stay on the device.
    RecordingTranscriptionPrompt *recordingPrompt = nullptr;
};
