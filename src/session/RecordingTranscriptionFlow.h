#pragma once

#include "session/SessionComponents.h"

#include <QCoreApplication>
#include <QString>

#include <memory>

class SessionStatus;
struct RecordingProgress;

// Transcribing a saved recording: on the device, or, for a recording the user sends there
// (asked once per recording, and only while they have opted in to the service), with the
// service's transcription endpoint. Progress and Cancel stay in the session's banner; the
// written transcript is linked there and revealed.
class RecordingTranscriptionFlow
{
    Q_DECLARE_TR_FUNCTIONS(RecordingTranscriptionFlow)
public:
    RecordingTranscriptionFlow(const SessionComponents &parts, SessionStatus &banner);
    ~RecordingTranscriptionFlow();

    // Lets the user pick a saved recording and transcribes it.
    void pickAndTranscribe();
    // Stops a running transcription (the banner's action while it runs).
    void cancel();

private:
    void onDevice(const QString &path);
    void withService(const QString &path);
    void showProgress(const QString &name, const RecordingProgress &progress);
    // `usageNote`: what the service used, or empty.
    void finished(const QString &transcriptPath, const QString &usageNote);
    void failed(const QString &message);

    const SessionComponents &m_parts;
    SessionStatus &m_banner;
    // Lets callbacks that may outlive this object (pickers, prompts, jobs) tell.
    std::shared_ptr<bool> m_alive = std::make_shared<bool>(true);
};
