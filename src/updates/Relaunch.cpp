#include "updates/Relaunch.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QProcess>

Result<void> Relaunch::afterExit(qint64 pid, const QString &program, const QStringList &arguments)
{
    if (!QFileInfo(program).isExecutable())
        return Result<void>::failure(
            QCoreApplication::translate("Relaunch", "%1 is not an executable file").arg(program));
    // A small shell waits for the old process, then becomes the new one.
    const QString script = QStringLiteral(
        "pid=\"$1\"; shift; i=0; "
        "while kill -0 \"$pid\" 2>/dev/null && [ \"$i\" -lt %1 ]; do sleep 0.1; i=$((i+1)); done; "
        "exec \"$@\"")
                               .arg(maxWaitSeconds * 10);
    QStringList shellArguments{QStringLiteral("-c"), script, QStringLiteral("ketterbloom-relaunch"),
                               QString::number(pid), program};
    shellArguments += arguments;
    if (!QProcess::startDetached(QStringLiteral("/bin/sh"), shellArguments))
        return Result<void>::failure(QCoreApplication::translate("Relaunch", "/bin/sh could not be started"));
    return {};
}
