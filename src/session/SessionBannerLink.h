#pragma once

#include <QMetaType>
#include <QString>
#include <QUrl>

// A button shown beside the session banner (SessionController::BannerLink): reveals or opens `url`.
struct SessionBannerLink
{
    Q_GADGET
    Q_PROPERTY(QString id MEMBER id)
    Q_PROPERTY(QString label MEMBER label)
    Q_PROPERTY(QUrl url MEMBER url)
public:
    QString id;     // fresh UUID per link
    QString label;  // "Transcript", "Recording", "Folder"
    QUrl url;       // a local file or folder
    friend bool operator==(const SessionBannerLink &, const SessionBannerLink &) = default;
};
