#include "session/RecordFaults.h"

#include <QFileInfo>
#include <QStringList>

#include <cerrno>

namespace {

bool isErrno(const QString &error, int code)
{
    return error == qt_error_string(code);
}

} // namespace

bool RecordFaults::isOutOfSpace(const QString &error)
{
    return isErrno(error, ENOSPC) || isErrno(error, EDQUOT) || isErrno(error, EFBIG);
}

QString RecordFaults::cause(const QString &error)
{
    if (isErrno(error, ENOSPC) || isErrno(error, EDQUOT)) {
        return QStringLiteral("the disk is full (") + error + QLatin1Char(')');
    }
    if (isErrno(error, EFBIG)) {
        return QStringLiteral("the file size limit was reached (") + error + QLatin1Char(')');
    }
    return QStringLiteral("it could not be written (") + error + QLatin1Char(')');
}

bool RecordFaults::fail(File file, const QString &path, const QString &error)
{
    std::optional<Fault> &fault = m_faults[index(file)];
    if (fault) {
        return false;
    }
    fault = Fault{path, error};
    return true;
}

QString RecordFaults::banner(File file) const
{
    const std::optional<Fault> &fault = m_faults[index(file)];
    if (!fault) {
        return QString();
    }
    const QString why = cause(fault->error);
    const QString afterSpace = isOutOfSpace(fault->error) ? QStringLiteral("free some space and ") : QString();
    switch (file) {
    case File::recording:
        return QStringLiteral("Recording stopped: ") + why + QStringLiteral(". The session goes on; ") + afterSpace
            + QStringLiteral("start a new recording.");
    case File::transcript:
        return QStringLiteral("The transcript could not be saved: ") + why
            + QStringLiteral(". The session goes on; copy the cards now with Copy Transcript.");
    case File::events:
        break;
    }
    return QStringLiteral("The events log stopped: ") + why + QStringLiteral(". The session goes on without it.");
}

void RecordFaults::recover(File file)
{
    m_faults[index(file)].reset();
}

bool RecordFaults::any() const
{
    for (const std::optional<Fault> &fault : m_faults) {
        if (fault) {
            return true;
        }
    }
    return false;
}

void RecordFaults::clear()
{
    m_faults = {};
}

QString RecordFaults::stopText() const
{
    QStringList lines;
    const auto add = [&](File file, const QString &what, const QString &state) {
        if (const std::optional<Fault> &fault = m_faults[index(file)]) {
            lines << what + QFileInfo(fault->path).fileName() + state + cause(fault->error) + QLatin1Char('.');
        }
    };
    add(File::transcript, QStringLiteral("The transcript "), QStringLiteral(" was not saved: "));
    add(File::recording, QStringLiteral("The recording "), QStringLiteral(" is incomplete: "));
    add(File::events, QStringLiteral("The events log "), QStringLiteral(" is incomplete: "));
    return lines.join(QLatin1Char(' '));
}
