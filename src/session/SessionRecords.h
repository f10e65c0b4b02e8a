#pragma once

#include "session/Clock.h"
#include "session/QAPair.h"
#include "session/RecordFaults.h"

#include <QList>
#include <QObject>
#include <QString>
#include <QVariantMap>

#include <memory>

class SessionLog;

// The records of one session and the truth about them: the events log, the Markdown
// transcript (rewritten whole after every completed card and at Stop) and which record files
// could not be written, and why. A failure never stops the session; it is logged, noted in
// the events log while that still works, and announced once per file (fileFailed), so that
// nothing later calls an incomplete file saved. Lives on the GUI thread.
class SessionRecords : public QObject
{
    Q_OBJECT

public:
    explicit SessionRecords(const Clock &clock, QObject *parent = nullptr);
    ~SessionRecords() override;

    // Opens "meeting_<stamp>.events.jsonl" in `folder` (created when missing) and forgets the
    // last session's faults.
    void open(const QString &folder, const QString &stamp);
    bool isOpen() const { return m_log != nullptr; }
    // Appends one line to the open log; nothing when none is open.
    void append(const QString &event, const QVariantMap &fields);
    // Rewrites the transcript of `pairs` now; nothing when no log is open.
    void saveTranscript(const QList<QAPair> &pairs);
    // Closes the log after its last line (its final sync may fail too).
    void close();
    // Closes the log of a start that did not become a session.
    void discard();

    // A record file could not be written: logged, noted in the events log, and announced
    // with fileFailed the first time (until the file recovers).
    void fail(RecordFaults::File file, const QString &path, const QString &error);
    const RecordFaults &faults() const { return m_faults; }
    // The transcript of the last session, when it was written completely; else empty.
    QString completeTranscriptPath() const;
    // The events log of the last session opened (kept after close); empty before any.
    QString eventsPath() const;

signals:
    void fileFailed(RecordFaults::File file);

private:
    const Clock &m_clock;
    std::unique_ptr<SessionLog> m_log;
    QString m_folder;
    QString m_stamp;
    QString m_transcriptPath;
    RecordFaults m_faults;
};
