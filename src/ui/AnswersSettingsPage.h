#pragma once

#include "settings/AnswerStyle.h"
#include "ui/SettingsPage.h"

class AppSettings;
class QButtonGroup;
class QComboBox;
class QRadioButton;
class QSpinBox;
class SessionController;

// Settings ▸ Answers: how long answers are, whether behavioural ones follow STAR, the language
// they are written in, and the language the interviewer speaks (a hint for transcription).
// Every change is written through at once; style changes are pushed into a running session.
// Below them, how long your answers should run: the target band of the session review.
class AnswersSettingsPage : public SettingsPage
{
    Q_OBJECT
public:
    AnswersSettingsPage(AppSettings &settings, SessionController &controller, QWidget *parent = nullptr);

    QRadioButton *lengthButton(AnswerStyle::Length length) const;
    QRadioButton *structureButton(AnswerStyle::Structure structure) const;
    QComboBox *answerLanguageCombo() const { return m_answerLanguage; }
    QComboBox *transcriptionLanguageCombo() const { return m_transcriptionLanguage; }
    QSpinBox *targetMinBox() const { return m_targetMin; }
    QSpinBox *targetMaxBox() const { return m_targetMax; }

    void load() override;

    // The languages offered: display name and ISO-639-1 code.
    static QList<std::pair<QString, QString>> languages();

private:
    void languageEdited();
    void transcriptionPicked(int index);
    void targetEdited();

    AppSettings &m_settings;
    SessionController &m_controller;
    QButtonGroup *m_length;
    QButtonGroup *m_structure;
    QComboBox *m_answerLanguage;
    QComboBox *m_transcriptionLanguage;
    QSpinBox *m_targetMin;
    QSpinBox *m_targetMax;
};
