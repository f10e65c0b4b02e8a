#include "ui/ScreenQuestionFlow.h"

#include "screenshot/ScreenImage.h"
#include "screenshot/ScreenshotTaker.h"
#include "session/SessionController.h"
#include "settings/AppSettings.h"
#include "ui/ScreenRegionPicker.h"

#include <QAction>
#include <QDBusConnection>
#include <QGuiApplication>
#include <QMessageBox>
#include <QPushButton>
#include <QWidget>

ScreenQuestionFlow::ScreenQuestionFlow(AppSettings &settings, SessionController &controller, QWidget *window,
                                       QObject *parent)
    : QObject(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_window(window)
    , m_action(new QAction(actionText(), this))
{
    m_action->setShortcut(QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_A));
    connect(m_action, &QAction::triggered, this, &ScreenQuestionFlow::start);
    connect(&m_controller, &SessionController::isSessionActiveChanged, this, &ScreenQuestionFlow::refresh);
    refresh();

    m_capture = [this](QWidget *w, std::function<void(const ScreenshotResult &)> done) {
        if (!m_taker)
            m_taker = new ScreenshotTaker(QDBusConnection::sessionBus(), this);
        // One finished() per take(); the connection goes with it.
        auto connection = std::make_shared<QMetaObject::Connection>();
        *connection = connect(m_taker, &ScreenshotTaker::finished, this,
                              [connection, done](const ScreenshotResult &result) {
                                  QObject::disconnect(*connection);
                                  done(result);
                              });
        m_taker->take(portalWindowId(w), w ? w->screen() : nullptr);
    };
    m_privacyPrompt = [](QWidget *w) {
        QMessageBox box(QMessageBox::Information, actionText(), privacyNote(), QMessageBox::Cancel, w);
        QPushButton *go = box.addButton(tr("Continue"), QMessageBox::AcceptRole);
        box.setDefaultButton(go);
        box.exec();
        return box.clickedButton() == go;
    };
}

ScreenQuestionFlow::~ScreenQuestionFlow()
{
    delete m_picker;
}

ScreenRegionPicker *ScreenQuestionFlow::picker() const
{
    return m_picker;
}

QString ScreenQuestionFlow::actionText()
{
    return tr("Answer from screen");
}

QString ScreenQuestionFlow::unavailableTip()
{
    return tr("Start a session to ask about what is on your screen");
}

QString ScreenQuestionFlow::availableTip()
{
    return tr("Take a screenshot, drag around the question, and get an answer (Ctrl+Shift+A)");
}

QString ScreenQuestionFlow::privacyNote()
{
    return tr("Answer from screen takes a screenshot and shows it to you first. Only the part you then "
              "choose (or the whole screen, if you press Enter) is sent — as a picture of at most 1600 "
              "pixels — to OpenAI's realtime service, the same service that hears the meeting, with a "
              "request to answer the question in it.\n\n"
              "Choose just the question, so that faces and names from the call are not sent along. "
              "Ketterbloom keeps only a small thumbnail on the card; the picture itself is not sent again "
              "later. Your desktop may ask you once to allow screenshots.");
}

QString ScreenQuestionFlow::portalWindowId(QWidget *window)
{
    if (!window || QGuiApplication::platformName() != QLatin1String("xcb"))
        return {};
    return QStringLiteral("x11:%1").arg(window->window()->winId(), 0, 16);
}

void ScreenQuestionFlow::refresh()
{
    const bool active = m_controller.isSessionActive();
    m_action->setEnabled(active && !m_busy);
    m_action->setToolTip(active ? availableTip() : unavailableTip());
}

void ScreenQuestionFlow::start()
{
    if (m_busy)
        return;
    if (!m_controller.isSessionActive()) {
        m_controller.screenQuestionFailed(tr("Start a session to ask about your screen — nothing was sent."));
        return;
    }
    if (!m_settings.screenPrivacyNoteShown()) {
        if (!m_privacyPrompt(m_window)) {
            m_controller.screenQuestionFailed(ScreenshotResult::cancelled().message);
            return;
        }
        m_settings.setScreenPrivacyNoteShown(true);
    }
    m_busy = true;
    refresh();
    m_capture(m_window, [self = QPointer<ScreenQuestionFlow>(this)](const ScreenshotResult &result) {
        if (self)
            self->captured(result);
    });
}

void ScreenQuestionFlow::captured(const ScreenshotResult &result)
{
    if (!result.isCaptured()) {
        finish(result.message);
        return;
    }
    m_image = result.image;
    delete m_picker;
    m_picker = new ScreenRegionPicker(m_image);
    connect(m_picker, &ScreenRegionPicker::picked, this, &ScreenQuestionFlow::picked);
    connect(m_picker, &ScreenRegionPicker::cancelled, this,
            [this] { finish(ScreenshotResult::cancelled().message); });
    m_picker->present(m_window ? m_window->screen() : nullptr);
}

void ScreenQuestionFlow::picked(const QRect &region)
{
    const PreparedScreenImage prepared = ScreenImage::prepare(m_image, region);
    m_image = QImage();
    if (prepared.isNull()) {
        finish(tr("The screenshot could not be prepared — nothing was sent."));
        return;
    }
    // The session may have ended while the user was choosing; it then says so itself.
    m_controller.askAboutScreen(prepared.jpeg, prepared.thumbnailJpeg);
    finish();
}

void ScreenQuestionFlow::finish(const QString &banner)
{
    if (m_picker) {
        m_picker->hide();
        m_picker->deleteLater();
        m_picker = nullptr;
    }
    m_image = QImage();
    m_busy = false;
    refresh();
    if (!banner.isEmpty())
        m_controller.screenQuestionFailed(banner);
}
