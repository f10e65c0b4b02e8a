#include "app/TranscribeCommand.h"

#include "app/ConsoleText.h"
#include "speech/RecordingTranscriber.h"

#include <QFileInfo>

#include <algorithm>
#include <unistd.h>

QString TranscribeCommand::progressLine(double secondsDone, double secondsTotal, int width)
{
    const double fraction = std::clamp(secondsDone / std::max(secondsTotal, 1.0), 0.0, 1.0);
    const int filled = int(fraction * width);
    QString bar = QStringLiteral("[") + QString(filled, QLatin1Char('#'))
        + QString(width - filled, QChar(0x00B7)) + QStringLiteral("]");
    return QStringLiteral("%1 %2% (%3s of %4s)")
        .arg(bar)
        .arg(int(fraction * 100), 3)
        .arg(qint64(secondsDone))
        .arg(qint64(secondsTotal));
}

int TranscribeCommand::run(const QString &wavPath, std::FILE *out, std::FILE *err)
{
    const QFileInfo info(wavPath);
    if (!info.isFile()) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: %1: no such file\n").arg(wavPath));
        return 2;
    }
    const bool terminal = ::isatty(fileno(err)) == 1;
    ConsoleText::write(err, QStringLiteral("Transcribing %1… this runs locally and takes a while.\n").arg(info.fileName()));
    const auto result = RecordingTranscriber::transcribeFile(
        info.absoluteFilePath(), [&](const RecordingProgress &progress) {
            const QString line = progressLine(progress.secondsDone, progress.secondsTotal);
            ConsoleText::write(err, terminal ? QStringLiteral("\r") + line : line + QLatin1Char('\n'));
        });
    if (terminal)
        ConsoleText::write(err, QStringLiteral("\n"));
    if (const auto *failed = std::get_if<RecordingTranscriber::Failed>(&result)) {
        ConsoleText::write(err, QStringLiteral("Transcription failed: %1\n").arg(failed->message));
        return 1;
    }
    ConsoleText::write(out, std::get<RecordingTranscriber::Written>(result).transcriptPath + QLatin1Char('\n'));
    return 0;
}
