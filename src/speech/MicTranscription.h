#pragma once

#include "speech/SpeechTypes.h"

#include <QString>
#include <QVariantMap>

#include <functional>

// A live transcriber of the user's microphone, in segments, as the session controller uses it:
// MicTranscriber on the device, or the router between it and the service (AnswerTranscriber).
// begin(), end() and stopTask() are called on the GUI thread; callbacks arrive there too.
class MicTranscription
{
public:
    virtual ~MicTranscription() = default;

    virtual void requestAuthorization(std::function<void(const SpeechAvailability &)> completion) = 0;
    // Opens a segment.
    virtual void begin() = 0;
    // Closes the running segment and makes sure a final text is delivered.
    virtual void end() = 0;
    // Cancels the running segment; `silent` also drops anything still to come from it.
    virtual void stopTask(bool silent) = 0;
    // A segment is running (opened and not yet ended or cancelled).
    virtual bool isSegmentRunning() const = 0;
    // Audio thread: 48 kHz float mono microphone audio. Appended (and its frames counted)
    // only while a segment runs; dropped otherwise. Never blocks.
    virtual void appendMicBuffer(const float *samples, int frames) = 0;

    // The user's own documents (CV, job description, panel) for the next segments: words they
    // mention are expected more readily. Call before requestAuthorization() at session start.
    virtual void setContextText(const QString &text) { (void)text; }
    // A session starts / stops (a transcriber that needs a connection opens / closes it).
    virtual void sessionStarted() {}
    virtual void sessionStopped() {}

    std::function<void(const QString &text)> onPartial;
    // Never called with empty text.
    std::function<void(const QString &text)> onFinal;
    std::function<void(const QString &message)> onFailure;
    // Usage of a paid transcription service ({"type":"tokens",...} or {"type":"duration",...}).
    std::function<void(const QVariantMap &usage)> onUsage;
};
