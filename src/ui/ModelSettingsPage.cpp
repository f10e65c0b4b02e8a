#include "ui/ModelSettingsPage.h"

#include "settings/AppSettings.h"
#include "settings/InstructionsBuilder.h"

#include <QDoubleSpinBox>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

ModelSettingsPage::ModelSettingsPage(AppSettings &settings, QWidget *parent)
    : SettingsPage(tr("&Model"), parent)
    , m_settings(settings)
    , m_model(new QLineEdit(this))
    , m_transcribeModel(new QLineEdit(this))
    , m_vad(new QDoubleSpinBox(this))
    , m_prefix(new QSpinBox(this))
    , m_silence(new QSpinBox(this))
    , m_followUp(new QDoubleSpinBox(this))
{
    auto *layout = new QVBoxLayout(this);
    auto *form = new QFormLayout;
    m_vad->setRange(0.0, 1.0);
    m_vad->setSingleStep(0.05);
    m_vad->setDecimals(2);
    m_prefix->setRange(0, 5000);
    m_prefix->setSingleStep(50);
    m_prefix->setSuffix(tr(" ms"));
    m_silence->setRange(100, 10000);
    m_silence->setSingleStep(50);
    m_silence->setSuffix(tr(" ms"));
    m_followUp->setRange(0.0, 120.0);
    m_followUp->setSingleStep(0.5);
    m_followUp->setDecimals(1);
    m_followUp->setSuffix(tr(" s"));
    form->addRow(tr("Realtime &model:"), m_model);
    form->addRow(tr("&Transcription model:"), m_transcribeModel);
    form->addRow(tr("Voice detection &threshold:"), m_vad);
    form->addRow(tr("Audio kept &before speech:"), m_prefix);
    form->addRow(tr("&Silence that ends a question:"), m_silence);
    form->addRow(tr("&Follow-up window:"), m_followUp);
    layout->addLayout(form);

    auto *promptRow = new QHBoxLayout;
    auto *promptLabel = new QLabel(tr("System &prompt:"), this);
    auto *reset = new QPushButton(tr("Reset to Default"), this);
    promptRow->addWidget(promptLabel);
    promptRow->addStretch(1);
    promptRow->addWidget(reset);
    layout->addLayout(promptRow);
    m_prompt = new QPlainTextEdit(this);
    m_prompt->setTabChangesFocus(true);
    m_prompt->setAccessibleName(tr("System prompt"));
    promptLabel->setBuddy(m_prompt);
    layout->addWidget(m_prompt, 1);
    layout->addWidget(hint(tr("Changes apply at the next Start."), this));
    load();

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
}

void ModelSettingsPage::load()
{
    setQuietly(m_model, &QLineEdit::setText, m_settings.model());
    setQuietly(m_transcribeModel, &QLineEdit::setText, m_settings.transcribeModel());
    setQuietly(m_vad, &QDoubleSpinBox::setValue, m_settings.vadThreshold());
    setQuietly(m_prefix, &QSpinBox::setValue, m_settings.prefixPaddingMs());
    setQuietly(m_silence, &QSpinBox::setValue, m_settings.silenceDurationMs());
    setQuietly(m_followUp, &QDoubleSpinBox::setValue, m_settings.followUpWindow());
    setQuietly(m_prompt, &QPlainTextEdit::setPlainText, m_settings.systemPrompt());
}
