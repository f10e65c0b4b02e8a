#pragma once

#include <QByteArray>

#include <csignal>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

extern char **environ;

// A private X server (Xvfb) for one test process, started before the QGuiApplication exists
// (hence plain POSIX, no Qt event loop). Xvfb picks a free display number itself and reports
// it on a pipe (-displayfd); the server is ended by its PID when this object goes.
class XvfbServer
{
public:
    ~XvfbServer()
    {
        if (m_pid > 0) {
            ::kill(m_pid, SIGTERM);
            int status = 0;
            ::waitpid(m_pid, &status, 0);
        }
    }

    // ":<n>" once Xvfb is up; empty when it could not be started within `timeoutMs`.
    QByteArray start(int timeoutMs = 20000)
    {
        int fds[2];
        if (::pipe(fds) != 0)
            return {};
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        // Close the read end first: it may itself be descriptor 3.
        posix_spawn_file_actions_addclose(&actions, fds[0]);
        posix_spawn_file_actions_adddup2(&actions, fds[1], 3);
        posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 2, "/dev/null", O_WRONLY, 0);
        char *argv[] = {const_cast<char *>("Xvfb"), const_cast<char *>("-displayfd"), const_cast<char *>("3"),
                        const_cast<char *>("-screen"), const_cast<char *>("0"), const_cast<char *>("1024x768x24"),
                        const_cast<char *>("-nolisten"), const_cast<char *>("tcp"), nullptr};
        const int spawned = ::posix_spawnp(&m_pid, "Xvfb", &actions, nullptr, argv, environ);
        posix_spawn_file_actions_destroy(&actions);
        ::close(fds[1]);
        if (spawned != 0) {
            m_pid = -1;
            ::close(fds[0]);
            return {};
        }
        QByteArray number;
        pollfd poller{fds[0], POLLIN, 0};
        while (!number.endsWith('\n') && ::poll(&poller, 1, timeoutMs) > 0) {
            char buffer[16];
            const ssize_t got = ::read(fds[0], buffer, sizeof buffer);
            if (got <= 0)
                break;
            number.append(buffer, got);
        }
        ::close(fds[0]);
        number = number.trimmed();
        if (number.isEmpty())
            return {};
        return ":" + number;
    }

private:
    pid_t m_pid = -1;
};
