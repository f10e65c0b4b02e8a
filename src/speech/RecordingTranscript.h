#pragma once

#include <QString>
#include <QStringList>

// The Markdown transcript of a saved recording: a header, then one section per chunk in
// which at least one channel produced text. Channel 0 is the user, every other channel the
// meeting.
class RecordingTranscript
{
public:
    // `fileName` is the recording's file name; `seconds` its length.
    RecordingTranscript(const QString &fileName, double seconds);

    // The transcript's path for a recording: its extension replaced by "transcript.md".
    static QString outputPath(const QString &recordingPath);
    static QString channelLabel(int channel);

    // Adds a chunk starting at `startSeconds` (whole seconds) with one text per channel;
    // empty texts are left out, and a chunk without any text adds nothing.
    void addChunk(int startSeconds, const QStringList &channelTexts);

    QString markdown() const;

private:
    QStringList m_lines;
};
