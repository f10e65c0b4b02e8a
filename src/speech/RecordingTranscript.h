#pragma once

#include "common/Result.h"

#include <QCoreApplication>
#include <QString>
#include <QStringList>

// The Markdown transcript of a saved recording: a header, then the conversation as a
// dialogue, one paragraph per utterance in time order: "**You** (03:12): …". Channel 0 is
// the user, every other channel the meeting.
class RecordingTranscript
{
    Q_DECLARE_TR_FUNCTIONS(RecordingTranscript)

public:
    // `fileName` is the recording's file name; `seconds` its length; `method` how it was
    // transcribed ("Transcribed on-device.").
    RecordingTranscript(const QString &fileName, double seconds,
                        const QString &method = QStringLiteral("Transcribed on-device."));

    // The transcript's path for a recording: its extension replaced by "recording.md", or,
    // when `attempt` > 1, by "recording-<attempt>.md". (Not "transcript.md": that is the
    // session's own transcript, whose stamp the recording shares.)
    static QString outputPath(const QString &recordingPath, int attempt = 1);
    // Creates the first of outputPath(…, 1), outputPath(…, 2), … that does not exist yet and
    // writes `text` into it; never replaces a file. The path written.
    static Result<QString> writeBeside(const QString &recordingPath, const QString &text);
    static QString channelLabel(int channel);

    // Adds what `channel` said from `startSeconds` on; empty text adds nothing. Utterances
    // may come in any order: the transcript sorts them by start time, then by channel.
    void addUtterance(int channel, double startSeconds, const QString &text);
    // "03:12", or "1:03:12" from an hour.
    static QString timestamp(double seconds);

    QString markdown() const;

private:
    struct Line
    {
        double start;
        int channel;
        QString text;
    };
    QStringList m_header;
    QList<Line> m_dialogue;
};
