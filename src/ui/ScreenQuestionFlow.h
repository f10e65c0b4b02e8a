#pragma once

#include "screenshot/ScreenshotResult.h"

#include <QObject>
#include <QPointer>

#include <functional>

class AppSettings;
class QAction;
class QWidget;
class ScreenRegionPicker;
class ScreenshotTaker;
class SessionController;

// "Answer from screen": takes a screenshot, shows it frozen so the user can pick the part with
// the question, and hands the prepared picture to the session. Before the first screen
// question it explains once what is sent and to whom. Every way it can end without sending
// (no session, refused, cancelled, unreadable) leaves one line in the session's banner.
class ScreenQuestionFlow : public QObject
{
    Q_OBJECT
public:
    // Takes the screenshot and calls `done` once, later or at once.
    using Capture = std::function<void(QWidget *window, std::function<void(const ScreenshotResult &)> done)>;
    // Shows the privacy note; true when the user goes on.
    using PrivacyPrompt = std::function<bool(QWidget *window)>;

    ScreenQuestionFlow(AppSettings &settings, SessionController &controller, QWidget *window,
                       QObject *parent = nullptr);
    ~ScreenQuestionFlow() override;

    // The action, for menus and the control bar; enabled only while a session runs.
    QAction *action() const { return m_action; }
    void start();
    bool isBusy() const { return m_busy; }
    // The overlay while it is shown (for tests).
    ScreenRegionPicker *picker() const;

    void setCapture(Capture capture) { m_capture = std::move(capture); }
    void setPrivacyPrompt(PrivacyPrompt prompt) { m_privacyPrompt = std::move(prompt); }

    static QString actionText();
    static QString unavailableTip();
    static QString availableTip();
    static QString privacyNote();
    // The desktop portal's identifier of `window` ("x11:<hex id>" on X11, else empty).
    static QString portalWindowId(QWidget *window);

private:
    void refresh();
    void captured(const ScreenshotResult &result);
    void picked(const QRect &region);
    void finish(const QString &banner = {});
    bool showPrivacyNote();

    AppSettings &m_settings;
    SessionController &m_controller;
    QPointer<QWidget> m_window;
    QAction *m_action;
    ScreenshotTaker *m_taker = nullptr;
    Capture m_capture;
    PrivacyPrompt m_privacyPrompt;
    QPointer<ScreenRegionPicker> m_picker;
    QImage m_image;
    bool m_busy = false;
};
