#pragma once

#include "session/Clock.h"
#include "session/QAPair.h"

#include <QFile>
#include <QList>
#include <QString>
#include <QVariantMap>

#include <memory>
#include <optional>

// The JSON-lines event log of one session: "meeting_<stamp>.events.jsonl" in the session
// folder. Each line is one compact JSON object with sorted keys, carrying the event name
// and `t`, the seconds since the log was opened. Lines are written unbuffered, one write
// each, so a crash loses at most the line being written. Every failure (folder, open,
// write, sync at close) leaves the session running; the log stops at its first failed line
// and keeps the reason, so that the session can tell the user in plain words instead of
// claiming a file that is not complete.
class SessionLog
{
public:
    // Creates (or empties) the events file and writes "session_started".
    SessionLog(const QString &directory, const QString &stamp, const Clock &clock);
    ~SessionLog();

    SessionLog(const SessionLog &) = delete;
    SessionLog &operator=(const SessionLog &) = delete;

    QString jsonPath() const { return m_jsonPath; }
    Clock::TimePoint started() const { return m_started; }
    bool isOpen() const { return m_file && m_file->isOpen(); }
    // Why the events file could not be opened or written; empty while all is well.
    QString error() const { return m_error; }

    // Writes one line; does nothing when the file could not be opened.
    void append(const QString &event, const QVariantMap &fields = {});
    // Writes "session_ended" and closes the file.
    void close();

    // The outcome of writing the transcript: its path, and why it failed (empty on success).
    struct WriteResult
    {
        QString path;
        QString error;
        bool ok() const { return error.isEmpty(); }
    };

    // Writes "meeting_<stamp>.transcript.md" atomically (a temporary file renamed over the
    // old one), so that a crash at any moment leaves the previous complete transcript.
    WriteResult writeMarkdown(const QList<QAPair> &pairs, const QString &directory, const QString &stamp) const;

    // The transcript's text, as written by writeMarkdown.
    QString markdown(const QList<QAPair> &pairs, const QString &stamp) const;

    static QString eventsFileName(const QString &stamp);
    static QString transcriptFileName(const QString &stamp);

private:
    const Clock &m_clock;
    Clock::TimePoint m_started;
    QString m_jsonPath;
    std::unique_ptr<QFile> m_file;
    QString m_error;
};
