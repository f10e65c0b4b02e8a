#pragma once

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>

// Notes, on the monotonic clock, the moment the first file whose name ends with `suffix` is
// created in `folder` (inotify, read by a thread of its own that waits for nothing else).
class CreationWatch
{
public:
    CreationWatch() = default;
    ~CreationWatch();
    CreationWatch(const CreationWatch &) = delete;
    CreationWatch &operator=(const CreationWatch &) = delete;

    bool start(const std::string &folder, const std::string &suffix);
    void stop();
    // 0 until it has been seen.
    std::int64_t createdAt() const { return m_createdAt.load(); }

private:
    int m_fd = -1;
    int m_wakeFd = -1;
    std::thread m_thread;
    std::atomic<std::int64_t> m_createdAt{0};
};
