#include "app/DesktopIntegration.h"

#include "app/AppShell.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "shortcuts/GlobalShortcuts.h"
#include "shortcuts/ShortcutSettings.h"
#include "shortcuts/ShortcutsLogging.h"
#include "ui/DesktopSettingsPage.h"
#include "ui/GeneralSettingsPage.h"
#include "ui/MainWindow.h"
#include "ui/SettingsDialog.h"
#include "ui/TranscriptView.h"

#include <QAction>
#include <QApplication>
#include <QCheckBox>
#include <QClipboard>
#include <QBoxLayout>
#include <QDBusConnection>
#include <QDialog>
#include <QGuiApplication>
#include <QLabel>
#include <QSettings>
#include <QTabWidget>

DesktopIntegration::DesktopIntegration(AppShell &shell, const PlatformChoice &platform, QObject *parent)
    : QObject(parent)
    , m_shell(shell)
    , m_platform(platform)
    , m_store(AppSettings::openDefaultStore())
    , m_catalog(ShortcutCatalog::standard())
{
    MainWindow &window = m_shell.window();
    SessionController &controller = m_shell.controller();
    m_handlers.insert(QString::fromLatin1(ShortcutCatalog::toggleSession), [&controller] {
        if (controller.isSessionActive())
            controller.stop();
        else
            controller.start();
    });
    m_handlers.insert(QString::fromLatin1(ShortcutCatalog::toggleWindow), [this] { toggleWindow(); });
    m_handlers.insert(QString::fromLatin1(ShortcutCatalog::scrollToNewest), [this, &window] {
        raiseWindow();
        window.transcriptView()->jumpToBottom();
    });
    m_handlers.insert(QString::fromLatin1(ShortcutCatalog::copyNewestAnswer), [this] { copyNewestAnswer(); });

    m_shortcutSettings = std::make_unique<ShortcutSettings>(*m_store, m_catalog);
    m_global = std::make_unique<GlobalShortcuts>(*m_shortcutSettings, QDBusConnection::sessionBus(),
                                                 m_platform.platform == "xcb" || m_platform.platform.isEmpty());
    connect(m_global.get(), &GlobalShortcuts::activated, this, &DesktopIntegration::trigger);
    connect(m_global.get(), &GlobalShortcuts::settled, this, &DesktopIntegration::logSettled);
    connect(&window, &MainWindow::settingsDialogCreated, this, &DesktopIntegration::addSettingsPage);

    if (!m_platform.stayOnTopWorks) {
        // A toggle that can't do anything is not offered (the menu and the bar share it);
        // Settings says why.
        window.alwaysOnTopAction()->setVisible(false);
    }
}

DesktopIntegration::~DesktopIntegration() = default;

void DesktopIntegration::start()
{
    m_global->start();
}

bool DesktopIntegration::addAction(const ShortcutAction &action, std::function<void()> handler)
{
    if (!m_catalog.add(action))
        return false;
    m_handlers.insert(action.id, std::move(handler));
    return true;
}

void DesktopIntegration::trigger(const QString &id)
{
    const auto handler = m_handlers.constFind(id);
    if (handler != m_handlers.cend())
        (*handler)();
}

void DesktopIntegration::raiseWindow()
{
    MainWindow &window = m_shell.window();
    window.setWindowState((window.windowState() & ~Qt::WindowMinimized) | Qt::WindowActive);
    window.show();
    window.raise();
    window.activateWindow();
}

void DesktopIntegration::toggleWindow()
{
    MainWindow &window = m_shell.window();
    if (window.isVisible() && !window.isMinimized()) {
        // The window's open dialogs go with it (a dialog left alone on the screen would give
        // the hidden window away) and come back with it.
        m_hiddenDialogs.clear();
        for (QWidget *widget : QApplication::topLevelWidgets()) {
            if (widget != &window && widget->isVisible() && qobject_cast<QDialog *>(widget)) {
                m_hiddenDialogs.append(widget);
                widget->hide();
            }
        }
        window.hide();
        return;
    }
    raiseWindow();
    for (const QPointer<QWidget> &dialog : std::as_const(m_hiddenDialogs)) {
        if (dialog) {
            dialog->show();
            dialog->raise();
        }
    }
    m_hiddenDialogs.clear();
}

void DesktopIntegration::logSettled()
{
    const GlobalShortcuts::Mechanism mechanism = m_global->mechanism();
    QString line = QStringLiteral("[Ketterbloom] display platform: %1%2; global shortcuts: %3")
                       .arg(QGuiApplication::platformName(),
                            m_platform.xwaylandOffered && m_platform.platform == "xcb" ? QStringLiteral(" (XWayland)")
                                                                                       : QString(),
                            GlobalShortcuts::mechanismName(mechanism));
    const QStringList passedOver = m_global->passedOver();
    if (!passedOver.isEmpty())
        line += QStringLiteral(" (%1)").arg(passedOver.join(QLatin1Char(' ')));
    qCInfo(lcShortcuts).noquote() << line;
}

void DesktopIntegration::copyNewestAnswer()
{
    const QList<QAPair> &pairs = m_shell.controller().pairs();
    for (auto it = pairs.crbegin(); it != pairs.crend(); ++it) {
        if (!it->answer.trimmed().isEmpty()) {
            QApplication::clipboard()->setText(it->answer);
            return;
        }
    }
}

void DesktopIntegration::handleLaunchRequest(bool startSession)
{
    raiseWindow();
    if (startSession && !m_shell.controller().isSessionActive())
        m_shell.controller().start();
}

void DesktopIntegration::addSettingsPage(SettingsDialog *dialog)
{
    DesktopSettingsPage::Placement placement;
    placement.stayOnTopWorks = m_platform.stayOnTopWorks;
    placement.xwaylandOffered = m_platform.xwaylandOffered;
    placement.runsThroughXWayland = m_platform.xwaylandOffered && m_platform.platform == "xcb";
    placement.waylandPluginMissing = m_platform.waylandPluginMissing;
    auto *page = new DesktopSettingsPage(*m_shortcutSettings, *m_global, placement, dialog);
    connect(page, &DesktopSettingsPage::xwaylandChosen, this,
            [this](bool on) { m_store->setValue(QLatin1String(PlatformChoice::settingKey), on); });
    dialog->addPage(page);
    if (!m_platform.stayOnTopWorks) {
        // The look page says it in place of its checkbox.
        QCheckBox *onTop = dialog->generalPage()->alwaysOnTopCheck();
        onTop->setVisible(false);
        if (auto *layout = qobject_cast<QBoxLayout *>(onTop->parentWidget()->layout())) {
            auto *note = new QLabel(DesktopSettingsPage::stayOnTopUnavailableText(), onTop->parentWidget());
            note->setWordWrap(true);
            layout->insertWidget(layout->indexOf(onTop) + 1, note);
        }
    }
}
