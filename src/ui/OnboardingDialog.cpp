#include "ui/OnboardingDialog.h"

#include "keycheck/ApiKeyCheck.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "settings/ContextLoader.h"
#include "ui/BackgroundContextLoad.h"
#include "ui/ApiKeyField.h"
#include "ui/AudioEnvironment.h"
#include "ui/ContextPanel.h"
#include "ui/LevelMeter.h"

#include <QFileDialog>
#include <QFileInfo>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <QStackedWidget>
#include <QVBoxLayout>

namespace {
QLabel *title(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    QFont f = label->font();
    f.setPointSizeF(f.pointSizeF() + 5);
    f.setWeight(QFont::DemiBold);
    label->setFont(f);
    label->setWordWrap(true);
    return label;
}

QLabel *body(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}
} // namespace

OnboardingDialog::OnboardingDialog(AppSettings &settings, SessionController &controller, AudioEnvironment &audio,
                                   QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_audio(audio)
    , m_pages(new QStackedWidget(this))
    , m_step(new QLabel(this))
    , m_back(new QPushButton(tr("&Back"), this))
    , m_next(new QPushButton(tr("&Next"), this))
{
    setWindowTitle(tr("Welcome to Ketterbloom"));
    setWindowModality(Qt::WindowModal);
    resize(480, 400);
    auto *layout = new QVBoxLayout(this);
    layout->setContentsMargins(20, 20, 20, 16);
    m_pages->addWidget(buildKeyPage());
    m_pages->addWidget(buildContextPage());
    m_pages->addWidget(buildAudioPage());
    m_pages->addWidget(buildDonePage());
    layout->addWidget(m_pages, 1);

    auto *row = new QHBoxLayout;
    m_step->setForegroundRole(QPalette::PlaceholderText);
    row->addWidget(m_step);
    row->addStretch(1);
    row->addWidget(m_back);
    row->addWidget(m_next);
    layout->addLayout(row);
    m_next->setDefault(true);
    connect(m_back, &QPushButton::clicked, this, &OnboardingDialog::back);
    connect(m_next, &QPushButton::clicked, this, &OnboardingDialog::next);
    connect(m_pages, &QStackedWidget::currentChanged, this, &OnboardingDialog::pageChanged);
    pageChanged();
}

OnboardingDialog::~OnboardingDialog()
{
    stopAudioCheck();
}

QWidget *OnboardingDialog::buildKeyPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(title(tr("Your interview copilot"), page));
    layout->addWidget(body(tr("Ketterbloom listens to the other side of your call, shows each question as it is "
                              "asked and drafts a short answer from your own background. It needs an OpenAI API "
                              "key to transcribe and answer."),
                           page));
    auto *label = body(tr("OpenAI API &key:"), page);
    m_key = new ApiKeyField(page);
    m_key->setText(m_settings.apiKey());
    label->setBuddy(m_key->lineEdit());
    layout->addSpacing(8);
    layout->addWidget(label);
    layout->addWidget(m_key);
    m_keyCheck = new ApiKeyCheck(this);
    m_checkKey = new QPushButton(tr("&Check key"), page);
    m_checkKey->setToolTip(tr("Ask the service whether this key works"));
    m_checkKey->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    m_keyStatus = body(QString(), page);
    m_keyStatus->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_keyStatus->hide();
    auto *checkRow = new QHBoxLayout;
    checkRow->addWidget(m_checkKey, 0, Qt::AlignTop);
    checkRow->addWidget(m_keyStatus, 1);
    checkRow->addStretch(0);
    layout->addLayout(checkRow);
    connect(m_checkKey, &QPushButton::clicked, this, &OnboardingDialog::checkKey);
    connect(m_key->lineEdit(), &QLineEdit::textEdited, this, [this] {
        m_keyCheck->cancel();
        m_keyStatus->hide();
        m_checkKey->setEnabled(true);
    });
    connect(m_keyCheck, &ApiKeyCheck::finished, this, [this](const ApiKeyCheck::Result &result) {
        const bool works = result.outcome == ApiKeyCheck::Outcome::works;
        m_keyStatus->setText((works ? QStringLiteral("\u2713 ") : QStringLiteral("\u2717 ")) + result.message);
        m_keyStatus->show();
        m_checkKey->setEnabled(true);
    });
    auto *note = body(tr("Stored in a file only you can read. You can change it later in Settings."), page);
    note->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(note);
    layout->addStretch(1);
    // No key yet: see it work first, with scripted questions and answers.
    auto *sampleRow = new QHBoxLayout;
    auto *noKey = body(tr("No key yet?"), page);
    m_sampleInterview = new QPushButton(tr("Try a &sample interview"), page);
    m_sampleInterview->setToolTip(tr("About two minutes of a scripted interview, with no key and nothing sent anywhere"));
    m_sampleInterview->setSizePolicy(QSizePolicy::Fixed, QSizePolicy::Fixed);
    sampleRow->addWidget(noKey);
    sampleRow->addWidget(m_sampleInterview);
    sampleRow->addStretch(1);
    layout->addLayout(sampleRow);
    connect(m_sampleInterview, &QPushButton::clicked, this, &OnboardingDialog::sampleInterviewRequested);
    return page;
}

QWidget *OnboardingDialog::buildContextPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(title(tr("Your background"), page));
    layout->addWidget(body(tr("Add your CV and a few notes on projects you are proud of. Answers quote them "
                              "instead of speaking in generalities. Accepted: %1")
                               .arg(ContextLoader::kindsLabel()),
                           page));
    auto *add = new QPushButton(tr("Add files…"), page);
    add->setAccessibleName(tr("Add context files"));
    m_contextList = new QListWidget(page);
    m_contextList->setAccessibleName(tr("Loaded context files"));
    m_contextList->setMaximumHeight(110);
    auto *row = new QHBoxLayout;
    row->addWidget(add);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addWidget(m_contextList);
    m_contextNote = body(QString(), page);
    m_contextNote->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_contextNote->hide();
    layout->addWidget(m_contextNote);
    layout->addWidget(body(tr("You can skip this and add documents later with the Context button."), page));
    layout->addStretch(1);
    connect(add, &QPushButton::clicked, this, &OnboardingDialog::chooseContextFiles);
    connect(&m_settings, &AppSettings::contextFileNamesChanged, this, &OnboardingDialog::refreshContextList);
    refreshContextList();
    return page;
}

QWidget *OnboardingDialog::buildAudioPage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(title(tr("Sound check"), page));
    layout->addWidget(body(tr("Ketterbloom hears the meeting through the sound server and times your answers "
                              "with your microphone. Say a few words: the meter should move."),
                           page));
    m_server = body(QString(), page);
    m_mic = body(QString(), page);
    m_meter = new LevelMeter(tr("Mic"), page);
    m_meter->setAccessibleName(tr("Microphone level"));
    m_meter->setBarSize(220, 8);
    auto *retry = new QPushButton(tr("Check &Again"), page);
    layout->addSpacing(6);
    layout->addWidget(m_server);
    layout->addWidget(m_mic);
    layout->addWidget(m_meter);
    auto *row = new QHBoxLayout;
    row->addWidget(retry);
    row->addStretch(1);
    layout->addLayout(row);
    layout->addStretch(1);
    connect(retry, &QPushButton::clicked, this, &OnboardingDialog::runAudioCheck);
    return page;
}

QWidget *OnboardingDialog::buildDonePage()
{
    auto *page = new QWidget(this);
    auto *layout = new QVBoxLayout(page);
    layout->addWidget(title(tr("You're set"), page));
    layout->addWidget(body(tr("Join your call, then press Start (Ctrl+Return). Each question appears as a card with "
                              "a short answer beneath it. The timer turns amber at 45 seconds: most people talk "
                              "too long under pressure.\n\nAdd the job description and your interviewers with "
                              "the Job button for answers that fit the role."),
                           page));
    layout->addStretch(1);
    return page;
}

int OnboardingDialog::currentPage() const
{
    return m_pages->currentIndex();
}

void OnboardingDialog::goToPage(int page)
{
    m_pages->setCurrentIndex(qBound(0, page, int(pageCount) - 1));
}

void OnboardingDialog::next()
{
    if (currentPage() == keyPage && m_key->text().trimmed() != m_settings.apiKey())
        m_settings.setApiKey(m_key->text());
    if (currentPage() == donePage) {
        m_settings.setHasCompletedOnboarding(true);
        accept();
        return;
    }
    goToPage(currentPage() + 1);
}

void OnboardingDialog::back()
{
    goToPage(currentPage() - 1);
}

void OnboardingDialog::pageChanged()
{
    const int page = currentPage();
    m_step->setText(tr("Step %1 of %2").arg(page + 1).arg(int(pageCount)));
    m_back->setEnabled(page > 0);
    m_next->setText(page == donePage ? tr("&Finish") : tr("&Next"));
    if (page == audioPage)
        runAudioCheck();
    else
        stopAudioCheck();
}

void OnboardingDialog::runAudioCheck()
{
    stopAudioCheck();
    const bool server = m_audio.soundServerAvailable();
    m_server->setText(server ? tr("✓ The sound server answers.")
                             : tr("✗ No sound server answers. Start PipeWire or PulseAudio, then check again."));
    const bool hasInput = server && !m_audio.inputDevices().isEmpty();
    QPointer<LevelMeter> meter = m_meter;
    m_metering = hasInput && m_audio.startMicLevel(m_settings.deviceUID(), [meter](float level) {
        if (meter)
            meter->setLevel(level);
    });
    m_mic->setText(m_metering ? tr("✓ A microphone is there.")
                              : tr("✗ No microphone found. Plug one in or choose an input device in Settings."));
    m_meter->setLevel(0);
    m_meter->setEnabled(m_metering);
}

void OnboardingDialog::stopAudioCheck()
{
    if (!m_metering)
        return;
    m_metering = false;
    m_audio.stopMicLevel();
}

QString OnboardingDialog::soundServerText() const
{
    return m_server->text();
}

QString OnboardingDialog::microphoneText() const
{
    return m_mic->text();
}

void OnboardingDialog::chooseContextFiles()
{
    QFileDialog *dialog = ContextPanel::documentsDialog(this);
    connect(dialog, &QFileDialog::filesSelected, this, &OnboardingDialog::loadContextFiles);
    dialog->open();
}

void OnboardingDialog::loadContextFiles(const QStringList &paths)
{
    if (paths.isEmpty() || m_readingContext)
        return;
    m_readingContext = true;
    m_contextNote->setText(paths.size() == 1 ? tr("Reading %1…").arg(QFileInfo(paths.first()).fileName())
                                             : tr("Reading %1 files…").arg(paths.size()));
    m_contextNote->show();
    BackgroundContextLoad::start(this, paths, [this](const ContextLoader::Result &result) {
        m_readingContext = false;
        // Shown here, in the dialog the user is looking at.
        QStringList lines = ContextLoader::notes(result);
        if (result.text.isEmpty())
            lines.prepend(ContextLoader::onboardingNothingReadMessage());
        else
            m_settings.replaceContext(result.text, result.names);
        m_contextNote->setText(lines.join(QLatin1Char('\n')));
        m_contextNote->setVisible(!lines.isEmpty());
    });
}

void OnboardingDialog::checkKey()
{
    m_checkKey->setEnabled(false);
    m_keyStatus->setText(tr("Checking…"));
    m_keyStatus->show();
    m_keyCheck->check(m_key->text());
}

QString OnboardingDialog::keyStatusText() const
{
    return m_keyStatus->isHidden() ? QString() : m_keyStatus->text();
}

QString OnboardingDialog::contextNoteText() const
{
    return m_contextNote->isHidden() ? QString() : m_contextNote->text();
}

void OnboardingDialog::refreshContextList()
{
    m_contextList->clear();
    m_contextList->addItems(m_settings.contextFileNames());
}

void OnboardingDialog::done(int result)
{
    stopAudioCheck();
    QDialog::done(result);
}
