#include "speech/RecordingTranscript.h"

#include <QFileInfo>

RecordingTranscript::RecordingTranscript(const QString &fileName, double seconds)
{
    const int total = seconds > 0 ? static_cast<int>(seconds) : 0;
    m_lines << QStringLiteral("# Meeting transcript")
            << QString()
            << QStringLiteral("Source: `%1`").arg(fileName)
            << QString::asprintf("Duration: %d min %02d s", total / 60, total % 60)
            << QStringLiteral("Transcribed on-device. Left channel = you, right channel = the meeting.")
            << QString();
}

QString RecordingTranscript::outputPath(const QString &recordingPath)
{
    const QString suffix = QFileInfo(recordingPath).suffix();
    QString base = recordingPath;
    if (!suffix.isEmpty())
        base.chop(suffix.size() + 1);
    return base + QStringLiteral(".transcript.md");
}

QString RecordingTranscript::channelLabel(int channel)
{
    return channel == 0 ? QStringLiteral("You") : QStringLiteral("Interviewer");
}

void RecordingTranscript::addChunk(int startSeconds, const QStringList &channelTexts)
{
    QStringList collected;
    for (int c = 0; c < channelTexts.size(); ++c) {
        if (!channelTexts[c].isEmpty())
            collected << QStringLiteral("**%1:** %2").arg(channelLabel(c), channelTexts[c]);
    }
    if (collected.isEmpty())
        return;
    m_lines << QString::asprintf("### %02d:%02d", startSeconds / 60, startSeconds % 60);
    m_lines << collected;
    m_lines << QString();
}

QString RecordingTranscript::markdown() const
{
    return m_lines.join(u'\n');
}
