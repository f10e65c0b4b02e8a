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
    return tr("%1 %2% (%3s of %4s)")
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
        ConsoleText::writeError(err, tr("%1: no such file").arg(wavPath));
        return 2;
    }
    const bool terminal = ::isatty(fileno(err)) == 1;
    const auto showProgress = [&](const RecordingProgress &progress) {
        const QString line = progressLine(progress.secondsDone, progress.secondsTotal);
        ConsoleText::write(err, terminal ? QStringLiteral("\r") + line : line + QLatin1Char('\n'));
    };
    std::optional<RecordingTranscriber::Result> result;
    if (service) {
        const std::optional<double> seconds = RecordingTranscriber::recordingSeconds(info.absoluteFilePath());
        const QString model = service->model;
        const QString about = seconds ? CostModel::money(CostModel::estimatedTranscriptionCost(model, *seconds)) : QString();
        ConsoleText::write(err, (seconds ? tr("Transcribing %1 with OpenAI (%2, about %3): its audio, both sides of "
                                              "the conversation, is sent to the service.\n")
                                               .arg(info.fileName(), model, about)
                                         : tr("Transcribing %1 with OpenAI (%2): its audio, both sides of the "
                                              "conversation, is sent to the service.\n")
                                               .arg(info.fileName(), model)));
        ServiceUtteranceRecogniser recogniser(*service);
        const std::atomic<bool> never{false};
        result = RecordingTranscriber::run(info.absoluteFilePath(), recogniser, showProgress, never);
    } else {
        ConsoleText::write(err, tr("Transcribing %1… this runs locally and takes a while.\n").arg(info.fileName()));
        result = RecordingTranscriber::transcribeFile(info.absoluteFilePath(), showProgress);
    }
    if (terminal)
        ConsoleText::write(err, QStringLiteral("\n"));
    if (!result->ok()) {
        ConsoleText::write(err, tr("Transcription failed: %1\n").arg(result->error()));
        return 1;
    }
    const RecordingTranscriber::Written &written = result->value();
    if (service) {
        if (const std::optional<QString> used = CostModel::transcriptionSummary(written.usage, service->model, written.secondsSent))
            ConsoleText::write(err, tr("OpenAI: %1\n").arg(*used));
    }
    ConsoleText::write(out, written.transcriptPath + QLatin1Char('\n'));
    return 0;
}
