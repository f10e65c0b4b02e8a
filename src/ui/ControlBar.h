#pragma once

#include "settings/AppSettings.h"

#include <QWidget>

class AnswerTimerView;
class LevelMeter;
class QCheckBox;
class QLabel;
class QPushButton;
class QToolButton;
class SessionController;
class StatusPill;

// The row of controls at the top of the window: Start/Stop, status, meters, timers, the
// context and job buttons, quick toggles, text size, appearance and settings.
class ControlBar : public QWidget
{
    Q_OBJECT
public:
    ControlBar(AppSettings &settings, SessionController &controller, QWidget *parent = nullptr);

    // The label rules.
    static QString contextButtonLabel(int fileCount);
    static QString jobButtonLabel(const QString &roleTitle);
    static bool isMicStreamed(AppSettings::StreamSource source);
    static QString micMeterLabel(AppSettings::StreamSource source);
    static QString micMeterHelp(AppSettings::StreamSource source);

    QPushButton *startStopButton() const { return m_startStop; }
    StatusPill *statusPill() const { return m_status; }
    LevelMeter *micMeter() const { return m_micMeter; }
    LevelMeter *meetingMeter() const { return m_meetingMeter; }
    AnswerTimerView *answerTimer() const { return m_timer; }
    QLabel *lastAnswerLabel() const { return m_lastAnswer; }
    QLabel *clockLabel() const { return m_clock; }
    QToolButton *contextButton() const { return m_context; }
    QToolButton *jobButton() const { return m_job; }
    QToolButton *showFilesButton() const { return m_showFiles; }
    QCheckBox *onTopToggle() const { return m_onTop; }
    QCheckBox *saveWavToggle() const { return m_saveWav; }
    QToolButton *smallerButton() const { return m_smaller; }
    QToolButton *biggerButton() const { return m_bigger; }
    QToolButton *appearanceButton() const { return m_appearance; }
    QToolButton *settingsButton() const { return m_settingsButton; }

signals:
    void contextRequested();
    void jobRequested();
    void settingsRequested();
    void appearanceToggleRequested();

protected:
    void changeEvent(QEvent *event) override;
    // Dragging the bar's background moves the window.
    void mousePressEvent(QMouseEvent *event) override;

private:
    void refreshSession();
    void refreshStatus();
    void refreshLevels();
    void refreshTimers();
    void refreshContext();
    void refreshJob();
    void refreshMicLabel();
    void refreshAppearanceIcon();

    AppSettings &m_settings;
    SessionController &m_controller;
    QPushButton *m_startStop;
    StatusPill *m_status;
    LevelMeter *m_micMeter;
    LevelMeter *m_meetingMeter;
    AnswerTimerView *m_timer;
    QWidget *m_lastAnswerBox;
    QLabel *m_lastAnswer;
    QLabel *m_clock;
    QToolButton *m_context;
    QToolButton *m_job;
    QToolButton *m_showFiles;
    QCheckBox *m_onTop;
    QCheckBox *m_saveWav;
    QToolButton *m_smaller;
    QToolButton *m_bigger;
    QToolButton *m_appearance;
    QToolButton *m_settingsButton;
};
