// Capture that survives what a laptop goes through, on a real private sound server: the default
// output removed and re-created under the same name or switched to another and back, the
// microphone unplugged and plugged in again, the sound server restarting, and a recording
// process killed outright.
#include "audio/AudioCaptureEngine.h"

#include "CaptureWatch.h"
#include "SoundServerFixture.h"
#include "TestSignals.h"

#include <QtTest>

#include <cmath>

using namespace kbtest;

namespace {

double rmsOf(const std::vector<float> &v, double fromSeconds, double seconds, int rate = 48000)
{
    const auto from = size_t(std::max(0.0, fromSeconds) * rate);
    const auto count = std::min(v.size() - std::min(v.size(), from), size_t(seconds * rate));
    return count ? rms(v.data() + from, int(count)) : 0.0;
}

} // namespace

class TestAudioRecovery : public QObject, public SoundServerFixture
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!soundServerAvailable())
            QSKIP("no private sound server (run through ctest with the soundserver fixture)");
        QVERIFY(m_dir.isValid());
        QVERIFY(makeTone(path("t440.wav"), 440, 30));
        QVERIFY(makeTone(path("t1000.wav"), 1000, 30));
        QVERIFY(makeSilence(path("silence.wav"), 60));
    }

    void init() { setUpDevices(); }
    void cleanup() { tearDownDevices(); }

    // The default output goes away and comes back under the same name, as a Bluetooth
    // reconnect or a USB replug does it, several times, at once and after a pause: each time
    // the meeting audio of the returning output reaches the model within 2 s.
    void defaultOutputRecreatedUnderTheSameNameIsFollowed()
    {
        ServerModules sinks;
        int index = sinks.nullSink(QStringLiteral("headset"));
        QVERIFY(index >= 0);
        QVERIFY(setDefaultSink(QStringLiteral("headset")));
        QVERIFY(waitForDefaultSink(QStringLiteral("headset")));
        CaptureWatch w;
        AudioCaptureEngine &engine = w.engine;
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        QCOMPARE(engine.tapCapture().monitoredSink(), QStringLiteral("headset"));

        const int pausesMs[] = {0, 150, 300, 1000, 0, 250};
        for (const int pause : pausesMs) {
            m_players.clear();
            m_awake.clear();
            QVERIFY(sinks.unload(index));
            if (pause > 0)
                QTest::qWait(pause);
            index = sinks.nullSink(QStringLiteral("headset"));
            QVERIFY(index >= 0);
            // The server makes the user's chosen output the default again when it returns.
            if (!waitForDefaultSink(QStringLiteral("headset"), 5000))
                QVERIFY(setDefaultSink(QStringLiteral("headset")));
            w.armMeeting();
            settle(QStringLiteral("headset"));
            play("t440.wav", QStringLiteral("headset"));
            QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0, 20000);
            const double delay = w.meetingDelay();
            qInfo("pause %d ms: meeting audio back %.2f s after the output returned", pause, delay);
            QVERIFY2(delay <= 2.0, qPrintable(QStringLiteral("%1 s after a %2 ms pause").arg(delay).arg(pause)));
            QCOMPARE(engine.tapCapture().monitoredSink(), QStringLiteral("headset"));
        }
        QVERIFY(engine.isRunning());
        QTRY_VERIFY_WITH_TIMEOUT(w.lastHealth().allGood(), 10000);
        engine.stop();
    }

    void defaultSwitchedToASecondOutputAndBack()
    {
        ServerModules sinks;
        QVERIFY(sinks.nullSink(QStringLiteral("headset")) >= 0);
        CaptureWatch w;
        AudioCaptureEngine &engine = w.engine;
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        if (!isPipeWire())
            keepAwake(QStringLiteral("headset"));
        for (const QString &sink : {QStringLiteral("headset"), QStringLiteral("speakers"), QStringLiteral("headset"),
                                    QStringLiteral("speakers")}) {
            m_players.clear();
            QVERIFY(setDefaultSink(sink));
            w.armMeeting();
            play("t440.wav", sink);
            QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0, 20000);
            const double delay = w.meetingDelay();
            QVERIFY2(delay <= 2.0, qPrintable(QStringLiteral("%1 s to follow %2").arg(delay).arg(sink)));
            QTRY_COMPARE_WITH_TIMEOUT(engine.tapCapture().monitoredSink(), sink, 5000);
        }
        engine.stop();
    }

    // The microphone is unplugged: its stream is not moved to another source, the session
    // goes on with the meeting alone (to the model, the meters and the archive, whose left
    // channel carries silence), and the microphone is picked up again when it returns.
    void microphoneUnpluggedAndPluggedInAgain()
    {
        auto mic = std::make_unique<ServerModules>();
        QVERIFY(mic->virtualMic(QStringLiteral("vmic2"), QStringLiteral("VirtualMic2")));
        settle(QStringLiteral("vmic2_feed"));
        CaptureWatch w;
        AudioCaptureEngine &engine = w.engine;
        const qint64 beforeStart = steadyNs();
        QCOMPARE(engine.start(wholeMachine(QStringLiteral("vmic2")),
                              StreamSource::both, true).errorIfAny(),
                 std::nullopt);
        const QString wav = engine.recordingPath().value_or(QString());
        QVERIFY(!wav.isEmpty());
        play("t440.wav");                                       // the meeting
        auto micTone = Player::start(path("t1000.wav"), QStringLiteral("vmic2_feed"));   // the user
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.5 && w.meetingIsLoudAfter(0.5), 20000);

        micTone.reset();
        m_awake.clear();
        mic.reset();   // unplugged
        const qint64 lostAt = steadyNs();
        QTRY_VERIFY_WITH_TIMEOUT(!w.lastHealth().microphone, 10000);
        QCOMPARE(w.lastHealth().microphoneName, QStringLiteral("VirtualMic2"));
        QVERIFY(w.lastHealth().soundServer && w.lastHealth().meetingOutput);
        // Not moved anywhere: no microphone stream of ours is left on the server.
        QVERIFY(!run(QStringLiteral("pactl"), {QStringLiteral("list"), QStringLiteral("source-outputs")})
                     .out.contains(QStringLiteral("Ketterbloom microphone")));
        // The meeting alone goes on to the model, and the meters follow it.
        const double micAtLoss = w.micSeconds();
        const int levelsAtLoss = w.levelPosts;
        QTest::qWait(1500);
        QVERIFY2(toneShare(w.lastPcm(1.0), 24000, 440, 1000) > 0.95, "the model does not hear the meeting alone");
        QVERIFY(w.levelPosts > levelsAtLoss + 10);
        QVERIFY(w.lastMeetingLevel > 0.05f);
        QVERIFY(w.micSeconds() - micAtLoss < 0.2);

        // Plugged in again.
        mic = std::make_unique<ServerModules>();
        QVERIFY(mic->virtualMic(QStringLiteral("vmic2"), QStringLiteral("VirtualMic2")));
        const qint64 backAt = steadyNs();
        settle(QStringLiteral("vmic2_feed"));
        micTone = Player::start(path("t1000.wav"), QStringLiteral("vmic2_feed"));
        w.armMic();
        QTRY_VERIFY_WITH_TIMEOUT(w.lastHealth().allGood(), 15000);
        QTRY_VERIFY_WITH_TIMEOUT(w.micLoudAt != 0, 15000);
        QTest::qWait(1500);
        engine.stop();
        const qint64 stoppedAt = steadyNs();

        const WavData d = readWav(wav);
        QVERIFY(d.ok);
        const double seconds = double(d.frames) / 48000.0;
        const double wall = double(stoppedAt - beforeStart) / 1e9;
        QVERIFY2(std::fabs(seconds - wall) < 0.75, qPrintable(QStringLiteral("%1 s recorded in %2 s").arg(seconds).arg(wall)));
        const auto left = d.channel(0), right = d.channel(1);
        // Where the archive stood when the microphone went and came back (its start is the
        // session's start, give or take the microphone's start-up).
        const double lost = double(lostAt - beforeStart) / 1e9, back = double(backAt - beforeStart) / 1e9;
        QVERIFY(rmsOf(left, lost - 1.2, 0.5) > 0.05);                  // the user, before
        QVERIFY2(rmsOf(left, lost + 0.5, back - lost - 1.0) < 0.01, "the left channel is not silent without the mic");
        QVERIFY2(rmsOf(right, lost + 0.5, back - lost - 1.0) > 0.05, "the meeting is missing from the archive");
        QVERIFY(toneShare(std::vector<float>(right.begin() + qsizetype((lost + 0.5) * 48000),
                                             right.begin() + qsizetype((lost + 1.0) * 48000)),
                          48000, 440, 1000)
                > 0.95);
        QVERIFY(rmsOf(left, seconds - 0.8, 0.5) > 0.05);               // the user, after
        QVERIFY(rmsOf(right, seconds - 0.8, 0.5) > 0.05);
    }

    // The user picks another microphone in Settings mid-session: it is used at once, and the
    // meeting side is not touched.
    void microphoneSwitchedDuringTheSession()
    {
        ServerModules other;
        QVERIFY(other.virtualMic(QStringLiteral("vmic2"), QStringLiteral("VirtualMic2")));
        settle(QStringLiteral("vmic2_feed"));
        play("t1000.wav", QStringLiteral("vmic_feed"));
        play("t440.wav", QStringLiteral("vmic2_feed"));
        CaptureWatch w;
        AudioCaptureEngine &engine = w.engine;
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.0, 20000);
        QVERIFY(toneShare(w.lastMic(0.5), 48000, 1000, 440) > 0.95);
        engine.switchMicrophone(QStringLiteral("vmic2"), 0);
        QTRY_VERIFY_WITH_TIMEOUT(toneShare(w.lastMic(0.5), 48000, 440, 1000) > 0.95, 10000);
        QVERIFY(engine.isRunning());
        QCOMPARE(engine.tapCapture().monitoredSink(), QStringLiteral("speakers"));
        QVERIFY(w.lastHealth().allGood());
        QCOMPARE(engine.health().microphoneName, QStringLiteral("VirtualMic2"));
        engine.stop();
    }

    void soundServerRestart_data()
    {
        QTest::addColumn<int>("downMs");
        QTest::addColumn<QString>("app");   // the meeting narrowed to this application, or the whole machine
        QTest::newRow("back after 0.2 s") << 200 << QString();
        QTest::newRow("back after 3 s") << 3000 << QString();
        QTest::newRow("one application, back after 0.5 s") << 500 << QStringLiteral("org.example.Meet");
    }

    // The sound server goes away mid-session and comes back: meeting and microphone audio
    // resume within 3 s of it being back (one application's new streams are attached), and
    // the recording keeps wall-clock time.
    void soundServerRestart()
    {
        QFETCH(int, downMs);
        QFETCH(QString, app);
        const QStringList props = app.isEmpty() ? QStringList() : QStringList{QStringLiteral("application.id=") + app};
        const TapTarget target = app.isEmpty() ? TapTarget::systemOutput() : TapTarget::process(app);
        if (!app.isEmpty())
            play("t440.wav", {}, props);
        CaptureWatch w;
        AudioCaptureEngine &engine = w.engine;
        const qint64 beforeStart = steadyNs();
        QCOMPARE(engine.start(SystemTapSource{target, QStringLiteral("vmic"), 0}, StreamSource::meetingOnly, true).errorIfAny(), std::nullopt);
        const QString wav = engine.recordingPath().value_or(QString());
        if (app.isEmpty())
            play("t440.wav");
        play("t1000.wav", QStringLiteral("vmic_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.0 && w.meetingIsLoudAfter(0.5), 20000);

        m_players.clear();
        m_awake.clear();
        QVERIFY(stopSoundServer());
        m_modules->forget();   // they went with the server
        QTRY_VERIFY_WITH_TIMEOUT(!w.lastHealth().soundServer, 10000);
        QVERIFY(engine.isRunning());
        const double pcmWhileDown = w.pcmSeconds();
        QTest::qWait(downMs);
        // Meanwhile the model hears silence in real time, so its turn detection goes on.
        if (downMs >= 1000)
            QVERIFY2(w.pcmSeconds() - pcmWhileDown > downMs / 1000.0 * 0.6,
                     qPrintable(QStringLiteral("%1 s of audio in %2 ms").arg(w.pcmSeconds() - pcmWhileDown).arg(downMs)));
        QVERIFY(startSoundServerAgain());
        QVERIFY(m_modules->virtualMic(QStringLiteral("vmic"), QStringLiteral("VirtualMic")));
        w.armMeeting();
        w.armMic();
        settle(QStringLiteral("speakers"));
        settle(QStringLiteral("vmic_feed"));
        play("t440.wav", {}, props);
        play("t1000.wav", QStringLiteral("vmic_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0 && w.micLoudAt != 0, 20000);
        const double meetingDelay = w.meetingDelay();
        const double micDelay = w.micDelay();
        qInfo("server back: meeting after %.2f s, microphone after %.2f s", meetingDelay, micDelay);
        QVERIFY2(meetingDelay <= 3.0, qPrintable(QString::number(meetingDelay)));
        QVERIFY2(micDelay <= 3.0, qPrintable(QString::number(micDelay)));
        QTRY_VERIFY_WITH_TIMEOUT(w.lastHealth().allGood(), 10000);
        QCOMPARE(engine.tapCapture().target(), target);
        QTest::qWait(1000);
        engine.stop();
        const double wall = secondsSince(beforeStart);

        const auto info = soxInfo(wav);
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        const double seconds = info.value(QStringLiteral("samples")).toDouble() / 48000.0;
        QVERIFY2(std::fabs(seconds - wall) < 0.75, qPrintable(QStringLiteral("%1 s recorded in %2 s").arg(seconds).arg(wall)));
    }

    void killedRecording_data()
    {
        QTest::addColumn<double>("killAfter");
        QTest::newRow("1.5 s") << 1.5;
        QTest::newRow("5.3 s") << 5.3;
    }

    // A recording process killed outright leaves a valid file holding all but its last second.
    void killedRecording()
    {
        QFETCH(double, killAfter);
        play("t440.wav", QStringLiteral("vmic_feed"));
        QProcess child;
        child.setProgram(QCoreApplication::applicationDirPath() + QStringLiteral("/audio_record_child"));
        child.setArguments({QStringLiteral("vmic")});
        child.start();
        QVERIFY(child.waitForStarted(5000));
        QTRY_VERIFY_WITH_TIMEOUT(child.canReadLine() || child.state() != QProcess::Running, 20000);
        const qint64 recordingAt = steadyNs();   // the recording is open from here
        const QString wav = QString::fromUtf8(child.readLine()).trimmed();
        QVERIFY2(wav.endsWith(QStringLiteral(".wav")), qPrintable(wav));
        while (secondsSince(recordingAt) < killAfter)
            QTest::qWait(10);
        child.kill();
        const double elapsed = secondsSince(recordingAt);
        QVERIFY(child.waitForFinished(5000));

        const auto info = soxInfo(wav);
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        QCOMPARE(info.value(QStringLiteral("bits")), QStringLiteral("16"));
        const double seconds = info.value(QStringLiteral("samples")).toDouble() / 48000.0;
        qInfo("killed after %.2f s: the header holds %.2f s", elapsed, seconds);
        QVERIFY2(seconds >= killAfter - 1.0, qPrintable(QStringLiteral("%1 s of %2 s").arg(seconds).arg(elapsed)));
        QVERIFY(info.value(QStringLiteral("samples")).toLongLong() * 4 <= QFileInfo(wav).size() - 44);
        const WavData d = readWav(wav);
        QVERIFY(d.ok);
        QCOMPARE(d.frames, info.value(QStringLiteral("samples")).toLongLong());
    }

};

QTEST_GUILESS_MAIN(TestAudioRecovery)
#include "tst_audio_recovery.moc"
