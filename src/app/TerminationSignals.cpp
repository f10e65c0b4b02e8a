#include "app/TerminationSignals.h"

#include <QSocketNotifier>

#include <csignal>
#include <sys/socket.h>
#include <unistd.h>

namespace {
int g_fds[2] = {-1, -1};
}

TerminationSignals::TerminationSignals(QObject *parent)
    : QObject(parent)
{
    if (::socketpair(AF_UNIX, SOCK_STREAM, 0, g_fds) != 0)
        return;
    m_notifier = new QSocketNotifier(g_fds[1], QSocketNotifier::Read, this);
    connect(m_notifier, &QSocketNotifier::activated, this, [this] {
        char byte = 0;
        if (::read(g_fds[1], &byte, 1) == 1)
            emit terminationRequested();
    });
    struct sigaction action = {};
    action.sa_handler = &TerminationSignals::handle;
    sigemptyset(&action.sa_mask);
    action.sa_flags = SA_RESTART;
    ::sigaction(SIGINT, &action, nullptr);
    ::sigaction(SIGTERM, &action, nullptr);
}

TerminationSignals::~TerminationSignals()
{
    ::signal(SIGINT, SIG_DFL);
    ::signal(SIGTERM, SIG_DFL);
    for (int &fd : g_fds) {
        if (fd >= 0)
            ::close(fd);
        fd = -1;
    }
}

void TerminationSignals::handle(int)
{
    const char byte = 1;
    if (g_fds[0] >= 0)
        [[maybe_unused]] auto written = ::write(g_fds[0], &byte, 1);
}
