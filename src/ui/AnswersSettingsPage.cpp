#include "ui/AnswersSettingsPage.h"

#include "session/SessionController.h"
#include "settings/AppSettings.h"

#include <QButtonGroup>
#include <QComboBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QRadioButton>
#include <QSignalBlocker>
#include <QSpinBox>
#include <QVBoxLayout>

namespace {

// The answer language's first choice: no language of its own.
QString sameLanguage()
{
    return AnswersSettingsPage::tr("Same as the question");
}

} // namespace

// The names are also the setting's values and the words the instructions give the model, so
// they stay English.
QList<std::pair<QString, QString>> AnswersSettingsPage::languages()
{
    return {
        {QStringLiteral("Arabic"), QStringLiteral("ar")},     {QStringLiteral("Chinese"), QStringLiteral("zh")},
        {QStringLiteral("Czech"), QStringLiteral("cs")},      {QStringLiteral("Danish"), QStringLiteral("da")},
        {QStringLiteral("Dutch"), QStringLiteral("nl")},      {QStringLiteral("English"), QStringLiteral("en")},
        {QStringLiteral("Finnish"), QStringLiteral("fi")},    {QStringLiteral("French"), QStringLiteral("fr")},
        {QStringLiteral("German"), QStringLiteral("de")},     {QStringLiteral("Greek"), QStringLiteral("el")},
        {QStringLiteral("Hebrew"), QStringLiteral("he")},     {QStringLiteral("Hindi"), QStringLiteral("hi")},
        {QStringLiteral("Hungarian"), QStringLiteral("hu")},  {QStringLiteral("Indonesian"), QStringLiteral("id")},
        {QStringLiteral("Italian"), QStringLiteral("it")},    {QStringLiteral("Japanese"), QStringLiteral("ja")},
        {QStringLiteral("Korean"), QStringLiteral("ko")},     {QStringLiteral("Norwegian"), QStringLiteral("no")},
        {QStringLiteral("Polish"), QStringLiteral("pl")},     {QStringLiteral("Portuguese"), QStringLiteral("pt")},
        {QStringLiteral("Romanian"), QStringLiteral("ro")},   {QStringLiteral("Russian"), QStringLiteral("ru")},
        {QStringLiteral("Spanish"), QStringLiteral("es")},    {QStringLiteral("Swedish"), QStringLiteral("sv")},
        {QStringLiteral("Turkish"), QStringLiteral("tr")},    {QStringLiteral("Ukrainian"), QStringLiteral("uk")},
        {QStringLiteral("Vietnamese"), QStringLiteral("vi")},
    };
}

AnswersSettingsPage::AnswersSettingsPage(AppSettings &settings, SessionController &controller, QWidget *parent)
    : SettingsPage(tr("A&nswers"), parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_length(new QButtonGroup(this))
    , m_structure(new QButtonGroup(this))
    , m_answerLanguage(new QComboBox(this))
    , m_transcriptionLanguage(new QComboBox(this))
    , m_targetMin(new QSpinBox(this))
    , m_targetMax(new QSpinBox(this))
{
    auto *layout = new QVBoxLayout(this);

    auto *lengthBox = new QGroupBox(tr("Answer length"), this);
    auto *lengthLayout = new QVBoxLayout(lengthBox);
    const std::pair<AnswerStyle::Length, QString> lengths[] = {
        {AnswerStyle::Length::standard, tr("Standard")},
        {AnswerStyle::Length::brief, tr("Brief — two or three spoken sentences")},
        {AnswerStyle::Length::detailed, tr("Detailed — up to two short paragraphs")},
    };
    for (const auto &[value, label] : lengths) {
        auto *button = new QRadioButton(label, lengthBox);
        m_length->addButton(button, int(value));
        lengthLayout->addWidget(button);
    }
    layout->addWidget(lengthBox);

    auto *structureBox = new QGroupBox(tr("Structure"), this);
    auto *structureLayout = new QVBoxLayout(structureBox);
    const std::pair<AnswerStyle::Structure, QString> structures[] = {
        {AnswerStyle::Structure::automatic, tr("Automatic")},
        {AnswerStyle::Structure::star, tr("STAR for behavioural questions")},
    };
    for (const auto &[value, label] : structures) {
        auto *button = new QRadioButton(label, structureBox);
        m_structure->addButton(button, int(value));
        structureLayout->addWidget(button);
    }
    layout->addWidget(structureBox);

    auto *form = new QFormLayout;
    m_answerLanguage->setEditable(true);
    m_answerLanguage->setInsertPolicy(QComboBox::NoInsert);
    m_answerLanguage->addItem(sameLanguage());
    m_transcriptionLanguage->addItem(tr("Not set — the service detects it"), QString());
    for (const auto &[name, code] : languages()) {
        m_answerLanguage->addItem(name);
        m_transcriptionLanguage->addItem(QStringLiteral("%1 (%2)").arg(name, code), code);
    }
    form->addRow(tr("Answer &language:"), m_answerLanguage);
    form->addRow(tr("Interviewer &speaks:"), m_transcriptionLanguage);
    layout->addLayout(form);
    layout->addWidget(hint(tr("Length, structure and answer language change the instructions; a running "
                              "session gets them at once. The interviewer's language helps the transcription "
                              "and applies at the next Start."),
                           this));

    auto *targetBox = new QGroupBox(tr("Your answers' target length"), this);
    auto *targetLayout = new QVBoxLayout(targetBox);
    auto *band = new QHBoxLayout;
    for (QSpinBox *box : {m_targetMin, m_targetMax}) {
        box->setRange(0, AppSettings::answerTargetLimit);
        box->setSingleStep(5);
        box->setSuffix(tr(" s"));
    }
    auto *from = new QLabel(tr("&From"), targetBox);
    from->setBuddy(m_targetMin);
    auto *to = new QLabel(tr("&to"), targetBox);
    to->setBuddy(m_targetMax);
    band->addWidget(from);
    band->addWidget(m_targetMin);
    band->addWidget(to);
    band->addWidget(m_targetMax);
    band->addStretch(1);
    targetLayout->addLayout(band);
    targetLayout->addWidget(hint(tr("The session review shows how many of your answers ran within this band."), targetBox));
    layout->addWidget(targetBox);
    layout->addStretch(1);

    load();

    connect(m_length, &QButtonGroup::idClicked, this, [this](int id) {
        m_settings.setAnswerLength(AnswerStyle::Length(id));
        m_controller.applyInstructionsLive();
    });
    connect(m_structure, &QButtonGroup::idClicked, this, [this](int id) {
        m_settings.setAnswerStructure(AnswerStyle::Structure(id));
        m_controller.applyInstructionsLive();
    });
    connect(m_answerLanguage, &QComboBox::activated, this, &AnswersSettingsPage::languageEdited);
    connect(m_answerLanguage->lineEdit(), &QLineEdit::editingFinished, this, &AnswersSettingsPage::languageEdited);
    connect(m_transcriptionLanguage, &QComboBox::activated, this, &AnswersSettingsPage::transcriptionPicked);
    for (auto signal : {&AppSettings::answerLanguageChanged, &AppSettings::transcriptionLanguageChanged})
        connect(&m_settings, signal, this, &AnswersSettingsPage::load);
    connect(&m_settings, &AppSettings::answerLengthChanged, this, &AnswersSettingsPage::load);
    connect(&m_settings, &AppSettings::answerStructureChanged, this, &AnswersSettingsPage::load);
    connect(m_targetMin, &QSpinBox::editingFinished, this, &AnswersSettingsPage::targetEdited);
    connect(m_targetMax, &QSpinBox::editingFinished, this, &AnswersSettingsPage::targetEdited);
    connect(&m_settings, &AppSettings::answerTargetChanged, this, &AnswersSettingsPage::load);
}

QRadioButton *AnswersSettingsPage::lengthButton(AnswerStyle::Length length) const
{
    return qobject_cast<QRadioButton *>(m_length->button(int(length)));
}

QRadioButton *AnswersSettingsPage::structureButton(AnswerStyle::Structure structure) const
{
    return qobject_cast<QRadioButton *>(m_structure->button(int(structure)));
}

void AnswersSettingsPage::load()
{
    for (auto [box, value] : {std::pair{m_targetMin, m_settings.answerTargetMinSeconds()},
                              std::pair{m_targetMax, m_settings.answerTargetMaxSeconds()}}) {
        const QSignalBlocker block(box);
        box->setValue(value);
    }
    if (QAbstractButton *button = m_length->button(int(m_settings.answerLength())))
        button->setChecked(true);
    if (QAbstractButton *button = m_structure->button(int(m_settings.answerStructure())))
        button->setChecked(true);
    {
        const QSignalBlocker block(m_answerLanguage);
        const QString language = m_settings.answerLanguage().trimmed();
        if (!m_answerLanguage->lineEdit()->hasFocus())
            m_answerLanguage->setCurrentText(language.isEmpty() ? sameLanguage() : language);
    }
    const QSignalBlocker block(m_transcriptionLanguage);
    const QString code = AnswerStyle::languageCode(m_settings.transcriptionLanguage());
    int index = m_transcriptionLanguage->findData(code);
    if (index < 0) {
        // A code stored by hand that the list does not name is kept and shown as it is.
        m_transcriptionLanguage->addItem(code, code);
        index = m_transcriptionLanguage->count() - 1;
    }
    m_transcriptionLanguage->setCurrentIndex(index);
}

void AnswersSettingsPage::languageEdited()
{
    const QString text = m_answerLanguage->currentText().trimmed();
    const QString language = text == sameLanguage() ? QString() : text;
    if (language == m_settings.answerLanguage().trimmed())
        return;
    m_settings.setAnswerLanguage(language);
    m_controller.applyInstructionsLive();
}

void AnswersSettingsPage::transcriptionPicked(int index)
{
    m_settings.setTranscriptionLanguage(m_transcriptionLanguage->itemData(index).toString());
}

void AnswersSettingsPage::targetEdited()
{
    // The other end moves along when one crosses it, so that the band stays a band.
    int low = m_targetMin->value();
    int high = m_targetMax->value();
    if (low >= high) {
        if (sender() == m_targetMin)
            high = std::min(low + 5, AppSettings::answerTargetLimit);
        low = std::min(low, high - 1);
    }
    m_settings.setAnswerTarget(low, high);
    load();
}
