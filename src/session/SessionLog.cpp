#include "session/SessionLog.h"

#include "session/CostModel.h"

#include <QDir>
#include <QFileInfo>
#include <QJsonDocument>
#include <QJsonObject>
#include <QSaveFile>
#include <QStringList>

SessionLog::SessionLog(const QString &directory, const QString &stamp, const Clock &clock)
    : m_clock(clock)
    , m_started(clock.now())
    , m_jsonPath(QDir(directory).filePath(eventsFileName(stamp)))
{
    auto file = std::make_unique<QFile>(m_jsonPath);
    if (file->open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Unbuffered)) {
        m_file = std::move(file);
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
    m_file->write(bytes);   // a failed write drops the line
}

void SessionLog::close()
{
    if (!isOpen()) {
        return;
    }
    append(QStringLiteral("session_ended"));
    m_file->close();
}

QString SessionLog::markdown(const QList<QAPair> &pairs, const QString &stamp) const
{
    const QString dash = QStringLiteral("—");
    const auto seconds = static_cast<qint64>(Clock::secondsBetween(m_started, m_clock.now()));
    QStringList lines;
    lines << QStringLiteral("# Meeting transcript — ") + stamp;
    lines << QString();
    lines << QString::asprintf("Length: %lld min %02lld s", seconds / 60, seconds % 60);
    lines << QStringLiteral("Events: `") + QFileInfo(m_jsonPath).fileName() + QStringLiteral("`");
    lines << QString();
    for (const QAPair &pair : pairs) {
        lines << QStringLiteral("### ") + pair.timestamp + (pair.wasExtended ? QStringLiteral(" (question extended)") : QString());
        lines << QStringLiteral("**Interviewer:** ") + (pair.question.isEmpty() ? dash : pair.question);
        lines << QString();
        lines << QStringLiteral("**Copilot:** ") + (pair.answer.isEmpty() ? dash : pair.answer);
        if (!pair.myAnswer.isEmpty()) {
            lines << QString();
            lines << QStringLiteral("**You:** ") + pair.myAnswer;
        }
        lines << QString();
    }
    return lines.join(QLatin1Char('\n'));
}

QString SessionLog::writeMarkdown(const QList<QAPair> &pairs, const QString &directory, const QString &stamp) const
{
    const QString path = QDir(directory).filePath(transcriptFileName(stamp));
    const QString text = markdown(pairs, stamp);

    QSaveFile file(path);
    if (file.open(QIODevice::WriteOnly)) {
        file.write(text.toUtf8());
        file.commit();   // a failure leaves any earlier file as it was
    }
    return path;
}
