#include "FakePackageKit.h"

#include <QTimer>

namespace {
constexpr uint kExitSuccess = 1;
constexpr uint kExitFailed = 2;
constexpr uint kErrorNoNetwork = 2;
constexpr uint kErrorNotAuthorized = 48;
// Package info as the real daemon sends an update's: the severity in the upper 16 bits.
constexpr uint kInfoNormal = 5;
constexpr uint kInfoBlocked = 9;
constexpr uint packed(uint info, uint severity) { return severity << 16 | info; }
const QString kService = QStringLiteral("org.freedesktop.PackageKit");
} // namespace

FakeTransaction::FakeTransaction(FakePackageKit &daemon, QString path)
    : m_daemon(daemon)
    , m_path(std::move(path))
{
}

void FakeTransaction::later(std::function<void()> step)
{
    QTimer::singleShot(0, this, std::move(step));
}

void FakeTransaction::succeed()
{
    emit Finished(kExitSuccess, 10);
    emit Destroy();
}

void FakeTransaction::failWith(uint code, const QString &details)
{
    emit ErrorCode(code, details);
    emit Finished(kExitFailed, 10);
    emit Destroy();
}

void FakeTransaction::SetHints(const QStringList &hints)
{
    m_daemon.hints.append(hints);
}

void FakeTransaction::RefreshCache(bool force)
{
    Q_UNUSED(force);
    m_daemon.calls.append(QStringLiteral("RefreshCache"));
    const QString error = m_daemon.script.refreshError;
    const bool refused = m_daemon.script.refreshRefused && !m_daemon.hints.value(m_daemon.hints.size() - 1).contains(
                                                               QStringLiteral("interactive=true"));
    later([this, error, refused] {
        if (refused)
            failWith(kErrorNotAuthorized, QStringLiteral("Failed to obtain authentication."));
        else if (error.isEmpty())
            succeed();
        else
            failWith(kErrorNoNetwork, error);
    });
}

void FakeTransaction::GetUpdates(qulonglong filter)
{
    Q_UNUSED(filter);
    m_daemon.calls.append(QStringLiteral("GetUpdates"));
    const std::optional<QString> update = m_daemon.script.update;
    const uint info = m_daemon.script.updateBlocked ? kInfoBlocked : kInfoNormal;
    later([this, update, info] {
        // Other packages' updates come too; the client picks its own.
        emit Package(packed(kInfoNormal, kInfoNormal), QStringLiteral("libexample1;2.4-1;amd64;debian-security"),
                     QStringLiteral("Example"));
        if (update)
            emit Package(packed(info, kInfoNormal), QStringLiteral("ketterbloom;%1;amd64;stand-in").arg(*update),
                         QStringLiteral("Live interview copilot"));
        succeed();
    });
}

void FakeTransaction::UpdatePackages(qulonglong flags, const QStringList &packageIds)
{
    Q_UNUSED(flags);
    m_packageIds = packageIds;
    m_daemon.calls.append(QStringLiteral("UpdatePackages ") + packageIds.join(QLatin1Char(',')));
    if (m_daemon.script.stopOnInstall) {
        later([this] { m_daemon.withdraw(); });
        return;
    }
    if (m_daemon.script.holdInstall) {
        m_daemon.heldInstall = this;
        return;
    }
    later([this] { finishInstall(); });
}

void FakeTransaction::finishInstall()
{
    if (m_daemon.heldInstall == this)
        m_daemon.heldInstall = nullptr;
    if (m_daemon.script.refuseAuthorisation) {
        failWith(kErrorNotAuthorized, QStringLiteral("Failed to obtain authentication."));
        return;
    }
    for (const QString &id : std::as_const(m_packageIds)) {
        if (m_daemon.installed)
            m_daemon.installed(id);
    }
    succeed();
}

FakePackageKit::FakePackageKit(QDBusConnection bus)
    : m_bus(std::move(bus))
{
}

FakePackageKit::~FakePackageKit()
{
    withdraw();
}

bool FakePackageKit::publish()
{
    m_published = m_bus.registerObject(QStringLiteral("/org/freedesktop/PackageKit"), this,
                                       QDBusConnection::ExportAllSlots)
                  && m_bus.registerService(kService);
    return m_published;
}

void FakePackageKit::withdraw()
{
    if (!m_published)
        return;
    m_published = false;
    m_bus.unregisterService(kService);
    m_bus.unregisterObject(QStringLiteral("/org/freedesktop/PackageKit"));
    for (const auto &transaction : m_transactions)
        m_bus.unregisterObject(transaction->path());
}

QDBusObjectPath FakePackageKit::CreateTransaction()
{
    const QString path = QStringLiteral("/%1_standin").arg(m_transactions.size() + 1);
    auto transaction = std::make_unique<FakeTransaction>(*this, path);
    m_bus.registerObject(path, transaction.get(), QDBusConnection::ExportAllSlots | QDBusConnection::ExportAllSignals);
    m_transactions.push_back(std::move(transaction));
    return QDBusObjectPath(path);
}
