#pragma once

#include <QFileSystemWatcher>
#include <QObject>
#include <QString>
#include <QTimer>

#include <sys/types.h>

// Notices that the file at a path was replaced or rewritten — as a package manager does with
// an executable on upgrade: it writes the new file beside the old one and renames it over,
// while the running program still holds the old one. Watches the file and its folder, and
// reports once things have been quiet for a moment and the file at the path is a different
// file (or the same file with new contents) than before.
class ExecutableWatcher : public QObject
{
    Q_OBJECT
public:
    ExecutableWatcher(const QString &path, int settleMs, QObject *parent = nullptr);

    QString path() const { return m_path; }

signals:
    void replaced();

private:
    struct Identity
    {
        bool exists = false;
        dev_t device = 0;
        ino_t inode = 0;
        off_t size = 0;
        qint64 modifiedNs = 0;
        friend bool operator==(const Identity &, const Identity &) = default;
    };
    static Identity identityOf(const QString &path);

    void onEvent();
    void settled();
    // Watches the file at the path as it is now (after a rename, a watch would stay on the old one).
    void rearm();

    QString m_path;
    QString m_folder;
    QFileSystemWatcher m_watcher;
    QTimer m_settle;
    Identity m_identity;
};
