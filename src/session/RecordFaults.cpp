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
        return tr("the disk is full (%1)").arg(error);
    }
    if (isErrno(error, EFBIG)) {
        return tr("the file size limit was reached (%1)").arg(error);
    }
    return tr("it could not be written (%1)").arg(error);
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
    switch (file) {
    case File::recording:
        return isOutOfSpace(fault->error)
            ? tr("Recording stopped: %1. The session goes on; free some space and start a new recording.").arg(why)
            : tr("Recording stopped: %1. The session goes on; start a new recording.").arg(why);
    case File::transcript:
        return tr("The transcript could not be saved: %1. The session goes on; copy the cards now with Copy "
                  "Transcript.")
            .arg(why);
    case File::events:
        break;
    }
    return tr("The events log stopped: %1. The session goes on without it.").arg(why);
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
    // `sentence` takes the file's name (%1) and the cause (%2).
    const auto add = [&](File file, const QString &sentence) {
        if (const std::optional<Fault> &fault = m_faults[index(file)]) {
            lines << sentence.arg(QFileInfo(fault->path).fileName(), cause(fault->error));
        }
    };
    add(File::transcript, tr("The transcript %1 was not saved: %2."));
    add(File::recording, tr("The recording %1 is incomplete: %2."));
    add(File::events, tr("The events log %1 is incomplete: %2."));
    return lines.join(QLatin1Char(' '));
}
