#pragma once

#include "settings/AppSettings.h"

#include <QList>
#include <QObject>

class QAction;
class QActionGroup;
class SessionController;

// Every command of the window, made once: the menus and the control bar show the same
// actions, so a toggle checked in one is checked in the other and a shortcut exists once.
// An action's text is its menu label; its icon text is the control bar's short label.
// Commands that act on the settings or the session are wired here; those that open a
// window's dialog are connected by the window.
class WindowActions : public QObject
{
    Q_OBJECT
public:
    WindowActions(AppSettings &settings, SessionController &controller, QObject *parent = nullptr);

    // Open a dialog (the window connects them).
    QAction *settings() const { return m_settings; }
    QAction *jobContext() const { return m_jobContext; }
    QAction *contextDocuments() const { return m_contextDocuments; }
    QAction *setupGuide() const { return m_setupGuide; }
    QAction *reviewSession() const { return m_reviewSession; }
    QAction *quit() const { return m_quit; }
    QAction *checkForUpdates() const { return m_checkForUpdates; }

    // Act on the session and the settings.
    QAction *showFiles() const { return m_showFiles; }
    QAction *copyTranscript() const { return m_copyTranscript; }
    QAction *transcribeRecording() const { return m_transcribeRecording; }
    QAction *alwaysOnTop() const { return m_alwaysOnTop; }
    QAction *saveRecording() const { return m_saveRecording; }
    QAction *smallerText() const { return m_smallerText; }
    QAction *biggerText() const { return m_biggerText; }
    QAction *resetText() const { return m_resetText; }
    QAction *toggleAppearance() const { return m_toggleAppearance; }
    // "Match system", "Light" and "Dark", one of them checked.
    QList<QAction *> appearanceChoices() const;

    // What the light/dark toggle switches to from `current`, given whether dark is shown now.
    static AppSettings::Appearance toggled(AppSettings::Appearance current, bool shownDark);
    // The toggle's icon offers the other scheme than the one shown.
    void setShownDark(bool dark);

private:
    QAction *make(const QString &text, const QString &iconText, int icon);
    void copyTranscriptToClipboard();
    void refreshAppearanceChoice();

    AppSettings &m_appSettings;
    SessionController &m_controller;

    QAction *m_settings;
    QAction *m_jobContext;
    QAction *m_contextDocuments;
    QAction *m_setupGuide;
    QAction *m_reviewSession;
    QAction *m_quit;
    QAction *m_checkForUpdates;
    QAction *m_showFiles;
    QAction *m_copyTranscript;
    QAction *m_transcribeRecording;
    QAction *m_alwaysOnTop;
    QAction *m_saveRecording;
    QAction *m_smallerText;
    QAction *m_biggerText;
    QAction *m_resetText;
    QAction *m_toggleAppearance;
    QActionGroup *m_appearanceGroup;
};
