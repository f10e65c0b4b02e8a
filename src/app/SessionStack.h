#pragma once

#include "app/RealComponents.h"
#include "app/RecordingEndStop.h"
#include "review/ReviewPage.h"
#include "session/SessionController.h"
#include "session/SystemClock.h"
#include "settings/AppSettings.h"
#include "settings/SecretStore.h"
#include "ui/DBusFileRevealer.h"
#include "ui/DBusIdleInhibitor.h"
#include "ui/DialogRecordingPicker.h"
#include "ui/DialogTranscriptionPrompt.h"

#include <QWidget>

// The one settings object and the one session controller with its real components and
// desktop services: everything a session needs, with or without a window. Members are
// destroyed in reverse order, so the controller goes before the components it uses.
struct SessionStack
{
    SessionStack() : controller(makeComponents()) { wire(); }

    // Settings from another store and key folder (the sample interview's).
    SessionStack(std::unique_ptr<QSettings> store, const SecretStore &secrets)
        : settings(std::move(store), secrets)
        , controller(makeComponents())
    {
        wire();
    }

    ~SessionStack()
    {
        // A session still running at quit is stopped so that its records are closed.
        controller.stop();
    }

    AppSettings settings;
    SystemClock clock;
    RealComponents components{settings};
    DBusIdleInhibitor idleInhibitor;
    DBusFileRevealer fileRevealer;
    DialogRecordingPicker recordingPicker;
    DialogTranscriptionPrompt recordingPrompt;
    SessionController controller;
    RecordingEndStop recordingEnd{settings, controller};

private:
    SessionController::Components makeComponents()
    {
        return SessionController::Components{settings, components.realtime(), components.capture(),
                                             components.taps(), components.micTranscription(),
                                             components.recordingTranscription(), clock, idleInhibitor,
                                             fileRevealer, recordingPicker, {}, &recordingPrompt};
    }
    void wire()
    {
        components.setRecordingEndedHandler([this] { recordingEnd.recordingEnded(); });
        // The review page beside the records at Stop, linked from the Stop banner. This version's
        // log records the interviewer's speech: the recording is not read (at Stop, on the GUI thread).
        controller.setReviewWriter([this](const QString &eventsPath) {
            const ReviewPage::Written page = ReviewPage::write(
                eventsPath, {settings.answerTargetMinSeconds(), settings.answerTargetMaxSeconds()}, false);
            return page.ok() ? QUrl::fromLocalFile(page.path) : QUrl();
        });
    }
};
