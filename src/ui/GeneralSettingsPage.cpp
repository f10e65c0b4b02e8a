#include "ui/GeneralSettingsPage.h"

#include "settings/AppSettings.h"
#include "ui/ApiKeyField.h"
#include "ui/TextSize.h"

#include <QCheckBox>
#include <QComboBox>
#include <QDoubleSpinBox>
#include <QFontDatabase>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QVBoxLayout>

GeneralSettingsPage::GeneralSettingsPage(AppSettings &settings, QWidget *parent)
    : SettingsPage(tr("&General"), parent)
    , m_settings(settings)
{
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(buildAccountGroup());
    layout->addWidget(buildLookGroup());
    layout->addStretch(1);
    load();

    connect(m_apiKey, &ApiKeyField::editingFinished, this, &GeneralSettingsPage::apply);
    connect(&m_settings, &AppSettings::apiKeyChanged, this, [this](const QString &key) {
        if (!m_apiKey->lineEdit()->hasFocus())
            m_apiKey->setText(key);
    });
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
}

QWidget *GeneralSettingsPage::buildAccountGroup()
{
    auto *group = new QGroupBox(tr("OpenAI account"), this);
    auto *layout = new QVBoxLayout(group);
    auto *form = new QFormLayout;
    m_apiKey = new ApiKeyField(group);
    form->addRow(tr("OpenAI API &key:"), m_apiKey);
    layout->addLayout(form);
    layout->addWidget(hint(tr("Kept in a file only you can read, in ~/.local/share/Ketterbloom. "
                              "Without one, the OPENAI_API_KEY environment variable is used."),
                           group));
    return group;
}

QWidget *GeneralSettingsPage::buildLookGroup()
{
    auto *group = new QGroupBox(tr("Look"), this);
    auto *layout = new QVBoxLayout(group);
    auto *form = new QFormLayout;
    m_fontFamily = new QComboBox(group);
    m_fontFamily->addItem(tr("System font"), QString());
    m_fontFamily->addItem(tr("Monospaced"), QString::fromLatin1(AppSettings::monospacedFontFamily));
    for (const QString &family : QFontDatabase::families())
        m_fontFamily->addItem(family, family);
    m_fontSize = new QDoubleSpinBox(group);
    m_fontSize->setRange(TextSize::minimum, TextSize::maximum);
    m_fontSize->setDecimals(0);
    m_fontSize->setSuffix(tr(" pt"));
    m_appearance = new QComboBox(group);
    m_appearance->addItem(tr("Match system"), int(AppSettings::Appearance::system));
    m_appearance->addItem(tr("Light"), int(AppSettings::Appearance::light));
    m_appearance->addItem(tr("Dark"), int(AppSettings::Appearance::dark));
    m_onTop = new QCheckBox(tr("Keep the window on &top of other windows"), group);
    form->addRow(tr("Answer &font:"), m_fontFamily);
    form->addRow(tr("Answer text si&ze:"), m_fontSize);
    form->addRow(tr("&Appearance:"), m_appearance);
    layout->addLayout(form);
    layout->addWidget(m_onTop);
    return group;
}

void GeneralSettingsPage::load()
{
    m_apiKey->setText(m_settings.apiKey());
    // A family that is not installed stays chosen, and says so.
    const QString family = m_settings.fontFamily();
    int familyIndex = m_fontFamily->findData(family);
    if (familyIndex < 0) {
        m_fontFamily->addItem(tr("%1 (not installed)").arg(family), family);
        familyIndex = m_fontFamily->count() - 1;
    }
    setQuietly(m_fontFamily, &QComboBox::setCurrentIndex, familyIndex);
    setQuietly(m_fontSize, &QDoubleSpinBox::setValue, m_settings.fontSize());
    setQuietly(m_appearance, &QComboBox::setCurrentIndex, m_appearance->findData(int(m_settings.appearance())));
    setQuietly(m_onTop, &QCheckBox::setChecked, m_settings.alwaysOnTop());
}

void GeneralSettingsPage::apply()
{
    if (m_apiKey->text() != m_settings.apiKey())
        m_settings.setApiKey(m_apiKey->text());
}
