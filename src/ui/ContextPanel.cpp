#include "ui/ContextPanel.h"

#include "ui/BackgroundContextLoad.h"

#include "settings/AppSettings.h"
#include "settings/ContextLoader.h"

#include <QDialogButtonBox>
#include <QFileDialog>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QLocale>
#include <QMessageBox>
#include <QFileInfo>
#include <QPushButton>
#include <QStandardPaths>
#include <QVBoxLayout>

namespace {
QString blockHeader(const QString &name)
{
    return QStringLiteral("----- ") + name + QStringLiteral(" -----\n");
}
} // namespace

ContextPanel::ContextPanel(AppSettings &settings, QWidget *parent)
    : QDialog(parent)
    , m_settings(settings)
    , m_list(new QListWidget(this))
    , m_error(new QLabel(this))
    , m_notes(new QLabel(this))
    , m_size(new QLabel(this))
    , m_remove(new QPushButton(tr("&Remove"), this))
    , m_clear(new QPushButton(tr("C&lear All"), this))
    , m_add(new QPushButton(tr("Add files…"), this))
    , m_reading(new QLabel(this))
{
    setWindowTitle(tr("Context Documents"));
    setWindowModality(Qt::WindowModal);
    resize(460, 400);
    auto *layout = new QVBoxLayout(this);

    auto *intro = new QLabel(tr("Your CV, project notes and stories. Answers quote them. Accepted: %1")
                                 .arg(ContextLoader::kindsLabel()),
                             this);
    intro->setWordWrap(true);
    layout->addWidget(intro);

    m_list->setAccessibleName(tr("Loaded context files"));
    m_list->setSelectionMode(QAbstractItemView::SingleSelection);
    layout->addWidget(m_list, 1);

    auto *row = new QHBoxLayout;
    m_add->setAccessibleName(tr("Add files…"));
    row->addWidget(m_add);
    row->addWidget(m_remove);
    row->addWidget(m_clear);
    row->addStretch(1);
    layout->addLayout(row);

    m_error->setWordWrap(true);
    QPalette errorPalette = m_error->palette();
    errorPalette.setColor(QPalette::WindowText, QColor(0xc6, 0x28, 0x28));
    m_error->setPalette(errorPalette);
    m_error->hide();
    layout->addWidget(m_error);
    m_notes->setWordWrap(true);
    m_notes->setTextInteractionFlags(Qt::TextSelectableByMouse);
    m_notes->hide();
    layout->addWidget(m_notes);
    m_reading->setForegroundRole(QPalette::PlaceholderText);
    m_reading->hide();
    layout->addWidget(m_reading);
    m_size->setForegroundRole(QPalette::PlaceholderText);
    layout->addWidget(m_size);

    auto *buttons = new QDialogButtonBox(QDialogButtonBox::Close, this);
    layout->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(m_add, &QPushButton::clicked, this, &ContextPanel::chooseFiles);
    connect(m_remove, &QPushButton::clicked, this, [this] {
        if (QListWidgetItem *item = m_list->currentItem())
            removeFile(item->text());
    });
    connect(m_clear, &QPushButton::clicked, this, &ContextPanel::confirmClearAll);
    connect(m_list, &QListWidget::currentRowChanged, this, [this](int row) { m_remove->setEnabled(row >= 0); });
    connect(&m_settings, &AppSettings::contextFileNamesChanged, this, &ContextPanel::refresh);
    connect(&m_settings, &AppSettings::instructionsChanged, this, &ContextPanel::refresh);
    refresh();
}

QFileDialog *ContextPanel::documentsDialog(QWidget *parent)
{
    auto *dialog = new QFileDialog(parent, tr("Add Context Documents"),
                                   QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation),
                                   ContextLoader::fileDialogFilter());
    dialog->setAttribute(Qt::WA_DeleteOnClose);
    dialog->setFileMode(QFileDialog::ExistingFiles);
    return dialog;
}

void ContextPanel::chooseFiles()
{
    QFileDialog *dialog = documentsDialog(this);
    connect(dialog, &QFileDialog::filesSelected, this, &ContextPanel::addFiles);
    dialog->open();
}

void ContextPanel::addFiles(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    m_pending.append(paths);
    if (m_pending.size() == 1)
        readNext();
}

void ContextPanel::readNext()
{
    const QStringList &paths = m_pending.first();
    m_reading->setText(paths.size() == 1 ? tr("Reading %1…").arg(QFileInfo(paths.first()).fileName())
                                         : tr("Reading %1 files…").arg(paths.size()));
    m_reading->show();
    m_add->setEnabled(false);
    BackgroundContextLoad::start(this, paths, [this](const ContextLoader::Result &result) {
        m_pending.removeFirst();
        apply(result);
        if (!m_pending.isEmpty()) {
            readNext();
            return;
        }
        m_reading->hide();
        m_add->setEnabled(true);
    });
}

void ContextPanel::apply(const ContextLoader::Result &result)
{
    // Files that gave nothing or were cut are named, also when the others read fine.
    const QStringList notes = ContextLoader::notes(result);
    m_notes->setText(notes.join(QLatin1Char('\n')));
    m_notes->setVisible(!notes.isEmpty());
    if (result.text.isEmpty()) {
        m_error->setText(ContextLoader::panelNothingReadMessage());
        m_error->show();
        return;
    }
    m_error->clear();
    m_error->hide();
    m_settings.appendContext(result.text, result.names);
}

QString ContextPanel::withoutBlock(const QString &contextText, const QString &name, const QStringList &allNames)
{
    const QString header = blockHeader(name);
    const qsizetype start = contextText.indexOf(header);
    if (start < 0)
        return contextText;
    // The block runs to the next file's header (or the end).
    qsizetype end = contextText.size();
    for (const QString &other : allNames) {
        const qsizetype at = contextText.indexOf(QStringLiteral("\n\n") + blockHeader(other), start + header.size());
        if (at >= 0 && at < end)
            end = at;
    }
    QString text = contextText;
    if (end < text.size())
        text.remove(start, end + 2 - start);   // the block and the blank line after it
    else
        text.remove(start, end - start);
    while (text.endsWith(QLatin1Char('\n')))
        text.chop(1);
    return text;
}

void ContextPanel::removeFile(const QString &name)
{
    QStringList names = m_settings.contextFileNames();
    const qsizetype index = names.indexOf(name);
    if (index < 0)
        return;
    m_settings.setContextText(withoutBlock(m_settings.contextText(), name, names));
    names.removeAt(index);
    m_settings.setContextFileNames(names);
}

void ContextPanel::clearAll()
{
    m_settings.setContextText(QString());
    m_settings.setContextFileNames({});
    m_error->hide();
    m_notes->hide();
}

void ContextPanel::confirmClearAll()
{
    if (m_confirm)
        return;
    const int files = int(m_settings.contextFileNames().size());
    auto *box = new QMessageBox(QMessageBox::Question, tr("Clear All Context?"),
                                files > 0 ? tr("Remove all %1 context documents and their text? Answers will no "
                                               "longer quote them.").arg(files)
                                          : tr("Remove all context text? Answers will no longer quote it."),
                                QMessageBox::Cancel, this);
    QPushButton *clear = box->addButton(tr("Clear All"), QMessageBox::DestructiveRole);
    box->setDefaultButton(QMessageBox::Cancel);
    box->setAttribute(Qt::WA_DeleteOnClose);
    box->setWindowModality(Qt::WindowModal);
    connect(clear, &QPushButton::clicked, this, &ContextPanel::clearAll);
    m_confirm = box;
    box->open();
}

QString ContextPanel::notesText() const
{
    return m_notes->isHidden() ? QString() : m_notes->text();
}

QString ContextPanel::errorText() const
{
    return m_error->isHidden() ? QString() : m_error->text();
}

QString ContextPanel::sizeText() const
{
    return m_size->text();
}

QStringList ContextPanel::shownNames() const
{
    QStringList names;
    for (int i = 0; i < m_list->count(); ++i)
        names << m_list->item(i)->text();
    return names;
}

void ContextPanel::refresh()
{
    const QStringList names = m_settings.contextFileNames();
    if (names != shownNames()) {
        m_list->clear();
        m_list->addItems(names);
    }
    m_remove->setEnabled(m_list->currentRow() >= 0);
    m_clear->setEnabled(!names.isEmpty() || !m_settings.contextText().isEmpty());
    const QLocale locale;
    m_size->setText(tr("Context: %1 characters · instructions sent to the model: %2 characters")
                        .arg(locale.toString(m_settings.contextText().size()),
                             locale.toString(m_settings.instructions().size())));
}
