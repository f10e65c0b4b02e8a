#include "ui/ControlBar.h"

#include "session/SessionController.h"
#include "ui/AnswerTimerView.h"
#include "ui/DisplayFormat.h"
#include "ui/FlowLayout.h"
#include "ui/Icons.h"
#include "ui/LevelMeter.h"
#include "ui/StatusPill.h"
#include "ui/TextSize.h"
#include "ui/Theme.h"

#include <QCheckBox>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMouseEvent>
#include <QPushButton>
#include <QToolButton>
#include <QWindow>

namespace {
constexpr int kStartWidth = 74;
constexpr int kJobLabelMax = 22;

QWidget *group(QWidget *parent, std::initializer_list<QWidget *> widgets, int spacing = 4)
{
    auto *box = new QWidget(parent);
    auto *layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(spacing);
    for (QWidget *w : widgets)
        layout->addWidget(w);
    return box;
}

QToolButton *toolButton(const QString &text, Icons::Id icon, const QString &help, QWidget *parent)
{
    auto *button = new QToolButton(parent);
    button->setText(text);
    button->setIcon(Icons::icon(icon));
    button->setToolButtonStyle(text.isEmpty() ? Qt::ToolButtonIconOnly : Qt::ToolButtonTextBesideIcon);
    button->setToolTip(help);
    button->setAccessibleName(text.isEmpty() ? help : text);
    button->setFocusPolicy(Qt::StrongFocus);
    return button;
}

QLabel *iconLabel(Icons::Id id, QWidget *parent)
{
    auto *label = new QLabel(parent);
    label->setPixmap(Icons::icon(id).pixmap(14, 14));
    return label;
}
} // namespace

ControlBar::ControlBar(AppSettings &settings, SessionController &controller, QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_controller(controller)
{
    setAccessibleName(tr("Controls"));
    auto *flow = new FlowLayout(this, 10, 6);
    flow->setContentsMargins(10, 10, 10, 10);

    m_startStop = new QPushButton(this);
    m_startStop->setFixedWidth(kStartWidth);
    m_startStop->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    m_startStop->setDefault(false);
    m_startStop->setAutoDefault(false);
    m_status = new StatusPill(this);
    flow->addWidget(group(this, {m_startStop, m_status}, 8));

    m_micMeter = new LevelMeter(QStringLiteral("Mic"), this);
    m_meetingMeter = new LevelMeter(QStringLiteral("Mtg"), this);
    m_meetingMeter->setToolTip(tr("Meeting audio level"));
    flow->addWidget(group(this, {m_micMeter, m_meetingMeter}, 8));

    m_timer = new AnswerTimerView(this);
    flow->addWidget(m_timer);

    m_lastAnswer = new QLabel(this);
    m_lastAnswer->setToolTip(tr("Length of your last answer"));
    m_lastAnswerBox = group(this, {iconLabel(Icons::Id::lastAnswer, this), m_lastAnswer});
    flow->addWidget(m_lastAnswerBox);

    m_clock = new QLabel(this);
    m_clock->setToolTip(QStringLiteral("Total meeting time"));
    m_clock->setAccessibleName(QStringLiteral("Total meeting time"));
    QFont mono = m_clock->font();
    mono.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("monospace")});
    m_clock->setFont(mono);
    auto *clockBox = group(this, {iconLabel(Icons::Id::clock, this), m_clock});
    clockBox->setToolTip(QStringLiteral("Total meeting time"));
    flow->addWidget(clockBox);

    m_context = toolButton(QStringLiteral("Context"), Icons::Id::context, tr("Your documents: CV, notes, stories"), this);
    m_job = toolButton(QStringLiteral("Job"), Icons::Id::job, tr("Company, role, job description and interviewers"), this);
    flow->addWidget(group(this, {m_context, m_job}));

    m_showFiles = toolButton(QStringLiteral("Show files"), Icons::Id::folder,
                             QStringLiteral("Reveal the saved .wav in ~/Documents/Ketterbloom"), this);
    flow->addWidget(m_showFiles);

    m_onTop = new QCheckBox(QStringLiteral("On top"), this);
    m_onTop->setToolTip(tr("Keep this window above all other windows"));
    m_saveWav = new QCheckBox(QStringLiteral("Save .wav"), this);
    m_saveWav->setToolTip(tr("Keep a stereo recording of the session (you left, meeting right)"));
    flow->addWidget(group(this, {m_onTop, m_saveWav}, 8));

    m_smaller = toolButton({}, Icons::Id::textSmaller, QStringLiteral("Smaller answer text (Ctrl+−)"), this);
    m_bigger = toolButton({}, Icons::Id::textLarger, QStringLiteral("Bigger answer text (Ctrl++)"), this);
    flow->addWidget(group(this, {m_smaller, m_bigger}, 2));

    m_appearance = toolButton({}, Icons::Id::moon, QStringLiteral("Toggle light / dark (Ctrl+Shift+L)"), this);
    flow->addWidget(m_appearance);

    m_settingsButton = toolButton(QStringLiteral("Settings"), Icons::Id::settings, tr("Settings"), this);
    flow->addWidget(m_settingsButton);

    // Actions.
    connect(m_startStop, &QPushButton::clicked, this, [this] {
        if (m_controller.isSessionActive())
            m_controller.stop();
        else
            m_controller.start();
    });
    connect(m_context, &QToolButton::clicked, this, &ControlBar::contextRequested);
    connect(m_job, &QToolButton::clicked, this, &ControlBar::jobRequested);
    connect(m_settingsButton, &QToolButton::clicked, this, &ControlBar::settingsRequested);
    connect(m_appearance, &QToolButton::clicked, this, &ControlBar::appearanceToggleRequested);
    connect(m_showFiles, &QToolButton::clicked, this, [this] { m_controller.revealRecording(); });
    connect(m_onTop, &QCheckBox::toggled, this, [this](bool on) { m_settings.setAlwaysOnTop(on); });
    connect(m_saveWav, &QCheckBox::toggled, this, [this](bool on) { m_settings.setSaveAudio(on); });
    connect(m_smaller, &QToolButton::clicked, this,
            [this] { m_settings.setFontSize(TextSize::smaller(m_settings.fontSize())); });
    connect(m_bigger, &QToolButton::clicked, this,
            [this] { m_settings.setFontSize(TextSize::bigger(m_settings.fontSize())); });

    // Published state.
    connect(&m_controller, &SessionController::isSessionActiveChanged, this, &ControlBar::refreshSession);
    connect(&m_controller, &SessionController::statusChanged, this, &ControlBar::refreshStatus);
    connect(&m_controller, &SessionController::micLevelChanged, this, &ControlBar::refreshLevels);
    connect(&m_controller, &SessionController::meetingLevelChanged, this, &ControlBar::refreshLevels);
    connect(&m_controller, &SessionController::isSpeakingChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::speakingElapsedChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::lastAnswerDurationChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::sessionElapsedChanged, this, &ControlBar::refreshTimers);
    connect(&m_settings, &AppSettings::contextFileNamesChanged, this, &ControlBar::refreshContext);
    connect(&m_settings, &AppSettings::roleTitleChanged, this, &ControlBar::refreshJob);
    connect(&m_settings, &AppSettings::streamSourceChanged, this, &ControlBar::refreshMicLabel);
    connect(&m_settings, &AppSettings::alwaysOnTopChanged, m_onTop, &QCheckBox::setChecked);
    connect(&m_settings, &AppSettings::saveAudioChanged, m_saveWav, &QCheckBox::setChecked);
    connect(&m_settings, &AppSettings::appearanceChanged, this, &ControlBar::refreshAppearanceIcon);

    m_onTop->setChecked(m_settings.alwaysOnTop());
    m_saveWav->setChecked(m_settings.saveAudio());
    refreshSession();
    refreshStatus();
    refreshLevels();
    refreshTimers();
    refreshContext();
    refreshJob();
    refreshMicLabel();
    refreshAppearanceIcon();
}

QString ControlBar::contextButtonLabel(int fileCount)
{
    return fileCount > 0 ? QStringLiteral("Context (%1)").arg(fileCount) : QStringLiteral("Context");
}

QString ControlBar::jobButtonLabel(const QString &roleTitle)
{
    const QString role = roleTitle.simplified();
    if (role.isEmpty())
        return QStringLiteral("Job");
    if (role.size() > kJobLabelMax)
        return role.left(kJobLabelMax - 1).trimmed() + QStringLiteral("…");
    return role;
}

bool ControlBar::isMicStreamed(AppSettings::StreamSource source)
{
    return source != AppSettings::StreamSource::meetingOnly;
}

QString ControlBar::micMeterLabel(AppSettings::StreamSource source)
{
    return isMicStreamed(source) ? QStringLiteral("Mic") : QStringLiteral("Mic\u2298");
}

QString ControlBar::micMeterHelp(AppSettings::StreamSource source)
{
    return isMicStreamed(source) ? QStringLiteral("Mic audio is streamed to the model")
                                 : QStringLiteral("Mic is monitored and recorded locally, but not sent to the model");
}

void ControlBar::refreshSession()
{
    const bool active = m_controller.isSessionActive();
    m_startStop->setText(active ? QStringLiteral("Stop") : QStringLiteral("Start"));
    m_startStop->setIcon(Icons::icon(active ? Icons::Id::stop : Icons::Id::play));
    // setText drops the shortcut of a button whose text has a mnemonic; set it again.
    m_startStop->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    m_startStop->setToolTip(active ? tr("Stop the session (Ctrl+Return)") : tr("Start listening (Ctrl+Return)"));
    m_startStop->setAccessibleName(m_startStop->text());
    refreshTimers();
}

void ControlBar::refreshStatus()
{
    m_status->setStatus(m_controller.status());
}

void ControlBar::refreshLevels()
{
    m_micMeter->setLevel(m_controller.micLevel());
    m_meetingMeter->setLevel(m_controller.meetingLevel());
}

void ControlBar::refreshTimers()
{
    m_timer->setVisible(m_controller.isSessionActive());
    m_timer->setState(m_controller.isSpeaking(), m_controller.speakingElapsed());
    const std::optional<double> last = m_controller.lastAnswerDuration();
    m_lastAnswerBox->setVisible(last.has_value());
    if (last)
        m_lastAnswer->setText(QStringLiteral("last ") + DisplayFormat::shortDuration(*last));
    m_clock->setText(DisplayFormat::clock(m_controller.sessionElapsed()));
}

void ControlBar::refreshContext()
{
    m_context->setText(contextButtonLabel(int(m_settings.contextFileNames().size())));
    m_context->setAccessibleName(m_context->text());
}

void ControlBar::refreshJob()
{
    m_job->setText(jobButtonLabel(m_settings.roleTitle()));
    m_job->setAccessibleName(tr("Job: %1").arg(m_job->text()));
}

void ControlBar::refreshMicLabel()
{
    const auto source = m_settings.streamSource();
    m_micMeter->setLabel(micMeterLabel(source));
    m_micMeter->setToolTip(micMeterHelp(source));
    m_micMeter->setAccessibleDescription(micMeterHelp(source));
}

void ControlBar::refreshAppearanceIcon()
{
    const bool dark = Theme::isDark(palette());
    m_appearance->setIcon(Icons::icon(dark ? Icons::Id::sun : Icons::Id::moon));
}

void ControlBar::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        refreshAppearanceIcon();
    QWidget::changeEvent(event);
}

void ControlBar::mousePressEvent(QMouseEvent *event)
{
    if (event->button() == Qt::LeftButton && window()->windowHandle()) {
        window()->windowHandle()->startSystemMove();
        event->accept();
        return;
    }
    QWidget::mousePressEvent(event);
}
