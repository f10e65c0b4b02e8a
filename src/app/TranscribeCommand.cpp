#include "app/TranscribeCommand.h"

#include "app/ConsoleText.h"
#include "app/ServiceUtteranceRecogniser.h"
#include "session/CostModel.h"
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

int TranscribeCommand::run(const QString &wavPath, std::FILE *out, std::FILE *err,
                           const std::optional<AudioTranscriptionConfig> &service)
{
    const QFileInfo info(wavPath);
    if (!info.isFile()) {
        ConsoleText::write(err, QStringLiteral("ketterbloom: %1: no such file\n").arg(wavPath));
        return 2;
    }
    const bool terminal = ::isatty(fileno(err)) == 1;
    const auto showProgress = [&](const RecordingProgress &progress) {
        const QString line = progressLine(progress.secondsDone, progress.secondsTotal);
        ConsoleText::write(err, terminal ? QStringLiteral("\r") + line : line + QLatin1Char('\n'));
    };
    const auto transcribe = [&]() -> RecordingTranscriber::Result {
        if (!service) {
            ConsoleText::write(err, QStringLiteral("Transcribing %1… this runs locally and takes a while.\n").arg(info.fileName()));
            return RecordingTranscriber::transcribeFile(info.absoluteFilePath(), showProgress);
        }
        const std::optional<double> seconds = RecordingTranscriber::recordingSeconds(info.absoluteFilePath());
        const QString cost = seconds ? QStringLiteral(", about %1").arg(CostModel::money(
                                           CostModel::estimatedTranscriptionCost(service->model, *seconds)))
                                     : QString();
        ConsoleText::write(err, QStringLiteral("Transcribing %1 with OpenAI (%2%3): its audio, both sides of the "
                                               "conversation, is sent to the service.\n")
                                    .arg(info.fileName(), service->model, cost));
        ServiceUtteranceRecogniser recogniser(*service);
        const std::atomic<bool> never{false};
        return RecordingTranscriber::run(info.absoluteFilePath(), recogniser, showProgress, never);
    };
    const RecordingTranscriber::Result result = transcribe();
    if (terminal)
        ConsoleText::write(err, QStringLiteral("\n"));
    if (!result.ok()) {
        ConsoleText::write(err, QStringLiteral("Transcription failed: %1\n").arg(result.error()));
        return 1;
    }
    const RecordingTranscriber::Written &written = result.value();
    if (service) {
        if (const std::optional<QString> used = CostModel::transcriptionSummary(written.usage, service->model, written.secondsSent))
            ConsoleText::write(err, QStringLiteral("OpenAI: %1\n").arg(*used));
    }
    ConsoleText::write(out, written.transcriptPath + QLatin1Char('\n'));
    return 0;
}
