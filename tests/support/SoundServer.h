#pragma once

#include <QProcess>
#include <QString>
#include <QStringList>

#include <memory>
#include <vector>

// Helpers for tests that run against the private sound server of the `soundserver` or
// `soundserver_pulse` CTest fixture (see tests/support/CMakeLists.txt). Everything goes
// through the ordinary command-line clients (pactl, paplay, pw-play), which find the server
// through the PULSE_SERVER and XDG_RUNTIME_DIR the fixture's environment sets.
namespace kbtest {

struct CommandResult
{
    int exitCode = -1;
    QString out;
    QString err;
    bool ok() const { return exitCode == 0; }
};

// Runs a program to completion (or the time-out, after which it is killed).
CommandResult run(const QString &program, const QStringList &args, int timeoutMs = 15000);

// True when the fixture's server answers.
bool soundServerAvailable();
// "pipewire" or "pulseaudio" (from the fixture's environment).
QString soundServerKind();
bool isPipeWire();

QString defaultSink();
QString defaultSource();
bool setDefaultSink(const QString &name);
bool setDefaultSource(const QString &name);
// Polls (50 ms steps) until the default sink is `name`.
bool waitForDefaultSink(const QString &name, int timeoutMs = 5000);

// A sound server restart, as clients see it: the server they talk to (pipewire-pulse, or the
// PulseAudio daemon) goes away, taking every module loaded through it; resuming brings it back
// with a fresh "speakers" as the default output (other modules must be loaded again).
bool stopSoundServer();
bool startSoundServerAgain();

// Loads modules into the server and unloads them again when it goes out of scope.
class ServerModules
{
public:
    ServerModules() = default;
    ~ServerModules();
    ServerModules(const ServerModules &) = delete;
    ServerModules &operator=(const ServerModules &) = delete;

    // The module's index, or -1.
    int load(const QString &module, const QStringList &args);
    // A 48 kHz float null sink; its monitor is "<name>.monitor".
    int nullSink(const QString &name, int channels = 2, const QString &description = {});
    // A one-channel input device `source` (description `description`) that plays whatever is
    // played into the sink "<source>_feed".
    bool virtualMic(const QString &source, const QString &description = QStringLiteral("VirtualMic"));
    // A two-channel input device `source` with channels aux0/aux1 taken from the left and right
    // of what is played into the stereo sink "<source>_feed".
    bool twoChannelDevice(const QString &source, const QString &description = QStringLiteral("TwoChannelDevice"));
    // Unloads one module loaded here.
    bool unload(int index);
    void unloadAll();
    // After a server restart the modules are gone already: nothing to unload.
    void forget() { m_modules.clear(); }

private:
    std::vector<int> m_modules;
};

// A player process (paplay, or pw-play on PipeWire), stopped by its PID when destroyed.
class Player
{
public:
    enum class Kind { paplay, pwplay };

    // Plays `wav` into `device` (the default sink when empty). `properties` are extra client
    // properties such as "application.id=org.example.Meet"; `loops` > 1 repeats the file.
    static std::unique_ptr<Player> start(const QString &wav, const QString &device = {},
                                         const QStringList &properties = {}, Kind kind = Kind::paplay);
    ~Player();
    void stop();
    bool isRunning() const;
    qint64 pid() const;

private:
    Player() = default;
    std::unique_ptr<QProcess> m_process;
};

// Keeps the sink busy with silence (PulseAudio delivers the first block of an idle null sink
// late); returns the player, stopped when destroyed.
std::unique_ptr<Player> keepSinkAwake(const QString &sink, const QString &silenceWav);
// For a null sink that was just loaded: PulseAudio's renders its first 2 s ahead when it is
// created, so what is played into it in that time reaches its monitor only 2 s later (a
// real device has no such delay). Keeps it busy with silence and restarts its clock, so
// that from here it runs at the players' low latency. Returns the silent player (on
// PipeWire, which needs none of this, nothing).
std::unique_ptr<Player> settleNewSink(const QString &sink, const QString &silenceWav);

} // namespace kbtest
