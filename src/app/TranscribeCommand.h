#pragma once

#include "realtime/AudioTranscriptionClient.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <optional>

// `ketterbloom --transcribe FILE.wav`: transcribes a saved recording on the device, shows a
// progress bar on the terminal, and prints the transcript's path. Returns the exit code.
// With `service` (`--with-openai`) each utterance goes to the service's transcription
// endpoint instead; the calling thread's event loop runs meanwhile.
class TranscribeCommand
{
    Q_DECLARE_TR_FUNCTIONS(TranscribeCommand)

public:
    static int run(const QString &wavPath, std::FILE *out, std::FILE *err,
                   const std::optional<AudioTranscriptionConfig> &service = std::nullopt);

    // "[##########··········]  50% (45s of 90s)": a bar of `width` cells.
    static QString progressLine(double secondsDone, double secondsTotal, int width = 30);
};
