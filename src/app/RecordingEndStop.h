#pragma once

#include <QObject>
#include <QTimer>

#include <functional>

class AppSettings;
class SessionController;

// When the recording that stands for the meeting has been played to its end and the user
// chose so in Settings, stops the session once the last answer has finished streaming (or
// after `graceMs` at most), so its transcript is saved as at a Stop.
class RecordingEndStop : public QObject
{
    Q_OBJECT
public:
    static constexpr int pollMs = 250;
    static constexpr int graceMs = 20000;

    RecordingEndStop(AppSettings &settings, SessionController &controller, QObject *parent = nullptr);

    // GUI thread: the recording ended.
    void recordingEnded();
    // How the session is stopped (the controller's stop unless set).
    void setStop(std::function<void()> stop) { m_stop = std::move(stop); }

private:
    void check();

    AppSettings &m_settings;
    SessionController &m_controller;
    QTimer m_poll;
    int m_waitedMs = 0;
    std::function<void()> m_stop;
};
