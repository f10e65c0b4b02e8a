#pragma once

#include "ui/SettingsPage.h"

class ApiKeyField;
class AppSettings;
class QCheckBox;
class QComboBox;
class QDoubleSpinBox;

// Settings ▸ General: the OpenAI account (its key, written when the field is left or the
// dialog closes) and the look of the window (answer font and size, appearance, on top).
class GeneralSettingsPage : public SettingsPage
{
    Q_OBJECT
public:
    explicit GeneralSettingsPage(AppSettings &settings, QWidget *parent = nullptr);

    void load() override;
    void apply() override;

    ApiKeyField *apiKeyField() const { return m_apiKey; }
    QComboBox *fontFamilyCombo() const { return m_fontFamily; }
    QDoubleSpinBox *fontSizeSpin() const { return m_fontSize; }
    QComboBox *appearanceCombo() const { return m_appearance; }
    QCheckBox *alwaysOnTopCheck() const { return m_onTop; }

private:
    QWidget *buildAccountGroup();
    QWidget *buildLookGroup();

    AppSettings &m_settings;
    ApiKeyField *m_apiKey = nullptr;
    QComboBox *m_fontFamily = nullptr;
    QDoubleSpinBox *m_fontSize = nullptr;
    QComboBox *m_appearance = nullptr;
    QCheckBox *m_onTop = nullptr;
};
