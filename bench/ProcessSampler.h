#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <thread>

// Samples another process's CPU time and peak memory from /proc every `periodMs` on a
// thread of its own, keeping the last values read while the process was still there.
class ProcessSampler
{
public:
    struct Figures
    {
        double cpuSeconds = 0;    // utime + stime
        double userSeconds = 0;
        double systemSeconds = 0;
        std::int64_t peakKiB = 0;  // VmHWM
        std::int64_t threads = 0;
        int samples = 0;
    };

    ProcessSampler() = default;
    ~ProcessSampler();
    ProcessSampler(const ProcessSampler &) = delete;
    ProcessSampler &operator=(const ProcessSampler &) = delete;

    void start(std::int64_t pid, int periodMs = 200);
    void stop();
    Figures figures() const;

    // One reading; false when the process is gone.
    static bool read(std::int64_t pid, Figures *into);

private:
    std::thread m_thread;
    std::atomic<bool> m_running{false};
    mutable std::mutex m_mutex;
    Figures m_figures;
};
