#pragma once

#include "settings/AppSettings.h"
#include "ui/WindowActions.h"

#include <QList>
#include <QWidget>

class AnswerTimerView;
class IconLabel;
class LevelMeter;
class QAction;
class QLabel;
class QMenu;
class QPushButton;
class QToolButton;
class SessionController;
class StatusPill;

// The row of controls at the top of the window, one row at every width from the window's
// minimum: Start/Stop, the status pill, the two meters (one above the other), the answer
// timer, and the meeting clock with the last answer's length under it keep their places (room for each is kept even while it is
// hidden); then compact icon buttons for the context, the job, the saved files, on top,
// saving a recording, text size, appearance and settings: the window's own actions, shared
// with its menus, labelled by their icon text. Buttons that do not fit go, right to left,
// into a "⋯" menu holding the same actions.
class ControlBar : public QWidget
{
    Q_OBJECT
public:
    ControlBar(AppSettings &settings, SessionController &controller, WindowActions &actions,
               QWidget *parent = nullptr);

    // The label rules.
    static QString contextButtonLabel(int fileCount);
    static QString jobButtonLabel(const QString &roleTitle);
    static bool isMicStreamed(AppSettings::StreamSource source);
    static QString micMeterLabel(AppSettings::StreamSource source);
    static QString micMeterHelp(AppSettings::StreamSource source);
    static QString showFilesDisabledHelp();
    // "last 1:05": the last answer's length.
    static QString lastAnswerText(const QString &duration);

    QPushButton *startStopButton() const { return m_startStop; }
    StatusPill *statusPill() const { return m_status; }
    LevelMeter *micMeter() const { return m_micMeter; }
    LevelMeter *meetingMeter() const { return m_meetingMeter; }
    AnswerTimerView *answerTimer() const { return m_timer; }
    QLabel *lastAnswerLabel() const { return m_lastAnswer; }
    QLabel *clockLabel() const { return m_clock; }
    QToolButton *contextButton() const { return buttonFor(m_commands.contextDocuments()); }
    QToolButton *jobButton() const { return buttonFor(m_commands.jobContext()); }
    QToolButton *showFilesButton() const { return buttonFor(m_commands.showFiles()); }
    QToolButton *onTopToggle() const { return buttonFor(m_commands.alwaysOnTop()); }
    QToolButton *saveWavToggle() const { return buttonFor(m_commands.saveRecording()); }
    QToolButton *smallerButton() const { return buttonFor(m_commands.smallerText()); }
    QToolButton *biggerButton() const { return buttonFor(m_commands.biggerText()); }
    QToolButton *appearanceButton() const { return buttonFor(m_commands.toggleAppearance()); }
    QToolButton *settingsButton() const { return buttonFor(m_commands.settings()); }
    QToolButton *overflowButton() const { return m_overflow; }

    // The actions of the compact buttons, left to right; the "⋯" menu shows those whose
    // buttons did not fit.
    const QList<QAction *> &toolActions() const { return m_actions; }
    QList<QAction *> overflowActions() const;
    QToolButton *buttonFor(const QAction *action) const;
    // Adds a compact button for `action` at the right end of the bar (before Settings when
    // `beforeSettings`). The action needs an icon and a text; its tool tip is its help. An
    // action made invisible takes its button out of the bar and the menu.
    void addToolAction(QAction *action, bool beforeSettings = true);

    // The widgets that keep their places, left to right.
    QList<QWidget *> fixedWidgets() const;

    QSize sizeHint() const override;
    QSize minimumSizeHint() const override;

protected:
    bool event(QEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;
    void changeEvent(QEvent *event) override;
    // Dragging the bar's background moves the window.
    void mousePressEvent(QMouseEvent *event) override;

private:
    void relayout();
    int fixedWidth() const;
    int rowHeight() const;
    int clockIconsWidth() const;
    void setClockIconsShown(bool shown);
    void refreshSession();
    void refreshStatus();
    void refreshLevels();
    void refreshTimers();
    void refreshContext();
    void refreshJob();
    void refreshFiles();
    void refreshMicLabel();
    void refreshAppearanceIcon();
    void refreshIconSizes();

    AppSettings &m_settings;
    SessionController &m_controller;
    WindowActions &m_commands;
    QPushButton *m_startStop;
    StatusPill *m_status;
    QWidget *m_meters;
    LevelMeter *m_micMeter;
    LevelMeter *m_meetingMeter;
    AnswerTimerView *m_timer;
    QWidget *m_clockBox;
    QWidget *m_lastAnswerBox = nullptr;
    QLabel *m_lastAnswer;
    QLabel *m_clock;
    IconLabel *m_clockGlyph = nullptr;
    IconLabel *m_lastGlyph = nullptr;

    QList<QAction *> m_actions;
    QList<QToolButton *> m_buttons;
    QToolButton *m_overflow;
    QMenu *m_overflowMenu;
    int m_shownButtons = -1;
};
