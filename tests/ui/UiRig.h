#pragma once

#include "SessionRig.h"

#include "ui/AudioEnvironment.h"
#include "ui/MainWindow.h"
#include "ui/Theme.h"
#include "ui/TranscriptView.h"

#include <QApplication>
#include <QDir>
#include <QFile>
#include <QTemporaryDir>
#include <QTest>

#include <memory>

// A computer whose sound server, devices and microphone level the test sets.
class FakeAudioEnvironment final : public AudioEnvironment
{
public:
    bool soundServerAvailable() override { return serverAvailable; }
    QList<InputDevice> inputDevices() override { return devices; }
    bool startMicLevel(const QString &, std::function<void(float)> onLevel) override
    {
        if (devices.isEmpty())
            return false;
        levelSink = std::move(onLevel);
        return true;
    }
    void stopMicLevel() override { levelSink = nullptr; }

    bool serverAvailable = true;
    QList<InputDevice> devices{{QStringLiteral("alsa_input.usb-mic"), QStringLiteral("USB Microphone — 2 ch @ 48000 Hz"), 2}};
    std::function<void(float)> levelSink;
};

// The main window over a session controller wired to fakes (see SessionRig).
struct UiRig
{
    explicit UiRig(bool onboarded = true)
    {
        Theme::install();
        session.settings.setHasCompletedOnboarding(onboarded);
        rebuildWindow();
    }

    // A new window over the same session, as at the next launch.
    void rebuildWindow()
    {
        window = std::make_unique<MainWindow>(session.settings, *session.controller,
                                              MainWindow::Services{session.revealer, session.taps, audio});
    }

    // Shows the window (or one of its dialogs) and waits until it is on screen and active.
    static void showAndWait(QWidget *w)
    {
        w->show();
        QVERIFY(QTest::qWaitForWindowExposed(w));
        w->activateWindow();
        QVERIFY(QTest::qWaitForWindowActive(w));
    }

    TranscriptView &transcript() const { return *window->transcriptView(); }

    // A short interview: an answered question, one whose follow-up was merged and is being
    // re-answered, one the user answered aloud, and the newest still streaming.
    void playConversation()
    {
        session.settings.setTranscribeMyAnswers(true);
        session.startSession();
        auto &client = session.client;
        client.transcript(QStringLiteral("Can you walk me through how you'd design a rate limiter for a public API?"));
        client.delta(QStringLiteral("r1"), QStringLiteral(
            "Token bucket per API key, kept in Redis with a Lua script so refill and take are atomic. "
            "At the ledger migration we used the same pattern: 2,000 requests a minute per key, burst of 200, "
            "and a 429 with Retry-After so clients back off cleanly."));
        client.done(QStringLiteral("r1"));
        session.clock.advance(20);

        client.exchange(QStringLiteral("Tell me about a time you disagreed with your manager."), QStringLiteral("r2"), QStringLiteral(
            "On the payments team my manager wanted to ship the retry queue without idempotency keys. "
            "I wrote a one-page risk note with two double-charge scenarios; we shipped a week later with keys."));
        session.audio.levels(0.3f);
        session.clock.advance(0.4);
        session.mic.final(QStringLiteral("So at Northwind I pushed back on shipping the retry queue without keys and "
                                         "wrote up the two failure cases"));
        session.clock.advance(20);
        session.audio.levels(0.0f);
        session.clock.advance(3);

        client.exchange(QStringLiteral("How do you keep a large migration safe?"), QStringLiteral("r3"), QStringLiteral("Dual writes behind a flag, "));
        client.transcript(QStringLiteral("and how do you roll it back if reads disagree?"));
        session.clock.advance(20);

        client.transcript(QStringLiteral("What would your first ninety days here look like?"));
        client.delta(QStringLiteral("r5"), QStringLiteral("First month: listen. Pair with each team on call, read the "
                                                           "last six incident reviews, and"));
        QCoreApplication::processEvents();
    }

    // Writes `bytes` to `name` in `dir`; returns its path.
    static QString writeFile(const QTemporaryDir &dir, const QString &name, const QByteArray &bytes)
    {
        QFile file(dir.filePath(name));
        if (!file.open(QIODevice::WriteOnly) || file.write(bytes) != bytes.size())
            qFatal("cannot write %s", qPrintable(file.fileName()));
        return file.fileName();
    }

    // Where screenshots go: <build>/screenshots.
    static QString screenshotDir()
    {
        QString root = qEnvironmentVariable("KETTERBLOOM_BINARY_DIR");
        if (root.isEmpty())
            root = QDir::currentPath();
        QDir().mkpath(root + QStringLiteral("/screenshots"));
        return root + QStringLiteral("/screenshots");
    }

    SessionRig session;
    FakeAudioEnvironment audio;
    std::unique_ptr<MainWindow> window;
};
