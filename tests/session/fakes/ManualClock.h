#pragma once

#include "session/Clock.h"

#include <QDateTime>

#include <map>
#include <memory>

// A clock for tests: time moves only when advanced, and advancing fires every timer that
// falls due, in order, at its due time.
class ManualClock final : public Clock
{
public:
    explicit ManualClock(QDateTime wallStart = QDateTime(QDate(2025, 3, 4), QTime(14, 5, 9)))
        : m_wallStart(std::move(wallStart))
    {
    }

    TimePoint now() const override { return m_now; }
    QDateTime wallNow() const override
    {
        return m_wallStart.addMSecs(std::chrono::duration_cast<std::chrono::milliseconds>(m_now - TimePoint{}).count());
    }

    std::unique_ptr<ClockTimer> schedule(double seconds, bool repeating, std::function<void()> action) override
    {
        auto entry = std::make_shared<Entry>();
        entry->period = toDuration(seconds);
        entry->due = m_now + entry->period;
        entry->repeating = repeating;
        entry->action = std::move(action);
        m_entries.emplace(m_nextID++, entry);
        return std::make_unique<Handle>(entry);
    }

    // Moves time forward by `seconds`, firing due timers on the way.
    void advance(double seconds)
    {
        const TimePoint target = m_now + toDuration(seconds);
        for (;;) {
            auto next = m_entries.end();
            for (auto it = m_entries.begin(); it != m_entries.end();) {
                if (it->second->cancelled) {
                    it = m_entries.erase(it);
                    continue;
                }
                if (it->second->due <= target && (next == m_entries.end() || it->second->due < next->second->due)) {
                    next = it;
                }
                ++it;
            }
            if (next == m_entries.end()) {
                break;
            }
            std::shared_ptr<Entry> entry = next->second;
            m_now = entry->due;
            if (entry->repeating) {
                entry->due += entry->period;
            } else {
                m_entries.erase(next);
                entry->cancelled = true;
            }
            auto action = entry->action;   // the action may drop its own handle
            action();
        }
        m_now = target;
    }

    // Timers that are still armed.
    int pendingTimers() const
    {
        int count = 0;
        for (const auto &[id, entry] : m_entries) {
            count += entry->cancelled ? 0 : 1;
        }
        return count;
    }

private:
    struct Entry
    {
        TimePoint due;
        TimePoint::duration period{};
        bool repeating = false;
        bool cancelled = false;
        std::function<void()> action;
    };

    class Handle final : public ClockTimer
    {
    public:
        explicit Handle(std::weak_ptr<Entry> entry) : m_entry(std::move(entry)) {}
        ~Handle() override
        {
            if (auto entry = m_entry.lock()) {
                entry->cancelled = true;
            }
        }

    private:
        std::weak_ptr<Entry> m_entry;
    };

    static TimePoint::duration toDuration(double seconds)
    {
        return std::chrono::duration_cast<TimePoint::duration>(std::chrono::duration<double>(seconds));
    }

    QDateTime m_wallStart;
    TimePoint m_now{};
    std::map<quint64, std::shared_ptr<Entry>> m_entries;
    quint64 m_nextID = 0;
};
