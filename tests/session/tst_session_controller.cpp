// Start and stop: refusals, permission checks, the capture source chosen from the settings,
// both start-up watchdogs, a failing and a succeeding audio start, the saved-files banner,
// banner rules and the other operations. (Narrowing to one application: tst_session_audio.)

#include "SessionFiles.h"
#include "SessionRig.h"

#include "session/SessionSnapshot.h"

#include <QFile>
#include <QSignalSpy>
#include <QTest>

namespace {

const QString kSystemAudioBanner = QStringLiteral(
    "Ketterbloom can't reach this computer's sound server to listen to the meeting. Make sure PulseAudio or PipeWire "
    "is running (pactl info should answer), then press Start again. Until then, switch \"Meeting audio\" to your audio device.");
const QString kStillStarting = QStringLiteral(
    "Still setting up audio capture… if this doesn't clear in a few seconds, check that the sound server is running (pactl info).");
const QString kMicDenied = QStringLiteral(
    "Microphone access was denied. Enable it in your desktop's Settings ▸ Privacy ▸ Microphone.");

QStringList labels(const QList<SessionController::BannerLink> &links)
{
    QStringList out;
    for (const auto &link : links) {
        out << link.label;
    }
    return out;
}

} // namespace

using namespace sessionfiles;

class SessionControllerTest : public QObject
{
    Q_OBJECT

private slots:
    void blankKeyRefusesTheStart()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.prepareSettings();
        rig.settings.setApiKey(QStringLiteral("   "));
        QSignalSpy failed(&c, &SessionController::startFailed);
        c.start();
        rig.settle();
        QCOMPARE(failed.count(), 1);
        QCOMPARE(c.banner(), QStringLiteral("Add your OpenAI API key before starting."));
        QCOMPARE(c.bannerAction(), std::optional(SessionController::BannerAction::openAccountSettings));
        QVERIFY(!c.isSessionActive());
        QCOMPARE(rig.audio.startCount, 0);
        QCOMPARE(rig.taps.probeCount, 0);
        QCOMPARE(rig.client.stopCount, 0);
        QVERIFY(rig.client.starts.isEmpty());
    }

    void thinContextWarnsAndStarts_data()
    {
        QTest::addColumn<QString>("job");
        QTest::addColumn<QString>("context");
        QTest::addColumn<QString>("banner");
        QTest::newRow("neither") << QStringLiteral(" \n") << QString()
            << QStringLiteral("Starting without a job description or your background. Answers will be generic — add the posting and your CV and they'll quote your own projects and match what the role asks for.");
        QTest::newRow("no job") << QString() << QStringLiteral("CV")
            << QStringLiteral("No job description loaded. Paste the posting and answers will emphasise the experience this particular role is asking for.");
        QTest::newRow("no background") << QStringLiteral("Posting") << QStringLiteral("\n\t")
            << QStringLiteral("No background loaded. Add your CV or a few war stories and answers will cite your actual work instead of speaking in generalities.");
        QTest::newRow("both") << QStringLiteral("Posting") << QStringLiteral("CV") << QString();
    }

    void thinContextWarnsAndStarts()
    {
        QFETCH(QString, job);
        QFETCH(QString, context);
        QFETCH(QString, banner);
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.prepareSettings();
        rig.settings.setJobDescription(job);
        rig.settings.setContextText(context);
        c.start();
        rig.settle();
        QVERIFY(c.isSessionActive());
        QCOMPARE(c.banner(), banner);
        QCOMPARE(c.bannerAction(), banner.isEmpty() ? std::nullopt : std::optional(SessionController::BannerAction::openContext));
    }

    void startWhileActiveDoesNothing()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        c.setBannerText(QStringLiteral("Keep me"));
        c.start();
        rig.settle();
        QCOMPARE(c.banner(), QStringLiteral("Keep me"));
        QCOMPARE(rig.audio.startCount, 1);
    }

    void microphonePermission()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.prepareSettings();

        rig.audio.permission = MicPermission::denied;
        c.start();
        QCOMPARE(c.banner(), kMicDenied);
        QCOMPARE(rig.audio.startCount, 0);

        rig.audio.permission = MicPermission::notDetermined;
        c.start();
        QVERIFY(rig.audio.pendingMicRequest);
        QCOMPARE(rig.audio.startCount, 0);   // waits for the answer
        std::exchange(rig.audio.pendingMicRequest, {})(false);
        QCOMPARE(c.banner(), kMicDenied);
        QCOMPARE(rig.audio.startCount, 0);

        c.start();
        std::exchange(rig.audio.pendingMicRequest, {})(true);
        rig.settle();
        QVERIFY(c.isSessionActive());
    }

    void systemAudioCheck()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.prepareSettings();
        rig.taps.tapAccess = false;
        c.start();
        QCOMPARE(rig.taps.probeCount, 2);   // probed, then once more
        QCOMPARE(c.banner(), kSystemAudioBanner);
        QCOMPARE(rig.client.stopCount, 1);
        QVERIFY(!c.isSessionActive());
        QCOMPARE(rig.audio.startCount, 0);

        // A second probe that answers lets the start go on.
        rig.taps.probeAnswers = {false, true};
        c.start();
        rig.settle();
        QVERIFY(c.isSessionActive());

        // An audio device needs no sound-server tap.
        SessionRig device;
        device.settings.setMeetingSource(AppSettings::MeetingSource::audioDevice);
        device.taps.tapAccess = false;
        QVERIFY(device.startSession());
        QCOMPARE(device.taps.probeCount, 0);
    }

    void watchdogsAndAudioStart()
    {
        // Capture that takes ten seconds: the still-setting-up banner at 8 s, cleared at start.
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.runAudioStartsAtOnce = false;
        rig.prepareSettings();
        c.start();
        rig.clock.advance(7.9);
        QCOMPARE(c.banner(), QString());
        rig.clock.advance(0.1);
        QCOMPARE(c.banner(), kStillStarting);
        rig.clock.advance(2.0);
        rig.releaseAudioStart();
        QVERIFY(c.isSessionActive());
        QCOMPARE(c.banner(), QString());
        rig.clock.advance(30);   // both watchdogs cancelled
        QVERIFY(c.isSessionActive());
        QCOMPARE(c.banner(), QString());
        c.stop();

        // A different banner set meanwhile is left alone.
        c.start();
        rig.clock.advance(9);
        c.setBannerText(QStringLiteral("Connection is slow."));
        rig.releaseAudioStart();
        QVERIFY(c.isSessionActive());
        QCOMPARE(c.banner(), QStringLiteral("Connection is slow."));
        c.stop();

        // Capture that never finishes: given up at 25 s.
        SessionRig stuck;
        stuck.runAudioStartsAtOnce = false;
        stuck.prepareSettings();
        stuck.controller->start();
        stuck.clock.advance(25);
        QCOMPARE(stuck.controller->banner(),
                 QStringLiteral("Audio capture didn't finish starting. The step-by-step log is in ")
                     + SessionController::sessionFolder() + QStringLiteral("/startup.log — send that and it will say exactly where it stopped."));
        QCOMPARE(stuck.client.stopCount, 1);
        QVERIFY(!stuck.controller->isSessionActive());
        QVERIFY(stuck.client.starts.isEmpty());
    }

    void failingAudioStart()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.audio.startError = QStringLiteral("Selected audio input device is not available.");
        QSignalSpy failed(&c, &SessionController::startFailed);
        QVERIFY(!rig.startSession());
        QCOMPARE(failed.count(), 1);
        QCOMPARE(c.banner(), QStringLiteral("Selected audio input device is not available."));
        QCOMPARE(rig.client.stopCount, 1);
        QVERIFY(rig.client.starts.isEmpty());
        QVERIFY(!SessionSnapshot::isSessionActive());
        rig.clock.advance(30);   // no watchdog left behind
        QCOMPARE(c.banner(), QStringLiteral("Selected audio input device is not available."));
        QCOMPARE(rig.clock.pendingTimers(), 0);
    }

    void succeedingStartAndStop()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.settings.setVadThreshold(0.6);
        rig.settings.setSilenceDurationMs(900);
        rig.settings.setDeviceUID(QStringLiteral("alsa_input.usb"));
        rig.settings.setMicChannel(1);
        rig.settings.setStreamSource(AppSettings::StreamSource::both);
        rig.settings.setSaveAudio(true);
        rig.audio.recording = QStringLiteral("/recordings/meeting_2025-03-04_14-05-09.wav");
        rig.settings.setApiKey(QStringLiteral(" sk-test\n"));   // pasted with a blank and a line end
        QSignalSpy ended(&SessionEvents::instance(), &SessionEvents::sessionEnded);
        QVERIFY(rig.startSession());

        QCOMPARE(*rig.audio.startedSource,
                 CaptureSource(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("alsa_input.usb"), 1}));
        QCOMPARE(rig.audio.startedStreamSource, StreamSource::both);
        QVERIFY(rig.audio.startedRecord);
        QCOMPARE(rig.client.starts.size(), 1);
        const RealtimeConfig &config = rig.client.starts[0];
        QCOMPARE(config.apiKey, QStringLiteral("sk-test"));
        QCOMPARE(config.model, QStringLiteral("gpt-realtime-2.1"));
        QCOMPARE(config.transcribeModel, QStringLiteral("gpt-live-transcribe"));
        QCOMPARE(config.instructions, rig.settings.instructions());
        QCOMPARE(config.vadThreshold, 0.6);
        QCOMPARE(config.silenceDurationMs, 900);
        QCOMPARE(config.prefixPaddingMs, 300);
        QCOMPARE(config.reconnectMinutes, 25);
        QVERIFY(SessionSnapshot::isSessionActive());
        QCOMPARE(rig.idle.reasons, QStringList{QStringLiteral("Live meeting transcription")});
        QCOMPARE(c.lastRecordingURL(), QUrl::fromLocalFile(*rig.audio.recording));

        rig.clock.advance(3.5);
        QCOMPARE(c.sessionElapsed(), 3.0);
        rig.audio.levels(0.02f, 0.4f);
        QCOMPARE(c.meetingLevel(), 0.4f);
        rig.audio.onPCM16(QByteArray("\x01\x02", 2));
        QCOMPARE(rig.client.appended, QByteArray("\x01\x02", 2));

        c.stop();
        QVERIFY(!c.isSessionActive());
        QVERIFY(!SessionSnapshot::isSessionActive());
        QCOMPARE(ended.count(), 1);
        QCOMPARE(rig.audio.stopCount, 1);
        QCOMPARE(rig.client.stopCount, 1);
        QCOMPARE(rig.mic.stopTaskCount, 1);
        QVERIFY(rig.mic.lastStopSilent);
        QVERIFY(!rig.idle.inhibiting);
        QCOMPARE(c.sessionElapsed(), 3.0);   // kept after Stop
        QCOMPARE(c.meetingLevel(), 0.0f);

        const QString transcript = transcriptPath();
        QCOMPARE(c.banner(), QStringLiteral("Session saved — transcript and recording"));
        QCOMPARE(labels(c.bannerLinks()), (QStringList{QStringLiteral("Transcript"), QStringLiteral("Recording"), QStringLiteral("Folder")}));
        QCOMPARE(c.bannerLinks()[0].url, QUrl::fromLocalFile(transcript));
        QCOMPARE(c.bannerLinks()[1].url, QUrl::fromLocalFile(*rig.audio.recording));
        QCOMPARE(c.bannerLinks()[2].url, QUrl::fromLocalFile(SessionController::sessionFolder()));
        QVERIFY(c.bannerLinks()[0].id != c.bannerLinks()[1].id);

        c.revealRecording();
        QCOMPARE(rig.revealer.revealed, (QList<QStringList>{{transcript, *rig.audio.recording}}));

        // A second Stop does nothing.
        c.stop();
        QCOMPARE(ended.count(), 1);
    }

    // The review page's writer gets the closed events log at Stop (which holds the session's
    // banners); its page is linked after the transcript. A writer that made no page adds no link.
    void stopLinksTheReviewPage()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QStringList asked;
        QUrl page = QUrl::fromLocalFile(QStringLiteral("/records/meeting_x.review.html"));
        c.setReviewWriter([&](const QString &eventsPath) {
            asked << eventsPath;
            return page;
        });
        QVERIFY(rig.startSession());
        c.setBannerText(QStringLiteral("Microphone lost"));   // a banner in a session is on its timeline
        c.stop();
        QCOMPARE(asked, QStringList{eventsPath()});
        QFile events(asked.first());
        QVERIFY(events.open(QIODevice::ReadOnly));
        QVERIFY(events.readAll().contains(R"("event":"banner","t":0,"text":"Microphone lost"})"));
        QCOMPARE(labels(c.bannerLinks()).mid(0, 2), (QStringList{QStringLiteral("Transcript"), QStringLiteral("Review")}));
        QCOMPARE(c.bannerLinks()[1].url, page);

        page = QUrl();
        QVERIFY(rig.startSession());
        c.stop();
        QVERIFY(!labels(c.bannerLinks()).contains(QStringLiteral("Review")));
    }

    void stopWithNothingSaved()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.audio.running = true;   // capture running although no session became active
        c.setBannerText(QStringLiteral("Earlier words"));
        c.stop();
        QCOMPARE(rig.audio.stopCount, 1);
        QCOMPARE(c.banner(), QStringLiteral("Earlier words"));
        QVERIFY(c.bannerLinks().isEmpty());
        c.revealRecording();
        QVERIFY(rig.revealer.revealed.isEmpty());
    }

    void bannerRules()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        const QList<SessionController::BannerLink> links{SessionController::makeLink(QStringLiteral("Transcript"), QUrl::fromLocalFile(QStringLiteral("/t.md")))};
        QSignalSpy linksChanged(&c, &SessionController::bannerLinksChanged);

        c.setBanner(QStringLiteral("Transcript saved"), links);
        QCOMPARE(c.bannerLinks(), links);
        c.setBanner(QStringLiteral("Transcript saved"), links);   // the same text keeps them
        QCOMPARE(c.bannerLinks(), links);
        QCOMPARE(linksChanged.count(), 1);
        c.setBannerText(QStringLiteral("Something else"));   // a new text drops them
        QVERIFY(c.bannerLinks().isEmpty());
        c.setBanner(QStringLiteral("Transcript saved"), links);
        c.setBannerText(std::nullopt);
        QVERIFY(c.bannerLinks().isEmpty());

        // An action button goes with its banner; setting an action drops links.
        c.setBanner(QStringLiteral("Transcript saved"), links);
        c.setBanner(QStringLiteral("No background loaded."), SessionController::BannerAction::openContext);
        QVERIFY(c.bannerLinks().isEmpty());
        QCOMPARE(c.bannerAction(), std::optional(SessionController::BannerAction::openContext));
        c.setBannerText(std::nullopt);
        QCOMPARE(c.bannerAction(), std::nullopt);
        QCOMPARE(c.banner(), QString());

        // Links set for a text survive only that text, even after Stop's banner.
        QVERIFY(rig.startSession());
        c.stop();
        QCOMPARE(labels(c.bannerLinks()), (QStringList{QStringLiteral("Transcript"), QStringLiteral("Folder")}));
        c.applyInstructionsLive();
        QCOMPARE(c.banner(), QStringLiteral("Saved — applies on the next Start."));
        QVERIFY(c.bannerLinks().isEmpty());
    }

    // Case 7: Start is refused while it is starting; capture that starts after the 25 s
    // watchdog gave up is stopped instead of starting the session.
    void startingTwiceAndLateCapture()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.runAudioStartsAtOnce = false;
        rig.prepareSettings();
        QSignalSpy starting(&c, &SessionController::isStartingChanged);
        c.start();
        QVERIFY(c.isStarting());
        c.start();
        c.start();
        QCOMPARE(rig.heldJobs.size(), size_t(1));
        rig.releaseAudioStart();
        QVERIFY(c.isSessionActive());
        QVERIFY(!c.isStarting());
        QCOMPARE(starting.count(), 2);
        QCOMPARE(rig.audio.startCount, 1);
        QCOMPARE(rig.client.starts.size(), 1);
        c.stop();
        QCOMPARE(eventsText().count(QStringLiteral("\"session_started\"")), 1);
        QCOMPARE(eventsText().count(QStringLiteral("\"session_ended\"")), 1);
        QVERIFY(eventsText().contains(QStringLiteral("\"audio_started\"")));

        // Capture that finishes after the watchdog has given up.
        c.start();
        rig.clock.advance(25);
        QVERIFY(!c.isStarting());
        QVERIFY(!c.isSessionActive());
        const QString watchdogBanner = c.banner();
        QVERIFY(watchdogBanner.startsWith(QStringLiteral("Audio capture didn't finish starting.")));
        QVERIFY(eventsText().contains(QStringLiteral("\"session_ended\"")));   // the log was closed
        const int stopsBefore = rig.audio.stopCount;
        rig.releaseAudioStart();
        QVERIFY(!c.isSessionActive());
        QCOMPARE(rig.audio.stopCount, stopsBefore + 1);
        QVERIFY(!rig.audio.running);
        QCOMPARE(rig.client.starts.size(), 1);
        QCOMPARE(c.banner(), watchdogBanner);

        // Stop while starting gives the start up as well.
        c.start();
        QVERIFY(c.isStarting());
        c.stop();
        QVERIFY(!c.isStarting());
        rig.releaseAudioStart();
        QVERIFY(!c.isSessionActive());
        QVERIFY(!rig.audio.running);
    }

    // Case 8: the realtime client's failure stays as the banner after the stop it causes.
    void realtimeFailureStaysAsTheBanner()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.status(RealtimeStatus::failed(QStringLiteral("Incorrect API key provided. Check the key in Settings.")));
        QVERIFY(!c.isSessionActive());
        QCOMPARE(c.banner(), QStringLiteral("Incorrect API key provided. Check the key in Settings."));
        QCOMPARE(labels(c.bannerLinks()), (QStringList{QStringLiteral("Transcript"), QStringLiteral("Folder")}));
        QCOMPARE(rig.client.stopCount, 1);
    }

    // A notice from the service is a banner line; the session goes on.
    void noticesAndTranscriptionFallback()
    {
        SessionRig rig;
        SessionController &c = *rig.controller;
        QVERIFY(rig.startSession());
        rig.client.notice(QStringLiteral("The service is rate limiting requests; answers may be slower."));
        QCOMPARE(c.banner(), QStringLiteral("The service is rate limiting requests; answers may be slower."));
        rig.client.modelFallback(QStringLiteral("gpt-live-transcribe"), QStringLiteral("gpt-transcribe"));
        QVERIFY(c.isSessionActive());
        QVERIFY2(c.banner().contains(QStringLiteral("gpt-live-transcribe")) && c.banner().contains(QStringLiteral("gpt-transcribe")),
                 qPrintable(c.banner()));
        // Priced with the model in use: a minute at gpt-transcribe's price.
        rig.client.transcribedSeconds(QStringLiteral("i1"), 60);
        QCOMPARE(c.usage().cost(), 0.0045);
        c.stop();
        QVERIFY(eventsText().contains(QStringLiteral(R"({"event":"transcribe_model_fallback","model":"gpt-transcribe","refused":"gpt-live-transcribe")")));
    }
};

QTEST_GUILESS_MAIN(SessionControllerTest)
#include "tst_session_controller.moc"
