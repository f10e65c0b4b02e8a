#include "updates/DpkgPackageDatabase.h"

#include "updates/UpdatesLogging.h"

#include <QPointer>
#include <QProcess>
#include <QTimer>

namespace {
constexpr int kQueryTimeoutMs = 15000;
}

DpkgPackageDatabase::DpkgPackageDatabase(QObject *parent, QString program)
    : QObject(parent)
    , m_program(std::move(program))
{
}

QStringList DpkgPackageDatabase::parseOwners(const QString &output, const QString &path)
{
    const QString suffix = QStringLiteral(": ") + path;
    for (const QString &line : output.split(QLatin1Char('\n'), Qt::SkipEmptyParts)) {
        if (line.startsWith(QLatin1String("diversion ")) || !line.endsWith(suffix))
            continue;
        QStringList owners = line.chopped(suffix.size()).split(QStringLiteral(", "), Qt::SkipEmptyParts);
        for (QString &owner : owners) {
            // Multi-arch packages are listed as "name:arch".
            owner = owner.section(QLatin1Char(':'), 0, 0).trimmed();
        }
        return owners;
    }
    return {};
}

std::optional<QString> DpkgPackageDatabase::parseStatusVersion(const QString &output)
{
    const QStringList fields = output.trimmed().split(QLatin1Char(' '), Qt::SkipEmptyParts);
    // Unpacked or half-configured means dpkg is still at work (or failed): not installed yet.
    static const QStringList installed{QStringLiteral("installed"), QStringLiteral("triggers-pending"),
                                       QStringLiteral("triggers-awaited")};
    if (fields.size() != 2 || !installed.contains(fields.at(0)))
        return std::nullopt;
    return fields.at(1);
}

void DpkgPackageDatabase::owner(const QString &path, std::function<void(std::optional<Owner>)> done)
{
    query({QStringLiteral("-S"), path}, [this, path, done = std::move(done)](std::optional<QString> output) {
        const QStringList owners = output ? parseOwners(*output, path) : QStringList();
        if (owners.isEmpty()) {
            done(std::nullopt);
            return;
        }
        const QString package = owners.constFirst();
        installedVersion(package, [package, done](std::optional<QString> version) {
            if (!version)
                done(std::nullopt);
            else
                done(Owner{package, *version});
        });
    });
}

void DpkgPackageDatabase::installedVersion(const QString &package, std::function<void(std::optional<QString>)> done)
{
    query({QStringLiteral("-W"), QStringLiteral("-f=${db:Status-Status} ${Version}\\n"), package},
          [done = std::move(done)](std::optional<QString> output) {
              done(output ? parseStatusVersion(*output) : std::nullopt);
          });
}

void DpkgPackageDatabase::query(const QStringList &arguments, std::function<void(std::optional<QString>)> done)
{
    auto *process = new QProcess(this);
    auto *timeout = new QTimer(process);
    timeout->setSingleShot(true);
    auto finish = [process, done = std::move(done)](std::optional<QString> output) mutable {
        if (!done)
            return;
        auto callback = std::move(done);
        done = nullptr;
        process->deleteLater();
        callback(std::move(output));
    };
    auto shared = std::make_shared<decltype(finish)>(std::move(finish));
    connect(process, &QProcess::finished, this, [process, shared](int code, QProcess::ExitStatus status) {
        if (status != QProcess::NormalExit) {
            (*shared)(std::nullopt);
            return;
        }
        // dpkg-query exits with 1 when the file or package is unknown: no owner, no version.
        (*shared)(code == 0 ? std::optional(QString::fromLocal8Bit(process->readAllStandardOutput()))
                            : std::nullopt);
    });
    connect(process, &QProcess::errorOccurred, this, [this, shared](QProcess::ProcessError error) {
        if (error == QProcess::FailedToStart) {
            qCInfo(lcUpdates).noquote() << "[Ketterbloom]" << m_program << "could not be started";
            (*shared)(std::nullopt);
        }
    });
    connect(timeout, &QTimer::timeout, this, [this, process, shared] {
        qCWarning(lcUpdates).noquote() << "[Ketterbloom]" << m_program << "did not answer in time";
        process->kill();
        (*shared)(std::nullopt);
    });
    timeout->start(kQueryTimeoutMs);
    process->start(m_program, arguments);
}
