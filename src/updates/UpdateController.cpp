#include "updates/UpdateController.h"

#include "updates/ExecutableWatcher.h"
#include "updates/PackageDatabase.h"
#include "updates/PackageKitClient.h"
#include "updates/UpdatesLogging.h"
#include "updates/UpdateTexts.h"

#include <QFileInfo>
#include <QPointer>
#include <QSettings>
#include <QTimer>

using Problem = PackageKitTransaction::Problem;

UpdateController::UpdateController(const Components &components, QObject *parent)
    : QObject(parent)
    , m_components(components)
    , m_packageKit(std::make_unique<PackageKitClient>(components.bus))
{
    m_reread.setSingleShot(true);
    m_reread.setInterval(components.settleMs);
    connect(&m_reread, &QTimer::timeout, this, [this] { readInstalledVersion({}); });
}

UpdateController::~UpdateController() = default;

std::optional<QString> UpdateController::availableVersion() const
{
    if (!m_availableId)
        return std::nullopt;
    return UpdateTexts::displayVersion(PackageKitClient::versionOf(*m_availableId));
}

QDateTime UpdateController::now() const
{
    return m_components.now ? m_components.now() : QDateTime::currentDateTimeUtc();
}

// --- Launch ------------------------------------------------------------------------------

void UpdateController::start()
{
    if (m_lookingUp || m_origin != Origin::unknown)
        return;
    m_lookingUp = true;
    QPointer<UpdateController> self(this);
    m_components.packages.owner(m_components.executablePath, [self](std::optional<PackageDatabase::Owner> owner) {
        if (!self)
            return;
        self->m_lookingUp = false;
        if (owner)
            self->installationKnown(owner->package, owner->version);
        else
            self->installationKnown({}, {});
    });
}

void UpdateController::installationKnown(const QString &package, const QString &version)
{
    if (package != QLatin1String(packageName)) {
        m_origin = Origin::buildFolder;
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] running from a build folder:" << m_components.executablePath;
    } else {
        m_origin = Origin::package;
        m_runningVersion = version;
        m_hasSource = m_components.updateSource.isEmpty() || QFileInfo::exists(m_components.updateSource);
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] running the installed package" << package << version;
        if (!m_hasSource)
            qCInfo(lcUpdates).noquote() << "[Ketterbloom] the package was built without an update source";
        m_watcher = std::make_unique<ExecutableWatcher>(m_components.executablePath, m_components.settleMs);
        connect(m_watcher.get(), &ExecutableWatcher::replaced, this, &UpdateController::executableReplaced);
    }
    if (m_checkRequested) {
        m_checkRequested = false;
        checkForUpdates();
    } else if (m_origin == Origin::package && m_hasSource && checkIsDue()) {
        runCheck(false);
    }
}

bool UpdateController::checkIsDue() const
{
    const QDateTime last =
        QDateTime::fromString(m_components.store.value(QLatin1String(lastCheckKey)).toString(), Qt::ISODate);
    if (!last.isValid())
        return true;
    const qint64 elapsed = last.secsTo(now());
    // A clock set back to before the last check does not postpone checks for good.
    return elapsed < 0 || elapsed >= checkIntervalSeconds;
}

// --- Checking ----------------------------------------------------------------------------

void UpdateController::checkForUpdates()
{
    switch (m_origin) {
    case Origin::unknown:
        m_checkRequested = true;
        show({UpdateTexts::checking(), std::nullopt});
        start();
        return;
    case Origin::buildFolder:
        show({UpdateTexts::builtFromSource(), std::nullopt});
        emit checkAnswered(CheckOutcome::notChecked);
        return;
    case Origin::package:
        if (!m_hasSource) {
            show({UpdateTexts::noUpdateSource(), std::nullopt});
            emit checkAnswered(CheckOutcome::notChecked);
            return;
        }
        if (m_installing) {
            // The install under way is the answer.
            show({UpdateTexts::installing(*availableVersion()), std::nullopt});
            return;
        }
        runCheck(true);
        return;
    }
}

void UpdateController::runCheck(bool manual)
{
    if (manual)
        show({UpdateTexts::checking(), std::nullopt});
    if (m_checking) {
        // The check under way answers this request too.
        m_checkIsManual = m_checkIsManual || manual;
        return;
    }
    m_checking = true;
    m_checkIsManual = manual;
    m_components.store.setValue(QLatin1String(lastCheckKey), now().toUTC().toString(Qt::ISODate));
    qCInfo(lcUpdates).noquote() << "[Ketterbloom] checking for updates" << (manual ? "(asked)" : "(daily)");
    QPointer<UpdateController> self(this);
    m_packageKit->findUpdate(QString::fromLatin1(packageName), manual,
                             [self](const PackageKitTransaction::Result &result, std::optional<QString> packageId) {
                                 if (self)
                                     self->checkFinished(result, packageId);
                             });
}

void UpdateController::checkFinished(const PackageKitTransaction::Result &result,
                                     const std::optional<QString> &packageId)
{
    const bool manual = m_checkIsManual;
    m_checking = false;
    m_checkIsManual = false;
    if (!result.ok()) {
        const PackageKitTransaction::Failure &failure = result.error();
        if (!manual) {
            // A daily check that could not run is no news worth a banner at every launch (many
            // computers have no PackageKit at all); the log says why, the menu item tells on demand.
            qCInfo(lcUpdates).noquote() << "[Ketterbloom] daily update check did not run:"
                                        << (failure.problem == Problem::missing ? QStringLiteral("PackageKit isn't available")
                                                                                : failure.details);
            return;
        }
        deliver({failure.problem == Problem::missing ? UpdateTexts::packageKitMissing()
                                                     : UpdateTexts::checkFailed(failure.details),
                 std::nullopt},
                manual);
        emit checkAnswered(CheckOutcome::notChecked);
        return;
    }

    if (packageId) {
        m_availableId = packageId;
        const QString version = *availableVersion();
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] update available:" << *packageId;
        deliver({UpdateTexts::available(version), UpdateHost::Action::installUpdate}, manual);
        if (manual)
            emit checkAnswered(CheckOutcome::available);
    } else {
        m_availableId.reset();
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] no update";
        if (m_installedVersion && m_components.host.isSessionActive()) {
            // No button that could restart in the middle of an interview.
            if (manual)
                show({UpdateTexts::updatedAfterSession(*m_installedVersion), std::nullopt});
        } else if (m_installedVersion) {
            deliver({UpdateTexts::updated(*m_installedVersion), UpdateHost::Action::restartNow}, manual);
        } else if (manual) {
            show({UpdateTexts::upToDate(UpdateTexts::displayVersion(m_runningVersion)), std::nullopt});
        }
        if (manual)
            emit checkAnswered(CheckOutcome::upToDate);
    }
}

// --- Installing --------------------------------------------------------------------------

void UpdateController::installUpdate()
{
    if (m_origin != Origin::package || !m_availableId || m_installing)
        return;
    m_installing = true;
    const QString packageId = *m_availableId;
    const QString version = *availableVersion();
    show({UpdateTexts::installing(version), std::nullopt});
    qCInfo(lcUpdates).noquote() << "[Ketterbloom] installing" << packageId;
    QPointer<UpdateController> self(this);
    m_packageKit->update(packageId, [self, version](const PackageKitTransaction::Result &result) {
        if (self)
            self->installFinished(result, version);
    });
}

void UpdateController::installFinished(const PackageKitTransaction::Result &result, const QString &version)
{
    m_installing = false;
    // Whatever came of it, the progress line has had its day.
    m_components.host.clearBanner(UpdateTexts::installing(version));
    if (result.ok()) {
        m_availableId.reset();
        readInstalledVersion(version);
        return;
    }
    switch (result.error().problem) {
    case Problem::missing:
        show({UpdateTexts::installMissing(version), std::nullopt});
        break;
    case Problem::notAuthorized:
        show({UpdateTexts::installRefused(version), UpdateHost::Action::installUpdate});
        break;
    case Problem::failed:
        show({UpdateTexts::installFailed(version, result.error().details), UpdateHost::Action::installUpdate});
        break;
    }
    emit installAnswered(false);
}

// --- A new version on disk ---------------------------------------------------------------

void UpdateController::readInstalledVersion(const QString &fallback)
{
    QPointer<UpdateController> self(this);
    m_components.packages.installedVersion(QString::fromLatin1(packageName),
                                           [self, fallback](std::optional<QString> version) {
                                               if (self)
                                                   self->installedVersionRead(version, fallback);
                                           });
}

void UpdateController::executableReplaced()
{
    m_rereadsLeft = versionRereads;
    readInstalledVersion({});
}

void UpdateController::installedVersionRead(const std::optional<QString> &version, const QString &fallback)
{
    if (version && *version != m_runningVersion) {
        m_rereadsLeft = 0;
        m_reread.stop();
        newVersionOnDisk(UpdateTexts::displayVersion(*version));
    } else if (!fallback.isEmpty()) {
        // PackageKit said it installed `fallback`; the database may lag behind.
        newVersionOnDisk(fallback);
    } else if (m_rereadsLeft > 0) {
        --m_rereadsLeft;
        m_reread.start();
    } else {
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] the executable changed; installed version still"
                                    << version.value_or(QStringLiteral("none"));
    }
    if (!fallback.isEmpty())
        emit installAnswered(true);
}

void UpdateController::newVersionOnDisk(const QString &version)
{
    if (version == UpdateTexts::displayVersion(m_runningVersion) || m_installedVersion == version)
        return;
    m_installedVersion = version;
    // An offer of this or an older version is moot now.
    m_heldBack.reset();
    if (m_availableId && UpdateTexts::displayVersion(PackageKitClient::versionOf(*m_availableId)) == version)
        m_availableId.reset();
    if (m_components.host.isSessionActive()) {
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] version" << version
                                    << "is installed; the restart waits for the session to end";
        return;
    }
    show({UpdateTexts::updated(version), UpdateHost::Action::restartNow});
}

void UpdateController::sessionEnded()
{
    // After the rest of the stop (its saved-files banner) has run.
    QTimer::singleShot(0, this, [this] {
        if (m_components.host.isSessionActive())
            return;
        if (m_installedVersion) {
            m_heldBack.reset();
            show({UpdateTexts::updated(*m_installedVersion), UpdateHost::Action::restartNow});
        } else if (m_heldBack) {
            const Banner banner = *m_heldBack;
            m_heldBack.reset();
            show(banner);
        }
    });
}

void UpdateController::restartNow()
{
    if (m_components.host.isSessionActive()) {
        qCInfo(lcUpdates).noquote() << "[Ketterbloom] no restart while a session is active";
        return;
    }
    if (m_restarting || m_origin != Origin::package || !m_installedVersion)
        return;
    if (const auto relaunched = m_components.host.relaunch(m_components.executablePath); !relaunched.ok()) {
        qCWarning(lcUpdates).noquote() << "[Ketterbloom] restart failed:" << relaunched.error();
        show({UpdateTexts::restartFailed(*m_installedVersion, relaunched.error()), std::nullopt});
        return;
    }
    m_restarting = true;
}

// --- Banner ------------------------------------------------------------------------------

void UpdateController::deliver(const Banner &banner, bool userAsked)
{
    if (userAsked || !m_components.host.isSessionActive()) {
        show(banner);
        return;
    }
    m_heldBack = banner;
}

void UpdateController::show(const Banner &banner)
{
    qCInfo(lcUpdates).noquote() << "[Ketterbloom] banner:" << banner.text;
    m_components.host.showBanner(banner.text, banner.action);
}
