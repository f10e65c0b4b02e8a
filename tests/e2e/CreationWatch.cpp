#include "CreationWatch.h"

#include "TimingRelay.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstring>

CreationWatch::~CreationWatch()
{
    stop();
}

bool CreationWatch::start(const std::string &folder, const std::string &suffix)
{
    m_fd = inotify_init1(IN_CLOEXEC);
    m_wakeFd = eventfd(0, EFD_CLOEXEC);
    if (m_fd < 0 || m_wakeFd < 0 || inotify_add_watch(m_fd, folder.c_str(), IN_CREATE) < 0) {
        stop();
        return false;
    }
    m_thread = std::thread([this, suffix] {
        alignas(inotify_event) char buffer[4096];
        pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
        while (m_createdAt.load() == 0) {
            if (poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN))
                return;
            const std::int64_t now = TimingRelay::monotonicNs();
            const ssize_t length = read(m_fd, buffer, sizeof buffer);
            for (ssize_t at = 0; at < length;) {
                const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
                const std::string name = event->len ? std::string(event->name) : std::string();
                if (name.size() >= suffix.size() && name.compare(name.size() - suffix.size(), suffix.size(), suffix) == 0) {
                    m_createdAt = now;
                    break;
                }
                at += ssize_t(sizeof(inotify_event) + event->len);
            }
        }
    });
    return true;
}

void CreationWatch::stop()
{
    if (m_wakeFd >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_wakeFd, &one, sizeof one);
    }
    if (m_thread.joinable())
        m_thread.join();
    if (m_fd >= 0)
        close(m_fd);
    if (m_wakeFd >= 0)
        close(m_wakeFd);
    m_fd = -1;
    m_wakeFd = -1;
}
