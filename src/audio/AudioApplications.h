#pragma once

#include "audio/PulseQueries.h"

#include <QList>
#include <QPair>
#include <QString>
#include <QStringList>

// How an application playing through the sound server is recognised. An application is
// known by the properties of its streams merged with those of its client:
// application.id, application.process.binary, application.name, application.process.id.
namespace AudioApplications {

// The id stored in the settings: application.id, else the process binary, else the name.
QString appID(const PulseQueries::Properties &p);
// What the user sees: application.name, else the binary, else "PID <pid>".
QString displayName(const PulseQueries::Properties &p);
// True for this process's own streams and for the sound server's own clients.
bool isOwnOrServer(const PulseQueries::Properties &p);
// Whether the stream belongs to the application `id` itself (by id or binary).
bool belongsTo(const PulseQueries::Properties &p, const QString &id);
// Whether it belongs to `id` itself or to one of the processes that play for it.
bool belongsToOrHelper(const PulseQueries::Properties &p, const QString &id);

// Applications whose call audio is played by a differently named process, in lookup order:
// application id -> the ids or binaries of the processes that play for it.
const QList<QPair<QString, QStringList>> &helpers();
QStringList helpersOf(const QString &id);

} // namespace AudioApplications
