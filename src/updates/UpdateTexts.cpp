#include "updates/UpdateTexts.h"

#include <QCoreApplication>
#include <QRegularExpression>

namespace {
constexpr qsizetype kMaxDetails = 160;
}

QString UpdateTexts::aptCommand()
{
    return QStringLiteral("sudo apt update && sudo apt install --only-upgrade ketterbloom");
}

QString UpdateTexts::checking()
{
    return QCoreApplication::translate(
        "UpdateTexts", "Checking for updates…");
}

QString UpdateTexts::available(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom %1 is available.").arg(version);
}

QString UpdateTexts::upToDate(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom is up to date (%1).").arg(version);
}

QString UpdateTexts::updated(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom was updated to %1.").arg(version);
}

QString UpdateTexts::updatedAfterSession(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom was updated to %1. Restart it after this session to use the new version.")
        .arg(version);
}

QString UpdateTexts::builtFromSource()
{
    return QCoreApplication::translate(
        "UpdateTexts", "This copy was built from source; update it with git pull and scripts/run.");
}

QString UpdateTexts::noUpdateSource()
{
    return QCoreApplication::translate(
        "UpdateTexts", "This package was built without an update source, so no updates arrive by themselves. "
                       "To update, install a newer package by hand: sudo apt install ./ketterbloom_<version>_amd64.deb");
}

QString UpdateTexts::installing(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Installing Ketterbloom %1… your computer may ask for your password.").arg(version);
}

QString UpdateTexts::packageKitMissing()
{
    return QCoreApplication::translate(
        "UpdateTexts", "Can't check for updates: PackageKit isn't available on this computer. "
                       "Update from a terminal instead: %1")
        .arg(aptCommand());
}

QString UpdateTexts::checkFailed(const QString &details)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Checking for updates failed (%1). Update from a terminal instead: %2")
        .arg(oneLine(details), aptCommand());
}

QString UpdateTexts::installMissing(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Can't install Ketterbloom %1: PackageKit isn't available on this computer. "
                       "Update from a terminal instead: %2")
        .arg(version, aptCommand());
}

QString UpdateTexts::installRefused(const QString &version)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom %1 wasn't installed: permission was refused. "
                       "Try again, or update from a terminal: %2")
        .arg(version, aptCommand());
}

QString UpdateTexts::installFailed(const QString &version, const QString &details)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom %1 couldn't be installed (%2). Try again, or update from a terminal: %3")
        .arg(version, oneLine(details), aptCommand());
}

QString UpdateTexts::restartFailed(const QString &version, const QString &reason)
{
    return QCoreApplication::translate(
        "UpdateTexts", "Ketterbloom couldn't restart (%1). Quit and open it again to use version %2.")
        .arg(oneLine(reason), version);
}

QString UpdateTexts::displayVersion(const QString &packageVersion)
{
    QString version = packageVersion.trimmed();
    const qsizetype colon = version.indexOf(QLatin1Char(':'));
    if (colon >= 0)
        version = version.mid(colon + 1);
    const qsizetype dash = version.lastIndexOf(QLatin1Char('-'));
    if (dash > 0)
        version.truncate(dash);
    return version;
}

QString UpdateTexts::oneLine(const QString &details)
{
    static const QRegularExpression space(QStringLiteral("\\s+"));
    QString line = QString(details).replace(space, QStringLiteral(" ")).trimmed();
    while (line.endsWith(QLatin1Char('.')) || line.endsWith(QLatin1Char(' ')))
        line.chop(1);
    if (line.isEmpty())
        return QCoreApplication::translate(
            "UpdateTexts", "no reason given");
    if (line.size() > kMaxDetails)
        line = line.left(kMaxDetails - 1).trimmed() + QStringLiteral("…");
    return line;
}
