#pragma once

#include <QDBusConnection>
#include <QDBusObjectPath>
#include <QList>
#include <QObject>
#include <QStringList>

#include <functional>
#include <memory>
#include <optional>
#include <vector>

class FakePackageKit;

// One transaction of the stand-in daemon. Like the real one it answers each method at once
// and reports the outcome afterwards through Package, ErrorCode and Finished signals.
class FakeTransaction : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.PackageKit.Transaction")
public:
    FakeTransaction(FakePackageKit &daemon, QString path);
    QString path() const { return m_path; }
    // Ends an install that the script holds.
    void finishInstall();

public slots:
    void SetHints(const QStringList &hints);
    void RefreshCache(bool force);
    void GetUpdates(qulonglong filter);
    void UpdatePackages(qulonglong flags, const QStringList &packageIds);

signals:
    void Package(uint info, const QString &packageId, const QString &summary);
    void ErrorCode(uint code, const QString &details);
    void Finished(uint exit, uint runtime);
    void Destroy();

private:
    void later(std::function<void()> step);
    void succeed();
    void failWith(uint code, const QString &details);

    FakePackageKit &m_daemon;
    QString m_path;
    QStringList m_packageIds;
};

// A stand-in PackageKit daemon on a test's private bus, scripted per test.
class FakePackageKit : public QObject
{
    Q_OBJECT
    Q_CLASSINFO("D-Bus Interface", "org.freedesktop.PackageKit")
public:
    struct Script
    {
        std::optional<QString> update;    // the version of ketterbloom on offer, e.g. "0.2.0-1"
        bool updateBlocked = false;       // …offered as blocked (it can't be installed now)
        bool refuseAuthorisation = false; // the user dismisses the password prompt
        QString refreshError;             // RefreshCache fails with this message
        bool refreshRefused = false;      // RefreshCache is not authorised without a prompt
        bool holdInstall = false;         // UpdatePackages waits for finishInstall()
        bool stopOnInstall = false;       // the daemon goes away during UpdatePackages
    };

    explicit FakePackageKit(QDBusConnection bus);
    ~FakePackageKit() override;

    bool publish();
    void withdraw();

    Script script;
    // What was called, in order: "RefreshCache", "GetUpdates", "UpdatePackages <id>".
    QStringList calls;
    // The hints of each transaction, in order.
    QList<QStringList> hints;
    // Runs when an install succeeds, as dpkg would replace the files.
    std::function<void(const QString &packageId)> installed;
    // The transaction of the held install, if any.
    FakeTransaction *heldInstall = nullptr;

    QDBusConnection bus() const { return m_bus; }

public slots:
    QDBusObjectPath CreateTransaction();

private:
    QDBusConnection m_bus;
    std::vector<std::unique_ptr<FakeTransaction>> m_transactions;
    bool m_published = false;
};
