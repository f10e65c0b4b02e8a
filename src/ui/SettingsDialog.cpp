#include "ui/SettingsDialog.h"

#include "session/SessionController.h"
#include "session/TapQueries.h"
#include "settings/InstructionsBuilder.h"
#include "ui/AnswerServiceCheckBox.h"
#include "ui/RecordingSourceRow.h"
#include "ui/AnswersSettingsPage.h"
#include "ui/ApiKeyField.h"
#include "ui/AudioEnvironment.h"
#include "ui/TextSize.h"

#include <QApplication>
#include <QButtonGroup>
#include <QCheckBox>
#include <QClipboard>
#include <QComboBox>
#include <QDialogButtonBox>
#include <QDoubleSpinBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QTabWidget>
#include <QVBoxLayout>

#include <functional>

namespace {
QLabel *hint(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    label->setForegroundRole(QPalette::PlaceholderText);
    return label;
}

template<typename Widget, typename Setter, typename Value>
void setQuietly(Widget *widget, Setter setter, Value value)
{
    const QSignalBlocker block(widget);
    std::invoke(setter, widget, value);
}
} // namespace

SettingsDialog::SettingsDialog(AppSettings &settings, SessionController &controller, TapQueries &taps,
                               AudioEnvironment &audio, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_taps(taps)
    , m_audio(audio)
    , m_tabs(new QTabWidget(this))
{
    setWindowTitle(tr("Settings"));
    setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(this);
    m_tabs->addTab(buildGeneralTab(), tr("&General"));
    m_tabs->addTab(buildAudioTab(), tr("A&udio"));
    m_tabs->addTab(buildModelTab(), tr("&Model"));
    m_tabs->addTab(new AnswersSettingsPage(m_settings, m_controller, this), tr("A&nswers"));
    layout->addWidget(m_tabs, 1);

    auto *bottom = new QHBoxLayout;
    auto *copy = new QPushButton(QStringLiteral("Copy transcript"), this);
    copy->setToolTip(tr("Copy every question and answer of this run as plain text"));
    connect(copy, &QPushButton::clicked, this, &SettingsDialog::copyTranscript);
    bottom->addWidget(copy);
    bottom->addStretch(1);
    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    bottom->addWidget(buttons);
    layout->addLayout(bottom);
    // As large as the fullest page needs, so no page is mostly empty space.
    resize(qMax(520, sizeHint().width()), qMax(420, sizeHint().height()));
}

int SettingsDialog::addPage(QWidget *page, const QString &title)
{
    return m_tabs->addTab(page, title);
}

QWidget *SettingsDialog::buildGeneralTab()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(buildAccountGroup(page));
    layout->addWidget(buildLookGroup(page));
    layout->addStretch(1);
    return page;
}

QWidget *SettingsDialog::buildAccountGroup(QWidget *parent)
{
    auto *page = new QGroupBox(tr("OpenAI account"), parent);
    auto *layout = new QVBoxLayout(page);
    auto *form = new QFormLayout;
    m_apiKey = new ApiKeyField(page);
    m_apiKey->setText(m_settings.apiKey());
    form->addRow(tr("OpenAI API &key:"), m_apiKey);
    layout->addLayout(form);
    layout->addWidget(hint(tr("Kept in a file only you can read, in ~/.local/share/Ketterbloom. "
                              "Without one, the OPENAI_API_KEY environment variable is used."),
                           page));
    connect(m_apiKey, &ApiKeyField::editingFinished, this, &SettingsDialog::saveApiKey);
    connect(&m_settings, &AppSettings::apiKeyChanged, this, [this](const QString &key) {
        if (!m_apiKey->lineEdit()->hasFocus())
            m_apiKey->setText(key);
    });
    return page;
}

QRadioButton *SettingsDialog::meetingSourceButton(AppSettings::MeetingSource source) const
{
    switch (source) {
    case AppSettings::MeetingSource::systemOutput: return m_sourceSystem;
    case AppSettings::MeetingSource::singleApp: return m_sourceApp;
    case AppSettings::MeetingSource::audioDevice: return m_sourceDevice;
    case AppSettings::MeetingSource::recording: return m_sourceRecording->radio();
    }
    return nullptr;
}

QWidget *SettingsDialog::buildAudioTab()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);

    auto *meeting = new QGroupBox(tr("Meeting audio comes from"), page);
    auto *meetingLayout = new QVBoxLayout(meeting);
    m_sourceSystem = new QRadioButton(tr("&Whole computer (everything it plays)"), meeting);
    m_sourceApp = new QRadioButton(tr("&One application:"), meeting);
    m_sourceDevice = new QRadioButton(tr("An audio &input device (meeting on one of its channels)"), meeting);
    auto *group = new QButtonGroup(this);
    group->addButton(m_sourceSystem, int(AppSettings::MeetingSource::systemOutput));
    group->addButton(m_sourceApp, int(AppSettings::MeetingSource::singleApp));
    group->addButton(m_sourceDevice, int(AppSettings::MeetingSource::audioDevice));
    m_sourceRecording = new RecordingSourceRow(m_settings, meeting);
    group->addButton(m_sourceRecording->radio(), int(AppSettings::MeetingSource::recording));
    m_apps = new QComboBox(meeting);
    m_apps->setAccessibleName(tr("Application to listen to"));
    auto *refreshApps = new QPushButton(tr("Refresh"), meeting);
    refreshApps->setAccessibleName(tr("Refresh applications and devices"));
    auto *appRow = new QHBoxLayout;
    appRow->addWidget(m_sourceApp);
    appRow->addWidget(m_apps, 1);
    appRow->addWidget(refreshApps);
    meetingLayout->addWidget(m_sourceSystem);
    meetingLayout->addLayout(appRow);
    meetingLayout->addWidget(m_sourceDevice);
    meetingLayout->addWidget(m_sourceRecording);
    layout->addWidget(meeting);

    auto *deviceBox = new QGroupBox(tr("Input device"), page);
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
    layout->addWidget(deviceBox);

    auto *streamForm = new QFormLayout;
    m_stream = new QComboBox(page);
    m_stream->addItem(tr("Meeting audio only"), int(AppSettings::StreamSource::meetingOnly));
    m_stream->addItem(tr("My microphone only"), int(AppSettings::StreamSource::micOnly));
    m_stream->addItem(tr("Both, mixed"), int(AppSettings::StreamSource::both));
    m_stream->setAccessibleName(tr("Audio streamed to the model"));
    streamForm->addRow(tr("&Streamed to the model:"), m_stream);
    layout->addLayout(streamForm);
    m_saveAudio = new QCheckBox(tr("Save a .&wav recording of each session"), page);
    m_transcribe = new QCheckBox(tr("T&ranscribe my answers on this computer"), page);
    layout->addWidget(m_saveAudio);
    layout->addWidget(m_transcribe);
    layout->addWidget(new AnswerServiceCheckBox(m_settings, page));
    layout->addStretch(1);

    refreshAudioLists();
    meetingSourceButton(m_settings.meetingSource())->setChecked(true);
    m_stream->setCurrentIndex(m_stream->findData(int(m_settings.streamSource())));
    m_saveAudio->setChecked(m_settings.saveAudio());
    m_transcribe->setChecked(m_settings.transcribeMyAnswers());
    refreshMeetingSource();

    connect(group, &QButtonGroup::idClicked, this, [this](int id) {
        m_settings.setMeetingSource(AppSettings::MeetingSource(id));
        refreshMeetingSource();
    });
    connect(refreshApps, &QPushButton::clicked, this, &SettingsDialog::refreshAudioLists);
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
    return page;
}

void SettingsDialog::refreshAudioLists()
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

void SettingsDialog::refreshChannels()
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

void SettingsDialog::refreshMeetingSource()
{
    const auto source = m_settings.meetingSource();
    m_apps->setEnabled(source == AppSettings::MeetingSource::singleApp);
    m_meetingChannel->setEnabled(source == AppSettings::MeetingSource::audioDevice);
    m_sourceRecording->setActive(source == AppSettings::MeetingSource::recording);
}

QWidget *SettingsDialog::buildModelTab()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    auto *form = new QFormLayout;
    m_model = new QLineEdit(m_settings.model(), page);
    m_transcribeModel = new QLineEdit(m_settings.transcribeModel(), page);
    m_vad = new QDoubleSpinBox(page);
    m_vad->setRange(0.0, 1.0);
    m_vad->setSingleStep(0.05);
    m_vad->setDecimals(2);
    m_vad->setValue(m_settings.vadThreshold());
    m_prefix = new QSpinBox(page);
    m_prefix->setRange(0, 5000);
    m_prefix->setSingleStep(50);
    m_prefix->setSuffix(tr(" ms"));
    m_prefix->setValue(m_settings.prefixPaddingMs());
    m_silence = new QSpinBox(page);
    m_silence->setRange(100, 10000);
    m_silence->setSingleStep(50);
    m_silence->setSuffix(tr(" ms"));
    m_silence->setValue(m_settings.silenceDurationMs());
    m_followUp = new QDoubleSpinBox(page);
    m_followUp->setRange(0.0, 120.0);
    m_followUp->setSingleStep(0.5);
    m_followUp->setDecimals(1);
    m_followUp->setSuffix(tr(" s"));
    m_followUp->setValue(m_settings.followUpWindow());
    form->addRow(tr("Realtime &model:"), m_model);
    form->addRow(tr("&Transcription model:"), m_transcribeModel);
    form->addRow(tr("Voice detection &threshold:"), m_vad);
    form->addRow(tr("Audio kept &before speech:"), m_prefix);
    form->addRow(tr("&Silence that ends a question:"), m_silence);
    form->addRow(tr("&Follow-up window:"), m_followUp);
    layout->addLayout(form);

    auto *promptRow = new QHBoxLayout;
    auto *promptLabel = new QLabel(tr("System &prompt:"), page);
    auto *reset = new QPushButton(tr("Reset to Default"), page);
    promptRow->addWidget(promptLabel);
    promptRow->addStretch(1);
    promptRow->addWidget(reset);
    layout->addLayout(promptRow);
    m_prompt = new QPlainTextEdit(m_settings.systemPrompt(), page);
    m_prompt->setTabChangesFocus(true);
    m_prompt->setAccessibleName(tr("System prompt"));
    promptLabel->setBuddy(m_prompt);
    layout->addWidget(m_prompt, 1);
    layout->addWidget(hint(tr("Changes apply at the next Start."), page));

    connect(m_model, &QLineEdit::textEdited, &m_settings, &AppSettings::setModel);
    connect(m_transcribeModel, &QLineEdit::textEdited, &m_settings, &AppSettings::setTranscribeModel);
    connect(m_vad, &QDoubleSpinBox::valueChanged, &m_settings, &AppSettings::setVadThreshold);
    connect(m_prefix, &QSpinBox::valueChanged, &m_settings, &AppSettings::setPrefixPaddingMs);
    connect(m_silence, &QSpinBox::valueChanged, &m_settings, &AppSettings::setSilenceDurationMs);
    connect(m_followUp, &QDoubleSpinBox::valueChanged, &m_settings, &AppSettings::setFollowUpWindow);
    connect(m_prompt, &QPlainTextEdit::textChanged, this,
            [this] { m_settings.setSystemPrompt(m_prompt->toPlainText()); });
    connect(reset, &QPushButton::clicked, this,
            [this] { m_prompt->setPlainText(InstructionsBuilder::defaultSystemPrompt()); });
    return page;
}

QWidget *SettingsDialog::buildLookGroup(QWidget *parent)
{
    auto *page = new QGroupBox(tr("Look"), parent);
    auto *layout = new QVBoxLayout(page);
    auto *form = new QFormLayout;
    m_fontFamily = new QComboBox(page);
    m_fontFamily->addItem(tr("System font"), QString());
    m_fontFamily->addItem(tr("Monospaced"), QString::fromLatin1(AppSettings::monospacedFontFamily));
    for (const QString &family : QFontDatabase::families())
        m_fontFamily->addItem(family, family);
    const QString family = m_settings.fontFamily();
    int familyIndex = m_fontFamily->findData(family);
    if (familyIndex < 0) {
        m_fontFamily->addItem(tr("%1 (not installed)").arg(family), family);
        familyIndex = m_fontFamily->count() - 1;
    }
    m_fontFamily->setCurrentIndex(familyIndex);
    m_fontSize = new QDoubleSpinBox(page);
    m_fontSize->setRange(TextSize::minimum, TextSize::maximum);
    m_fontSize->setDecimals(0);
    m_fontSize->setSuffix(tr(" pt"));
    m_fontSize->setValue(m_settings.fontSize());
    m_appearance = new QComboBox(page);
    m_appearance->addItem(QStringLiteral("Match system"), int(AppSettings::Appearance::system));
    m_appearance->addItem(QStringLiteral("Light"), int(AppSettings::Appearance::light));
    m_appearance->addItem(QStringLiteral("Dark"), int(AppSettings::Appearance::dark));
    m_appearance->setCurrentIndex(m_appearance->findData(int(m_settings.appearance())));
    m_onTop = new QCheckBox(tr("Keep the window on &top of other windows"), page);
    m_onTop->setChecked(m_settings.alwaysOnTop());
    form->addRow(tr("Answer &font:"), m_fontFamily);
    form->addRow(tr("Answer text si&ze:"), m_fontSize);
    form->addRow(tr("&Appearance:"), m_appearance);
    layout->addLayout(form);
    layout->addWidget(m_onTop);

    connect(m_fontFamily, &QComboBox::activated, this,
            [this](int index) { m_settings.setFontFamily(m_fontFamily->itemData(index).toString()); });
    connect(m_fontSize, &QDoubleSpinBox::valueChanged, &m_settings, &AppSettings::setFontSize);
    connect(m_appearance, &QComboBox::activated, this, [this](int index) {
        m_settings.setAppearance(AppSettings::Appearance(m_appearance->itemData(index).toInt()));
    });
    connect(m_onTop, &QCheckBox::toggled, &m_settings, &AppSettings::setAlwaysOnTop);
    connect(&m_settings, &AppSettings::fontSizeChanged, m_fontSize,
            [this](double size) { setQuietly(m_fontSize, &QDoubleSpinBox::setValue, size); });
    connect(&m_settings, &AppSettings::appearanceChanged, m_appearance, [this](AppSettings::Appearance value) {
        setQuietly(m_appearance, &QComboBox::setCurrentIndex, m_appearance->findData(int(value)));
    });
    connect(&m_settings, &AppSettings::alwaysOnTopChanged, m_onTop,
            [this](bool on) { setQuietly(m_onTop, &QCheckBox::setChecked, on); });
    return page;
}

void SettingsDialog::saveApiKey()
{
    if (m_apiKey->text() != m_settings.apiKey())
        m_settings.setApiKey(m_apiKey->text());
}

void SettingsDialog::copyTranscript()
{
    QApplication::clipboard()->setText(m_controller.transcriptForExport());
}

void SettingsDialog::done(int result)
{
    saveApiKey();
    QDialog::done(result);
}
