#pragma once

#include "settings/AppSettings.h"

#include <QDialog>

class ApiKeyField;
class AudioEnvironment;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;
class QLineEdit;
class QPlainTextEdit;
class QRadioButton;
class QSpinBox;
class QTabWidget;
class SessionController;
class TapQueries;

// Every setting the user may change. Changes are written through at once; there is no
// save step (the API key is written when its field is left or the dialog closes).
class RecordingSourceRow;

class SettingsDialog : public QDialog
{
    Q_OBJECT
public:
    SettingsDialog(AppSettings &settings, SessionController &controller, TapQueries &taps,
                   AudioEnvironment &audio, QWidget *parent = nullptr);

    QTabWidget *tabs() const { return m_tabs; }
    // Adds a page of settings after the built-in ones (General, Audio, Model); returns its
    // tab index. The dialog takes ownership.
    int addPage(QWidget *page, const QString &title);
    ApiKeyField *apiKeyField() const { return m_apiKey; }
    QRadioButton *meetingSourceButton(AppSettings::MeetingSource source) const;
    QComboBox *appCombo() const { return m_apps; }
    QComboBox *deviceCombo() const { return m_devices; }
    QSpinBox *micChannelSpin() const { return m_micChannel; }
    QComboBox *meetingChannelCombo() const { return m_meetingChannel; }
    QComboBox *streamCombo() const { return m_stream; }
    QPlainTextEdit *promptEdit() const { return m_prompt; }
    QDoubleSpinBox *fontSizeSpin() const { return m_fontSize; }
    QComboBox *appearanceCombo() const { return m_appearance; }
    QCheckBox *alwaysOnTopCheck() const { return m_onTop; }

    // Lists the applications (playing now first) and input devices again.
    void refreshAudioLists();
    void copyTranscript();

protected:
    void done(int result) override;

private:
    QWidget *buildGeneralTab();
    QWidget *buildAccountGroup(QWidget *page);
    QWidget *buildAudioTab();
    QWidget *buildModelTab();
    QWidget *buildLookGroup(QWidget *page);
    void saveApiKey();
    void refreshMeetingSource();
    void refreshChannels();

    AppSettings &m_settings;
    SessionController &m_controller;
    TapQueries &m_taps;
    AudioEnvironment &m_audio;

    QTabWidget *m_tabs;
    ApiKeyField *m_apiKey = nullptr;
    QRadioButton *m_sourceSystem = nullptr;
    QRadioButton *m_sourceApp = nullptr;
    QRadioButton *m_sourceDevice = nullptr;
    RecordingSourceRow *m_sourceRecording = nullptr;
    QComboBox *m_apps = nullptr;
    QComboBox *m_devices = nullptr;
    QSpinBox *m_micChannel = nullptr;
    QComboBox *m_meetingChannel = nullptr;
    QComboBox *m_stream = nullptr;
    QCheckBox *m_saveAudio = nullptr;
    QCheckBox *m_transcribe = nullptr;
    QLineEdit *m_model = nullptr;
    QLineEdit *m_transcribeModel = nullptr;
    QDoubleSpinBox *m_vad = nullptr;
    QSpinBox *m_prefix = nullptr;
    QSpinBox *m_silence = nullptr;
    QDoubleSpinBox *m_followUp = nullptr;
    QPlainTextEdit *m_prompt = nullptr;
    QComboBox *m_fontFamily = nullptr;
    QDoubleSpinBox *m_fontSize = nullptr;
    QComboBox *m_appearance = nullptr;
    QCheckBox *m_onTop = nullptr;
};
