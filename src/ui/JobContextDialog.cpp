#include "ui/JobContextDialog.h"

#include "session/SessionController.h"
#include "settings/AppSettings.h"

#include <QDialogButtonBox>
#include <QFormLayout>
#include <QGroupBox>
#include <QLabel>
#include <QLineEdit>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QVBoxLayout>

JobContextDialog::JobContextDialog(AppSettings &settings, SessionController &controller, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_company(new QLineEdit(this))
    , m_role(new QLineEdit(this))
    , m_description(new QPlainTextEdit(this))
{
    setWindowTitle(tr("Job Context"));
    setWindowModality(Qt::WindowModal);
    resize(520, 560);
    auto *layout = new QVBoxLayout(this);

    auto *form = new QFormLayout;
    m_company->setPlaceholderText(tr("e.g. Northwind Labs"));
    m_role->setPlaceholderText(tr("e.g. Senior Backend Engineer"));
    form->addRow(tr("&Company:"), m_company);
    form->addRow(tr("&Role title:"), m_role);
    m_company->setAccessibleName(tr("Company"));
    m_role->setAccessibleName(tr("Role title"));
    layout->addLayout(form);

    auto *descriptionLabel = new QLabel(tr("&Job description (paste the posting):"), this);
    descriptionLabel->setBuddy(m_description);
    m_description->setAccessibleName(tr("Job description"));
    m_description->setTabChangesFocus(true);
    layout->addWidget(descriptionLabel);
    layout->addWidget(m_description, 1);

    auto *panel = new QGroupBox(tr("Interviewers"), this);
    auto *panelForm = new QFormLayout(panel);
    const QList<Interviewer> interviewers = m_settings.interviewers();
    for (int i = 0; i < 2; ++i) {
        m_names[i] = new QLineEdit(panel);
        m_titles[i] = new QLineEdit(panel);
        m_names[i]->setPlaceholderText(tr("Name"));
        m_titles[i]->setPlaceholderText(tr("Title, e.g. Engineering Manager"));
        m_names[i]->setAccessibleName(tr("Interviewer %1 name").arg(i + 1));
        m_titles[i]->setAccessibleName(tr("Interviewer %1 title").arg(i + 1));
        if (i < interviewers.size()) {
            m_names[i]->setText(interviewers[i].name);
            m_titles[i]->setText(interviewers[i].title);
        }
        panelForm->addRow(tr("Interviewer %1:").arg(i + 1), m_names[i]);
        panelForm->addRow(QString(), m_titles[i]);
    }
    layout->addWidget(panel);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Save | QDialogButtonBox::Cancel, this);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, [this] {
        save();
        accept();
    });
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);

    m_company->setText(m_settings.companyName());
    m_role->setText(m_settings.roleTitle());
    m_description->setPlainText(m_settings.jobDescription());
}

void JobContextDialog::save()
{
    m_settings.setCompanyName(m_company->text());
    m_settings.setRoleTitle(m_role->text());
    m_settings.setJobDescription(m_description->toPlainText());
    QList<Interviewer> panel = m_settings.interviewers();
    while (panel.size() < 2)
        panel.append(Interviewer());
    for (int i = 0; i < 2; ++i) {
        panel[i].name = m_names[i]->text();
        panel[i].title = m_titles[i]->text();
    }
    m_settings.setInterviewers(panel);
    m_controller.applyInstructionsLive();
}
