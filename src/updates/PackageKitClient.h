#pragma once

#include "updates/PackageKitTransaction.h"

#include <QDBusConnection>
#include <QObject>

#include <optional>

// The two things the updater asks of PackageKit: is there a newer version of one package
// (refresh the package lists, then list the updates and pick that package's), and install it.
class PackageKitClient : public QObject
{
    Q_OBJECT
public:
    using Result = PackageKitTransaction::Result;
    using Problem = PackageKitTransaction::Problem;

    // PackageKit's filter bit "none" (all updates) and transaction flag "only trusted".
    static constexpr quint64 filterNone = quint64(1) << 1;
    static constexpr quint64 onlyTrusted = quint64(1) << 1;

    explicit PackageKitClient(const QDBusConnection &bus, QObject *parent = nullptr);

    // `done` gets the outcome and, when it succeeded and `package` has an update, that
    // update's package id. An interactive check may ask for a password to refresh the lists;
    // a background one may not.
    void findUpdate(const QString &package, bool interactive,
                    std::function<void(const Result &, std::optional<QString> packageId)> done);
    // Updates to `packageId`; the desktop's authorisation prompt may come up.
    void update(const QString &packageId, std::function<void(const Result &)> done);

    // The parts of a package id "name;version;arch;data".
    static QString nameOf(const QString &packageId);
    static QString versionOf(const QString &packageId);

private:
    QDBusConnection m_bus;
};
