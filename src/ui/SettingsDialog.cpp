#include "ui/SettingsDialog.h"

#include "session/SessionController.h"
#include "ui/AnswersSettingsPage.h"
#include "ui/AudioSettingsPage.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/ModelSettingsPage.h"

#include <QApplication>
#include <QClipboard>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QPushButton>
#include <QTabWidget>
#include <QVBoxLayout>

SettingsDialog::SettingsDialog(AppSettings &settings, SessionController &controller, TapQueries &taps,
                               AudioEnvironment &audio, QWidget *parent)
    : QDialog(parent)
    , m_controller(controller)
    , m_tabs(new QTabWidget(this))
    , m_general(new GeneralSettingsPage(settings, this))
    , m_audio(new AudioSettingsPage(settings, taps, audio, this))
    , m_model(new ModelSettingsPage(settings, this))
    , m_answers(new AnswersSettingsPage(settings, controller, this))
{
    setWindowTitle(tr("Settings"));
    setWindowModality(Qt::WindowModal);
    auto *layout = new QVBoxLayout(this);
    for (SettingsPage *page : std::initializer_list<SettingsPage *>{m_general, m_audio, m_model, m_answers})
        addPage(page);
    layout->addWidget(m_tabs, 1);

    auto *bottom = new QHBoxLayout;
    auto *copy = new QPushButton(tr("Copy transcript"), this);
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

int SettingsDialog::addPage(SettingsPage *page)
{
    m_pages.append(page);
    return m_tabs->addTab(page, page->title());
}

void SettingsDialog::copyTranscript()
{
    QApplication::clipboard()->setText(m_controller.transcriptForExport());
}

void SettingsDialog::done(int result)
{
    for (SettingsPage *page : std::as_const(m_pages))
        page->apply();
    QDialog::done(result);
}
