#pragma once

#include "session/SessionController.h"

#include <QFile>
#include <QJsonDocument>
#include <QJsonObject>
#include <QList>
#include <QString>

// The files a rig's session writes, named by the manual clock's start time.
namespace sessionfiles {

inline QString path(const QString &ending)
{
    return SessionController::sessionFolder() + QStringLiteral("/meeting_2025-03-04_14-05-09") + ending;
}

inline QString eventsPath() { return path(QStringLiteral(".events.jsonl")); }
inline QString transcriptPath() { return path(QStringLiteral(".transcript.md")); }

inline QString readText(const QString &file)
{
    QFile f(file);
    return f.open(QIODevice::ReadOnly) ? QString::fromUtf8(f.readAll()) : QString();
}

inline QString eventsText() { return readText(eventsPath()); }
inline QString transcriptText() { return readText(transcriptPath()); }

// The events log's lines whose "event" is `name`.
inline QList<QJsonObject> eventsNamed(const QString &name)
{
    QList<QJsonObject> out;
    for (const QString &line : eventsText().split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        const QJsonObject event = QJsonDocument::fromJson(line.toUtf8()).object();
        if (event.value(QStringLiteral("event")).toString() == name) {
            out << event;
        }
    }
    return out;
}

} // namespace sessionfiles
