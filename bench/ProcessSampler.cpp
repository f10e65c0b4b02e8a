#include "ProcessSampler.h"

#include <chrono>
#include <fstream>
#include <sstream>
#include <string>

#include <unistd.h>

ProcessSampler::~ProcessSampler()
{
    stop();
}

void ProcessSampler::start(std::int64_t pid, int periodMs)
{
    stop();
    m_running = true;
    m_thread = std::thread([this, pid, periodMs] {
        while (m_running) {
            Figures now;
            if (read(pid, &now)) {
                std::lock_guard lock(m_mutex);
                now.samples = m_figures.samples + 1;
                m_figures = now;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(periodMs));
        }
    });
}

void ProcessSampler::stop()
{
    m_running = false;
    if (m_thread.joinable())
        m_thread.join();
}

ProcessSampler::Figures ProcessSampler::figures() const
{
    std::lock_guard lock(m_mutex);
    return m_figures;
}

bool ProcessSampler::read(std::int64_t pid, Figures *into)
{
    const std::string base = "/proc/" + std::to_string(pid);
    std::ifstream statFile(base + "/stat");
    std::string stat;
    if (!std::getline(statFile, stat))
        return false;
    // The command name in parentheses may hold blanks: fields are counted after its ')'.
    const auto close = stat.rfind(')');
    if (close == std::string::npos)
        return false;
    std::istringstream fields(stat.substr(close + 2));
    std::string state;
    fields >> state;   // field 3
    if (state == "Z" || state == "X")
        return false;   // exited, waiting to be reaped: its figures are final but no longer readable
    std::string skip;
    for (int field = 4; field <= 13; ++field)
        fields >> skip;
    long long utime = 0;
    long long stime = 0;
    fields >> utime >> stime;   // fields 14 and 15, in clock ticks
    if (!fields)
        return false;
    const double ticks = double(sysconf(_SC_CLK_TCK));
    into->userSeconds = double(utime) / ticks;
    into->systemSeconds = double(stime) / ticks;
    into->cpuSeconds = into->userSeconds + into->systemSeconds;

    std::ifstream statusFile(base + "/status");
    for (std::string line; std::getline(statusFile, line);) {
        if (line.rfind("VmHWM:", 0) == 0)
            into->peakKiB = std::stoll(line.substr(6));
        else if (line.rfind("Threads:", 0) == 0)
            into->threads = std::stoll(line.substr(8));
    }
    return true;
}
