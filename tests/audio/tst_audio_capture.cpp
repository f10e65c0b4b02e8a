// Capture against a real, private sound server (the soundserver fixtures): whole machine, one
// application, device channels, default-output changes, the stereo archive and the
// microphone stall. (Outputs, microphones and servers that come and go: tst_audio_recovery.)
#include "audio/AudioCaptureEngine.h"
#include "audio/AudioDeviceManager.h"
#include "audio/ProcessTapCapture.h"
#include "audio/StartupTrace.h"

#include "CaptureWatch.h"
#include "SoundServerFixture.h"
#include "TestSignals.h"

#include <QtTest>

#include <cmath>

using namespace kbtest;

namespace {

// Lag (in samples) at which b best matches a, searched within ±maxLag.
int bestLag(const std::vector<float> &a, const std::vector<float> &b, size_t from, size_t count, int maxLag)
{
    int best = 0;
    double bestScore = -1e300;
    for (int lag = -maxLag; lag <= maxLag; ++lag) {
        double score = 0;
        for (size_t i = from; i < from + count; ++i) {
            const qsizetype j = qsizetype(i) + lag;
            if (j >= 0 && j < qsizetype(b.size()))
                score += double(a[i]) * b[size_t(j)];
        }
        if (score > bestScore) {
            bestScore = score;
            best = lag;
        }
    }
    return best;
}

} // namespace

class TestAudioCapture : public QObject, public SoundServerFixture
{
    Q_OBJECT

private slots:
    void initTestCase()
    {
        if (!soundServerAvailable())
            QSKIP("no private sound server (run through ctest with the soundserver fixture)");
        QVERIFY(m_dir.isValid());
        QVERIFY(makeTone(path("t440.wav"), 440, 8));
        QVERIFY(makeTone(path("t1000.wav"), 1000, 8));
        QVERIFY(makeTone(path("t660.wav"), 660, 8));
        QVERIFY(makeSilence(path("silence.wav"), 60));
        QVERIFY(mergeToStereo(path("t440.wav"), path("t1000.wav"), path("s440_1000.wav")));
        QStringList noise = QStringLiteral("-n -r 48000 -b 16 -c 1 FILE synth 8 whitenoise vol 0.3").split(QLatin1Char(' '));
        noise.replace(noise.indexOf(QStringLiteral("FILE")), path("noise.wav"));
        QVERIFY(run(QStringLiteral("sox"), noise).ok());
    }

    void init() { setUpDevices(); }
    void cleanup() { tearDownDevices(); }

    void inputDevicesAreTheNonMonitorSources()
    {
        ServerModules more;
        QVERIFY(more.twoChannelDevice(QStringLiteral("dev2"), QStringLiteral("board")));
        QTRY_VERIFY_WITH_TIMEOUT(AudioDeviceManager::device(QStringLiteral("dev2")).has_value(), 5000);
        const auto devices = AudioDeviceManager::inputDevices();
        QStringList uids;
        for (const auto &d : devices) {
            uids << d.uid;
            QVERIFY2(!d.uid.endsWith(QStringLiteral(".monitor")), qPrintable(d.uid));
        }
        // Sorted by name without regard to case: "board" before "VirtualMic".
        QVERIFY(uids.indexOf(QStringLiteral("dev2")) < uids.indexOf(QStringLiteral("vmic")));
        const auto dev2 = AudioDeviceManager::device(QStringLiteral("dev2"));
        QCOMPARE(dev2->name, QStringLiteral("board"));
        QCOMPARE(dev2->channelCount, 2);
        QCOMPARE(dev2->sampleRate, 48000.0);
        QCOMPARE(dev2->label(), QStringLiteral("board — 2 ch @ 48000 Hz"));
        QVERIFY(!AudioDeviceManager::device(QStringLiteral("speakers.monitor")));

        QVERIFY(setDefaultSource(QStringLiteral("vmic")));
        QTRY_COMPARE_WITH_TIMEOUT(AudioDeviceManager::defaultInputDevice().value_or(AudioInputDevice{}).uid,
                                  QStringLiteral("vmic"), 5000);
        QVERIFY(ProcessTapCapture::probeTapAccess());
    }

    void wholeMachineDeliversWhatIsPlayedAs24kMonoPcm16()
    {
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        QVERIFY(engine.isRunning());
        QCOMPARE(engine.recordingPath(), std::nullopt);
        play("t440.wav");
        QTRY_VERIFY_WITH_TIMEOUT(c.meetingIsLoudAfter(2.0), 15000);
        const auto tail = c.lastPcm(0.5);
        // A 440 Hz tone read at 24 kHz: had the rate been wrong, it would sit at another pitch.
        QVERIFY2(toneShare(tail, 24000, 440, 880) > 0.95, "the tone is not at 440 Hz in 24 kHz audio");
        QVERIFY(toneShare(tail, 24000, 440, 220) > 0.95);
        QVERIFY(rms(tail.data(), int(tail.size())) > 0.05);
        // The microphone goes to the transcriber at 48 kHz, in 2048-frame blocks.
        QTRY_VERIFY_WITH_TIMEOUT(c.micSeconds() > 0.5, 10000);
        {
            std::lock_guard g(c.lock);
            QCOMPARE(c.mic.size() % 2048, size_t(0));
        }
        engine.stop();
        QVERIFY(!engine.isRunning());
        engine.stop();   // idempotent
        QVERIFY(c.levelPosts > 0);
    }

    void oneApplicationOnlyIncludingItsLaterStreams()
    {
        const QStringList meet{QStringLiteral("application.id=org.example.Meet"), QStringLiteral("application.name=Meet")};
        const QStringList other{QStringLiteral("application.id=org.example.Radio"), QStringLiteral("application.name=Radio")};
        play("t440.wav", {}, meet);
        play("t1000.wav", {}, other);
        QTRY_VERIFY_WITH_TIMEOUT(ProcessTapCapture::audioObject(QStringLiteral("org.example.Meet")).has_value(), 10000);
        QTRY_VERIFY_WITH_TIMEOUT(ProcessTapCapture::audioObject(QStringLiteral("org.example.Radio")).has_value(), 10000);
        QVERIFY(!ProcessTapCapture::audioObject(QStringLiteral("org.example.Absent")));
        const auto apps = ProcessTapCapture::selectableApps();
        QStringList ids;
        for (const auto &a : apps)
            ids << a.bundleID;
        QVERIFY2(ids.indexOf(QStringLiteral("org.example.Meet")) >= 0, qPrintable(ids.join(u',')));
        QVERIFY(ProcessTapCapture::audioObject(QStringLiteral("org.example.Meet"))->objectID > 0);

        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        QCOMPARE(engine.start(SystemTapSource{TapTarget::process(QStringLiteral("org.example.Meet")),
                                              QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, false).errorIfAny(),
                 std::nullopt);
        QCOMPARE(engine.tapCapture().attachedStreamCount(), 1);
        // Until the first block of the application's audio arrives (late on PulseAudio), the
        // line runs on silence; judge what comes after.
        QTRY_VERIFY_WITH_TIMEOUT(c.pcmSeconds() > 1.5, 10000);
        c.clear();
        QTRY_VERIFY_WITH_TIMEOUT(c.pcmSeconds() > 1.5, 10000);
        auto tail = c.lastPcm(1.0);
        QVERIFY2(toneShare(tail, 24000, 440, 1000) > 0.9, "the other application is heard");

        // The application opens a second stream mid-session: it is attached and mixed in.
        play("t660.wav", {}, meet);
        QTRY_COMPARE_WITH_TIMEOUT(engine.tapCapture().attachedStreamCount(), 2, 10000);
        c.clear();
        QTRY_VERIFY_WITH_TIMEOUT(c.pcmSeconds() > 1.5, 10000);
        tail = c.lastPcm(1.0);
        QVERIFY2(toneShare(tail, 24000, 660, 1000) > 0.9, "the second stream is missing or the other app is heard");
        QVERIFY(toneShare(tail, 24000, 440, 1000) > 0.9);

        // When the application's streams end, they are dropped.
        m_players.clear();
        QTRY_COMPARE_WITH_TIMEOUT(engine.tapCapture().attachedStreamCount(), 0, 10000);
        engine.stop();
    }

    // What a session that waits for a player to start sees: a plain paplay is known by its
    // binary (pacat), or by its command name through the alias table, only while it plays.
    void plainPlayerIsFoundWhilePlaying()
    {
        m_awake.clear();   // they are paplay too
        QTRY_VERIFY_WITH_TIMEOUT(!ProcessTapCapture::audioObject(QStringLiteral("pacat")), 10000);
        play("t440.wav");
        QTRY_VERIFY_WITH_TIMEOUT(ProcessTapCapture::audioObject(QStringLiteral("pacat")).has_value(), 10000);
        QVERIFY(ProcessTapCapture::audioObject(QStringLiteral("paplay")).has_value());
        const auto apps = ProcessTapCapture::selectableApps();
        QVERIFY(!apps.isEmpty());
        QCOMPARE(apps.first().bundleID, QStringLiteral("pacat"));   // playing entries come first
        QVERIFY(apps.first().objectID > 0);
        m_players.clear();
        QTRY_VERIFY_WITH_TIMEOUT(!ProcessTapCapture::audioObject(QStringLiteral("pacat")).has_value(), 10000);
    }

    void nativePipeWirePlayerIsFoundByItsClient()
    {
        if (!isPipeWire())
            QSKIP("pw-play needs PipeWire");
        play("t440.wav", {}, {}, Player::Kind::pwplay);
        QTRY_VERIFY_WITH_TIMEOUT(ProcessTapCapture::audioObject(QStringLiteral("pw-cat")).has_value(), 10000);
        // Through the alias table, as the player's command name.
        QVERIFY(ProcessTapCapture::audioObject(QStringLiteral("pw-play")).has_value());
        ProcessTapCapture tap;
        std::atomic<int> frames{0};
        tap.onAudio = [&frames](const float *, int n) { frames += n; };
        QCOMPARE(tap.start(TapTarget::process(QStringLiteral("pw-cat"))).errorIfAny(), std::nullopt);
        QCOMPARE(tap.attachedStreamCount(), 1);
        QTRY_VERIFY_WITH_TIMEOUT(frames > 48000, 10000);
        tap.cleanUp();
        QVERIFY(!tap.isRunning());
    }

    void silentApplicationKeepsTheLineRunning()
    {
        // The chosen application plays nothing: the meeting line still runs in real time, with
        // silence, so the service hears the end of the last question. Its audio, once it
        // plays, comes through as before.
        ProcessTapCapture tap;
        std::atomic<int> frames{0};
        std::atomic<int> loudFrames{0};
        tap.onAudio = [&](const float *samples, int n) {
            frames += n;
            for (int i = 0; i < n; ++i)
                loudFrames += std::fabs(samples[i]) > 0.05f ? 1 : 0;
        };
        QCOMPARE(tap.start(TapTarget::process(QStringLiteral("org.example.Quiet"))).errorIfAny(), std::nullopt);
        QCOMPARE(tap.attachedStreamCount(), 0);
        QTest::qWait(1500);
        QVERIFY2(frames >= 48000 && frames <= 48000 * 2, qPrintable(QString::number(frames)));
        QCOMPARE(loudFrames.load(), 0);
        play("t440.wav", {}, {QStringLiteral("application.id=org.example.Quiet")});
        QTRY_VERIFY_WITH_TIMEOUT(loudFrames > 24000, 10000);
        tap.cleanUp();
    }

    void deviceChannelsTakeTheChosenChannels()
    {
        ServerModules more;
        QVERIFY(more.twoChannelDevice(QStringLiteral("dev2")));
        auto feed = keepSinkAwake(QStringLiteral("dev2_feed"), path("silence.wav"));
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        // Left (aux0) carries 440 Hz, right (aux1) 1000 Hz. The meeting is channel 0.
        QCOMPARE(engine.start(DeviceChannelsSource{QStringLiteral("dev2"), 1, 0}, StreamSource::meetingOnly, true).errorIfAny(),
                 std::nullopt);
        const QString wav = engine.recordingPath().value_or(QString());
        QVERIFY(wav.endsWith(QStringLiteral(".wav")));
        QVERIFY(wav.contains(QStringLiteral("/Documents/Ketterbloom/meeting_")));
        play("s440_1000.wav", QStringLiteral("dev2_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(c.meetingIsLoudAfter(2.0), 15000);
        QVERIFY2(toneShare(c.lastPcm(1.0), 24000, 440, 1000) > 0.95, "the model does not get the meeting channel");
        QVERIFY2(toneShare(c.lastMic(1.0), 48000, 1000, 440) > 0.95, "the transcriber does not get the mic channel");
        engine.stop();

        const WavData d = readWav(wav);
        QVERIFY(d.ok);
        QCOMPARE(d.channels, 2);
        QCOMPARE(d.sampleRate, 48000);
        const auto left = d.channel(0), right = d.channel(1);
        const std::vector<float> l(left.end() - 24000, left.end()), r(right.end() - 24000, right.end());
        QVERIFY2(toneShare(l, 48000, 1000, 440) > 0.95, "left is not the microphone");
        QVERIFY2(toneShare(r, 48000, 440, 1000) > 0.95, "right is not the meeting");
    }

    void oneChannelDeviceClampsAndStreamsTheMicWithoutAMeetingChannel()
    {
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        QCOMPARE(engine.start(DeviceChannelsSource{QStringLiteral("vmic"), 5, std::nullopt}, StreamSource::meetingOnly,
                              false).errorIfAny(),
                 std::nullopt);
        QCOMPARE(engine.streamSource(), StreamSource::micOnly);
        play("t660.wav", QStringLiteral("vmic_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(c.meetingIsLoudAfter(1.5), 15000);
        QVERIFY(toneShare(c.lastPcm(1.0), 24000, 660, 440) > 0.95);
        engine.stop();
        QCOMPARE(engine.start(DeviceChannelsSource{QStringLiteral("no-such-device-and-no-default"), 0, 0},
                              StreamSource::meetingOnly, false)
                     .ok(),
                 true);   // falls back to the default input
        engine.stop();
    }

    void defaultOutputChangeIsFollowed()
    {
        ServerModules more;
        QVERIFY(more.nullSink(QStringLiteral("headset")) >= 0);
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        QCOMPARE(engine.tapCapture().monitoredSink(), QStringLiteral("speakers"));
        QVERIFY(setDefaultSink(QStringLiteral("headset")));
        QTRY_COMPARE_WITH_TIMEOUT(engine.tapCapture().monitoredSink(), QStringLiteral("headset"), 10000);
        std::unique_ptr<Player> awake;
        if (!isPipeWire())
            awake = keepSinkAwake(QStringLiteral("headset"), path("silence.wav"));
        play("t1000.wav", QStringLiteral("headset"));
        c.clear();
        QTRY_VERIFY_WITH_TIMEOUT(c.meetingIsLoudAfter(1.0), 15000);
        QVERIFY(toneShare(c.lastPcm(0.5), 24000, 1000, 440) > 0.95);
        QVERIFY(c.errors.isEmpty());
        engine.stop();
    }

    // The microphone and the meeting hear the same noise (the microphone listens to the
    // speakers): the archive's two channels must keep one constant offset from start to end.
    void stereoArchiveIsSampleAlignedAndValid()
    {
        ServerModules more;
        QVERIFY(more.load(QStringLiteral("module-remap-source"),
                          {QStringLiteral("source_name=loopmic"), QStringLiteral("master=speakers.monitor"),
                           QStringLiteral("channels=1"), QStringLiteral("source_properties=device.description=LoopMic")})
                >= 0);
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        QCOMPARE(engine.start(wholeMachine(QStringLiteral("loopmic")),
                              StreamSource::both, true).errorIfAny(),
                 std::nullopt);
        const QString wav = *engine.recordingPath();
        play("noise.wav");
        QTRY_VERIFY_WITH_TIMEOUT(c.micSeconds() > 5.0, 20000);
        QVERIFY(c.pcmSeconds() > 4.0);   // the mix goes to the model
        engine.stop();
        QCOMPARE(engine.recordingPath(), wav);   // kept after stop

        const auto info = soxInfo(wav);
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        QCOMPARE(info.value(QStringLiteral("bits")), QStringLiteral("16"));
        QCOMPARE(info.value(QStringLiteral("samples")).toLongLong(), (QFileInfo(wav).size() - 44) / 4);

        const WavData d = readWav(wav);
        const auto left = d.channel(0), right = d.channel(1);
        QVERIFY(d.frames > 5 * 48000);
        // Find where the noise is loud in both, early and late, and compare the offsets.
        const size_t early = size_t(d.frames) - size_t(4.5 * 48000);
        const size_t late = size_t(d.frames) - size_t(1.0 * 48000);
        QVERIFY(rms(left.data() + early, 4800) > 0.05);
        QVERIFY(rms(right.data() + early, 4800) > 0.05);
        const int lagEarly = bestLag(left, right, early, 4800, 6000);
        const int lagLate = bestLag(left, right, late, 4800, 6000);
        // Constant to the sample while the machine keeps up; a machine starved of CPU for
        // longer than the one-fragment pre-roll may shift the meeting by up to one fragment.
        QVERIFY2(std::abs(lagEarly - lagLate) <= 960,
                 qPrintable(QStringLiteral("offset drifted from %1 to %2").arg(lagEarly).arg(lagLate)));
        QVERIFY2(std::abs(lagEarly) < 4096, qPrintable(QStringLiteral("offset %1").arg(lagEarly)));
        QVERIFY(c.levelPosts <= int(d.frames / 48000.0 * 20) + 2);   // at most every 0.05 s
    }

    void microphoneStallFallsBackToMeetingOnly()
    {
        QFile::remove(StartupTrace::filePath());
        CaptureWatch c;
        AudioCaptureEngine &engine = c.engine;
        engine.setMicStartDeadlineForTesting(100);
        engine.setMicStartDelayForTesting(400);
        QCOMPARE(engine.start(wholeMachine(), StreamSource::both, true).errorIfAny(), std::nullopt);
        QVERIFY(engine.isRunning());
        QVERIFY(engine.micIsStalled());
        QCOMPARE(engine.streamSource(), StreamSource::meetingOnly);
        QCOMPARE(engine.recordingPath(), std::nullopt);
        QTRY_COMPARE_WITH_TIMEOUT(c.micUnavailable.size(), 1, 5000);
        QVERIFY(c.micUnavailable[0].startsWith(QStringLiteral("The microphone didn't start.")));
        play("t440.wav");
        QTRY_VERIFY_WITH_TIMEOUT(c.meetingIsLoudAfter(1.0), 15000);
        QTest::qWait(700);   // the microphone that starts late must stay silent
        QCOMPARE(c.micSeconds(), 0.0);
        engine.stop();

        // Later sessions of this process skip the microphone.
        QCOMPARE(engine.start(wholeMachine(), StreamSource::meetingOnly, false).errorIfAny(), std::nullopt);
        QTRY_COMPARE_WITH_TIMEOUT(c.micUnavailable.size(), 2, 5000);
        QVERIFY(c.micUnavailable[1].startsWith(
            QStringLiteral("Running on meeting audio only — this computer wouldn't hand over the microphone earlier")));
        engine.stop();

        StartupTrace::flush();
        QFile log(StartupTrace::filePath());
        QVERIFY(log.open(QIODevice::ReadOnly));
        const QString text = QString::fromUtf8(log.readAll());
        for (const char *needle : {"──── tap mode ────", "chose mic  (VirtualMic)", "bound mic", "read mic format  (48000 Hz, ",
                                   "prepared formats", "tap running", "MIC ENGINE STALLED — continuing on meeting audio only",
                                   "        stream switched to meeting-only; recording disabled",
                                   "skipping mic engine — it stalled earlier this run",
                                   "skipped engine teardown — mic engine was stalled"})
            QVERIFY2(text.contains(QString::fromUtf8(needle)), needle);
    }

    void tapErrorsNameTheSoundServer()
    {
        QCOMPARE((TapError{TapError::Kind::tapFailed, QStringLiteral("Connection refused")}).description(),
                 QStringLiteral("Could not listen to this computer's audio output (Connection refused). Make sure "
                                "PulseAudio or PipeWire is running, then press Start again."));
        QCOMPARE((TapError{TapError::Kind::unsupported, {}}).description(),
                 QStringLiteral("Capturing this computer's audio needs PulseAudio or PipeWire."));
        qputenv("PULSE_SERVER", "unix:/nonexistent/socket");
        ProcessTapCapture tap;
        const auto started = tap.start(TapTarget::systemOutput());
        QVERIFY(!started.ok());
        QCOMPARE(started.error().kind, TapError::Kind::tapFailed);
        QVERIFY(!ProcessTapCapture::probeTapAccess());
        QVERIFY(AudioDeviceManager::inputDevices().isEmpty());
        qputenv("PULSE_SERVER", m_server);
    }

private:
    QByteArray m_server = qgetenv("PULSE_SERVER");
};

QTEST_GUILESS_MAIN(TestAudioCapture)
#include "tst_audio_capture.moc"
