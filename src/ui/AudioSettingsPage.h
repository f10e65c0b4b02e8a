#pragma once

#include "settings/AppSettings.h"
#include "ui/SettingsPage.h"

class AudioEnvironment;
class QButtonGroup;
class QCheckBox;
class QComboBox;
class QRadioButton;
class QSpinBox;
class RecordingSourceRow;
class TapQueries;

// Settings ▸ Audio: where the meeting audio comes from (the whole computer, one
// application, a channel of an input device, a recording), the input device's channels,
// what is streamed to the model, and whether a recording is kept and your answers are
// transcribed.
class AudioSettingsPage : public SettingsPage
{
    Q_OBJECT
public:
    AudioSettingsPage(AppSettings &settings, TapQueries &taps, AudioEnvironment &audio, QWidget *parent = nullptr);

    void load() override;
    // Lists the applications (playing now first) and input devices again.
    void refreshAudioLists();

    QRadioButton *meetingSourceButton(AppSettings::MeetingSource source) const;
    QComboBox *appCombo() const { return m_apps; }
    QComboBox *deviceCombo() const { return m_devices; }
    QSpinBox *micChannelSpin() const { return m_micChannel; }
    QComboBox *meetingChannelCombo() const { return m_meetingChannel; }
    QComboBox *streamCombo() const { return m_stream; }

private:
    QWidget *buildMeetingGroup();
    QWidget *buildDeviceGroup();
    void refreshMeetingSource();
    void refreshChannels();

    AppSettings &m_settings;
    TapQueries &m_taps;
    AudioEnvironment &m_audio;
    QButtonGroup *m_sources = nullptr;
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
};
