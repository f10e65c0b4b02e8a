#pragma once

#include "FakeCaptureLink.h"
#include "FakeDesktop.h"
#include "FakeMicTranscription.h"
#include "FakeRealtimeService.h"
#include "FakeRecordingTranscription.h"
#include "FakeTapQueries.h"
#include "ManualClock.h"

#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "settings/SecretStore.h"

#include <QCoreApplication>
#include <QSettings>
#include <QTemporaryDir>

#include <deque>
#include <memory>
#include <optional>

// A session controller wired to fakes, a manual clock and settings in a temporary folder.
// The audio start runs at once (runAudioStartsAtOnce) or waits until releaseAudioStart().
class SessionRig
{
public:
    SessionRig()
        : settings(std::make_unique<QSettings>(dir.filePath(QStringLiteral("settings.conf")), QSettings::IniFormat),
                   SecretStore(dir.filePath(QStringLiteral("keys")), dir.filePath(QStringLiteral("legacy-keys"))))
    {
        controller = std::make_unique<SessionController>(SessionController::Components{
            settings, client, audio, taps, mic, recordingTranscriber, clock, idle, revealer, picker,
            [this](std::function<void()> job) {
                if (runAudioStartsAtOnce) {
                    job();
                } else {
                    heldJobs.push_back(std::move(job));
                }
            },
            &prompt});
    }

    // A user who has a key and loaded context, so no banner comes from those checks.
    void prepareSettings()
    {
        settings.setApiKey(QStringLiteral("sk-test"));
        settings.setJobDescription(QStringLiteral("Staff engineer, payments."));
        settings.setContextText(QStringLiteral("Led the ledger migration."));
    }

    // The meeting narrowed to one application.
    void listenToApp(const QString &bundleID)
    {
        settings.setMeetingSource(AppSettings::MeetingSource::singleApp);
        settings.setTappedBundleID(bundleID);
    }

    // Delivers the audio start's result (and anything else queued for the GUI thread).
    static void settle() { QCoreApplication::sendPostedEvents(); }

    void releaseAudioStart()
    {
        while (!heldJobs.empty()) {
            auto job = std::move(heldJobs.front());
            heldJobs.pop_front();
            job();
        }
        settle();
    }

    // Start with everything in place (and the follow-up window, when given); returns whether
    // the session became active.
    bool startSession(std::optional<int> followUpWindow = std::nullopt)
    {
        if (followUpWindow) {
            settings.setFollowUpWindow(*followUpWindow);
        }
        prepareSettings();
        controller->start();
        settle();
        return controller->isSessionActive();
    }

    // Every card's question, or answer, in order.
    QStringList questions() const { return column(&QAPair::question); }
    QStringList answers() const { return column(&QAPair::answer); }
    QStringList column(QString QAPair::*field) const
    {
        QStringList out;
        for (const QAPair &pair : controller->pairs())
            out << pair.*field;
        return out;
    }

    QTemporaryDir dir;
    AppSettings settings;
    FakeRealtimeService client;
    FakeCaptureLink audio;
    FakeTapQueries taps;
    FakeMicTranscription mic;
    FakeRecordingTranscription recordingTranscriber;
    ManualClock clock;
    FakeIdleInhibitor idle;
    FakeFileRevealer revealer;
    FakeRecordingPicker picker;
    FakeRecordingTranscriptionPrompt prompt;
    bool runAudioStartsAtOnce = true;
    std::deque<std::function<void()>> heldJobs;
    std::unique_ptr<SessionController> controller;
};
