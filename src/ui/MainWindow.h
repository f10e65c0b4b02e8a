#pragma once

#include "settings/AppSettings.h"
#include "ui/ContextPanel.h"
#include "ui/JobContextDialog.h"
#include "ui/OnboardingDialog.h"
#include "ui/SettingsDialog.h"
#include "ui/Theme.h"

#include <QMainWindow>
#include <QPointer>
#include <QRect>

class AudioEnvironment;
class BannerView;
class ControlBar;
class DemoRibbon;
class FileRevealer;
class QAction;
class QTimer;
class ScreenQuestionFlow;
class SessionController;
class TapQueries;
class TranscriptView;
class WindowActions;

// The one window: control bar, banner and answer cards, with the menu commands and the
// window behaviour (on top, appearance, remembered frame). Owns no session logic: it shows
// the controller's published state and calls its operations.
class MainWindow : public QMainWindow
{
    Q_OBJECT
public:
    // What the window's dialogs use besides the settings and the controller.
    struct Services
    {
        FileRevealer &fileRevealer;
        TapQueries &taps;
        AudioEnvironment &audio;
    };

    static constexpr int minimumWidth = 420;
    static constexpr int minimumHeight = 400;
    static constexpr int defaultWidth = 560;
    static constexpr int defaultHeight = 680;
    static constexpr const char *frameKey = "mainWindowFrame";

    MainWindow(AppSettings &settings, SessionController &controller, const Services &services,
               QWidget *parent = nullptr);
    ~MainWindow() override;

    ControlBar *controlBar() const { return m_controlBar; }
    BannerView *bannerView() const { return m_banner; }
    TranscriptView *transcriptView() const { return m_transcript; }

    void openSettings();
    void openJobContext();
    void openContextPanel();
    void openOnboarding();
    SettingsDialog *settingsDialog() const { return m_settingsDialog; }
    JobContextDialog *jobContextDialog() const { return m_jobDialog; }
    ContextPanel *contextPanel() const { return m_contextPanel; }
    OnboardingDialog *onboardingDialog() const { return m_onboarding; }

    // The window's commands, shared by the menus and the control bar.
    WindowActions *actions() const { return m_actions; }
    QAction *alwaysOnTopAction() const;
    QAction *toggleAppearanceAction() const;
    QAction *biggerTextAction() const;
    QAction *smallerTextAction() const;
    QAction *resetTextAction() const;
    QAction *copyTranscriptAction() const;
    QAction *transcribeRecordingAction() const;
    ScreenQuestionFlow *screenQuestion() const { return m_screenQuestion; }
    QAction *checkForUpdatesAction() const;

    static Theme::Scheme schemeFor(AppSettings::Appearance appearance);

    // A stored frame is used only when at least 380 by 300.
    static bool isRestorableFrame(const QRect &frame);
    // Where a restored frame goes: where it was, unless less than half of it lies on any one
    // screen (a monitor that is gone, a changed arrangement); then onto the primary screen's
    // available area, at the same size where it fits.
    static QRect placedFrame(const QRect &frame, const QList<QRect> &screens, const QRect &primaryAvailable);
    // Writes the frame now (otherwise it is written shortly after a move or resize).
    void saveFrame();

    // A sample interview runs in this window: the ribbon that says so goes on top, and the
    // empty state no longer offers one.
    void showDemoRibbon();
    DemoRibbon *demoRibbon() const { return m_demoRibbon; }

signals:
    // A Settings dialog was made (pages of other parts of the program hook in here).
    void settingsDialogCreated(SettingsDialog *dialog);
    // "Check for Updates…" and the update banner's buttons, for the updater the shell wires in.
    void checkForUpdatesRequested();
    void installUpdateRequested();
    void restartRequested();
    // "Try a sample interview" (the welcome, the empty window), and the sample's "Add your key".
    void sampleInterviewRequested();
    void addKeyRequested();

protected:
    void showEvent(QShowEvent *event) override;
    void closeEvent(QCloseEvent *event) override;
    void moveEvent(QMoveEvent *event) override;
    void resizeEvent(QResizeEvent *event) override;

private:
    void buildMenus();
    void restoreFrame();
    void applyAlwaysOnTop();
    void applyAppearance();
    void applyFonts();
    void refreshBanner();
    void onContextPanelRequested();

    AppSettings &m_settings;
    SessionController &m_controller;
    Services m_services;
    WindowActions *m_actions;

    ControlBar *m_controlBar;
    BannerView *m_banner;
    TranscriptView *m_transcript;
    QTimer *m_frameSaveTimer;
    DemoRibbon *m_demoRibbon = nullptr;
    bool m_shownOnce = false;

    QPointer<SettingsDialog> m_settingsDialog;
    QPointer<JobContextDialog> m_jobDialog;
    QPointer<ContextPanel> m_contextPanel;
    QPointer<OnboardingDialog> m_onboarding;

    ScreenQuestionFlow *m_screenQuestion = nullptr;
};
