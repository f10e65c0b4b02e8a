// Records a session (tap mode, the given microphone) and prints the WAV's path, then runs
// until it is killed. The capture tests kill it mid-recording.
#include "audio/AudioCaptureEngine.h"

#include <QCoreApplication>

#include <cstdio>

int main(int argc, char **argv)
{
    QCoreApplication app(argc, argv);
    const QString mic = argc > 1 ? QString::fromLocal8Bit(argv[1]) : QString();
    AudioCaptureEngine engine;
    const auto started = engine.start(SystemTapSource{TapTarget::systemOutput(), mic, 0}, StreamSource::meetingOnly, true);
    if (!started.ok() || !engine.recordingPath()) {
        std::fprintf(stderr, "%s\n", qPrintable(started.errorIfAny().value_or(QStringLiteral("no recording"))));
        return 1;
    }
    std::printf("%s\n", qPrintable(*engine.recordingPath()));
    std::fflush(stdout);
    return app.exec();
}
