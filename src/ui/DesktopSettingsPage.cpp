#include "ui/DesktopSettingsPage.h"

#include "shortcuts/GlobalShortcuts.h"
#include "shortcuts/ShortcutSettings.h"

#include <QCheckBox>
#include <QGridLayout>
#include <QGroupBox>
#include <QKeySequenceEdit>
#include <QLabel>
#include <QPushButton>
#include <QSignalBlocker>
#include <QVBoxLayout>

namespace {
QLabel *wrapped(const QString &text, QWidget *parent)
{
    auto *label = new QLabel(text, parent);
    label->setWordWrap(true);
    return label;
}
} // namespace

DesktopSettingsPage::DesktopSettingsPage(ShortcutSettings &shortcuts, GlobalShortcuts &global,
                                         const Placement &placement, QWidget *parent)
    : SettingsPage(tr("&Desktop"), parent)
    , m_shortcuts(shortcuts)
    , m_global(global)
{
    auto *layout = new QVBoxLayout(this);
    layout->addWidget(buildShortcuts());
    layout->addWidget(buildStayOnTop(placement));
    layout->addStretch(1);
    connect(&m_global, &GlobalShortcuts::statusChanged, this, &DesktopSettingsPage::load);
    connect(&m_shortcuts, &ShortcutSettings::changed, this, &DesktopSettingsPage::load);
    load();
}

QWidget *DesktopSettingsPage::buildShortcuts()
{
    auto *box = new QGroupBox(tr("Global shortcuts (work while other apps have the focus)"), this);
    auto *layout = new QVBoxLayout(box);
    m_mechanism = wrapped(QString(), box);
    m_mechanism->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_mechanism);
    auto *grid = new QGridLayout;
    int row = 0;
    for (const ShortcutAction &action : m_shortcuts.catalog().actions()) {
        const QString id = action.id;
        auto *label = new QLabel(action.label + QLatin1Char(':'), box);
        auto *edit = new QKeySequenceEdit(box);
        edit->setAccessibleName(action.label);
        edit->setClearButtonEnabled(true);
        label->setBuddy(edit);
        auto *reset = new QPushButton(tr("Default"), box);
        reset->setAccessibleName(tr("Default keys for %1").arg(action.label));
        reset->setToolTip(action.defaultKeys.toString(QKeySequence::NativeText));
        auto *bound = new QLabel(box);
        bound->setForegroundRole(QPalette::PlaceholderText);
        grid->addWidget(label, row, 0);
        grid->addWidget(edit, row, 1);
        grid->addWidget(reset, row, 2);
        grid->addWidget(bound, row + 1, 1, 1, 2);
        row += 2;
        m_edits.insert(id, edit);
        m_bound.insert(id, bound);
        connect(edit, &QKeySequenceEdit::editingFinished, this, [this, id] { commit(id); });
        // The clear button empties the field without finishing an edit.
        connect(edit, &QKeySequenceEdit::keySequenceChanged, this, [this, id](const QKeySequence &keys) {
            if (keys.isEmpty())
                commit(id);
        });
        connect(reset, &QPushButton::clicked, this, [this, id] {
            const auto reset = m_shortcuts.resetToDefault(id);
            if (!reset.ok()) {
                m_message->setText(tr("The default keys are used by \u201c%1\u201d; change that one first.")
                                       .arg(m_shortcuts.catalog().find(reset.error().actionID)->label));
            } else {
                m_message->clear();
            }
            load();
        });
    }
    layout->addLayout(grid);
    m_message = wrapped(QString(), box);
    m_message->setAccessibleName(tr("Shortcut message"));
    layout->addWidget(m_message);
    return box;
}

QWidget *DesktopSettingsPage::buildStayOnTop(const Placement &placement)
{
    auto *box = new QGroupBox(tr("Staying on top"), this);
    auto *layout = new QVBoxLayout(box);
    if (placement.xwaylandOffered) {
        m_xwayland = new QCheckBox(tr("Show the window through &XWayland, so that it can stay on top "
                                      "(from the next start)"),
                                   box);
        m_xwayland->setChecked(placement.runsThroughXWayland);
        connect(m_xwayland, &QCheckBox::toggled, this, &DesktopSettingsPage::xwaylandChosen);
        layout->addWidget(m_xwayland);
    }
    if (placement.waylandPluginMissing) {
        layout->addWidget(wrapped(tr("A native Wayland window needs Qt's Wayland platform plugin (package "
                                     "qt6-wayland), which is not installed: the window runs through XWayland."),
                                  box));
    }
    if (!placement.stayOnTopWorks) {
        m_onTopNote = wrapped(stayOnTopUnavailableText(), box);
        layout->addWidget(m_onTopNote);
    } else if (!m_xwayland) {
        layout->addWidget(wrapped(tr("The window stays on top while \u201cAlways on Top\u201d is on "
                                     "(View menu)."),
                                  box));
    }
    return box;
}

QString DesktopSettingsPage::stayOnTopUnavailableText()
{
    return tr("Your desktop doesn't let apps stay on top; use your window manager's 'Always on top' menu");
}

void DesktopSettingsPage::commit(const QString &actionID)
{
    QKeySequenceEdit *edit = m_edits.value(actionID);
    const QKeySequence keys = edit->keySequence();
    if (const auto set = m_shortcuts.setKeys(actionID, keys); !set.ok()) {
        m_message->setText(tr("%1 is already used by \u201c%2\u201d.")
                               .arg(keys.toString(QKeySequence::NativeText),
                                    m_shortcuts.catalog().find(set.error().actionID)->label));
    } else {
        m_message->clear();
    }
    load();
}

void DesktopSettingsPage::load()
{
    m_mechanism->setText(m_global.statusText());
    const QMap<QString, QString> triggers = m_global.triggers();
    const GlobalShortcuts::Mechanism mechanism = m_global.mechanism();
    for (auto it = m_edits.cbegin(); it != m_edits.cend(); ++it) {
        const QKeySequence keys = m_shortcuts.keys(it.key());
        if (!it.value()->hasFocus() || it.value()->keySequence() != keys) {
            const QSignalBlocker block(it.value());
            it.value()->setKeySequence(keys);
        }
        QString note;
        if (mechanism != GlobalShortcuts::Mechanism::probing && mechanism != GlobalShortcuts::Mechanism::none) {
            if (triggers.contains(it.key()))
                note = tr("Active: %1").arg(triggers.value(it.key()));
            else if (!keys.isEmpty())
                note = tr("Not active: the desktop did not grant these keys.");
        }
        m_bound.value(it.key())->setText(note);
        m_bound.value(it.key())->setVisible(!note.isEmpty());
    }
}
