#include "speech/RecordingTranscript.h"

#include <QFile>
#include <QFileInfo>

#include <algorithm>

RecordingTranscript::RecordingTranscript(const QString &fileName, double seconds, const QString &method)
{
    const int total = seconds > 0 ? static_cast<int>(seconds) : 0;
    m_header << QStringLiteral("# Meeting transcript")
            << QString()
            << QStringLiteral("Source: `%1`").arg(fileName)
            << QString::asprintf("Duration: %d min %02d s", total / 60, total % 60)
            << method + QStringLiteral(" Left channel = you, right channel = the meeting.")
            << QString();
}

QString RecordingTranscript::outputPath(const QString &recordingPath, int attempt)
{
    const QString suffix = QFileInfo(recordingPath).suffix();
    QString base = recordingPath;
    if (!suffix.isEmpty())
        base.chop(suffix.size() + 1);
    if (attempt > 1)
        return base + QStringLiteral(".recording-%1.md").arg(attempt);
    return base + QStringLiteral(".recording.md");
}

Result<QString> RecordingTranscript::writeBeside(const QString &recordingPath, const QString &text)
{
    constexpr int kMaxAttempts = 1000;
    const QByteArray bytes = text.toUtf8();
    for (int attempt = 1; attempt <= kMaxAttempts; ++attempt) {
        const QString path = outputPath(recordingPath, attempt);
        if (QFileInfo::exists(path))
            continue;
        QFile out(path);
        // NewOnly: fails instead of truncating a file that appeared meanwhile.
        if (!out.open(QIODevice::WriteOnly | QIODevice::NewOnly)) {
            if (QFileInfo::exists(path))
                continue;
            return Result<QString>::failure(
                tr("Could not write %1: %2").arg(QFileInfo(path).fileName(), out.errorString()));
        }
        if (out.write(bytes) != bytes.size() || !out.flush()) {
            const QString message = tr("Could not write %1: %2").arg(QFileInfo(path).fileName(), out.errorString());
            out.remove();
            return Result<QString>::failure(message);
        }
        out.close();
        return path;
    }
    return Result<QString>::failure(tr("Could not write a transcript beside %1: too many earlier transcripts.")
                                        .arg(QFileInfo(recordingPath).fileName()));
}

QString RecordingTranscript::channelLabel(int channel)
{
    return channel == 0 ? QStringLiteral("You") : QStringLiteral("Interviewer");
}

void RecordingTranscript::addUtterance(int channel, double startSeconds, const QString &text)
{
    if (!text.isEmpty())
        m_dialogue.append({startSeconds, channel, text});
}

QString RecordingTranscript::timestamp(double seconds)
{
    const qint64 total = seconds > 0 ? static_cast<qint64>(seconds) : 0;
    if (total >= 3600)
        return QString::asprintf("%lld:%02lld:%02lld", total / 3600, total / 60 % 60, total % 60);
    return QString::asprintf("%02lld:%02lld", total / 60, total % 60);
}

QString RecordingTranscript::markdown() const
{
    QList<Line> dialogue = m_dialogue;
    std::stable_sort(dialogue.begin(), dialogue.end(), [](const Line &a, const Line &b) {
        return a.start < b.start || (a.start == b.start && a.channel < b.channel);
    });
    QStringList lines = m_header;
    for (const Line &line : dialogue)
        lines << QStringLiteral("**%1** (%2): %3").arg(channelLabel(line.channel), timestamp(line.start), line.text) << QString();
    return lines.join(u'\n');
}
