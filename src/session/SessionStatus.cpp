#include "session/SessionStatus.h"

#include <QUuid>

SessionStatus::BannerLink SessionStatus::makeLink(const QString &label, const QUrl &url)
{
    return BannerLink{QUuid::createUuid().toString(QUuid::WithoutBraces).toUpper(), label, url};
}

void SessionStatus::setBanner(const QString &text, const QList<BannerLink> &links)
{
    m_bannerOwningLinks = text;
    setBannerText(text);
    setBannerLinks(links);
}

void SessionStatus::setBanner(const QString &text, BannerAction action)
{
    setBannerLinks({});
    m_bannerOwningLinks.reset();
    setBannerText(text);
    setBannerAction(action);
}

void SessionStatus::setBannerText(const std::optional<QString> &text)
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
    // Last, since a record that fails to be written there shows a banner of its own.
    if (changed && m_banner) {
        bannerShown(*m_banner);
    }
}

void SessionStatus::setContextPanelRequested(bool requested)
{
    publish(m_contextPanelRequested, requested, &SessionStatus::contextPanelRequestedChanged);
}

void SessionStatus::setStatus(const RealtimeStatus &status)
{
    if (!(m_status == status)) {
        m_status = status;
        emit statusChanged();
    }
}

void SessionStatus::setLevels(float mic, float meeting)
{
    publish(m_micLevel, mic, &SessionStatus::micLevelChanged);
    publish(m_meetingLevel, meeting, &SessionStatus::meetingLevelChanged);
}
