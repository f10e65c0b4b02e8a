#include "session/SessionRecords.h"

#include "session/SessionLog.h"
#include "session/SessionLogging.h"

#include <QDir>

SessionRecords::SessionRecords(const Clock &clock, QObject *parent)
    : QObject(parent)
    , m_clock(clock)
{
}

SessionRecords::~SessionRecords() = default;

void SessionRecords::open(const QString &folder, const QString &stamp)
{
    m_faults.clear();
    m_folder = folder;
    m_stamp = stamp;
    QDir().mkpath(folder);   // a failure leaves the log unopened; the session goes on
    m_log = std::make_unique<SessionLog>(folder, stamp, m_clock);
    if (!m_log->error().isEmpty()) {
        fail(RecordFaults::File::events, m_log->jsonPath(), m_log->error());
    }
}

void SessionRecords::append(const QString &event, const QVariantMap &fields)
{
    if (!m_log) {
        return;
    }
    const bool wasFailing = !m_log->error().isEmpty();
    m_log->append(event, fields);
    if (!wasFailing && !m_log->error().isEmpty()) {
        fail(RecordFaults::File::events, m_log->jsonPath(), m_log->error());
    }
}

void SessionRecords::fail(RecordFaults::File file, const QString &path, const QString &error)
{
    if (!m_faults.fail(file, path, error)) {
        return;   // told already
    }
    qCWarning(lcSession, "[Ketterbloom] could not write %s: %s", qUtf8Printable(path), qUtf8Printable(error));
    append(QStringLiteral("record_failed"), {{QStringLiteral("path"), path}, {QStringLiteral("error"), error}});
    emit fileFailed(file);
}

void SessionRecords::saveTranscript(const QList<QAPair> &pairs)
{
    if (!m_log) {
        return;
    }
    const SessionLog::WriteResult written = m_log->writeMarkdown(pairs, m_folder, m_stamp);
    m_transcriptPath = written.path;
    if (written.ok()) {
        m_faults.recover(RecordFaults::File::transcript);   // written whole after all
        return;
    }
    fail(RecordFaults::File::transcript, written.path, written.error);
}

void SessionRecords::close()
{
    if (!m_log) {
        return;
    }
    m_log->close();
    if (!m_log->error().isEmpty()) {
        fail(RecordFaults::File::events, m_log->jsonPath(), m_log->error());
    }
    m_log.reset();
}

void SessionRecords::discard()
{
    if (m_log) {
        m_log->close();
        m_log.reset();
    }
}

QString SessionRecords::completeTranscriptPath() const
{
    return m_faults.hasFailed(RecordFaults::File::transcript) ? QString() : m_transcriptPath;
}

QString SessionRecords::eventsPath() const
{
    return m_folder.isEmpty() ? QString() : QDir(m_folder).filePath(SessionLog::eventsFileName(m_stamp));
}
