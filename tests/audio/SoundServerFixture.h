#pragma once

#include "audio/AudioCaptureEngine.h"

#include "SoundServer.h"

#include <QTemporaryDir>
#include <QTest>

#include <memory>
#include <vector>

namespace kbtest {

// What the capture tests share on the private sound server: the sound files in a temporary
// folder, a virtual microphone "vmic" and "speakers" as the default output in every test,
// the players started in a test, and the silent players that keep sinks awake.
class SoundServerFixture
{
public:
    QString path(const char *name) const { return m_dir.filePath(QString::fromLatin1(name)); }

    // For init(): the virtual microphone, the default output and the silence that keeps them
    // busy (PulseAudio hands out the first block of an idle sink late).
    void setUpDevices()
    {
        m_modules = std::make_unique<ServerModules>();
        QVERIFY(m_modules->virtualMic(QStringLiteral("vmic"), QStringLiteral("VirtualMic")));
        QVERIFY(setDefaultSink(QStringLiteral("speakers")));
        QVERIFY(waitForDefaultSink(QStringLiteral("speakers")));
        if (!isPipeWire())
            keepAwake(QStringLiteral("speakers"));
        keepAwake(QStringLiteral("vmic_feed"));
    }

    // For cleanup().
    void tearDownDevices()
    {
        m_players.clear();
        m_awake.clear();
        m_modules.reset();
        if (soundServerAvailable())
            setDefaultSink(QStringLiteral("speakers"));
    }

    void play(const char *wav, const QString &device = {}, const QStringList &props = {},
              Player::Kind kind = Player::Kind::paplay)
    {
        auto p = Player::start(path(wav), device, props, kind);
        QVERIFY(p);
        m_players.push_back(std::move(p));
    }

    void keepAwake(const QString &sink) { m_awake.push_back(keepSinkAwake(sink, path("silence.wav"))); }

    // A sink loaded just now (see settleNewSink), kept busy with silence.
    void settle(const QString &sink)
    {
        if (auto player = settleNewSink(sink, path("silence.wav")))
            m_awake.push_back(std::move(player));
        else
            keepAwake(sink);
    }

    // The whole machine as the meeting, with `mic` as the microphone.
    static SystemTapSource wholeMachine(const QString &mic = QStringLiteral("vmic"))
    {
        return SystemTapSource{TapTarget::systemOutput(), mic, 0};
    }

protected:
    QTemporaryDir m_dir;
    std::unique_ptr<ServerModules> m_modules;
    std::vector<std::unique_ptr<Player>> m_awake;
    std::vector<std::unique_ptr<Player>> m_players;
};

} // namespace kbtest
