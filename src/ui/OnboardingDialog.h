#pragma once

#include <QDialog>

class ApiKeyCheck;
class ApiKeyField;
class AppSettings;
class AudioEnvironment;
class LevelMeter;
class QLabel;
class QListWidget;
class QPushButton;
class QStackedWidget;
class SessionController;

// The first-run guide: the API key, the context documents, a check that the sound server
// and a microphone are there (with a live level meter), then done. Shown while onboarding
// has not been completed.
class OnboardingDialog : public QDialog
{
    Q_OBJECT
public:
    enum Page { keyPage, contextPage, audioPage, donePage, pageCount };

    OnboardingDialog(AppSettings &settings, SessionController &controller, AudioEnvironment &audio,
                     QWidget *parent = nullptr);
    ~OnboardingDialog() override;

    int currentPage() const;
    void goToPage(int page);
    void next();
    void back();
    // Loads the files as the context documents, replacing what was there.
    // Reads the files on a worker thread; what they yield replaces the context.
    void loadContextFiles(const QStringList &paths);
    bool isReadingContext() const { return m_readingContext; }

    ApiKeyField *apiKeyField() const { return m_key; }
    QPushButton *nextButton() const { return m_next; }
    QPushButton *backButton() const { return m_back; }
    QString soundServerText() const;
    QString microphoneText() const;
    LevelMeter *micMeter() const { return m_meter; }
    // Asks the service whether the key in the field works; the answer shows under it.
    void checkKey();
    ApiKeyCheck *keyCheck() const { return m_keyCheck; }
    QPushButton *checkKeyButton() const { return m_checkKey; }
    QString keyStatusText() const;
    // What reading the context documents reported (nothing read, files without text, cuts).
    QString contextNoteText() const;
    QPushButton *sampleInterviewButton() const { return m_sampleInterview; }

signals:
    // "Try a sample interview": the user wants to see it work before adding a key.
    void sampleInterviewRequested();

protected:
    void done(int result) override;

private:
    QWidget *buildKeyPage();
    QWidget *buildContextPage();
    QWidget *buildAudioPage();
    QWidget *buildDonePage();
    void pageChanged();
    void runAudioCheck();
    void stopAudioCheck();
    void refreshContextList();
    void chooseContextFiles();

    AppSettings &m_settings;
    SessionController &m_controller;
    AudioEnvironment &m_audio;
    QStackedWidget *m_pages;
    QLabel *m_step;
    QPushButton *m_back;
    QPushButton *m_next;
    ApiKeyField *m_key = nullptr;
    QListWidget *m_contextList = nullptr;
    QLabel *m_contextNote = nullptr;
    ApiKeyCheck *m_keyCheck = nullptr;
    QPushButton *m_checkKey = nullptr;
    QPushButton *m_sampleInterview = nullptr;
    QLabel *m_keyStatus = nullptr;
    QLabel *m_server = nullptr;
    QLabel *m_mic = nullptr;
    LevelMeter *m_meter = nullptr;
    bool m_metering = false;
    bool m_readingContext = false;
};
