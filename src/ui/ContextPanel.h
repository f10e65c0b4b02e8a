#pragma once

#include "settings/ContextLoader.h"

#include <QDialog>
#include <QList>
#include <QMessageBox>
#include <QPointer>
#include <QStringList>

class AppSettings;
class QFileDialog;
class QLabel;
class QListWidget;

class QPushButton;

// The user's context documents: the loaded file names, adding more (PDF, text, Markdown,
// RTF), removing one or all, and how large the assembled instructions are.
class ContextPanel : public QDialog
{
    Q_OBJECT
public:
    explicit ContextPanel(AppSettings &settings, QWidget *parent = nullptr);

    // Reads the files on a worker thread and appends what they yield, in the order asked;
    // shows the error line when none gave text.
    void addFiles(const QStringList &paths);
    // Files are being read.
    bool isReading() const { return !m_pending.isEmpty(); }
    // Drops one file's name and its block of text.
    void removeFile(const QString &name);
    void clearAll();
    // Asks first ("Clear All" button); clearAll() runs only when the user confirms.
    void confirmClearAll();
    QMessageBox *clearConfirmation() const { return m_confirm; }
    QPushButton *clearAllButton() const { return m_clear; }

    QString errorText() const;
    // What the last read reported about single files (no text found, cut to the limit).
    QString notesText() const;
    QString sizeText() const;
    QStringList shownNames() const;

    // The context text without the block of the named file.
    static QString withoutBlock(const QString &contextText, const QString &name, const QStringList &allNames);
    // A window-modal chooser of context documents in the Documents folder, deleted on close;
    // connect its filesSelected, then open() it.
    static QFileDialog *documentsDialog(QWidget *parent);

private:
    void chooseFiles();
    void refresh();
    void readNext();
    void apply(const ContextLoader::Result &result);

    AppSettings &m_settings;
    QListWidget *m_list;
    QLabel *m_error;
    QLabel *m_notes;
    QPointer<QMessageBox> m_confirm;
    QLabel *m_size;
    QPushButton *m_remove;
    QPushButton *m_clear;
    QPushButton *m_add;
    QLabel *m_reading;
    QList<QStringList> m_pending;   // the batch being read first
};
