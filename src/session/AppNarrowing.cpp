#include "session/AppNarrowing.h"

#include "audio/CaptureLink.h"
#include "session/TapQueries.h"

AppNarrowing::AppNarrowing(Clock &clock, TapQueries &taps, CaptureLink &audio)
    : m_clock(clock)
    , m_taps(taps)
    , m_audio(audio)
{
}

QString AppNarrowing::appDisplayName(const QString &bundleID) const
{
    const QList<AudioProcessInfo> apps = m_taps.selectableApps();
    for (const AudioProcessInfo &app : apps) {
        if (app.bundleID == bundleID && !app.name.isEmpty()) {
            return app.name;
        }
    }
    return bundleID;
}

void AppNarrowing::startPolling()
{
    m_poll.reset();
    if (!m_pendingApp) {
        return;
    }
    m_polledApp = *m_pendingApp;
    m_armedAt = m_clock.now();
    m_poll = m_clock.schedule(3.0, true, [this] { pollTick(); });
}

void AppNarrowing::stop()
{
    m_pendingApp.reset();
    m_poll.reset();
}

void AppNarrowing::pollTick()
{
    if (!sessionActive() || !m_pendingApp || *m_pendingApp != m_polledApp) {
        return;
    }
    const QString bundleID = m_polledApp;
    const std::optional<AudioProcessInfo> app = m_taps.audioObject(bundleID);
    if (!app && Clock::secondsBetween(m_armedAt, m_clock.now()) <= 120.0) {
        return;
    }

    const QString name = appDisplayName(bundleID);
    m_pendingApp.reset();
    // The timer may be dropped here: the clock allows a timer to end itself from its action.
    m_poll.reset();

    if (!app) {
        appendEvent(QStringLiteral("tap_narrow_timeout"), {{QStringLiteral("app"), bundleID}});
        showBanner(tr("Still listening to this whole computer — no audio has been credited to %1. That is "
                      "normal for apps that play sound through another process, and the meeting is being "
                      "captured either way.")
                       .arg(name));
        return;
    }
    appendEvent(QStringLiteral("tap_narrowed"), {{QStringLiteral("app"), bundleID}});
    const QString appID = app->bundleID.isEmpty() ? bundleID : app->bundleID;
    if (const auto retargeted = m_audio.retarget(TapTarget::process(appID)); !retargeted.ok()) {
        showBanner(tr("Stayed on this computer's audio — could not switch to %1: %2").arg(name, retargeted.error()));
    } else {
        showBanner(tr("Now listening to %1 only.").arg(name));
    }
}
