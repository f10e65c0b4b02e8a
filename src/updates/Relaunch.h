#pragma once

#include <QString>
#include <QStringList>

// Starting the program again after it has exited.
namespace Relaunch {

// How long the relaunch waits for the old process to be gone before starting anyway.
constexpr int maxWaitSeconds = 10;

// Starts `program` with `arguments` as a detached process once the process `pid` has exited
// (at most maxWaitSeconds later), so that the new copy never meets the old one. False with a
// reason in `error` when nothing could be started.
bool afterExit(qint64 pid, const QString &program, const QStringList &arguments, QString *error);

} // namespace Relaunch
