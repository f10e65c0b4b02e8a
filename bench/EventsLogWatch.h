#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <thread>

// Follows the app's events log as it is written, to place the log's time zero on this
// process's monotonic clock without trusting file time stamps. The app writes every line with
// one unbuffered write; an inotify watch wakes a thread of its own at once, which reads the new
// lines and notes, for each, "now - t". The write happened at or before "now", so the smallest
// of those differences over the whole session is the log's zero, late only by the quickest
// wake-up seen (and off by at most the 0.5 ms to which "t" is rounded).
class EventsLogWatch
{
public:
    EventsLogWatch() = default;
    ~EventsLogWatch();
    EventsLogWatch(const EventsLogWatch &) = delete;
    EventsLogWatch &operator=(const EventsLogWatch &) = delete;

    // Watches `folder` for the first file whose name ends with ".events.jsonl".
    bool start(const std::string &folder);
    void stop();

    // CLOCK_MONOTONIC ns of the log's t = 0, or 0 when no line has been seen.
    std::int64_t zero() const;
    int linesSeen() const;

private:
    void run(std::string folder);
    void readNewLines(std::int64_t now);

    int m_fd = -1;
    int m_wakeFd = -1;
    int m_file = -1;
    std::string m_partial;
    std::thread m_thread;
    mutable std::mutex m_mutex;
    std::int64_t m_zero = 0;
    int m_lines = 0;
};
