#include "updates/PackageKitClient.h"

#include <QPointer>

namespace {

QStringList hintsFor(bool interactive)
{
    if (interactive)
        return {QStringLiteral("interactive=true")};
    return {QStringLiteral("interactive=false"), QStringLiteral("background=true")};
}

} // namespace

PackageKitClient::PackageKitClient(const QDBusConnection &bus, QObject *parent)
    : QObject(parent)
    , m_bus(bus)
{
}

QString PackageKitClient::nameOf(const QString &packageId)
{
    return packageId.section(QLatin1Char(';'), 0, 0);
}

QString PackageKitClient::versionOf(const QString &packageId)
{
    return packageId.section(QLatin1Char(';'), 1, 1);
}

void PackageKitClient::findUpdate(const QString &package, bool interactive,
                                  std::function<void(const Result &, std::optional<QString>)> done)
{
    const QStringList hints = hintsFor(interactive);
    QPointer<PackageKitClient> self(this);
    PackageKitTransaction::run(
        m_bus, hints, QStringLiteral("RefreshCache"), {QVariant::fromValue(false)},
        [self, package, hints, interactive, done](const Result &refreshed) {
            if (!self)
                return;
            // A background check that may not refresh the lists still reads the ones the
            // system keeps fresh itself.
            const bool useCachedLists = !refreshed.ok() && refreshed.error().problem == Problem::notAuthorized
                                        && !interactive;
            if (!refreshed.ok() && !useCachedLists) {
                done(refreshed, std::nullopt);
                return;
            }
            PackageKitTransaction::run(
                self->m_bus, hints, QStringLiteral("GetUpdates"), {QVariant::fromValue(filterNone)},
                [package, done](const Result &listed) {
                    std::optional<QString> found;
                    if (listed.ok()) {
                        for (const PackageKitTransaction::Package &update : listed.value()) {
                            if (nameOf(update.id) == package && update.info != PackageKitTransaction::infoBlocked)
                                found = update.id;
                        }
                    }
                    done(listed, found);
                },
                self);
        },
        this);
}

void PackageKitClient::update(const QString &packageId, std::function<void(const Result &)> done)
{
    PackageKitTransaction::run(m_bus, hintsFor(true), QStringLiteral("UpdatePackages"),
                               {QVariant::fromValue(onlyTrusted), QVariant::fromValue(QStringList{packageId})},
                               std::move(done), this);
}
