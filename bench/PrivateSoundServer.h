#pragma once

#include <QString>

#include <sys/types.h>

// The private sound server of the tests (tests/support/soundserver.sh) for one benchmark run:
// started in a folder of its own, and stopped by the PIDs the script keeps when this object
// goes away, on every early return, and on SIGINT, SIGTERM or SIGHUP (which also end the app
// and the simulator, by their PIDs). Setting it up points this process's environment, and so
// every client it starts, at the server.
class PrivateSoundServer
{
public:
    explicit PrivateSoundServer(const QString &dir);
    ~PrivateSoundServer();
    PrivateSoundServer(const PrivateSoundServer &) = delete;
    PrivateSoundServer &operator=(const PrivateSoundServer &) = delete;

    bool start();
    void stop();

    // The processes a signal ends before the server stops; 0 for none.
    static void setChildren(pid_t app, pid_t simulator);
    // A folder a signal removes after stopping the server (the run's temporary folder).
    static void removeOnSignal(const QString &folder);

private:
    QString m_dir;
};
