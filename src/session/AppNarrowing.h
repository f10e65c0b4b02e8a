#pragma once

#include "session/Clock.h"

#include <QCoreApplication>
#include <QString>
#include <QVariantMap>

#include <functional>
#include <memory>
#include <optional>

class CaptureLink;
class TapQueries;

// Narrowing capture to one application: a session that was to listen to one application,
// which played nothing at Start, listens to the whole computer and narrows to the
// application as soon as it plays sound (polled every 3 s, given up after 2 minutes).
class AppNarrowing
{
    Q_DECLARE_TR_FUNCTIONS(AppNarrowing)

public:
    AppNarrowing(Clock &clock, TapQueries &taps, CaptureLink &audio);

    // The controller's: whether a session runs, its events log and its banner.
    std::function<bool()> sessionActive;
    std::function<void(const QString &event, const QVariantMap &fields)> appendEvent;
    std::function<void(const QString &text)> showBanner;

    // The application's display name among the selectable ones, else its id.
    QString appDisplayName(const QString &bundleID) const;
    // Start chose the whole computer for `bundleID`: narrow once the session runs.
    void narrowLater(const QString &bundleID) { m_pendingApp = bundleID; }
    // The session runs: polls for the pending application, if any.
    void startPolling();
    // The session ended or its start was given up: nothing is narrowed later, and a next
    // session meant for the whole computer stays so.
    void stop();

private:
    void pollTick();

    Clock &m_clock;
    TapQueries &m_taps;
    CaptureLink &m_audio;
    std::optional<QString> m_pendingApp;
    QString m_polledApp;
    Clock::TimePoint m_armedAt{};
    std::unique_ptr<ClockTimer> m_poll;
};
