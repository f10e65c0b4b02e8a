#include "ui/WindowActions.h"

#include "session/SessionController.h"
#include "ui/Icons.h"
#include "ui/TextSize.h"
#include "ui/Theme.h"

#include <QAction>
#include <QActionGroup>
#include <QApplication>
#include <QClipboard>

namespace {
constexpr int kNoIcon = -1;
} // namespace

WindowActions::WindowActions(AppSettings &settings, SessionController &controller, QObject *parent)
    : QObject(parent)
    , m_appSettings(settings)
    , m_controller(controller)
    , m_settings(make(tr("Settings…"), tr("Settings"), int(Icons::Id::settings)))
    , m_jobContext(make(tr("Job Context…"), tr("Job"), int(Icons::Id::job)))
    , m_contextDocuments(make(tr("Context Documents…"), tr("Context"), int(Icons::Id::context)))
    , m_setupGuide(make(tr("Setup Guide…"), QString(), kNoIcon))
    , m_reviewSession(make(tr("Review a Session…"), QString(), kNoIcon))
    , m_quit(make(tr("Quit"), QString(), kNoIcon))
    , m_checkForUpdates(make(tr("Check for Updates…"), QString(), kNoIcon))
    , m_showFiles(make(tr("Show files"), QString(), int(Icons::Id::folder)))
    , m_copyTranscript(make(tr("Copy Transcript"), QString(), kNoIcon))
    , m_transcribeRecording(make(tr("Transcribe Recording…"), QString(), kNoIcon))
    , m_alwaysOnTop(make(tr("Always on Top"), tr("On top"), int(Icons::Id::pin)))
    , m_saveRecording(make(tr("Save .wav"), QString(), int(Icons::Id::record)))
    , m_smallerText(make(tr("Smaller Text"), tr("Smaller text"), int(Icons::Id::textSmaller)))
    , m_biggerText(make(tr("Bigger Text"), tr("Bigger text"), int(Icons::Id::textLarger)))
    , m_resetText(make(tr("Reset Text Size"), QString(), kNoIcon))
    , m_toggleAppearance(make(tr("Toggle Light / Dark"), tr("Light / dark"), int(Icons::Id::moon)))
    , m_appearanceGroup(new QActionGroup(this))
{
    m_settings->setToolTip(tr("Settings"));
    m_settings->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Comma));
    m_jobContext->setToolTip(tr("Company, role, job description and interviewers"));
    m_contextDocuments->setToolTip(tr("Your documents: CV, notes, stories"));
    m_quit->setShortcut(QKeySequence::Quit);
    m_showFiles->setToolTip(tr("Reveal the saved .wav in ~/Documents/Ketterbloom"));
    connect(m_showFiles, &QAction::triggered, this, [this] { m_controller.revealRecording(); });
    connect(m_copyTranscript, &QAction::triggered, this, &WindowActions::copyTranscriptToClipboard);
    connect(m_transcribeRecording, &QAction::triggered, &m_controller, &SessionController::transcribeRecording);

    m_alwaysOnTop->setToolTip(tr("Keep this window above all other windows"));
    m_alwaysOnTop->setCheckable(true);
    m_alwaysOnTop->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_T));
    m_alwaysOnTop->setChecked(m_appSettings.alwaysOnTop());
    connect(m_alwaysOnTop, &QAction::triggered, this, [this](bool on) { m_appSettings.setAlwaysOnTop(on); });
    connect(&m_appSettings, &AppSettings::alwaysOnTopChanged, m_alwaysOnTop, &QAction::setChecked);

    m_saveRecording->setToolTip(tr("Keep a stereo recording of the session (you left, meeting right)"));
    m_saveRecording->setCheckable(true);
    m_saveRecording->setChecked(m_appSettings.saveAudio());
    connect(m_saveRecording, &QAction::triggered, this, [this](bool on) { m_appSettings.setSaveAudio(on); });
    connect(&m_appSettings, &AppSettings::saveAudioChanged, m_saveRecording, &QAction::setChecked);

    m_smallerText->setToolTip(tr("Smaller answer text (Ctrl+−)"));
    m_smallerText->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Minus));
    connect(m_smallerText, &QAction::triggered, this,
            [this] { m_appSettings.setFontSize(TextSize::smaller(m_appSettings.fontSize())); });
    m_biggerText->setToolTip(tr("Bigger answer text (Ctrl++)"));
    m_biggerText->setShortcuts({QKeySequence(Qt::CTRL | Qt::Key_Plus), QKeySequence(Qt::CTRL | Qt::Key_Equal)});
    connect(m_biggerText, &QAction::triggered, this,
            [this] { m_appSettings.setFontSize(TextSize::bigger(m_appSettings.fontSize())); });
    m_resetText->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_0));
    connect(m_resetText, &QAction::triggered, this, [this] { m_appSettings.setFontSize(TextSize::standard); });

    m_toggleAppearance->setToolTip(tr("Toggle light / dark (Ctrl+Shift+L)"));
    m_toggleAppearance->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_L));
    connect(m_toggleAppearance, &QAction::triggered, this, [this] {
        m_appSettings.setAppearance(toggled(m_appSettings.appearance(), Theme::isDark(QApplication::palette())));
    });
    const QList<QPair<QString, AppSettings::Appearance>> choices = {
        {tr("Match system"), AppSettings::Appearance::system},
        {tr("Light"), AppSettings::Appearance::light},
        {tr("Dark"), AppSettings::Appearance::dark},
    };
    for (const auto &[label, value] : choices) {
        QAction *choice = make(label, QString(), kNoIcon);
        choice->setCheckable(true);
        choice->setData(int(value));
        m_appearanceGroup->addAction(choice);
        const AppSettings::Appearance chosen = value;
        connect(choice, &QAction::triggered, this, [this, chosen] { m_appSettings.setAppearance(chosen); });
    }
    connect(&m_appSettings, &AppSettings::appearanceChanged, this, &WindowActions::refreshAppearanceChoice);
    refreshAppearanceChoice();
}

QAction *WindowActions::make(const QString &text, const QString &iconText, int icon)
{
    auto *action = icon == kNoIcon ? new QAction(text, this) : new QAction(Icons::icon(Icons::Id(icon)), text, this);
    if (!iconText.isEmpty())
        action->setIconText(iconText);
    // The icon is for the control bar's buttons; menus keep plain items, whose checkable
    // ones show their check mark.
    action->setIconVisibleInMenu(false);
    return action;
}

QList<QAction *> WindowActions::appearanceChoices() const
{
    return m_appearanceGroup->actions();
}

AppSettings::Appearance WindowActions::toggled(AppSettings::Appearance current, bool shownDark)
{
    switch (current) {
    case AppSettings::Appearance::light: return AppSettings::Appearance::dark;
    case AppSettings::Appearance::dark: return AppSettings::Appearance::light;
    case AppSettings::Appearance::system: break;
    }
    return shownDark ? AppSettings::Appearance::light : AppSettings::Appearance::dark;
}

void WindowActions::setShownDark(bool dark)
{
    m_toggleAppearance->setIcon(Icons::icon(dark ? Icons::Id::sun : Icons::Id::moon));
}

void WindowActions::refreshAppearanceChoice()
{
    const int appearance = int(m_appSettings.appearance());
    for (QAction *choice : m_appearanceGroup->actions())
        choice->setChecked(choice->data().toInt() == appearance);
}

void WindowActions::copyTranscriptToClipboard()
{
    QApplication::clipboard()->setText(m_controller.transcriptForExport());
}
