#include <QCommandLineParser>
#include <QCoreApplication>

int main(int argc, char *argv[])
{
    QCoreApplication app(argc, argv);
    QCoreApplication::setApplicationName(QStringLiteral("Ketterbloom"));
    QCoreApplication::setApplicationVersion(QStringLiteral(KETTERBLOOM_VERSION));

    QCommandLineParser parser;
    parser.setApplicationDescription(QStringLiteral("Live interview copilot"));
    parser.addHelpOption();
    parser.addVersionOption();
    parser.process(app);
    return 0;
}
