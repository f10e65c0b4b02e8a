#pragma once

#include <QString>

#include <cstdio>

// `ketterbloom --transcribe FILE.wav`: transcribes a saved recording on the device, shows a
// progress bar on the terminal, and prints the transcript's path. Returns the exit code.
class TranscribeCommand
{
public:
    static int run(const QString &wavPath, std::FILE *out, std::FILE *err);

    // "[##########··········]  50% (45s of 90s)": a bar of `width` cells.
    static QString progressLine(double secondsDone, double secondsTotal, int width = 30);
};
