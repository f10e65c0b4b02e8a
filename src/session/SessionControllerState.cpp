#include "session/SessionController.h"

#include <QUuid>

// Published state: every setter notifies only on a change.

// ---- Banner --------------------------------------------------------------------------

SessionController::BannerLink SessionController::makeLink(const QString &label, const QUrl &url)
{
    return BannerLink{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(), label, url};
}

void SessionController::setBanner(const QString &text, const QList<BannerLink> &links)
{
    m_bannerOwningLinks = text;
    setBannerText(text);
    setBannerLinks(links);
}

void SessionController::setBanner(const QString &text, BannerAction action)
{
    setBannerLinks({});
    m_bannerOwningLinks.reset();
    setBannerText(text);
    setBannerAction(action);
}

void SessionController::setBannerText(const std::optional<QString> &text)
{
    const bool changed = m_banner != text;
    m_banner = text;
    if (changed) {
        emit bannerChanged();
    }
    if (m_banner != m_bannerOwningLinks) {
        setBannerLinks({});
    }
    // An action belongs to the text that offered it (setBanner(text, action) sets it after).
    if (!m_banner || changed) {
        setBannerAction(std::nullopt);
    }
    // On the review's timeline; last, since a log that fails here shows a banner of its own.
    if (changed && m_banner && m_isSessionActive)
        appendEvent(QStringLiteral("banner"), {{QStringLiteral("text"), *m_banner}});
}

void SessionController::setBannerLinks(const QList<BannerLink> &links)
{
    if (m_bannerLinks != links) {
        m_bannerLinks = links;
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
    if (m_contextPanelRequested != requested) {
        m_contextPanelRequested = requested;
        emit contextPanelRequestedChanged();
    }
}

void SessionController::setStatus(const RealtimeStatus &status)
{
    if (!(m_status == status)) {
        m_status = status;
        emit statusChanged();
    }
}

void SessionController::setSessionActive(bool active)
{
    if (m_isSessionActive != active) {
        m_isSessionActive = active;
        emit isSessionActiveChanged();
    }
}

void SessionController::setStarting(bool starting)
{
    if (m_isStarting != starting) {
        m_isStarting = starting;
        emit isStartingChanged();
    }
}

void SessionController::setListening(bool listening)
{
    if (m_isListening != listening) {
        m_isListening = listening;
        emit isListeningChanged();
    }
}

void SessionController::setLevels(float mic, float meeting)
{
    if (m_micLevel != mic) {
        m_micLevel = mic;
        emit micLevelChanged();
    }
    if (m_meetingLevel != meeting) {
        m_meetingLevel = meeting;
        emit meetingLevelChanged();
    }
}

void SessionController::setLastRecordingURL(const QUrl &url)
{
    if (m_lastRecordingURL != url) {
        m_lastRecordingURL = url;
        emit lastRecordingURLChanged();
    }
}

void SessionController::setLastTranscriptURL(const QUrl &url)
{
    if (m_lastTranscriptURL != url) {
        m_lastTranscriptURL = url;
        emit lastTranscriptURLChanged();
    }
}

void SessionController::setSessionElapsed(double seconds)
{
    if (m_sessionElapsed != seconds) {
        m_sessionElapsed = seconds;
        emit sessionElapsedChanged();
    }
}
