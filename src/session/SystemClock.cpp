#include "session/SystemClock.h"

#include <QPointer>
#include <QTimer>

namespace {

class QtClockTimer final : public ClockTimer
{
public:
    QtClockTimer(double seconds, bool repeating, std::function<void()> action)
        : m_timer(new QTimer)
    {
        m_timer->setTimerType(Qt::PreciseTimer);
        m_timer->setSingleShot(!repeating);
        m_timer->setInterval(std::chrono::milliseconds(qRound64(seconds * 1000.0)));
        QObject::connect(m_timer.data(), &QTimer::timeout, m_timer.data(), std::move(action));
        m_timer->start();
    }

    ~QtClockTimer() override
    {
        // The handle may be dropped from inside the timer's own timeout: defer the delete.
        if (m_timer) {
            m_timer->stop();
            m_timer->disconnect();
            m_timer->deleteLater();
        }
    }

private:
    QPointer<QTimer> m_timer;
};

} // namespace

Clock::TimePoint SystemClock::now() const
{
    return std::chrono::steady_clock::now();
}

QDateTime SystemClock::wallNow() const
{
    return QDateTime::currentDateTime();
}

std::unique_ptr<ClockTimer> SystemClock::schedule(double seconds, bool repeating, std::function<void()> action)
{
    return std::make_unique<QtClockTimer>(seconds, repeating, std::move(action));
}
