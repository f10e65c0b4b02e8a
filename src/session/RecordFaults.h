#pragma once

#include <QCoreApplication>
#include <QString>

#include <array>
#include <optional>

// What went wrong writing a session's record files (transcript, events log, recording), and
// the plain words the user reads about it: one banner when a file first fails during the
// session, and at Stop which files are incomplete and why, so that none is called saved.
class RecordFaults
{
    Q_DECLARE_TR_FUNCTIONS(RecordFaults)

public:
    enum class File { transcript, events, recording };

    // Notes that `file` (at `path`) could not be written, `error` being the system's reason.
    // True the first time (until the file recovers); later failures of it are not news.
    bool fail(File file, const QString &path, const QString &error);
    // The banner while the session runs, for a failed file: "Recording stopped: the disk is
    // full (No space left on device). The session goes on; free some space and start a new
    // recording." Empty when the file has not failed.
    QString banner(File file) const;
    // The file was written completely after all (the transcript is rewritten whole).
    void recover(File file);
    bool hasFailed(File file) const { return m_faults[index(file)].has_value(); }
    bool any() const;
    void clear();

    // "The recording meeting_x.wav is incomplete: the disk is full (No space left on device)."
    // for every failed file, joined by a blank; empty when none failed.
    QString stopText() const;

    // "the disk is full (No space left on device)", "the file size limit was reached (…)",
    // or "it could not be written (<error>)".
    static QString cause(const QString &error);
    // True for the reasons that free space cures (a full disk or quota, a size limit).
    static bool isOutOfSpace(const QString &error);

private:
    struct Fault
    {
        QString path;
        QString error;
    };
    static int index(File file) { return int(file); }

    std::array<std::optional<Fault>, 3> m_faults;
};
