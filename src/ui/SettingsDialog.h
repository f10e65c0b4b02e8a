#pragma once

#include <QDialog>
#include <QList>

class AnswersSettingsPage;
class AppSettings;
class AudioEnvironment;
class AudioSettingsPage;
class GeneralSettingsPage;
class ModelSettingsPage;
class QTabWidget;
class SessionController;
class SettingsPage;
class TapQueries;

// Every setting the user may change, one page per tab. Changes are written through at
// once; there is no save step (the API key is written when its field is left or the dialog
// closes, when every page applies what it kept back).
class SettingsDialog : public QDialog
{
    Q_OBJECT
public:
    SettingsDialog(AppSettings &settings, SessionController &controller, TapQueries &taps,
                   AudioEnvironment &audio, QWidget *parent = nullptr);

    QTabWidget *tabs() const { return m_tabs; }
    // Adds a page after the built-in ones (General, Audio, Model, Answers), under its title;
    // returns its tab index. The dialog takes ownership.
    int addPage(SettingsPage *page);
    const QList<SettingsPage *> &pages() const { return m_pages; }

    GeneralSettingsPage *generalPage() const { return m_general; }
    AudioSettingsPage *audioPage() const { return m_audio; }
    ModelSettingsPage *modelPage() const { return m_model; }
    AnswersSettingsPage *answersPage() const { return m_answers; }

    void copyTranscript();

protected:
    void done(int result) override;

private:
    SessionController &m_controller;
    QTabWidget *m_tabs;
    QList<SettingsPage *> m_pages;
    GeneralSettingsPage *m_general;
    AudioSettingsPage *m_audio;
    ModelSettingsPage *m_model;
    AnswersSettingsPage *m_answers;
};
