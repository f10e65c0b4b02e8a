#include "ui/AudioSettingsPage.h"

#include "session/TapQueries.h"
#include "ui/AnswerServiceCheckBox.h"
#include "ui/AudioEnvironment.h"
#include "ui/RecordingSourceRow.h"

#include <QButtonGroup>
#include <QCheckBox>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QPushButton>
#include <QRadioButton>
#include <QSpinBox>
#include <QVBoxLayout>

AudioSettingsPage::AudioSettingsPage(AppSettings &settings, TapQueries &taps, AudioEnvironment &audio,
                                     QWidget *parent)
    : SettingsPage(tr("A&udio"), parent)
    , m_settings(settings)
    , m_taps(taps)
    , m_audio(audio)
{
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(buildMeetingGroup());
    layout->addWidget(buildDeviceGroup());

    auto *streamForm = new QFormLayout;
    m_stream = new QComboBox(this);
    m_stream->addItem(tr("Meeting audio only"), int(AppSettings::StreamSource::meetingOnly));
    m_stream->addItem(tr("My microphone only"), int(AppSettings::StreamSource::micOnly));
    m_stream->addItem(tr("Both, mixed"), int(AppSettings::StreamSource::both));
    m_stream->setAccessibleName(tr("Audio streamed to the model"));
    streamForm->addRow(tr("&Streamed to the model:"), m_stream);
    layout->addLayout(streamForm);
    m_saveAudio = new QCheckBox(tr("Save a .&wav recording of each session"), this);
    m_transcribe = new QCheckBox(tr("T&ranscribe my answers on this computer"), this);
    layout->addWidget(m_saveAudio);
    layout->addWidget(m_transcribe);
    layout->addWidget(new AnswerServiceCheckBox(m_settings, this));
    layout->addStretch(1);
    load();

    connect(m_sources, &QButtonGroup::idClicked, this, [this](int id) {
        m_settings.setMeetingSource(AppSettings::MeetingSource(id));
        refreshMeetingSource();
    });
    connect(m_apps, &QComboBox::activated, this, [this](int index) {
        m_settings.setTappedBundleID(m_apps->itemData(index).toString());
    });
    connect(m_devices, &QComboBox::activated, this, [this](int index) {
        m_settings.setDeviceUID(m_devices->itemData(index).toString());
        refreshChannels();
    });
    connect(m_micChannel, &QSpinBox::valueChanged, this, [this](int shown) { m_settings.setMicChannel(shown - 1); });
    connect(m_meetingChannel, &QComboBox::activated, this, [this](int index) {
        m_settings.setMeetingChannel(m_meetingChannel->itemData(index).toInt());
    });
    connect(m_stream, &QComboBox::activated, this, [this](int index) {
        m_settings.setStreamSource(AppSettings::StreamSource(m_stream->itemData(index).toInt()));
    });
    connect(m_saveAudio, &QCheckBox::toggled, &m_settings, &AppSettings::setSaveAudio);
    connect(m_transcribe, &QCheckBox::toggled, &m_settings, &AppSettings::setTranscribeMyAnswers);
    connect(&m_settings, &AppSettings::saveAudioChanged, m_saveAudio,
            [this](bool on) { setQuietly(m_saveAudio, &QCheckBox::setChecked, on); });
    connect(&m_settings, &AppSettings::transcribeMyAnswersChanged, m_transcribe,
            [this](bool on) { setQuietly(m_transcribe, &QCheckBox::setChecked, on); });
}

QWidget *AudioSettingsPage::buildMeetingGroup()
{
    auto *meeting = new QGroupBox(tr("Meeting audio comes from"), this);
    auto *meetingLayout = new QVBoxLayout(meeting);
    m_sourceSystem = new QRadioButton(tr("&Whole computer (everything it plays)"), meeting);
    m_sourceApp = new QRadioButton(tr("&One application:"), meeting);
    m_sourceDevice = new QRadioButton(tr("An audio &input device (meeting on one of its channels)"), meeting);
    m_sources = new QButtonGroup(this);
    m_sources->addButton(m_sourceSystem, int(AppSettings::MeetingSource::systemOutput));
    m_sources->addButton(m_sourceApp, int(AppSettings::MeetingSource::singleApp));
    m_sources->addButton(m_sourceDevice, int(AppSettings::MeetingSource::audioDevice));
    m_sourceRecording = new RecordingSourceRow(m_settings, meeting);
    m_sources->addButton(m_sourceRecording->radio(), int(AppSettings::MeetingSource::recording));
    m_apps = new QComboBox(meeting);
    m_apps->setAccessibleName(tr("Application to listen to"));
    auto *refreshApps = new QPushButton(tr("Refresh"), meeting);
    refreshApps->setAccessibleName(tr("Refresh applications and devices"));
    connect(refreshApps, &QPushButton::clicked, this, &AudioSettingsPage::refreshAudioLists);
    auto *appRow = new QHBoxLayout;
    appRow->addWidget(m_sourceApp);
    appRow->addWidget(m_apps, 1);
    appRow->addWidget(refreshApps);
    meetingLayout->addWidget(m_sourceSystem);
    meetingLayout->addLayout(appRow);
    meetingLayout->addWidget(m_sourceDevice);
    meetingLayout->addWidget(m_sourceRecording);
    return meeting;
}

QWidget *AudioSettingsPage::buildDeviceGroup()
{
    auto *deviceBox = new QGroupBox(tr("Input device"), this);
    auto *deviceForm = new QFormLayout(deviceBox);
    m_devices = new QComboBox(deviceBox);
    m_devices->setAccessibleName(tr("Input device"));
    m_micChannel = new QSpinBox(deviceBox);
    m_micChannel->setAccessibleName(tr("Microphone channel"));
    m_meetingChannel = new QComboBox(deviceBox);
    m_meetingChannel->setAccessibleName(tr("Meeting channel"));
    deviceForm->addRow(tr("&Device:"), m_devices);
    deviceForm->addRow(tr("Your &mic channel:"), m_micChannel);
    deviceForm->addRow(tr("Mee&ting channel:"), m_meetingChannel);
    return deviceBox;
}

void AudioSettingsPage::load()
{
    refreshAudioLists();
    meetingSourceButton(m_settings.meetingSource())->setChecked(true);
    setQuietly(m_stream, &QComboBox::setCurrentIndex, m_stream->findData(int(m_settings.streamSource())));
    setQuietly(m_saveAudio, &QCheckBox::setChecked, m_settings.saveAudio());
    setQuietly(m_transcribe, &QCheckBox::setChecked, m_settings.transcribeMyAnswers());
    refreshMeetingSource();
}

QRadioButton *AudioSettingsPage::meetingSourceButton(AppSettings::MeetingSource source) const
{
    switch (source) {
    case AppSettings::MeetingSource::systemOutput: return m_sourceSystem;
    case AppSettings::MeetingSource::singleApp: return m_sourceApp;
    case AppSettings::MeetingSource::audioDevice: return m_sourceDevice;
    case AppSettings::MeetingSource::recording: return m_sourceRecording->radio();
    }
    return nullptr;
}

void AudioSettingsPage::refreshAudioLists()
{
    {
        const QSignalBlocker block(m_apps);
        m_apps->clear();
        const QString chosen = m_settings.tappedBundleID();
        bool found = false;
        for (const AudioProcessInfo &app : m_taps.selectableApps()) {
            m_apps->addItem(app.objectID != 0 ? tr("%1 (playing)").arg(app.name) : app.name, app.bundleID);
            found = found || app.bundleID == chosen;
        }
        if (!chosen.isEmpty() && !found)
            m_apps->addItem(tr("%1 (not running)").arg(chosen), chosen);
        if (m_apps->count() == 0)
            m_apps->addItem(tr("No application is playing"), QString());
        m_apps->setCurrentIndex(qMax(0, m_apps->findData(chosen)));
    }
    {
        const QSignalBlocker block(m_devices);
        m_devices->clear();
        m_devices->addItem(tr("Default input"), QString());
        const QString chosen = m_settings.deviceUID();
        bool found = chosen.isEmpty();
        for (const AudioEnvironment::InputDevice &device : m_audio.inputDevices()) {
            m_devices->addItem(device.label, device.uid);
            m_devices->setItemData(m_devices->count() - 1, device.channelCount, Qt::UserRole + 1);
            found = found || device.uid == chosen;
        }
        if (!found)
            m_devices->addItem(tr("%1 (not connected)").arg(chosen), chosen);
        m_devices->setCurrentIndex(qMax(0, m_devices->findData(chosen)));
    }
    refreshChannels();
}

void AudioSettingsPage::refreshChannels()
{
    bool ok = false;
    int channels = m_devices->currentData(Qt::UserRole + 1).toInt(&ok);
    if (!ok || channels < 1)
        channels = 2;
    channels = qMax(channels, qMax(m_settings.micChannel(), m_settings.meetingChannel()) + 1);
    {
        const QSignalBlocker block(m_micChannel);
        m_micChannel->setRange(1, channels);
        m_micChannel->setValue(m_settings.micChannel() + 1);
    }
    const QSignalBlocker block(m_meetingChannel);
    m_meetingChannel->clear();
    m_meetingChannel->addItem(tr("None"), -1);
    for (int c = 0; c < channels; ++c)
        m_meetingChannel->addItem(tr("Channel %1").arg(c + 1), c);
    m_meetingChannel->setCurrentIndex(qMax(0, m_meetingChannel->findData(m_settings.meetingChannel())));
}

void AudioSettingsPage::refreshMeetingSource()
{
    const auto source = m_settings.meetingSource();
    m_apps->setEnabled(source == AppSettings::MeetingSource::singleApp);
    m_meetingChannel->setEnabled(source == AppSettings::MeetingSource::audioDevice);
    m_sourceRecording->setActive(source == AppSettings::MeetingSource::recording);
}
