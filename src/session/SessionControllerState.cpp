#include "session/SessionController.h"

#include <QUuid>

// Published state: every setter notifies only on a change.
//
// The banner: null text when none shows. Links (BannerLink) belong to the text set with
// them; the one action button (BannerAction) belongs to the text that offered it.
// copyTranscript: the transcript file could not be written, the button copies the cards'
// text (transcriptForExport) to the clipboard; installUpdate and restartNow belong to the
// updater.

// A sample interview against a local stand-in for the service: its records are named
// "meeting_demo_…", say so in the events log, and cost nothing.
void SessionController::setDemo(bool demo)
{
    m_state.demo = demo;
    m_usage.setFree(demo);
}

// ---- Banner --------------------------------------------------------------------------

SessionController::BannerLink SessionController::makeLink(const QString &label, const QUrl &url)
{
    return BannerLink{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(), label, url};
}

void SessionController::setBanner(const QString &text, const QList<BannerLink> &links)
{
    m_state.bannerOwningLinks = text;
    setBannerText(text);
    setBannerLinks(links);
}

void SessionController::setBanner(const QString &text, BannerAction action)
{
    setBannerLinks({});
    m_state.bannerOwningLinks.reset();
    setBannerText(text);
    setBannerAction(action);
}

// Sets or clears the banner text alone (links and action follow the rules above).
void SessionController::setBannerText(const std::optional<QString> &text)
{
    const bool changed = m_state.banner != text;
    m_state.banner = text;
    if (changed) {
        emit bannerChanged();
    }
    if (m_state.banner != m_state.bannerOwningLinks) {
        setBannerLinks({});
    }
    // An action belongs to the text that offered it (setBanner(text, action) sets it after).
    if (!m_state.banner || changed) {
        setBannerAction(std::nullopt);
    }
    // On the review's timeline; last, since a log that fails here shows a banner of its own.
    if (changed && m_state.banner && m_state.isSessionActive)
        appendEvent(QStringLiteral("banner"), {{QStringLiteral("text"), *m_state.banner}});
}

void SessionController::setBannerLinks(const QList<BannerLink> &links)
{
    if (m_state.bannerLinks != links) {
        m_state.bannerLinks = links;
        emit bannerLinksChanged();
    }
}

void SessionController::setBannerAction(std::optional<BannerAction> action)
{
    if (m_bannerAction != action) {
        m_bannerAction = action;
        emit bannerActionChanged();
    }
}

void SessionController::setContextPanelRequested(bool requested)
{
    if (m_state.contextPanelRequested != requested) {
        m_state.contextPanelRequested = requested;
        emit contextPanelRequestedChanged();
    }
}

void SessionController::setStatus(const RealtimeStatus &status)
{
    if (!(m_state.status == status)) {
        m_state.status = status;
        emit statusChanged();
    }
}

void SessionController::setSessionActive(bool active)
{
    if (m_state.isSessionActive != active) {
        m_state.isSessionActive = active;
        emit isSessionActiveChanged();
    }
}

void SessionController::setStarting(bool starting)
{
    if (m_state.isStarting != starting) {
        m_state.isStarting = starting;
        emit isStartingChanged();
    }
}

void SessionController::setListening(bool listening)
{
    if (m_state.isListening != listening) {
        m_state.isListening = listening;
        emit isListeningChanged();
    }
}

void SessionController::setLevels(float mic, float meeting)
{
    if (m_state.micLevel != mic) {
        m_state.micLevel = mic;
        emit micLevelChanged();
    }
    if (m_state.meetingLevel != meeting) {
        m_state.meetingLevel = meeting;
        emit meetingLevelChanged();
    }
}

void SessionController::setLastRecordingURL(const QUrl &url)
{
    if (m_state.lastRecordingURL != url) {
        m_state.lastRecordingURL = url;
        emit lastRecordingURLChanged();
    }
}

void SessionController::setLastTranscriptURL(const QUrl &url)
{
    if (m_state.lastTranscriptURL != url) {
        m_state.lastTranscriptURL = url;
        emit lastTranscriptURLChanged();
    }
}

void SessionController::setSessionElapsed(double seconds)
{
    if (m_state.sessionElapsed != seconds) {
        m_state.sessionElapsed = seconds;
        emit sessionElapsedChanged();
    }
}
