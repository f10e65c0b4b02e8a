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
// write, close) is silently ignored: records never interrupt a session.
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

    // Writes one line; does nothing when the file could not be opened.
    void append(const QString &event, const QVariantMap &fields = {});
    // Writes "session_ended" and closes the file.
    void close();

    // Writes "meeting_<stamp>.transcript.md" atomically and returns its path, even when the
    // write failed.
    QString writeMarkdown(const QList<QAPair> &pairs, const QString &directory, const QString &stamp) const;

    // The transcript's text, as written by writeMarkdown.
    QString markdown(const QList<QAPair> &pairs, const QString &stamp) const;

    static QString eventsFileName(const QString &stamp);
    static QString transcriptFileName(const QString &stamp);

private:
    const Clock &m_clock;
    Clock::TimePoint m_started;
    QString m_jsonPath;
    std::unique_ptr<QFile> m_file;
};
