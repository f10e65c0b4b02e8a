#pragma once

#include <QList>
#include <QString>

#include <optional>

// Reads back a session's Markdown transcript ("meeting_<stamp>.transcript.md"): its cards'
// question, drafted answer and your transcribed answer, and the session's length.
class TranscriptReader
{
public:
    struct Entry
    {
        QString heading;    // the card's time, as written
        QString question;
        QString draft;
        QString you;
    };

    static QList<Entry> read(const QString &markdown);
    // From the "Length: 12 min 05 s" line.
    static std::optional<double> lengthSeconds(const QString &markdown);
};
