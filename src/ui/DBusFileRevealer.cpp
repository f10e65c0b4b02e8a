#include "ui/DBusFileRevealer.h"

#include <QDBusConnection>
#include <QDBusMessage>
#include <QDBusPendingCallWatcher>
#include <QDBusPendingReply>
#include <QDesktopServices>
#include <QFileInfo>
#include "ui/UiLogging.h"

#include <QLoggingCategory>


DBusFileRevealer::DBusFileRevealer(QObject *parent, FolderOpener openFolder)
    : QObject(parent)
    , m_openFolder(std::move(openFolder))
{
    if (!m_openFolder)
        m_openFolder = [](const QUrl &folder) { QDesktopServices::openUrl(folder); };
}

QUrl DBusFileRevealer::folderOf(const QString &path)
{
    const QFileInfo info(path);
    return QUrl::fromLocalFile(info.isDir() ? info.absoluteFilePath() : info.absolutePath());
}

void DBusFileRevealer::reveal(const QStringList &paths)
{
    if (paths.isEmpty())
        return;
    QDBusConnection bus = QDBusConnection::sessionBus();
    if (!bus.isConnected()) {
        fallBack(paths);
        return;
    }
    QStringList uris;
    for (const QString &path : paths)
        uris << QUrl::fromLocalFile(QFileInfo(path).absoluteFilePath()).toString(QUrl::FullyEncoded);
    QDBusMessage call = QDBusMessage::createMethodCall(QStringLiteral("org.freedesktop.FileManager1"),
                                                       QStringLiteral("/org/freedesktop/FileManager1"),
                                                       QStringLiteral("org.freedesktop.FileManager1"),
                                                       QStringLiteral("ShowItems"));
    call << uris << QString();
    auto *watcher = new QDBusPendingCallWatcher(bus.asyncCall(call, 5000), this);
    connect(watcher, &QDBusPendingCallWatcher::finished, this, [this, paths](QDBusPendingCallWatcher *w) {
        const QDBusPendingReply<> reply = *w;
        if (reply.isError()) {
            qCInfo(lcReveal) << "[Ketterbloom] file manager did not answer:" << reply.error().name();
            fallBack(paths);
        }
        w->deleteLater();
    });
}

void DBusFileRevealer::fallBack(const QStringList &paths)
{
    m_openFolder(folderOf(paths.constFirst()));
}
