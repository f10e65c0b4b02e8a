#pragma once

#include <QDialog>

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

    // Reads the files and appends what they yield; shows the error line when none gave text.
    void addFiles(const QStringList &paths);
    // Drops one file's name and its block of text.
    void removeFile(const QString &name);
    void clearAll();

    QString errorText() const;
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

    AppSettings &m_settings;
    QListWidget *m_list;
    QLabel *m_error;
    QLabel *m_size;
    QPushButton *m_remove;
    QPushButton *m_clear;
};
