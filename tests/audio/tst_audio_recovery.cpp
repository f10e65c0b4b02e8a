// Capture that survives what a laptop goes through, on a real private sound server: the default
// output removed and re-created under the same name or switched to another and back, the
// microphone unplugged and plugged in again, the sound server restarting, and a recording
// process killed outright.
#include "audio/AudioCaptureEngine.h"

#include "SoundServer.h"
#include "TestSignals.h"

#include <QtTest>

#include <atomic>
#include <chrono>
#include <cmath>
#include <mutex>

using namespace kbtest;

namespace {

qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

double secondsSince(qint64 ns)
{
    return double(steadyNs() - ns) / 1e9;
}

// Collects what the engine hands out, and when loud audio first came after being armed.
struct Watch
{
    std::mutex lock;
    QByteArray pcm;
    std::vector<float> mic;
    std::atomic<qint64> meetingArmedAt{0}, meetingLoudAt{0};
    std::atomic<qint64> micArmedAt{0}, micLoudAt{0};
    std::atomic<int> levelPosts{0};
    float lastMeetingLevel = 0;
    QList<CaptureHealth> health;

    void attach(AudioCaptureEngine &e)
    {
        e.onPCM16 = [this](const QByteArray &b) {
            const auto *s = reinterpret_cast<const qint16 *>(b.constData());
            if (meetingArmedAt != 0 && meetingLoudAt == 0) {
                for (qsizetype i = 0; i < b.size() / 2; ++i) {
                    if (std::abs(int(s[i])) > 3000) {
                        meetingLoudAt = steadyNs();
                        break;
                    }
                }
            }
            std::lock_guard g(lock);
            pcm += b;
        };
        e.onMicBuffer = [this](const float *s, int n) {
            if (micArmedAt != 0 && micLoudAt == 0) {
                for (int i = 0; i < n; ++i) {
                    if (std::fabs(s[i]) > 0.1f) {
                        micLoudAt = steadyNs();
                        break;
                    }
                }
            }
            std::lock_guard g(lock);
            mic.insert(mic.end(), s, s + n);
        };
        e.onLevels = [this](float, float meeting) {
            ++levelPosts;
            lastMeetingLevel = meeting;
        };
        e.onHealth = [this](const CaptureHealth &h) { health << h; };
    }
    void armMeeting()
    {
        meetingLoudAt = 0;
        meetingArmedAt = steadyNs();
    }
    void armMic()
    {
        micLoudAt = 0;
        micArmedAt = steadyNs();
    }
    static double delay(const std::atomic<qint64> &armed, const std::atomic<qint64> &loud)
    {
        return double(loud - armed) / 1e9;
    }
    double pcmSeconds()
    {
        std::lock_guard g(lock);
        return double(pcm.size()) / 2 / 24000.0;
    }
    double micSeconds()
    {
        std::lock_guard g(lock);
        return double(mic.size()) / 48000.0;
    }
    std::vector<float> lastPcm(double seconds)
    {
        std::lock_guard g(lock);
        const qsizetype bytes = std::min<qsizetype>(pcm.size(), qsizetype(seconds * 24000) * 2);
        return pcm16ToFloat(pcm.right(bytes));
    }
    CaptureHealth lastHealth() const { return health.isEmpty() ? CaptureHealth{} : health.last(); }
};

double rmsOf(const std::vector<float> &v, double fromSeconds, double seconds, int rate = 48000)
{
    const auto from = size_t(std::max(0.0, fromSeconds) * rate);
    const auto count = std::min(v.size() - std::min(v.size(), from), size_t(seconds * rate));
    return count ? rms(v.data() + from, int(count)) : 0.0;
}

} // namespace

class TestAudioRecovery : public QObject
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

    void init()
    {
        m_modules = std::make_unique<ServerModules>();
        QVERIFY(m_modules->virtualMic(QStringLiteral("vmic"), QStringLiteral("VirtualMic")));
        QVERIFY(setDefaultSink(QStringLiteral("speakers")));
        QVERIFY(waitForDefaultSink(QStringLiteral("speakers")));
        wakeSinks();
    }

    void cleanup()
    {
        m_players.clear();
        m_awake.clear();
        m_modules.reset();
        if (soundServerAvailable())
            setDefaultSink(QStringLiteral("speakers"));
    }

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
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        QCOMPARE(engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, false),
                 std::nullopt);
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
            const double delay = Watch::delay(w.meetingArmedAt, w.meetingLoudAt);
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
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        QCOMPARE(engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, false),
                 std::nullopt);
        if (!isPipeWire())
            keepAwake(QStringLiteral("headset"));
        for (const QString &sink : {QStringLiteral("headset"), QStringLiteral("speakers"), QStringLiteral("headset"),
                                    QStringLiteral("speakers")}) {
            m_players.clear();
            QVERIFY(setDefaultSink(sink));
            w.armMeeting();
            play("t440.wav", sink);
            QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0, 20000);
            const double delay = Watch::delay(w.meetingArmedAt, w.meetingLoudAt);
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
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        const qint64 beforeStart = steadyNs();
        QCOMPARE(engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic2"), 0},
                              StreamSource::both, true),
                 std::nullopt);
        const QString wav = engine.recordingPath().value_or(QString());
        QVERIFY(!wav.isEmpty());
        play("t440.wav");                                       // the meeting
        auto micTone = Player::start(path("t1000.wav"), QStringLiteral("vmic2_feed"));   // the user
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.5 && rms(w.lastPcm(0.5).data(), 12000) > 0.05, 20000);

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
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        QCOMPARE(engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, false),
                 std::nullopt);
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.0, 20000);
        auto lastMic = [&w](double seconds) {
            std::lock_guard g(w.lock);
            const size_t n = std::min(w.mic.size(), size_t(seconds * 48000));
            return std::vector<float>(w.mic.end() - qsizetype(n), w.mic.end());
        };
        QVERIFY(toneShare(lastMic(0.5), 48000, 1000, 440) > 0.95);
        engine.switchMicrophone(QStringLiteral("vmic2"), 0);
        QTRY_VERIFY_WITH_TIMEOUT(toneShare(lastMic(0.5), 48000, 440, 1000) > 0.95, 10000);
        QVERIFY(engine.isRunning());
        QCOMPARE(engine.tapCapture().monitoredSink(), QStringLiteral("speakers"));
        QVERIFY(w.lastHealth().allGood());
        QCOMPARE(engine.health().microphoneName, QStringLiteral("VirtualMic2"));
        engine.stop();
    }

    void soundServerRestart_data()
    {
        QTest::addColumn<int>("downMs");
        QTest::newRow("back after 0.2 s") << 200;
        QTest::newRow("back after 3 s") << 3000;
    }

    // The sound server goes away mid-session and comes back: meeting and microphone audio
    // resume within 3 s of it being back, and the recording keeps wall-clock time.
    void soundServerRestart()
    {
        QFETCH(int, downMs);
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        const qint64 beforeStart = steadyNs();
        QCOMPARE(engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, true),
                 std::nullopt);
        const QString wav = engine.recordingPath().value_or(QString());
        play("t440.wav");
        play("t1000.wav", QStringLiteral("vmic_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(w.micSeconds() > 1.0 && rms(w.lastPcm(0.5).data(), 12000) > 0.05, 20000);

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
        play("t440.wav");
        play("t1000.wav", QStringLiteral("vmic_feed"));
        QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0 && w.micLoudAt != 0, 20000);
        const double meetingDelay = Watch::delay(w.meetingArmedAt, w.meetingLoudAt);
        const double micDelay = Watch::delay(w.micArmedAt, w.micLoudAt);
        qInfo("server back: meeting after %.2f s, microphone after %.2f s", meetingDelay, micDelay);
        QVERIFY2(meetingDelay <= 3.0, qPrintable(QString::number(meetingDelay)));
        QVERIFY2(micDelay <= 3.0, qPrintable(QString::number(micDelay)));
        QTRY_VERIFY_WITH_TIMEOUT(w.lastHealth().allGood(), 10000);
        QTest::qWait(1000);
        engine.stop();
        const double wall = secondsSince(beforeStart);

        const auto info = soxInfo(wav);
        QCOMPARE(info.value(QStringLiteral("rate")), QStringLiteral("48000"));
        QCOMPARE(info.value(QStringLiteral("channels")), QStringLiteral("2"));
        const double seconds = info.value(QStringLiteral("samples")).toDouble() / 48000.0;
        QVERIFY2(std::fabs(seconds - wall) < 0.75, qPrintable(QStringLiteral("%1 s recorded in %2 s").arg(seconds).arg(wall)));
    }

    // The same with the meeting narrowed to one application: its new streams are attached.
    void oneApplicationIsHeardAgainAfterAServerRestart()
    {
        const QStringList meet{QStringLiteral("application.id=org.example.Meet")};
        m_players.push_back(Player::start(path("t440.wav"), {}, meet));
        AudioCaptureEngine engine;
        Watch w;
        w.attach(engine);
        QCOMPARE(engine.start(SystemTapSource{TapTarget::process(QStringLiteral("org.example.Meet")),
                                              QStringLiteral("vmic"), 0},
                              StreamSource::meetingOnly, false),
                 std::nullopt);
        w.armMeeting();
        QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0, 20000);

        m_players.clear();
        m_awake.clear();
        QVERIFY(stopSoundServer());
        m_modules->forget();
        QTRY_VERIFY_WITH_TIMEOUT(!w.lastHealth().soundServer, 10000);
        QTest::qWait(500);
        QVERIFY(startSoundServerAgain());
        QVERIFY(m_modules->virtualMic(QStringLiteral("vmic"), QStringLiteral("VirtualMic")));
        w.armMeeting();
        settle(QStringLiteral("speakers"));
        settle(QStringLiteral("vmic_feed"));
        m_players.push_back(Player::start(path("t440.wav"), {}, meet));
        QTRY_VERIFY_WITH_TIMEOUT(w.meetingLoudAt != 0, 20000);
        const double delay = Watch::delay(w.meetingArmedAt, w.meetingLoudAt);
        QVERIFY2(delay <= 3.0, qPrintable(QString::number(delay)));
        QTRY_VERIFY_WITH_TIMEOUT(w.lastHealth().allGood(), 10000);
        QCOMPARE(engine.tapCapture().target(), TapTarget::process(QStringLiteral("org.example.Meet")));
        engine.stop();
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

private:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }
    void play(const char *wav, const QString &device = {})
    {
        auto p = Player::start(path(wav), device);
        QVERIFY(p);
        m_players.push_back(std::move(p));
    }
    // PulseAudio hands out the first block of an idle sink late; keep ours busy.
    void keepAwake(const QString &sink) { m_awake.push_back(keepSinkAwake(sink, path("silence.wav"))); }
    // A sink loaded just now (see settleNewSink), kept busy with silence.
    void settle(const QString &sink)
    {
        if (auto player = settleNewSink(sink, path("silence.wav")))
            m_awake.push_back(std::move(player));
        else
            keepAwake(sink);
    }
    void wakeSinks()
    {
        if (!isPipeWire())
            keepAwake(QStringLiteral("speakers"));
        keepAwake(QStringLiteral("vmic_feed"));
    }

    QTemporaryDir m_dir;
    std::unique_ptr<ServerModules> m_modules;
    std::vector<std::unique_ptr<Player>> m_awake;
    std::vector<std::unique_ptr<Player>> m_players;
};

QTEST_GUILESS_MAIN(TestAudioRecovery)
#include "tst_audio_recovery.moc"
