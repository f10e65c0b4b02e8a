#include "settings/AppSettings.h"

#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Ketterbloom"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KETTERBLOOM_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Live interview copilot"));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption printInstructions(
        QStringLiteral("print-instructions"),
        QStringLiteral("Write the model instructions assembled from the saved settings to standard output."));
    parser.addOption(printInstructions);
    parser.process(app);

    if (parser.isSet(printInstructions)) {
        const AppSettings settings;
        const QByteArray text = settings.instructions().toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fflush(stdout);
        return 0;
    }
    return 0;
}
