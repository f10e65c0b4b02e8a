#include "session/SessionLog.h"

#include "session/CostModel.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStringList>

#include <cerrno>

#include <unistd.h>

SessionLog::SessionLog(const QString &directory, const QString &stamp, const Clock &clock)
    : m_clock(clock)
    , m_started(clock.now())
    , m_jsonPath(QDir(directory).filePath(eventsFileName(stamp)))
{
    auto file = std::make_unique<QFile>(m_jsonPath);
    if (file->open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        m_file = std::move(file);
    } else {
        m_error = file->errorString();
    }
    append(QStringLiteral("session_started"));
}

SessionLog::~SessionLog() = default;

QString SessionLog::eventsFileName(const QString &stamp)
{
    return QStringLiteral("meeting_") + stamp + QStringLiteral(".events.jsonl");
}

QString SessionLog::transcriptFileName(const QString &stamp)
{
    return QStringLiteral("meeting_") + stamp + QStringLiteral(".transcript.md");
}

void SessionLog::append(const QString &event, const QVariantMap &fields)
{
    if (!isOpen()) {
        return;
    }
    QJsonObject line = QJsonObject::fromVariantMap(fields);
    line.insert(QStringLiteral("t"), CostModel::rounded(Clock::secondsBetween(m_started, m_clock.now()), 3));
    line.insert(QStringLiteral("event"), event);
    QByteArray bytes = QJsonDocument(line).toJson(QJsonDocument::Compact);
    bytes.append('\n');
    if (!m_error.isEmpty()) {
        return;   // the log stopped at its first failed line: what is there stays whole
    }
    errno = 0;
    if (m_file->write(bytes) != bytes.size()) {
        // A short write leaves errorString() unspecific: the system's own reason is better.
        m_error = errno != 0 ? qt_error_string(errno) : m_file->errorString();
    }
}

void SessionLog::close()
{
    if (!isOpen()) {
        return;
    }
    append(QStringLiteral("session_ended"));
    if (::fsync(m_file->handle()) != 0 && m_error.isEmpty()) {
        m_error = qt_error_string(errno);
    }
    m_file->close();
}

QString SessionLog::markdown(const QList<QAPair> &pairs, const QString &stamp) const
{
    const QString dash = QStringLiteral("—");
    const auto seconds = static_cast<qint64>(Clock::secondsBetween(m_started, m_clock.now()));
    QStringList lines;
    // The headings and labels are the file's format (the review reads them back), not
    // translated text; the cards' own texts are.
    lines << QStringLiteral("# Meeting transcript — %1").arg(stamp);
    lines << QString();
    lines << QString::asprintf("Length: %lld min %02lld s", seconds / 60, seconds % 60);
    lines << QStringLiteral("Events: `%1`").arg(QFileInfo(m_jsonPath).fileName());
    lines << QString();
    for (const QAPair &pair : pairs) {
        lines << (pair.wasExtended ? QStringLiteral("### %1 (question extended)") : QStringLiteral("### %1")).arg(pair.timestamp);
        const QString question = pair.recordedQuestion();
        lines << QStringLiteral("**Interviewer:** %1").arg(question.isEmpty() ? dash : question);
        lines << QString();
        const QString answer = pair.answer.isEmpty() ? dash : pair.answer;
        lines << (pair.answerNote.isEmpty() ? QStringLiteral("**Copilot:** %1").arg(answer)
                                            : QStringLiteral("**Copilot:** %1 _(%2)_").arg(answer, pair.answerNote));
        if (!pair.myAnswer.isEmpty()) {
            lines << QString();
            lines << QStringLiteral("**You:** %1").arg(pair.myAnswer);
        }
        lines << QString();
    }
    return lines.join(QLatin1Char('\n'));
}

SessionLog::WriteResult SessionLog::writeMarkdown(const QList<QAPair> &pairs, const QString &directory,
                                                  const QString &stamp) const
{
    WriteResult result;
    result.path = QDir(directory).filePath(transcriptFileName(stamp));
    const QByteArray bytes = markdown(pairs, stamp).toUtf8();

    QSaveFile file(result.path);
    if (!file.open(QIODevice::WriteOnly)) {
        result.error = file.errorString();
        return result;
    }
    // Flushed and synced here, where a full disk shows: commit() would rename a short file.
    errno = 0;
    if (file.write(bytes) != bytes.size() || !file.flush()) {
        // A failed flush leaves errorString() unspecific: the system's own reason is better.
        result.error = errno != 0 ? qt_error_string(errno) : file.errorString();
        file.cancelWriting();
        return result;
    }
    if (::fsync(file.handle()) != 0) {
        result.error = qt_error_string(errno);
        file.cancelWriting();
        return result;
    }
    if (!file.commit()) {   // a failure leaves any earlier file as it was
        result.error = file.errorString();
    }
    return result;
}
