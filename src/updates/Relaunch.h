#pragma once

#include "common/Result.h"

#include <QString>
#include <QStringList>

// Starting the program again after it has exited.
namespace Relaunch {

// How long the relaunch waits for the old process to be gone before starting anyway.
constexpr int maxWaitSeconds = 10;

// Starts `program` with `arguments` as a detached process once the process `pid` has exited
// (at most maxWaitSeconds later), so that the new copy never meets the old one. Fails with a
// reason when nothing could be started.
Result<void> afterExit(qint64 pid, const QString &program, const QStringList &arguments);

} // namespace Relaunch
