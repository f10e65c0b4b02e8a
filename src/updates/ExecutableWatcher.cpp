#include "updates/ExecutableWatcher.h"

#include "updates/UpdatesLogging.h"

#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

ExecutableWatcher::ExecutableWatcher(const QString &path, int settleMs, QObject *parent)
    : QObject(parent)
    , m_path(path)
    , m_folder(QFileInfo(path).absolutePath())
{
    m_settle.setSingleShot(true);
    m_settle.setInterval(settleMs);
    connect(&m_settle, &QTimer::timeout, this, &ExecutableWatcher::settled);
    connect(&m_watcher, &QFileSystemWatcher::fileChanged, this, &ExecutableWatcher::onEvent);
    connect(&m_watcher, &QFileSystemWatcher::directoryChanged, this, &ExecutableWatcher::onEvent);
    m_identity = identityOf(m_path);
    if (!m_watcher.addPath(m_folder))
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] cannot watch" << m_folder;
    rearm();
}

ExecutableWatcher::Identity ExecutableWatcher::identityOf(const QString &path)
{
    struct stat info {};
    if (::stat(QFile::encodeName(path).constData(), &info) != 0)
        return {};
    return {true, info.st_dev, info.st_ino, info.st_size,
            qint64(info.st_mtim.tv_sec) * 1000000000 + info.st_mtim.tv_nsec};
}

void ExecutableWatcher::onEvent()
{
    rearm();
    // A package manager writes, renames and sets modes in several steps: wait for quiet.
    m_settle.start();
}

void ExecutableWatcher::rearm()
{
    if (m_watcher.files().contains(m_path))
        m_watcher.removePath(m_path);
    if (QFileInfo::exists(m_path))
        m_watcher.addPath(m_path);
}

void ExecutableWatcher::settled()
{
    const Identity now = identityOf(m_path);
    if (now == m_identity)
        return;
    m_identity = now;
    if (!now.exists) {
        qCInfo(lcUpdates).noquote() << "[Ketterbloom]" << m_path << "was removed";
        return;
    }
    qCInfo(lcUpdates).noquote() << "[Ketterbloom]" << m_path << "was replaced";
    emit replaced();
}
