#pragma once

#include "ui/SettingsPage.h"

class AppSettings;
class QDoubleSpinBox;
class QLineEdit;
class QPlainTextEdit;
class QSpinBox;

// Settings ▸ Model: the realtime and transcription models, the voice detection that ends a
// question, the follow-up window, and the system prompt. They apply at the next Start.
class ModelSettingsPage : public SettingsPage
{
    Q_OBJECT
public:
    explicit ModelSettingsPage(AppSettings &settings, QWidget *parent = nullptr);

    void load() override;

    QPlainTextEdit *promptEdit() const { return m_prompt; }

private:
    AppSettings &m_settings;
    QLineEdit *m_model;
    QLineEdit *m_transcribeModel;
    QDoubleSpinBox *m_vad;
    QSpinBox *m_prefix;
    QSpinBox *m_silence;
    QDoubleSpinBox *m_followUp;
    QPlainTextEdit *m_prompt = nullptr;
};
