#pragma once

#include "session/FileRevealer.h"

#include <QObject>
#include <QUrl>

#include <functional>

// Shows files selected in the desktop's file manager through the freedesktop
// FileManager1.ShowItems call; where no file manager answers, opens the folder that holds
// the first file instead.
class DBusFileRevealer : public QObject, public FileRevealer
{
    Q_OBJECT
public:
    using FolderOpener = std::function<void(const QUrl &folder)>;

    // The default opener hands the folder to QDesktopServices.
    explicit DBusFileRevealer(QObject *parent = nullptr, FolderOpener openFolder = {});

    void reveal(const QStringList &paths) override;

    static QUrl folderOf(const QString &path);

private:
    void fallBack(const QStringList &paths);

    FolderOpener m_openFolder;
};
