// Prints what capture costs: CPU time per second of audio for capture, conversion and
// recording, the time from a sample's arrival to its onPCM16 call, and how soon meeting audio
// comes back after the default output is removed and re-created. Brings up its own
// private sound server (PipeWire, else PulseAudio) under the build tree.
#include "audio/AudioCaptureEngine.h"
#include "audio/Pcm16Resampler.h"

#include "SoundServer.h"
#include "TestSignals.h"

#include <QCoreApplication>
#include <QDir>
#include <QEventLoop>
#include <QTemporaryDir>
#include <QTimer>

#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <chrono>
#include <cstdio>
#include <mutex>

using namespace kbtest;

namespace {

double cpuSeconds()
{
    rusage u{};
    getrusage(RUSAGE_SELF, &u);
    return double(u.ru_utime.tv_sec + u.ru_stime.tv_sec) + double(u.ru_utime.tv_usec + u.ru_stime.tv_usec) / 1e6;
}

qint64 steadyNs()
{
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::steady_clock::now().time_since_epoch())
        .count();
}

void spin(int ms)
{
    QEventLoop loop;
    QTimer::singleShot(ms, &loop, &QEventLoop::quit);
    loop.exec();
}

// The most 20 ms blocks the resampler holds back a sample that arrives last in its block.
int resamplerDelayBlocks()
{
    int worst = -1;
    for (int impulseBlock = 0; impulseBlock < 8; ++impulseBlock) {
        Pcm16Resampler r(48000);
        std::vector<float> block(960, 0.0f);
        int emittedAt = -1;
        for (int k = 0; k < 40 && emittedAt < 0; ++k) {
            std::fill(block.begin(), block.end(), 0.0f);
            if (k == impulseBlock)
                block.back() = 0.9f;
            for (float v : pcm16ToFloat(r.process(block.data(), 960))) {
                if (std::fabs(v) > 0.15f) {
                    emittedAt = k;
                    break;
                }
            }
        }
        if (emittedAt < 0)
            return -1;
        worst = std::max(worst, emittedAt - impulseBlock);
    }
    return worst;
}

struct Run
{
    double audioSeconds = 0;
    double cpu = 0;
    std::vector<double> latenciesMs;
};

Run measure(const CaptureSource &source, StreamSource stream, bool record, const QString &meetingWav,
            const QString &micWav, double seconds)
{
    AudioCaptureEngine engine;
    std::mutex lock;
    Run run;
    qint64 pcmBytes = 0;
    engine.onPCM16 = [&](const QByteArray &b) {
        const qint64 now = steadyNs();
        std::lock_guard g(lock);
        pcmBytes += b.size();
        if (stream == StreamSource::meetingOnly)
            run.latenciesMs.push_back(double(now - engine.lastTapArrivalNs()) / 1e6);
    };
    if (auto started = engine.start(source, stream, record); !started.ok()) {
        std::fprintf(stderr, "start failed: %s\n", qPrintable(started.error()));
        return run;
    }
    auto meeting = Player::start(meetingWav);
    auto mic = Player::start(micWav, QStringLiteral("vmic_feed"));
    spin(1000);   // warm up
    {
        std::lock_guard g(lock);
        pcmBytes = 0;
        run.latenciesMs.clear();
    }
    const double cpu0 = cpuSeconds();
    spin(int(seconds * 1000));
    run.cpu = cpuSeconds() - cpu0;
    {
        std::lock_guard g(lock);
        run.audioSeconds = double(pcmBytes) / 2 / 24000;
    }
    engine.stop();
    return run;
}

// The default output is removed and re-created under the same name (a Bluetooth reconnect, a
// USB replug), then plays a tone: seconds until the tone reaches onPCM16, once per try.
std::vector<double> recreatedOutputDelays(int tries, const QString &toneWav, const QString &silenceWav)
{
    std::vector<double> delays;
    ServerModules sinks;
    int index = sinks.nullSink(QStringLiteral("headset"));
    setDefaultSink(QStringLiteral("headset"));
    waitForDefaultSink(QStringLiteral("headset"));
    AudioCaptureEngine engine;
    std::atomic<qint64> armedAt{0}, loudAt{0};
    engine.onPCM16 = [&](const QByteArray &b) {
        if (armedAt == 0 || loudAt != 0)
            return;
        const auto *samples = reinterpret_cast<const qint16 *>(b.constData());
        for (qsizetype i = 0; i < b.size() / 2; ++i) {
            if (std::abs(int(samples[i])) > 3000) {
                loudAt = steadyNs();
                return;
            }
        }
    };
    if (auto started = engine.start(SystemTapSource{TapTarget::systemOutput(), QStringLiteral("vmic"), 0},
                                    StreamSource::meetingOnly, false);
        !started.ok()) {
        std::fprintf(stderr, "start failed: %s\n", qPrintable(started.error()));
        return delays;
    }
    for (int t = 0; t < tries; ++t) {
        sinks.unload(index);
        spin(t % 2 == 0 ? 100 : 1000);
        index = sinks.nullSink(QStringLiteral("headset"));
        if (!waitForDefaultSink(QStringLiteral("headset"), 3000))
            setDefaultSink(QStringLiteral("headset"));
        loudAt = 0;
        armedAt = steadyNs();
        std::unique_ptr<Player> awake;
        if (!isPipeWire())
            awake = keepSinkAwake(QStringLiteral("headset"), silenceWav);
        auto tone = Player::start(toneWav, QStringLiteral("headset"));
        for (int waited = 0; loudAt == 0 && waited < 15000; waited += 20)
            spin(20);
        if (loudAt == 0) {
            std::fprintf(stderr, "try %d: no meeting audio after 15 s\n", t + 1);
            delays.push_back(15.0);
        } else {
            delays.push_back(double(loudAt - armedAt) / 1e9);
        }
        armedAt = 0;
    }
    engine.stop();
    sinks.unloadAll();
    setDefaultSink(QStringLiteral("speakers"));
    return delays;
}

void report(const char *what, const Run &r)
{
    if (r.audioSeconds <= 0) {
        std::printf("%-44s no audio\n", what);
        return;
    }
    const double perSecond = r.cpu / r.audioSeconds;
    std::printf("%-44s %.2f ms CPU per s of audio (%.3f%% of one core) over %.1f s\n", what, perSecond * 1000,
                perSecond * 100, r.audioSeconds);
}

} // namespace

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString binary = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR", QDir::currentPath());
    const QString script = qEnvironmentVariable("KETTERBLOOM_SOURCE_DIR") + QStringLiteral("/tests/support/soundserver.sh");
    QTemporaryDir work;
    const QString serverDir = binary + QStringLiteral("/bench-soundserver");
    qputenv("HOME", work.path().toLocal8Bit());
    qputenv("XDG_CONFIG_HOME", (work.path() + QStringLiteral("/.config")).toLocal8Bit());
    qputenv("XDG_RUNTIME_DIR", (serverDir + QStringLiteral("/run")).toLocal8Bit());
    qputenv("PULSE_SERVER", (QStringLiteral("unix:") + serverDir + QStringLiteral("/run/pulse/native")).toLocal8Bit());

    QString kind = QStringLiteral("pipewire");
    if (!run(script, {QStringLiteral("start"), serverDir, kind}, 30000).ok()) {
        kind = QStringLiteral("pulseaudio");
        if (!run(script, {QStringLiteral("start"), serverDir, kind}, 30000).ok()) {
            std::fprintf(stderr, "could not start a private sound server\n");
            return 1;
        }
    }
    qputenv("KETTERBLOOM_SOUNDSERVER_KIND", kind.toLocal8Bit());
    int status = 0;
    {
        ServerModules modules;
        modules.virtualMic(QStringLiteral("vmic"));
        const QString meeting = work.filePath(QStringLiteral("meeting.wav"));
        const QString mic = work.filePath(QStringLiteral("mic.wav"));
        makeTone(meeting, 440, 30);
        makeTone(mic, 1000, 30);
        std::printf("Audio capture benchmark on %s (48 kHz in, 24 kHz PCM16 out)\n", qPrintable(kind));

        const SystemTapSource tap{TapTarget::systemOutput(), QStringLiteral("vmic"), 0};
        const Run meetingOnly = measure(tap, StreamSource::meetingOnly, false, meeting, mic, 6.0);
        report("whole machine, meeting to the model:", meetingOnly);
        const Run both = measure(tap, StreamSource::both, true, meeting, mic, 6.0);
        report("whole machine + mic, both mixed, recording:", both);
        const Run device = measure(DeviceChannelsSource{QStringLiteral("vmic"), 0, 0}, StreamSource::micOnly, true,
                                   meeting, mic, 6.0);
        report("device channels, recording:", device);

        auto lat = meetingOnly.latenciesMs;
        std::sort(lat.begin(), lat.end());
        const int delayBlocks = resamplerDelayBlocks();
        if (!lat.empty() && delayBlocks >= 0) {
            const double median = lat[lat.size() / 2];
            const double p99 = lat[std::min(lat.size() - 1, size_t(double(lat.size()) * 0.99))];
            std::printf("block arrival -> onPCM16 (conversion): median %.3f ms, p99 %.3f ms, max %.3f ms (%zu blocks)\n",
                        median, p99, lat.back(), lat.size());
            std::printf("resampler holds a sample back %d block(s) of 20 ms\n", delayBlocks);
            std::printf("sample arrival -> its onPCM16 call: at most %.1f ms plus the 20 ms block (target: under 30 ms)\n",
                        delayBlocks * 20.0 + p99);
        } else {
            std::fprintf(stderr, "no latency figures (%zu blocks, resampler delay %d)\n", lat.size(), delayBlocks);
            status = 1;
        }

        const QString silence = work.filePath(QStringLiteral("silence.wav"));
        makeSilence(silence, 30);
        const int tries = 20;
        auto delays = recreatedOutputDelays(tries, meeting, silence);
        if (delays.size() == size_t(tries)) {
            std::sort(delays.begin(), delays.end());
            std::printf("default output re-created -> first meeting audio: median %.2f s, max %.2f s (%d tries)\n",
                        (delays[tries / 2 - 1] + delays[tries / 2]) / 2, delays.back(), tries);
        } else {
            status = 1;
        }
    }
    run(script, {QStringLiteral("stop"), serverDir});
    return status;
}
