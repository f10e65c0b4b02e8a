// The pure parts of capture: mixing an application's streams, recognising applications,
// and turning sound-server sources into input devices.
#include "audio/AudioApplications.h"
#include "audio/AudioDeviceManager.h"
#include "audio/Pcm16Resampler.h"
#include "audio/TapMixer.h"

#include <QtTest>

#include <cmath>

namespace {
struct Sink
{
    std::vector<float> out;
    void attach(TapMixer &m)
    {
        m.onMixed = [this](const float *s, int n) { out.insert(out.end(), s, s + n); };
    }
};

PulseQueries::SourceEntry source(quint32 index, const char *name, const char *description, int channels,
                                 bool monitor = false)
{
    PulseQueries::SourceEntry e;
    e.index = index;
    e.name = QString::fromLatin1(name);
    e.description = QString::fromUtf8(description);
    e.spec = {PA_SAMPLE_FLOAT32LE, 48000, uint8_t(channels)};
    e.isMonitor = monitor;
    return e;
}
} // namespace

class TestAudioParts : public QObject
{
    Q_OBJECT

private slots:
    void oneStreamPassesStraightThrough()
    {
        TapMixer m;
        Sink s;
        s.attach(m);
        m.addStream(7);
        const float a[] = {0.1f, 0.2f, 0.3f};
        m.feed(7, a, 3);
        QCOMPARE(s.out, (std::vector<float>{0.1f, 0.2f, 0.3f}));
        m.feed(99, a, 3);   // not a stream of the mix
        QCOMPARE(s.out.size(), size_t(3));
    }

    void twoStreamsAreSummedSampleBySample()
    {
        TapMixer m;
        Sink s;
        s.attach(m);
        m.addStream(1);
        m.addStream(2);
        std::vector<float> a(960, 0.25f), b(480, 0.5f);
        m.feed(1, a.data(), 960);     // waits for stream 2
        QVERIFY(s.out.empty());
        m.feed(2, b.data(), 480);     // 480 frames of both are ready
        QCOMPARE(s.out.size(), size_t(480));
        QCOMPARE(s.out.front(), 0.75f);
        m.feed(2, b.data(), 480);
        QCOMPARE(s.out.size(), size_t(960));
        QCOMPARE(s.out.back(), 0.75f);
    }

    // A paused stream must not hold the others back for more than the allowed lag, and
    // joins again at the current end when it resumes.
    void aSilentStreamStopsHoldingTheMixBack()
    {
        TapMixer m(4800);
        Sink s;
        s.attach(m);
        m.addStream(1);
        m.addStream(2);
        std::vector<float> a(960, 0.25f);
        for (int i = 0; i < 5; ++i)
            m.feed(1, a.data(), 960);   // 4800 frames: still within the lag
        QVERIFY(s.out.empty());
        m.feed(1, a.data(), 960);       // 5760 ahead: stream 2 no longer counts
        QCOMPARE(s.out.size(), size_t(5760));
        std::vector<float> b(960, 0.5f);
        m.feed(2, b.data(), 960);       // resumes at the end, mixed with what comes next
        m.feed(1, a.data(), 960);
        QCOMPARE(s.out.size(), size_t(6720));
        QCOMPARE(s.out.back(), 0.75f);

        m.removeStream(2);
        m.feed(1, a.data(), 960);
        QCOMPARE(s.out.size(), size_t(7680));
        QCOMPARE(s.out.back(), 0.25f);
    }

    void applicationsAreKnownByIdThenBinaryAndTheirHelpers()
    {
        const PulseQueries::Properties chrome{{QStringLiteral("application.name"), QStringLiteral("Google Chrome")},
                                              {QStringLiteral("application.process.binary"), QStringLiteral("chrome")}};
        QCOMPARE(AudioApplications::appID(chrome), QStringLiteral("chrome"));
        QCOMPARE(AudioApplications::displayName(chrome), QStringLiteral("Google Chrome"));
        QVERIFY(AudioApplications::belongsTo(chrome, QStringLiteral("chrome")));
        QVERIFY(!AudioApplications::belongsTo(chrome, QStringLiteral("com.google.Chrome")));
        QVERIFY(AudioApplications::belongsToOrHelper(chrome, QStringLiteral("com.google.Chrome")));

        const PulseQueries::Properties flatpak{{QStringLiteral("application.id"), QStringLiteral("org.mozilla.firefox")},
                                               {QStringLiteral("application.process.binary"), QStringLiteral("firefox")}};
        QCOMPARE(AudioApplications::appID(flatpak), QStringLiteral("org.mozilla.firefox"));
        QVERIFY(AudioApplications::belongsTo(flatpak, QStringLiteral("firefox")));

        const PulseQueries::Properties anonymous{{QStringLiteral("application.process.id"), QStringLiteral("4242")}};
        QCOMPARE(AudioApplications::displayName(anonymous), QStringLiteral("PID 4242"));
        QVERIFY(AudioApplications::isOwnOrServer(anonymous));   // nothing to pick it by
        QVERIFY(AudioApplications::isOwnOrServer({{QStringLiteral("application.process.binary"), QStringLiteral("wireplumber")}}));
        QVERIFY(AudioApplications::isOwnOrServer({{QStringLiteral("application.id"), QStringLiteral("com.velorquin.ketterbloom")}}));
        QVERIFY(!AudioApplications::isOwnOrServer(chrome));

        QCOMPARE(AudioApplications::helpersOf(QStringLiteral("paplay")), QStringList{QStringLiteral("pacat")});
        QVERIFY(AudioApplications::helpersOf(QStringLiteral("org.example.Unknown")).isEmpty());
    }

    void mergingKeepsTheStreamsOwnProperties()
    {
        PulseQueries::Properties stream{{QStringLiteral("application.name"), QStringLiteral("paplay")},
                                        {QStringLiteral("application.id"), QString()}};
        PulseQueries::mergeMissing(stream, {{QStringLiteral("application.name"), QStringLiteral("client")},
                                            {QStringLiteral("application.id"), QStringLiteral("org.example.Meet")},
                                            {QStringLiteral("application.process.binary"), QStringLiteral("pw-cat")}});
        QCOMPARE(stream.value(QStringLiteral("application.name")), QStringLiteral("paplay"));
        QCOMPARE(stream.value(QStringLiteral("application.id")), QStringLiteral("org.example.Meet"));
        QCOMPARE(stream.value(QStringLiteral("application.process.binary")), QStringLiteral("pw-cat"));
    }

    void sourcesBecomeInputDevices()
    {
        const auto devices = AudioDeviceManager::listFrom({
            source(1, "alsa_input.usb", "USB Mic", 1),
            source(2, "speakers.monitor", "Monitor of Speakers", 2, true),
            source(73, "odd", "", 2),
            source(4, "builtin", "built-in Audio", 2),
        });
        QCOMPARE(devices.size(), 3);   // monitors are outputs, not inputs
        // Case-insensitive: "built-in" before "Device 73" before "USB Mic".
        QCOMPARE(devices[0].name, QStringLiteral("built-in Audio"));
        QCOMPARE(devices[1].name, QStringLiteral("Device 73"));
        QCOMPARE(devices[2].uid, QStringLiteral("alsa_input.usb"));
        QCOMPARE(devices[2].label(), QStringLiteral("USB Mic — 1 ch @ 48000 Hz"));
    }

    // The model's format: 24 kHz mono s16; state carries across blocks of any size, so a
    // signal cut into uneven blocks converts exactly as the same signal in one piece.
    void resamplerCarriesStateAcrossUnevenBlocks()
    {
        std::vector<float> tone(48000);
        for (size_t i = 0; i < tone.size(); ++i)
            tone[i] = 0.5f * std::sin(2.0 * M_PI * 440.0 * double(i) / 48000.0);
        Pcm16Resampler whole(48000), pieces(48000);
        QByteArray a = whole.process(tone.data(), 48000);
        QByteArray b;
        const int sizes[] = {96, 960, 17, 480, 2000, 1};
        size_t at = 0;
        for (int k = 0; at < tone.size(); ++k) {
            const int n = int(std::min<size_t>(size_t(sizes[k % 6]), tone.size() - at));
            b += pieces.process(tone.data() + at, n);
            at += size_t(n);
        }
        const qsizetype common = std::min(a.size(), b.size());
        QVERIFY(common > 2 * 23000);
        QCOMPARE(b.left(common), a.left(common));
    }
};

QTEST_GUILESS_MAIN(TestAudioParts)
#include "tst_audio_parts.moc"
