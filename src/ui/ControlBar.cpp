#include "ui/ControlBar.h"

#include "session/SessionController.h"
#include "ui/AnswerTimerView.h"
#include "ui/DisplayFormat.h"
#include "ui/IconLabel.h"
#include "ui/Icons.h"
#include "ui/LevelMeter.h"
#include "ui/StatusPill.h"
#include "ui/Theme.h"
#include "ui/WindowActions.h"

#include <QAction>
#include <QEvent>
#include <QHBoxLayout>
#include <QLabel>
#include <QMenu>
#include <QMouseEvent>
#include <QPushButton>
#include <QToolButton>
#include <QVBoxLayout>
#include <QWindow>

namespace {
constexpr int kStartWidth = 74;
constexpr int kJobLabelMax = 22;
constexpr int kPadX = 8;
constexpr int kPadY = 8;
constexpr int kGroupGap = 5;
constexpr int kButtonGap = 2;

QWidget *iconAndLabel(Icons::Id icon, QLabel *label, QWidget *parent, IconLabel **glyphOut = nullptr)
{
    auto *box = new QWidget(parent);
    auto *layout = new QHBoxLayout(box);
    layout->setContentsMargins(0, 0, 0, 0);
    layout->setSpacing(3);
    auto *glyph = new IconLabel(icon, box);
    glyph->setFont(label->font());   // the icon goes with its text's size
    if (glyphOut)
        *glyphOut = glyph;
    layout->addWidget(glyph);
    layout->addWidget(label);
    return box;
}
} // namespace

ControlBar::ControlBar(AppSettings &settings, SessionController &controller, WindowActions &actions,
                       QWidget *parent)
    : QWidget(parent)
    , m_settings(settings)
    , m_controller(controller)
    , m_commands(actions)
    , m_startStop(new QPushButton(this))
    , m_status(new StatusPill(this))
    , m_meters(new QWidget(this))
    , m_micMeter(new LevelMeter(tr("Mic"), m_meters))
    , m_meetingMeter(new LevelMeter(tr("Mtg"), m_meters))
    , m_timer(new AnswerTimerView(this))
    , m_clockBox(new QWidget(this))
    , m_lastAnswer(new QLabel(m_clockBox))
    , m_clock(new QLabel(m_clockBox))
    , m_overflow(new QToolButton(this))
    , m_overflowMenu(new QMenu(this))
{
    setAccessibleName(tr("Controls"));
    setSizePolicy(QSizePolicy::Preferred, QSizePolicy::Fixed);

    m_startStop->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    m_startStop->setDefault(false);
    m_startStop->setAutoDefault(false);

    // The two meters one above the other, as one column of the row.
    auto *meters = new QVBoxLayout(m_meters);
    meters->setContentsMargins(0, 0, 0, 0);
    meters->setSpacing(3);
    meters->addWidget(m_micMeter);
    meters->addWidget(m_meetingMeter);
    m_meetingMeter->setToolTip(tr("Meeting audio level"));

    // The meeting clock with the last answer's length under it, in one column: room for
    // "last 0:00" is kept, so nothing moves when it appears.
    m_clock->setToolTip(tr("Total meeting time"));
    m_clock->setAccessibleName(tr("Total meeting time"));
    QFont mono = m_clock->font();
    mono.setFamilies({QStringLiteral("DejaVu Sans Mono"), QStringLiteral("Liberation Mono"), QStringLiteral("monospace")});
    m_clock->setFont(mono);
    auto *clockRow = iconAndLabel(Icons::Id::clock, m_clock, m_clockBox, &m_clockGlyph);
    clockRow->setToolTip(tr("Total meeting time"));
    QFont small = m_lastAnswer->font();
    small.setPointSizeF(qMax(8.0, small.pointSizeF() - 1));
    m_lastAnswer->setFont(small);
    m_lastAnswer->setMinimumWidth(QFontMetrics(small).horizontalAdvance(lastAnswerText(QStringLiteral("0:00"))));
    m_lastAnswer->setToolTip(tr("Length of your last answer"));
    m_lastAnswerBox = iconAndLabel(Icons::Id::lastAnswer, m_lastAnswer, m_clockBox, &m_lastGlyph);
    m_lastAnswerBox->setToolTip(tr("Length of your last answer"));
    QSizePolicy keep = m_lastAnswerBox->sizePolicy();
    keep.setRetainSizeWhenHidden(true);
    m_lastAnswerBox->setSizePolicy(keep);
    auto *clockColumn = new QVBoxLayout(m_clockBox);
    clockColumn->setContentsMargins(0, 0, 0, 0);
    clockColumn->setSpacing(0);
    clockColumn->addWidget(clockRow);
    clockColumn->addWidget(m_lastAnswerBox);

    for (QAction *action : {m_commands.contextDocuments(), m_commands.jobContext(), m_commands.showFiles(),
                            m_commands.alwaysOnTop(), m_commands.saveRecording(), m_commands.smallerText(),
                            m_commands.biggerText(), m_commands.toggleAppearance(), m_commands.settings()})
        addToolAction(action, false);

    m_overflow->setText(QStringLiteral("\u22EF"));
    m_overflow->setIcon(Icons::icon(Icons::Id::more));
    m_overflow->setToolButtonStyle(Qt::ToolButtonIconOnly);
    m_overflow->setAutoRaise(true);
    m_overflow->setToolTip(tr("More controls"));
    m_overflow->setAccessibleName(tr("More controls"));
    m_overflow->setFocusPolicy(Qt::StrongFocus);
    m_overflow->setPopupMode(QToolButton::InstantPopup);
    m_overflow->setMenu(m_overflowMenu);
    m_overflow->setStyleSheet(QStringLiteral("QToolButton::menu-indicator { image: none; width: 0; }"));
    m_overflow->hide();

    // Actions.
    connect(m_startStop, &QPushButton::clicked, this, [this] {
        if (m_controller.isSessionActive())
            m_controller.stop();
        else
            m_controller.start();
    });

    // Published state.
    connect(&m_controller, &SessionController::isSessionActiveChanged, this, &ControlBar::refreshSession);
    connect(&m_controller, &SessionController::statusChanged, this, &ControlBar::refreshStatus);
    connect(&m_controller, &SessionController::isStartingChanged, this, &ControlBar::refreshStatus);
    connect(&m_controller, &SessionController::isStartingChanged, this, &ControlBar::refreshSession);
    connect(&m_controller, &SessionController::micLevelChanged, this, &ControlBar::refreshLevels);
    connect(&m_controller, &SessionController::meetingLevelChanged, this, &ControlBar::refreshLevels);
    connect(&m_controller, &SessionController::isSpeakingChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::speakingElapsedChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::lastAnswerDurationChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::sessionElapsedChanged, this, &ControlBar::refreshTimers);
    connect(&m_controller, &SessionController::lastRecordingURLChanged, this, &ControlBar::refreshFiles);
    connect(&m_controller, &SessionController::lastTranscriptURLChanged, this, &ControlBar::refreshFiles);
    connect(&m_settings, &AppSettings::contextFileNamesChanged, this, &ControlBar::refreshContext);
    connect(&m_settings, &AppSettings::roleTitleChanged, this, &ControlBar::refreshJob);
    connect(&m_settings, &AppSettings::streamSourceChanged, this, &ControlBar::refreshMicLabel);
    connect(&m_settings, &AppSettings::appearanceChanged, this, &ControlBar::refreshAppearanceIcon);

    refreshSession();
    refreshStatus();
    refreshLevels();
    refreshTimers();
    refreshContext();
    refreshJob();
    refreshFiles();
    refreshMicLabel();
    refreshAppearanceIcon();
    refreshIconSizes();
}

void ControlBar::addToolAction(QAction *action, bool beforeSettings)
{
    auto *button = new QToolButton(this);
    button->setDefaultAction(action);
    button->setToolButtonStyle(Qt::ToolButtonIconOnly);
    button->setAutoRaise(true);
    button->setFocusPolicy(Qt::StrongFocus);
    const auto name = [button, action] {
        button->setAccessibleName(action->iconText());
        button->setAccessibleDescription(action->toolTip());
    };
    name();
    connect(action, &QAction::changed, button, name);
    connect(action, &QAction::changed, this, [this] {
        // A shown or hidden action changes what goes where.
        m_shownButtons = -1;
        updateGeometry();
        relayout();
    });
    qsizetype at = m_actions.size();
    if (beforeSettings && m_actions.size() > 0 && m_actions.constLast() == m_commands.settings())
        at = m_actions.size() - 1;
    m_actions.insert(at, action);
    m_buttons.insert(at, button);
    button->setIconSize(QSize(Icons::sizeFor(fontMetrics()), Icons::sizeFor(fontMetrics())));
    m_shownButtons = -1;
    updateGeometry();
    relayout();
}

QToolButton *ControlBar::buttonFor(const QAction *action) const
{
    const qsizetype index = m_actions.indexOf(const_cast<QAction *>(action));
    return index < 0 ? nullptr : m_buttons.at(index);
}

QList<QAction *> ControlBar::overflowActions() const
{
    return m_overflowMenu->actions();
}

QList<QWidget *> ControlBar::fixedWidgets() const
{
    return {m_startStop, m_status, m_meters, m_timer, m_clockBox};
}

namespace {
// The room a fixed widget keeps, shown or not.
QSize reserved(QWidget *widget, int startWidth)
{
    QSize size = widget->sizeHint().expandedTo(widget->minimumSizeHint());
    if (qobject_cast<QPushButton *>(widget))
        size.setWidth(qMax(startWidth, size.width()));
    return size;
}
} // namespace

int ControlBar::fixedWidth() const
{
    int width = kPadX;
    for (QWidget *w : fixedWidgets())
        width += reserved(w, kStartWidth).width() + kGroupGap;
    return width;
}

int ControlBar::clockIconsWidth() const
{
    return qMax(m_clockGlyph->sizeHint().width(), m_lastGlyph->sizeHint().width()) + 3;
}

void ControlBar::setClockIconsShown(bool shown)
{
    if (m_clockGlyph->isHidden() != shown)
        return;
    m_clockGlyph->setVisible(shown);
    m_lastGlyph->setVisible(shown);
    // The boxes' layouts settle their new widths before the bar places them again.
    m_clockBox->layout()->activate();
    m_lastAnswerBox->layout()->activate();
}

int ControlBar::rowHeight() const
{
    int height = 0;
    for (QWidget *w : fixedWidgets())
        height = qMax(height, reserved(w, kStartWidth).height());
    for (QToolButton *b : m_buttons)
        height = qMax(height, b->sizeHint().height());
    return height;
}

QSize ControlBar::sizeHint() const
{
    int width = fixedWidth();
    for (QToolButton *b : m_buttons)
        width += b->sizeHint().width() + kButtonGap;
    return {width + kPadX, rowHeight() + 2 * kPadY};
}

QSize ControlBar::minimumSizeHint() const
{
    const int icons = m_clockGlyph->isHidden() ? 0 : clockIconsWidth();
    return {fixedWidth() - icons + m_overflow->sizeHint().width() + kPadX, rowHeight() + 2 * kPadY};
}

void ControlBar::relayout()
{
    // Where even the fixed controls are short of room, the clock column drops its icons
    // (their text keeps its place).
    const int fullWidth = fixedWidth() + (m_clockGlyph->isHidden() ? clockIconsWidth() : 0)
                          + m_overflow->sizeHint().width() + kPadX;
    setClockIconsShown(width() >= fullWidth);
    const int row = rowHeight();
    const int top = kPadY;
    int x = kPadX;
    for (QWidget *w : fixedWidgets()) {
        const QSize size = reserved(w, kStartWidth);
        w->setGeometry(x, top + (row - size.height()) / 2, size.width(), size.height());
        x += size.width() + kGroupGap;
    }

    // The compact buttons, right-aligned; those that do not fit go into the menu. Buttons
    // of hidden actions take no room and stay out of the menu.
    const int right = width() - kPadX;
    const int available = right - x;
    QList<qsizetype> offered;
    for (qsizetype i = 0; i < m_actions.size(); ++i) {
        if (m_actions.at(i)->isVisible())
            offered.append(i);
    }
    QList<int> widths;
    int total = -kButtonGap;
    for (qsizetype i : offered) {
        widths.append(m_buttons.at(i)->sizeHint().width());
        total += widths.last() + kButtonGap;
    }
    qsizetype shown = offered.size();
    if (total > available) {
        const int room = available - m_overflow->sizeHint().width() - kButtonGap;
        int used = 0;
        shown = 0;
        while (shown < offered.size() && used + widths.at(shown) <= room) {
            used += widths.at(shown) + kButtonGap;
            ++shown;
        }
    }
    int bx = right;
    if (shown < offered.size()) {
        const QSize size = m_overflow->sizeHint();
        bx -= size.width();
        m_overflow->setGeometry(bx, top + (row - size.height()) / 2, size.width(), size.height());
        bx -= kButtonGap;
    }
    for (qsizetype k = shown - 1; k >= 0; --k) {
        QToolButton *button = m_buttons.at(offered.at(k));
        const QSize size = button->sizeHint();
        bx -= size.width();
        button->setGeometry(bx, top + (row - size.height()) / 2, size.width(), size.height());
        bx -= kButtonGap;
    }
    const int layoutKey = int(shown) * 1000 + int(offered.size());
    if (layoutKey == m_shownButtons)
        return;
    m_shownButtons = layoutKey;
    m_overflowMenu->clear();
    for (qsizetype i = 0; i < m_buttons.size(); ++i) {
        const qsizetype k = offered.indexOf(i);
        m_buttons.at(i)->setVisible(k >= 0 && k < shown);
        if (k >= shown)
            m_overflowMenu->addAction(m_actions.at(i));
    }
    m_overflow->setVisible(shown < offered.size());
}

bool ControlBar::event(QEvent *event)
{
    if (event->type() == QEvent::LayoutRequest) {
        updateGeometry();
        m_shownButtons = -1;
        relayout();
    }
    return QWidget::event(event);
}

void ControlBar::resizeEvent(QResizeEvent *event)
{
    QWidget::resizeEvent(event);
    relayout();
}

QString ControlBar::contextButtonLabel(int fileCount)
{
    return fileCount > 0 ? tr("Context (%1)").arg(fileCount) : tr("Context");
}

QString ControlBar::jobButtonLabel(const QString &roleTitle)
{
    const QString role = roleTitle.simplified();
    if (role.isEmpty())
        return tr("Job");
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
    return isMicStreamed(source) ? tr("Mic") : tr("Mic\u2298");
}

QString ControlBar::micMeterHelp(AppSettings::StreamSource source)
{
    return isMicStreamed(source) ? tr("Mic audio is streamed to the model")
                                 : tr("Mic is monitored and recorded locally, but not sent to the model");
}

QString ControlBar::lastAnswerText(const QString &duration)
{
    return tr("last %1").arg(duration);
}

QString ControlBar::showFilesDisabledHelp()
{
    return tr("Nothing saved yet: the transcript and recording of a session appear in "
              "~/Documents/Ketterbloom after Stop");
}

void ControlBar::refreshSession()
{
    const bool active = m_controller.isSessionActive();
    m_startStop->setText(active ? tr("Stop") : tr("Start"));
    m_startStop->setIcon(Icons::icon(active ? Icons::Id::stop : Icons::Id::play));
    // setText drops the shortcut of a button whose text has a mnemonic; set it again.
    m_startStop->setShortcut(QKeySequence(Qt::CTRL | Qt::Key_Return));
    // A second Start while the first is still starting would be refused; say so instead.
    const bool starting = !active && m_controller.isStarting();
    m_startStop->setEnabled(!starting);
    m_startStop->setToolTip(active     ? tr("Stop the session (Ctrl+Return)")
                            : starting ? tr("Starting the session…")
                                       : tr("Start listening (Ctrl+Return)"));
    m_startStop->setAccessibleName(m_startStop->text());
    refreshTimers();
}

void ControlBar::refreshStatus()
{
    m_status->setStatus(m_controller.status(), m_controller.isStarting());
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
        m_lastAnswer->setText(lastAnswerText(DisplayFormat::shortDuration(*last)));
    m_clock->setText(DisplayFormat::clock(m_controller.sessionElapsed()));
}

void ControlBar::refreshContext()
{
    const QString label = contextButtonLabel(int(m_settings.contextFileNames().size()));
    m_commands.contextDocuments()->setIconText(label);
    m_commands.contextDocuments()->setToolTip(tr("%1 \u2014 Your documents: CV, notes, stories").arg(label));
}

void ControlBar::refreshJob()
{
    const QString label = jobButtonLabel(m_settings.roleTitle());
    m_commands.jobContext()->setIconText(label);
    m_commands.jobContext()->setToolTip(tr("Job: %1 \u2014 company, role, job description and interviewers").arg(label));
}

void ControlBar::refreshFiles()
{
    const bool saved = !m_controller.lastRecordingURL().isEmpty() || !m_controller.lastTranscriptURL().isEmpty();
    m_commands.showFiles()->setEnabled(saved);
    m_commands.showFiles()->setToolTip(saved ? tr("Reveal the saved .wav in ~/Documents/Ketterbloom")
                                        : showFilesDisabledHelp());
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
    m_commands.setShownDark(Theme::isDark(palette()));
}

void ControlBar::refreshIconSizes()
{
    const int side = Icons::sizeFor(fontMetrics());
    for (QToolButton *b : m_buttons)
        b->setIconSize(QSize(side, side));
    m_overflow->setIconSize(QSize(side, side));
    m_startStop->setIconSize(QSize(side, side));
}

void ControlBar::changeEvent(QEvent *event)
{
    if (event->type() == QEvent::PaletteChange)
        refreshAppearanceIcon();
    if (event->type() == QEvent::FontChange) {
        refreshIconSizes();
        updateGeometry();
    }
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
