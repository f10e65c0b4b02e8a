#include "EventsLogWatch.h"

#include "TimingRelay.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <cstdlib>
#include <string_view>

namespace {

const std::string_view kSuffix = ".events.jsonl";

// The "t" of one compact JSON line, or a negative number.
double timeOf(const std::string &line)
{
    const auto at = line.find("\"t\":");
    return at == std::string::npos ? -1.0 : std::strtod(line.c_str() + at + 4, nullptr);
}

} // namespace

EventsLogWatch::~EventsLogWatch()
{
    stop();
}

bool EventsLogWatch::start(const std::string &folder)
{
    m_fd = inotify_init1(IN_CLOEXEC);
    m_wakeFd = eventfd(0, EFD_CLOEXEC);
    if (m_fd < 0 || m_wakeFd < 0 || inotify_add_watch(m_fd, folder.c_str(), IN_CREATE) < 0) {
        stop();
        return false;
    }
    m_thread = std::thread([this, folder] { run(folder); });
    return true;
}

void EventsLogWatch::run(std::string folder)
{
    alignas(inotify_event) char buffer[4096];
    pollfd fds[2] = {{m_fd, POLLIN, 0}, {m_wakeFd, POLLIN, 0}};
    for (;;) {
        if (poll(fds, 2, -1) < 0 || (fds[1].revents & POLLIN))
            return;
        const std::int64_t now = TimingRelay::monotonicNs();
        const ssize_t length = read(m_fd, buffer, sizeof buffer);
        for (ssize_t at = 0; at < length;) {
            const auto *event = reinterpret_cast<const inotify_event *>(buffer + at);
            at += ssize_t(sizeof(inotify_event) + event->len);
            if (m_file >= 0 || !(event->mask & IN_CREATE) || !event->len)
                continue;
            const std::string name(event->name);
            if (name.size() < kSuffix.size() || name.compare(name.size() - kSuffix.size(), kSuffix.size(), kSuffix) != 0)
                continue;
            const std::string path = folder + "/" + name;
            inotify_add_watch(m_fd, path.c_str(), IN_MODIFY);
            m_file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
        }
        if (m_file >= 0)
            readNewLines(now);
    }
}

void EventsLogWatch::readNewLines(std::int64_t now)
{
    char chunk[8192];
    for (ssize_t got = read(m_file, chunk, sizeof chunk); got > 0; got = read(m_file, chunk, sizeof chunk))
        m_partial.append(chunk, size_t(got));
    for (auto end = m_partial.find('\n'); end != std::string::npos; end = m_partial.find('\n')) {
        const double t = timeOf(m_partial.substr(0, end));
        m_partial.erase(0, end + 1);
        if (t < 0)
            continue;
        const std::int64_t zero = now - std::int64_t(t * 1e9);
        std::lock_guard lock(m_mutex);
        if (m_lines == 0 || zero < m_zero)
            m_zero = zero;
        ++m_lines;
    }
}

void EventsLogWatch::stop()
{
    if (m_wakeFd >= 0) {
        const std::uint64_t one = 1;
        [[maybe_unused]] const ssize_t written = write(m_wakeFd, &one, sizeof one);
    }
    if (m_thread.joinable())
        m_thread.join();
    for (int *fd : {&m_fd, &m_wakeFd, &m_file}) {
        if (*fd >= 0)
            close(*fd);
        *fd = -1;
    }
}

std::int64_t EventsLogWatch::zero() const
{
    std::lock_guard lock(m_mutex);
    return m_zero;
}

int EventsLogWatch::linesSeen() const
{
    std::lock_guard lock(m_mutex);
    return m_lines;
}
