#pragma once

#include <QString>

#include <functional>

// Append-only diagnostic log of the audio start-up path, in
// <Documents>/Ketterbloom/startup.log. Every line is also logged with the "[Ketterbloom] "
// prefix. Callable from any thread and never blocks on the file: lines are appended, in call
// order, by one writer thread ("kb-trace"). The file is never truncated.
class StartupTrace
{
public:
    StartupTrace() = delete;

    // Starts a section: resets the elapsed-time origin and writes "──── title ────".
    static void begin(const QString &title);
    // One step: elapsed seconds since begin (or first use), the name and an optional detail.
    static void step(const QString &name, const QString &detail = {});
    // A raw line.
    static void write(const QString &text);

    // The step line for the given elapsed seconds: "%6.2fs  name" plus "  (detail)".
    static QString formatStep(double elapsedSeconds, const QString &name, const QString &detail);
    // <Documents>/Ketterbloom/startup.log (the folder is created), or empty when unknown.
    static QString filePath();
    // Waits until every line written so far is in the file. For tests and shutdown.
    static void flush();
    // Replaces the monotonic clock (milliseconds) used for elapsed times; nullptr restores it.
    static void setClockForTesting(std::function<qint64()> nowMs);
};
