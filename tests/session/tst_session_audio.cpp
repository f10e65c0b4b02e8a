// What the session shows while a part of the capture is lost: the sound server, the meeting
// output (after a grace period), the microphone; banners that clear when the part is back and
// leave other banners alone; a microphone picked in Settings during a session; and the meeting
// narrowed to one application, at the start or once it plays, or left on the whole computer.

#include "SessionFiles.h"
#include "SessionRig.h"

#include <QTest>

namespace {

CaptureHealth health(bool server, bool meeting, bool mic, const QString &name = QStringLiteral("Desk Mic"))
{
    return CaptureHealth{server, meeting, mic, name};
}

const QString kServerLost = QStringLiteral("Lost the connection to the sound server — reconnecting…");
const QString kOutputLost = QStringLiteral("Lost this computer's audio output — waiting for it to come back.");
const QString kMicLost =
    QStringLiteral("Your microphone (Desk Mic) disconnected — answers aren't being timed until it's back.");

} // namespace

using sessionfiles::eventsText;

class SessionAudioTest : public QObject
{
    Q_OBJECT

private slots:
    void lostOutputIsShownAfterFiveSecondsAndClearsWhenBack()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.audio.onHealth(health(true, false, true));
        rig.clock.advance(4.9);
        QCOMPARE(rig.controller->bannerText(), std::nullopt);   // a replug usually ends sooner
        rig.clock.advance(0.1);
        QCOMPARE(rig.controller->bannerText(), kOutputLost);
        rig.audio.onHealth(health(true, true, true));
        QCOMPARE(rig.controller->bannerText(), std::nullopt);

        // An output back within the grace period never shows a banner.
        rig.audio.onHealth(health(true, false, true));
        rig.clock.advance(3.0);
        rig.audio.onHealth(health(true, true, true));
        rig.clock.advance(5.0);
        QCOMPARE(rig.controller->bannerText(), std::nullopt);
    }

    void lostMicrophoneIsNamedAtOnceAndClearsWhenReattached()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.audio.levels(0.4f, 0.3f);
        rig.audio.onHealth(health(true, true, false));
        QCOMPARE(rig.controller->bannerText(), kMicLost);
        QCOMPARE(rig.controller->micLevel(), 0.0f);
        QCOMPARE(rig.controller->meetingLevel(), 0.3f);
        QVERIFY(rig.controller->isSessionActive());
        rig.audio.onHealth(health(true, true, true));
        QCOMPARE(rig.controller->bannerText(), std::nullopt);
    }

    void lostServerComesFirstThenTheOutputIfItStaysMissing()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.audio.onHealth(health(false, false, false));
        QCOMPARE(rig.controller->bannerText(), kServerLost);
        rig.clock.advance(6.0);
        QCOMPARE(rig.controller->bannerText(), kServerLost);
        // The server is back, the microphone too, but the output is still missing (for 6 s now).
        rig.audio.onHealth(health(true, false, true));
        QCOMPARE(rig.controller->bannerText(), kOutputLost);
        rig.audio.onHealth(health(true, true, true));
        QCOMPARE(rig.controller->bannerText(), std::nullopt);
        QVERIFY(rig.controller->isSessionActive());

        // A server that comes back at once clears its banner.
        rig.audio.onHealth(health(false, false, false));
        rig.audio.onHealth(health(true, true, true));
        QCOMPARE(rig.controller->bannerText(), std::nullopt);
    }

    void otherBannersAreLeftAlone()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.audio.onHealth(health(true, true, false));
        QCOMPARE(rig.controller->bannerText(), kMicLost);
        rig.controller->setBannerText(QStringLiteral("Something else the user must read."));
        rig.audio.onHealth(health(true, true, true));
        QCOMPARE(rig.controller->bannerText(), QStringLiteral("Something else the user must read."));

        // Stop clears a capture banner and ignores late reports.
        rig.audio.onHealth(health(false, false, false));
        QCOMPARE(rig.controller->bannerText(), kServerLost);
        rig.controller->stop();
        QVERIFY(rig.controller->bannerText() != kServerLost);
        rig.audio.onHealth(health(false, false, false));
        QVERIFY(rig.controller->bannerText() != kServerLost);
    }

    void healthChangesAreLogged()
    {
        SessionRig rig;
        QVERIFY(rig.startSession());
        rig.audio.onHealth(health(true, true, false));
        rig.audio.onHealth(health(true, true, true));
        rig.controller->stop();
        const QString text = eventsText();
        QCOMPARE(text.count(QStringLiteral("\"event\":\"audio_health\"")), 2);
        QVERIFY(text.contains(QStringLiteral("\"microphone\":false")));
    }

    void microphonePickedInSettingsIsUsedAtOnce()
    {
        SessionRig rig;
        rig.settings.setMeetingSource(AppSettings::MeetingSource::systemOutput);
        rig.settings.setDeviceUID(QStringLiteral("before"));   // no session: nothing to switch
        QVERIFY(rig.audio.micSwitches.isEmpty());
        QVERIFY(rig.startSession());
        rig.settings.setDeviceUID(QStringLiteral("usb-headset"));
        QCOMPARE(rig.audio.micSwitches.size(), 1);
        QCOMPARE(rig.audio.micSwitches.last().first, QStringLiteral("usb-headset"));
        rig.settings.setMicChannel(1);
        QCOMPARE(rig.audio.micSwitches.size(), 2);
        QCOMPARE(rig.audio.micSwitches.last().second, 1);
        QCOMPARE(rig.audio.startCount, 1);   // the session was not restarted
        rig.controller->stop();

        // With both sides on one device, the choice waits for the next Start.
        rig.settings.setMeetingSource(AppSettings::MeetingSource::audioDevice);
        rig.settings.setMeetingChannel(1);
        QVERIFY(rig.startSession());
        rig.settings.setDeviceUID(QStringLiteral("board"));
        QCOMPARE(rig.audio.micSwitches.size(), 2);
    }

    void singleAppChoices()
    {
        const QString zoom = QStringLiteral("us.zoom.Zoom");
        {
            SessionRig rig;
            rig.settings.setMeetingSource(AppSettings::MeetingSource::singleApp);
            QVERIFY(!rig.startSession());
            QCOMPARE(rig.controller->banner(), QStringLiteral("Pick which app to listen to in Settings."));
            QCOMPARE(rig.client.stopCount, 1);
        }
        {
            SessionRig rig;
            rig.listenToApp(zoom);
            rig.taps.playing.insert(zoom, AudioProcessInfo{42, zoom, QStringLiteral("Zoom")});
            QVERIFY(rig.startSession());
            QCOMPARE(*rig.audio.startedSource, CaptureSource(SystemTapSource{TapTarget::process(zoom), std::nullopt, 0}));
            QCOMPARE(rig.controller->banner(), QString());
        }
        {
            SessionRig rig;
            rig.listenToApp(QStringLiteral("com.microsoft.teams"));
            rig.taps.apps = {AudioProcessInfo{0, QStringLiteral("com.microsoft.teams"), QStringLiteral("Teams")}};
            rig.taps.helpers = {{QStringLiteral("com.microsoft.teams"), {QStringLiteral("teams-helper")}}};
            QVERIFY(rig.startSession());
            QCOMPARE(*rig.audio.startedSource, CaptureSource(SystemTapSource{TapTarget::systemOutput(), std::nullopt, 0}));
            QCOMPARE(rig.controller->banner(),
                     QStringLiteral("Listening to this computer. Teams plays its call audio through another process, so it can't be listened to on its own — everything you hear is captured instead."));
            rig.clock.advance(130);   // nothing waits to be narrowed
            QVERIFY(rig.audio.retargets.isEmpty());
            QCOMPARE(rig.taps.audioObjectQueries, 1);
        }
    }

    void narrowingToOneApp()
    {
        const QString zoom = QStringLiteral("us.zoom.Zoom");
        SessionRig rig;
        SessionController &c = *rig.controller;
        rig.listenToApp(zoom);
        rig.taps.apps = {AudioProcessInfo{0, zoom, QStringLiteral("Zoom")}};
        QVERIFY(rig.startSession());
        QCOMPARE(c.banner(), QStringLiteral("Started, listening to all of this computer's audio. Zoom isn't playing anything yet; I'll narrow to it alone as soon as it does."));

        rig.clock.advance(10);
        rig.taps.playing.insert(zoom, AudioProcessInfo{7, zoom, QStringLiteral("Zoom")});
        rig.clock.advance(2);   // the tick at 12 s
        QCOMPARE(rig.audio.retargets, QList<TapTarget>{TapTarget::process(zoom)});
        QCOMPARE(c.banner(), QStringLiteral("Now listening to Zoom only."));
        QVERIFY(c.isSessionActive());
        rig.clock.advance(30);
        QCOMPARE(rig.audio.retargets.size(), 1);   // the poll has ended
        c.stop();
        QVERIFY(eventsText().contains(QStringLiteral(R"({"app":"us.zoom.Zoom","event":"tap_narrowed","t":12})")));

        // Stopped before the application played: the next session, for the whole computer,
        // is never narrowed to it.
        rig.taps.playing.clear();
        QVERIFY(rig.startSession());
        c.stop();
        rig.settings.setMeetingSource(AppSettings::MeetingSource::systemOutput);
        QVERIFY(rig.startSession());
        rig.taps.playing.insert(zoom, AudioProcessInfo{7, zoom, QStringLiteral("Zoom")});
        rig.clock.advance(10);
        QCOMPARE(rig.audio.retargets.size(), 1);
    }

    void narrowingGivesUpOrFails()
    {
        const QString app = QStringLiteral("org.example.Dialer");
        {
            SessionRig rig;
            SessionController &c = *rig.controller;
            rig.listenToApp(app);
            QVERIFY(rig.startSession());
            rig.clock.advance(120);
            QCOMPARE(c.banner().left(28), QStringLiteral("Started, listening to all of"));
            rig.clock.advance(3);   // the first tick after 120 s
            QCOMPARE(c.banner(), QStringLiteral("Still listening to this whole computer — no audio has been credited to org.example.Dialer. "
                                                "That is normal for apps that play sound through another process, and the meeting is being captured either way."));
            rig.clock.advance(60);
            c.stop();
            QCOMPARE(eventsText().count(QStringLiteral("\"tap_narrow_timeout\"")), 1);
            QVERIFY(rig.audio.retargets.isEmpty());
        }
        {
            SessionRig rig;
            SessionController &c = *rig.controller;
            rig.listenToApp(app);
            rig.taps.apps = {AudioProcessInfo{0, app, QStringLiteral("Dialer")}};
            rig.audio.retargetError = QStringLiteral("The application's stream went away.");
            QVERIFY(rig.startSession());
            rig.taps.playing.insert(app, AudioProcessInfo{3, app, QStringLiteral("Dialer")});
            rig.clock.advance(3);
            QCOMPARE(c.banner(), QStringLiteral("Stayed on this computer's audio — could not switch to Dialer: The application's stream went away."));
            rig.clock.advance(9);
            QCOMPARE(rig.audio.retargets.size(), 1);
            QVERIFY(c.isSessionActive());
        }
    }
};

QTEST_GUILESS_MAIN(SessionAudioTest)
#include "tst_session_audio.moc"
