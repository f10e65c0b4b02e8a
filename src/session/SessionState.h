#pragma once

#include "realtime/RealtimeTypes.h"
#include "session/SessionBannerLink.h"

#include <QList>
#include <QString>
#include <QUrl>

#include <optional>

// What the session controller publishes as properties (each setter there notifies on a
// change), and the banner text that owns the current links.
struct SessionState
{
    RealtimeStatus status = RealtimeStatus::idle();
    bool isSessionActive = false;
    bool demo = false;
    // From a press of Start until the session is active or the start has failed.
    bool isStarting = false;
    // The service hears the other side talking (between its speech start and stop).
    bool isListening = false;
    float micLevel = 0;
    float meetingLevel = 0;
    QUrl lastRecordingURL;   // empty when none
    QUrl lastTranscriptURL;
    std::optional<QString> banner;
    QList<SessionBannerLink> bannerLinks;
    std::optional<QString> bannerOwningLinks;
    bool contextPanelRequested = false;
    double sessionElapsed = 0;
};
