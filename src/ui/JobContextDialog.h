#pragma once

#include <QDialog>

class AppSettings;
class QLineEdit;
class QPlainTextEdit;
class SessionController;

// The job the interview is for: company, role, the posting and the two interviewers.
// Saving writes the settings and pushes the new instructions into a running session.
class JobContextDialog : public QDialog
{
    Q_OBJECT
public:
    JobContextDialog(AppSettings &settings, SessionController &controller, QWidget *parent = nullptr);

    QLineEdit *companyEdit() const { return m_company; }
    QLineEdit *roleEdit() const { return m_role; }
    QPlainTextEdit *descriptionEdit() const { return m_description; }
    QLineEdit *interviewerNameEdit(int index) const { return m_names[index]; }
    QLineEdit *interviewerTitleEdit(int index) const { return m_titles[index]; }

    void save();

private:
    AppSettings &m_settings;
    SessionController &m_controller;
    QLineEdit *m_company;
    QLineEdit *m_role;
    QPlainTextEdit *m_description;
    QLineEdit *m_names[2];
    QLineEdit *m_titles[2];
};
