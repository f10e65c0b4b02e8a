#include "PrivateSoundServer.h"

#include "SoundServer.h"

#include <QByteArray>

#include <atomic>
#include <csignal>
#include <cstdio>

#include <sys/wait.h>
#include <unistd.h>

namespace {

// What the signal handler needs, prepared beforehand: it may only make async-signal-safe calls.
char g_script[1024];
char g_serverDir[1024];
char g_removeOnSignal[1024];
std::atomic<pid_t> g_appPid{0};
std::atomic<pid_t> g_simPid{0};
std::atomic<bool> g_serverUp{false};

void stopFromSignal(int signal)
{
    for (pid_t pid : {g_appPid.load(), g_simPid.load()}) {
        if (pid > 0)
            kill(pid, SIGTERM);
    }
    if (g_serverUp.load()) {
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/bash", "bash", g_script, "stop", g_serverDir, static_cast<char *>(nullptr));
            _exit(127);
        }
        if (child > 0)
            waitpid(child, nullptr, 0);
    }
    if (g_removeOnSignal[0]) {
        const pid_t child = fork();
        if (child == 0) {
            execl("/bin/rm", "rm", "-rf", g_removeOnSignal, static_cast<char *>(nullptr));
            _exit(127);
        }
        if (child > 0)
            waitpid(child, nullptr, 0);
    }
    _exit(128 + signal);
}

} // namespace

PrivateSoundServer::PrivateSoundServer(const QString &dir)
    : m_dir(dir)
{
    const QByteArray path = dir.toLocal8Bit();
    std::snprintf(g_script, sizeof g_script, "%s", KB_BENCH_SOUNDSERVER_SCRIPT);
    std::snprintf(g_serverDir, sizeof g_serverDir, "%s", path.constData());
    qputenv("XDG_RUNTIME_DIR", path + "/run");
    qputenv("PULSE_SERVER", "unix:" + path + "/run/pulse/native");
    qputenv("KETTERBLOOM_SOUNDSERVER_DIR", path);
    qputenv("KETTERBLOOM_SOUNDSERVER_KIND", "pipewire");
    std::signal(SIGINT, stopFromSignal);
    std::signal(SIGTERM, stopFromSignal);
    std::signal(SIGHUP, stopFromSignal);
}

PrivateSoundServer::~PrivateSoundServer()
{
    stop();
}

bool PrivateSoundServer::start()
{
    g_serverUp = true;
    const kbtest::CommandResult started = kbtest::run(
        QStringLiteral("bash"), {QString::fromLocal8Bit(g_script), QStringLiteral("start"), m_dir, QStringLiteral("pipewire")}, 90000);
    if (!started.ok())
        std::fprintf(stderr, "sound server did not start: %s\n", qPrintable(started.err));
    return started.ok();
}

void PrivateSoundServer::stop()
{
    if (!g_serverUp.exchange(false))
        return;
    kbtest::run(QStringLiteral("bash"), {QString::fromLocal8Bit(g_script), QStringLiteral("stop"), m_dir}, 30000);
}

void PrivateSoundServer::removeOnSignal(const QString &folder)
{
    std::snprintf(g_removeOnSignal, sizeof g_removeOnSignal, "%s", folder.toLocal8Bit().constData());
}

void PrivateSoundServer::setChildren(pid_t app, pid_t simulator)
{
    g_appPid = app;
    g_simPid = simulator;
}
