#pragma once

// Decides whether the cards view follows new content to the bottom. The user scrolling up
// stops the following; coming back to within `bottomThreshold` of the bottom resumes it.
// Half-point tolerances keep layout jitter from counting as scrolling or growth.
class FollowBottom
{
public:
    struct Geo
    {
        double offsetY = 0;
        double contentHeight = 0;
        double containerHeight = 0;

        friend bool operator==(const Geo &, const Geo &) = default;
    };

    static constexpr double bottomThreshold = 20.0;

    // Applies a geometry change; returns true when the view should scroll to the bottom.
    bool geometryChanged(const Geo &oldGeo, const Geo &newGeo);
    // The "New answers below" button was pressed: follow again (the caller scrolls).
    void jumpToBottom();

    bool autoScrollEnabled() const { return m_autoScroll; }
    bool hasUnseenBelow() const { return m_unseenBelow; }

private:
    bool m_autoScroll = true;
    bool m_unseenBelow = false;
};
