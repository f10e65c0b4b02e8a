// What the session shows while a part of the capture is lost: the sound server, the meeting
// output (after a grace period), the microphone; banners that clear when the part is back and
// leave other banners alone; a microphone picked in Settings during a session.

#include "SessionRig.h"

#include <QFile>
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
        const QStringList logs = QDir(SessionController::sessionFolder())
                                     .entryList({QStringLiteral("*.events.jsonl")}, QDir::Files, QDir::Time);
        QVERIFY(!logs.isEmpty());
        QFile file(SessionController::sessionFolder() + QLatin1Char('/') + logs.first());
        QVERIFY(file.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(file.readAll());
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
};

QTEST_GUILESS_MAIN(SessionAudioTest)
#include "tst_session_audio.moc"
