#include "ui/FollowBottom.h"

bool FollowBottom::geometryChanged(const Geo &oldGeo, const Geo &newGeo)
{
    const double distance = newGeo.contentHeight - (newGeo.offsetY + newGeo.containerHeight);
    const bool nearBottom = distance <= bottomThreshold;
    const bool scrolledUp = newGeo.offsetY < oldGeo.offsetY - 0.5;

    if (nearBottom) {
        m_autoScroll = true;
        m_unseenBelow = false;
    } else if (scrolledUp) {
        m_autoScroll = false;
    }

    if (oldGeo.contentHeight + 0.5 < newGeo.contentHeight) {
        if (m_autoScroll)
            return true;
        m_unseenBelow = true;
    }
    return false;
}

void FollowBottom::jumpToBottom()
{
    m_autoScroll = true;
    m_unseenBelow = false;
}
