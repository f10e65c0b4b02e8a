#pragma once

#include "realtime/RealtimeTypes.h"
#include "session/SessionBannerLink.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QUrl>

#include <optional>

// What a session shows the window: its service status, whether it runs, the levels, the
// saved files and the banner. Every setter notifies only on a change. SessionController
// derives from it and is its only writer; the window reads it and follows its signals.
//
// The banner: null text when none shows. Links belong to the text set with them; the one
// action button belongs to the text that offered it. copyTranscript: the transcript file
// could not be written, the button copies the cards' text to the clipboard; installUpdate
// and restartNow belong to the updater.
class SessionStatus : public QObject
{
    Q_OBJECT
public:
    using BannerLink = SessionBannerLink;
    enum class BannerAction { openAccountSettings, openOnboarding, openContext, cancelTranscription, copyTranscript,
                              installUpdate, restartNow };
    Q_ENUM(BannerAction)

    RealtimeStatus status() const { return m_status; }
    bool isSessionActive() const { return m_isSessionActive; }
    // From a press of Start until the session is active or the start has failed.
    bool isStarting() const { return m_isStarting; }
    // The service hears the other side talking (between its speech start and stop).
    bool isListening() const { return m_isListening; }
    float micLevel() const { return m_micLevel; }
    float meetingLevel() const { return m_meetingLevel; }
    QUrl lastRecordingURL() const { return m_lastRecordingURL; }   // empty when none
    QUrl lastTranscriptURL() const { return m_lastTranscriptURL; }
    double sessionElapsed() const { return m_sessionElapsed; }
    bool contextPanelRequested() const { return m_contextPanelRequested; }
    void setContextPanelRequested(bool requested);

    QString banner() const { return m_banner.value_or(QString()); }   // null: no banner
    std::optional<QString> bannerText() const { return m_banner; }
    QList<BannerLink> bannerLinks() const { return m_bannerLinks; }
    std::optional<BannerAction> bannerAction() const { return m_bannerAction; }
    void setBanner(const QString &text, const QList<BannerLink> &links);
    void setBanner(const QString &text, BannerAction action);
    // Sets or clears the banner text alone (links and action follow the rules above).
    void setBannerText(const std::optional<QString> &text);
    static BannerLink makeLink(const QString &label, const QUrl &url);

signals:
    void statusChanged();
    void isSessionActiveChanged();
    void isStartingChanged();
    void isListeningChanged();
    void micLevelChanged();
    void meetingLevelChanged();
    void lastRecordingURLChanged();
    void lastTranscriptURLChanged();
    void sessionElapsedChanged();
    void contextPanelRequestedChanged();
    void bannerChanged();
    void bannerLinksChanged();
    void bannerActionChanged();

protected:
    explicit SessionStatus(QObject *parent) : QObject(parent) {}

    void setStatus(const RealtimeStatus &status);
    void setSessionActive(bool active) { publish(m_isSessionActive, active, &SessionStatus::isSessionActiveChanged); }
    void setStarting(bool starting) { publish(m_isStarting, starting, &SessionStatus::isStartingChanged); }
    void setListening(bool listening) { publish(m_isListening, listening, &SessionStatus::isListeningChanged); }
    void setLevels(float mic, float meeting);
    void setLastRecordingURL(const QUrl &url) { publish(m_lastRecordingURL, url, &SessionStatus::lastRecordingURLChanged); }
    void setLastTranscriptURL(const QUrl &url) { publish(m_lastTranscriptURL, url, &SessionStatus::lastTranscriptURLChanged); }
    void setSessionElapsed(double seconds) { publish(m_sessionElapsed, seconds, &SessionStatus::sessionElapsedChanged); }
    void setBannerAction(std::optional<BannerAction> action) { publish(m_bannerAction, action, &SessionStatus::bannerActionChanged); }
    // A new banner text has been shown; the controller puts it on the session's timeline.
    virtual void bannerShown(const QString &text) { Q_UNUSED(text); }

private:
    template<typename T>
    void publish(T &field, const T &value, void (SessionStatus::*changed)())
    {
        if (field != value) {
            field = value;
            emit(this->*changed)();
        }
    }
    void setBannerLinks(const QList<BannerLink> &links) { publish(m_bannerLinks, links, &SessionStatus::bannerLinksChanged); }

    RealtimeStatus m_status = RealtimeStatus::idle();
    bool m_isSessionActive = false;
    bool m_isStarting = false;
    bool m_isListening = false;
    float m_micLevel = 0;
    float m_meetingLevel = 0;
    QUrl m_lastRecordingURL;
    QUrl m_lastTranscriptURL;
    double m_sessionElapsed = 0;
    bool m_contextPanelRequested = false;
    std::optional<QString> m_banner;
    QList<BannerLink> m_bannerLinks;
    std::optional<QString> m_bannerOwningLinks;
    std::optional<BannerAction> m_bannerAction;
};
