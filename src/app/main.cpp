#include "app/AppShell.h"
#include "settings/AppSettings.h"

#include <QApplication>
#include <QCommandLineParser>
#include <QCoreApplication>

#include <cstdio>
#include <cstring>
#include <memory>

namespace {

void describeApplication()
{
    QCoreApplication::setApplicationName(QStringLiteral("Ketterbloom"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KETTERBLOOM_VERSION));
}

// Terminal-only invocations must work without a display, so they never create the GUI
// application.
bool wantsTerminalOnly(int argc, char *argv[])
{
    static const char *const terminalOptions[] = {"--version", "-v", "--help", "-h", "-?", "--help-all",
                                                  "--print-instructions"};
    for (int i = 1; i < argc; ++i) {
        for (const char *option : terminalOptions) {
            if (std::strcmp(argv[i], option) == 0)
                return true;
        }
    }
    return false;
}

} // namespace

int main(int argc, char *argv[])
{
    std::unique_ptr<QCoreApplication> app;
    if (wantsTerminalOnly(argc, argv))
        app = std::make_unique<QCoreApplication>(argc, argv);
    else
        app = std::make_unique<QApplication>(argc, argv);
    describeApplication();

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Live interview copilot"));
    parser.addHelpOption();
    parser.addVersionOption();
    const QCommandLineOption printInstructions(
        QStringLiteral("print-instructions"),
        QStringLiteral("Write the model instructions assembled from the saved settings to standard output."));
    parser.addOption(printInstructions);
    parser.process(*app);

    if (parser.isSet(printInstructions)) {
        const AppSettings settings;
        const QByteArray text = settings.instructions().toUtf8();
        std::fwrite(text.constData(), 1, size_t(text.size()), stdout);
        std::fflush(stdout);
        return 0;
    }

    QApplication::setApplicationDisplayName(QStringLiteral("Ketterbloom"));
    QApplication::setDesktopFileName(QStringLiteral("ketterbloom"));
    int status = 0;
    {
        AppShell shell;
        shell.show();
        status = QApplication::exec();
    }
    return status;
}
