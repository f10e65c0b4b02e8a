#pragma once

#include "audio/AudioTypes.h"
#include "session/Clock.h"

#include <QCoreApplication>
#include <QString>

#include <functional>
#include <memory>
#include <optional>

// The capture's health during a session and the banner it shows while a part of it is lost
// (the sound server, the meeting output, the microphone). The engine reattaches lost parts
// by itself; this tells the user meanwhile and clears its banner when the part is back.
class CaptureWatch
{
    Q_DECLARE_TR_FUNCTIONS(CaptureWatch)

public:
    explicit CaptureWatch(Clock &clock);

    static const QString soundServerLostBanner;
    static const QString outputLostBanner;
    static QString microphoneLostBanner(const QString &name);
    // A lost output is told only after this many seconds (it is usually replaced by then).
    static constexpr double outputLostBannerDelay = 5.0;

    // The banner on show, and how to show or clear one: the controller's.
    std::function<std::optional<QString>()> shownBanner;
    std::function<void(const std::optional<QString> &text)> showBanner;

    // Takes the engine's new health; true when the microphone has just been lost.
    bool update(const CaptureHealth &health);
    // Shows, replaces or clears this watch's banner to match the health.
    void refreshBanner();
    // The session is over: forgets the health and clears its own banner.
    void end();

private:
    Clock &m_clock;
    CaptureHealth m_health;
    std::optional<Clock::TimePoint> m_meetingLostAt;
    std::unique_ptr<ClockTimer> m_outputLostTimer;
    std::optional<QString> m_banner;   // the text this watch last showed
};
