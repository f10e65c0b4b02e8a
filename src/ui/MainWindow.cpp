#include "ui/MainWindow.h"

#include "session/FileRevealer.h"
#include "session/SessionController.h"
#include "settings/AnswerFont.h"
#include "ui/BannerView.h"
#include "ui/CardFonts.h"
#include "ui/ContextPanel.h"
#include "ui/ControlBar.h"
#include "ui/DemoRibbon.h"
#include "ui/Icons.h"
#include "ui/JobContextDialog.h"
#include "ui/OnboardingDialog.h"
#include "ui/ScreenQuestionFlow.h"
#include "ui/SessionReviewOpener.h"
#include "ui/SettingsDialog.h"
#include "ui/TranscriptView.h"
#include "ui/WindowActions.h"
#include "ui/WorkspacePin.h"

#include <QAction>
#include <QApplication>
#include <QDesktopServices>
#include <QCloseEvent>
#include <QFrame>
#include <QMenuBar>
#include <QScreen>
#include <QSettings>
#include <QPushButton>
#include <QTimer>
#include <QUrl>
#include <QVBoxLayout>

namespace {
constexpr int kFrameSaveDelayMs = 400;
constexpr int kRestorableWidth = 380;
constexpr int kRestorableHeight = 300;

QString actionLabel(SessionController::BannerAction action)
{
    switch (action) {
    case SessionController::BannerAction::openAccountSettings: return MainWindow::tr("Open Settings");
    case SessionController::BannerAction::openOnboarding: return MainWindow::tr("Open Setup");
    case SessionController::BannerAction::openContext: return MainWindow::tr("Add Context");
    case SessionController::BannerAction::cancelTranscription: return MainWindow::tr("Cancel");
    case SessionController::BannerAction::copyTranscript: return MainWindow::tr("Copy Transcript");
    case SessionController::BannerAction::installUpdate: return MainWindow::tr("Install Update");
    case SessionController::BannerAction::restartNow: return MainWindow::tr("Restart Now");
    }
    return {};
}
} // namespace

MainWindow::MainWindow(AppSettings &settings, SessionController &controller, const Services &services,
                       QWidget *parent)
    : QMainWindow(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_services(services)
    , m_actions(new WindowActions(settings, controller, this))
    , m_controlBar(new ControlBar(settings, controller, *m_actions, this))
    , m_banner(new BannerView(this))
    , m_transcript(new TranscriptView(this))
    , m_frameSaveTimer(new QTimer(this))
{
    setWindowTitle(QStringLiteral("Ketterbloom"));
    auto *central = new QWidget(this);
    central->setMinimumSize(minimumWidth, minimumHeight);
    auto *layout = new QVBoxLayout(central);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(0);
    auto *divider = new QFrame(central);
    divider->setFrameShape(QFrame::HLine);
    divider->setFrameShadow(QFrame::Plain);
    divider->setForegroundRole(QPalette::Mid);
    layout->addWidget(m_controlBar);
    layout->addWidget(divider);
    layout->addWidget(m_banner);
    layout->addWidget(m_transcript, 1);
    setCentralWidget(central);

    connect(m_transcript->sampleInterviewButton(), &QPushButton::clicked, this, &MainWindow::sampleInterviewRequested);
    m_transcript->setCards(&m_controller.cards());
    connect(&m_controller, &SessionController::isSessionActiveChanged, this,
            [this] { m_transcript->setSessionLive(m_controller.isSessionActive()); });
    m_transcript->setSessionLive(m_controller.isSessionActive());

    connect(m_actions->contextDocuments(), &QAction::triggered, this, &MainWindow::openContextPanel);
    connect(m_actions->jobContext(), &QAction::triggered, this, &MainWindow::openJobContext);
    connect(m_actions->settings(), &QAction::triggered, this, &MainWindow::openSettings);
    connect(m_actions->setupGuide(), &QAction::triggered, this, &MainWindow::openOnboarding);
    connect(m_actions->reviewSession(), &QAction::triggered, this, [this] { SessionReviewOpener::run(m_settings, this); });
    connect(m_actions->quit(), &QAction::triggered, this, &QWidget::close);
    connect(m_actions->checkForUpdates(), &QAction::triggered, this, &MainWindow::checkForUpdatesRequested);

    connect(&m_controller, &SessionController::bannerChanged, this, &MainWindow::refreshBanner);
    connect(&m_controller, &SessionController::bannerLinksChanged, this, &MainWindow::refreshBanner);
    connect(&m_controller, &SessionController::bannerActionChanged, this, &MainWindow::refreshBanner);
    connect(m_banner, &BannerView::closeRequested, this, [this] { m_controller.setBannerText(std::nullopt); });
    connect(m_banner, &BannerView::revealRequested, this, [this](const QString &path) {
        if (path.endsWith(QLatin1String(".review.html")))
            QDesktopServices::openUrl(QUrl::fromLocalFile(path));   // the page is read, not shown in a folder
        else
            m_services.fileRevealer.reveal({path});
    });
    connect(m_banner, &BannerView::actionTriggered, this, [this] {
        const auto action = m_controller.bannerAction();
        if (!action)
            return;
        switch (*action) {
        case SessionController::BannerAction::openAccountSettings: openSettings(); break;
        case SessionController::BannerAction::openOnboarding: openOnboarding(); break;
        case SessionController::BannerAction::openContext: openContextPanel(); break;
        case SessionController::BannerAction::cancelTranscription: m_controller.cancelRecordingTranscription(); break;
        case SessionController::BannerAction::copyTranscript: m_actions->copyTranscript()->trigger(); break;
        case SessionController::BannerAction::installUpdate: emit installUpdateRequested(); break;
        case SessionController::BannerAction::restartNow: emit restartRequested(); break;
        }
    });
    connect(&m_controller, &SessionController::contextPanelRequestedChanged, this,
            &MainWindow::onContextPanelRequested);

    connect(&m_settings, &AppSettings::alwaysOnTopChanged, this, &MainWindow::applyAlwaysOnTop);
    connect(&m_settings, &AppSettings::appearanceChanged, this, &MainWindow::applyAppearance);
    connect(&m_settings, &AppSettings::fontSizeChanged, this, &MainWindow::applyFonts);
    connect(&m_settings, &AppSettings::fontFamilyChanged, this, &MainWindow::applyFonts);

    m_frameSaveTimer->setSingleShot(true);
    m_frameSaveTimer->setInterval(kFrameSaveDelayMs);
    connect(m_frameSaveTimer, &QTimer::timeout, this, &MainWindow::saveFrame);

    buildMenus();
    applyFonts();
    applyAppearance();
    m_banner->setMaximumBannerHeight(qMax(40, defaultHeight / 3));
    applyAlwaysOnTop();
    refreshBanner();
    restoreFrame();
}

MainWindow::~MainWindow() = default;

QAction *MainWindow::alwaysOnTopAction() const { return m_actions->alwaysOnTop(); }
QAction *MainWindow::toggleAppearanceAction() const { return m_actions->toggleAppearance(); }
QAction *MainWindow::biggerTextAction() const { return m_actions->biggerText(); }
QAction *MainWindow::smallerTextAction() const { return m_actions->smallerText(); }
QAction *MainWindow::resetTextAction() const { return m_actions->resetText(); }
QAction *MainWindow::copyTranscriptAction() const { return m_actions->copyTranscript(); }
QAction *MainWindow::transcribeRecordingAction() const { return m_actions->transcribeRecording(); }
QAction *MainWindow::checkForUpdatesAction() const { return m_actions->checkForUpdates(); }

void MainWindow::buildMenus()
{
    QMenu *file = menuBar()->addMenu(tr("&File"));
    file->addActions({m_actions->settings(), m_actions->jobContext(), m_actions->contextDocuments(),
                      m_actions->setupGuide()});
    file->addSeparator();
    file->addActions({m_actions->copyTranscript(), m_actions->transcribeRecording(), m_actions->reviewSession()});
    m_screenQuestion = new ScreenQuestionFlow(m_settings, m_controller, this, this);
    file->addAction(m_screenQuestion->action());
    m_screenQuestion->action()->setIcon(Icons::icon(Icons::Id::screen));
    m_controlBar->addToolAction(m_screenQuestion->action());
    file->addSeparator();
    file->addAction(m_actions->quit());

    QMenu *view = menuBar()->addMenu(tr("&View"));
    view->addAction(m_actions->alwaysOnTop());
    view->addMenu(tr("Appearance"))->addActions(m_actions->appearanceChoices());
    view->addAction(m_actions->toggleAppearance());
    view->addSeparator();
    view->addActions({m_actions->biggerText(), m_actions->smallerText(), m_actions->resetText()});

    QMenu *help = menuBar()->addMenu(tr("&Help"));
    help->addAction(m_actions->checkForUpdates());
}

// --- Window behaviour ----------------------------------------------------------------

void MainWindow::applyAlwaysOnTop()
{
    const bool on = m_settings.alwaysOnTop();
    if (bool(windowFlags() & Qt::WindowStaysOnTopHint) != on) {
        const bool wasVisible = isVisible();
        setWindowFlag(Qt::WindowStaysOnTopHint, on);
        // Changing the flags hides the window; showing it again makes the change take effect.
        if (wasVisible)
            show();
    }
    // Where the window manager allows it, a floating window follows the user to every
    // workspace. Asked once the window is mapped again.
    QTimer::singleShot(0, this, [this] { WorkspacePin::setOnAllWorkspaces(this, m_settings.alwaysOnTop()); });
}

Theme::Scheme MainWindow::schemeFor(AppSettings::Appearance appearance)
{
    switch (appearance) {
    case AppSettings::Appearance::system: return Theme::Scheme::system;
    case AppSettings::Appearance::light: return Theme::Scheme::light;
    case AppSettings::Appearance::dark: return Theme::Scheme::dark;
    }
    return Theme::Scheme::system;
}

void MainWindow::applyAppearance()
{
    Theme::apply(schemeFor(m_settings.appearance()));
}

void MainWindow::applyFonts()
{
    const QString family = m_settings.fontFamily();
    m_transcript->setCardFonts(CardFonts::make(m_settings.fontSize(), [&family](double size, QFont::Weight weight) {
        return AnswerFont::font(family, size, weight);
    }));
}

bool MainWindow::isRestorableFrame(const QRect &frame)
{
    return frame.isValid() && frame.width() >= kRestorableWidth && frame.height() >= kRestorableHeight;
}

QRect MainWindow::placedFrame(const QRect &frame, const QList<QRect> &screens, const QRect &primaryAvailable)
{
    const qint64 area = qint64(frame.width()) * frame.height();
    for (const QRect &screen : screens) {
        const QRect on = screen.intersected(frame);
        if (on.isValid() && qint64(on.width()) * on.height() * 2 >= area)
            return frame;
    }
    QRect placed(QPoint(0, 0), frame.size().boundedTo(primaryAvailable.size()));
    placed.moveCenter(primaryAvailable.center());
    return placed;
}

void MainWindow::restoreFrame()
{
    const QRect stored = m_settings.store().value(QLatin1String(frameKey)).toRect();
    if (isRestorableFrame(stored)) {
        QList<QRect> screens;
        for (const QScreen *screen : QGuiApplication::screens())
            screens.append(screen->geometry());
        const QScreen *primary = QGuiApplication::primaryScreen();
        setGeometry(primary ? placedFrame(stored, screens, primary->availableGeometry()) : stored);
        return;
    }
    resize(defaultWidth, defaultHeight);
}

void MainWindow::saveFrame()
{
    m_frameSaveTimer->stop();
    if (!isVisible())
        return;
    m_settings.store().setValue(QLatin1String(frameKey), geometry());
}

void MainWindow::moveEvent(QMoveEvent *event)
{
    QMainWindow::moveEvent(event);
    if (m_shownOnce)
        m_frameSaveTimer->start();
}

void MainWindow::resizeEvent(QResizeEvent *event)
{
    QMainWindow::resizeEvent(event);
    // The banner never takes more than a third of the window.
    m_banner->setMaximumBannerHeight(qMax(40, height() / 3));
    if (m_shownOnce)
        m_frameSaveTimer->start();
}

void MainWindow::showEvent(QShowEvent *event)
{
    QMainWindow::showEvent(event);
    if (m_shownOnce)
        return;
    m_shownOnce = true;
    if (m_settings.alwaysOnTop())
        QTimer::singleShot(0, this, [this] { WorkspacePin::setOnAllWorkspaces(this, m_settings.alwaysOnTop()); });
    if (!m_settings.hasCompletedOnboarding())
        QTimer::singleShot(0, this, &MainWindow::openOnboarding);
}

void MainWindow::closeEvent(QCloseEvent *event)
{
    saveFrame();
    QMainWindow::closeEvent(event);
}

// --- Banner and dialogs -----------------------------------------------------------------

void MainWindow::refreshBanner()
{
    const std::optional<QString> text = m_controller.bannerText();
    m_banner->setVisible(text.has_value());
    if (!text)
        return;
    QList<BannerView::Link> links;
    for (const SessionController::BannerLink &link : m_controller.bannerLinks())
        links.append({link.label, link.url.toLocalFile()});
    const auto action = m_controller.bannerAction();
    m_banner->setContent(*text, links, action ? actionLabel(*action) : QString());
}

void MainWindow::onContextPanelRequested()
{
    if (!m_controller.contextPanelRequested())
        return;
    m_controller.setContextPanelRequested(false);
    openContextPanel();
}

void MainWindow::openSettings()
{
    if (!m_settingsDialog) {
        m_settingsDialog = new SettingsDialog(m_settings, m_controller, m_services.taps, m_services.audio, this);
        m_settingsDialog->setAttribute(Qt::WA_DeleteOnClose);
        emit settingsDialogCreated(m_settingsDialog);
    }
    m_settingsDialog->open();
    m_settingsDialog->raise();
}

void MainWindow::openJobContext()
{
    if (!m_jobDialog) {
        m_jobDialog = new JobContextDialog(m_settings, m_controller, this);
        m_jobDialog->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_jobDialog->open();
    m_jobDialog->raise();
}

void MainWindow::openContextPanel()
{
    if (!m_contextPanel) {
        m_contextPanel = new ContextPanel(m_settings, this);
        m_contextPanel->setAttribute(Qt::WA_DeleteOnClose);
    }
    m_contextPanel->open();
    m_contextPanel->raise();
}

void MainWindow::openOnboarding()
{
    if (!m_onboarding) {
        m_onboarding = new OnboardingDialog(m_settings, m_controller, m_services.audio, this);
        m_onboarding->setAttribute(Qt::WA_DeleteOnClose);
        connect(m_onboarding, &OnboardingDialog::sampleInterviewRequested, this, &MainWindow::sampleInterviewRequested);
    }
    m_onboarding->open();
    m_onboarding->raise();
}

void MainWindow::showDemoRibbon()
{
    if (m_demoRibbon)
        return;
    m_demoRibbon = new DemoRibbon(centralWidget());
    // Under the control bar and its divider, above the banner.
    static_cast<QVBoxLayout *>(centralWidget()->layout())->insertWidget(2, m_demoRibbon);
    connect(m_demoRibbon, &DemoRibbon::addKeyRequested, this, &MainWindow::addKeyRequested);
    m_transcript->sampleInterviewButton()->hide();
}
