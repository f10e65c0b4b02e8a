#include "settings/SecretStore.h"

#include "settings/SettingsLog.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringDecoder>

#include <sys/stat.h>

namespace {

// Equal to AppDataLocation for an application named "Ketterbloom" with no organisation,
// whatever the running executable is called.
QString dataFolder(const char *appName)
{
    return QStandardPaths::writableLocation(QStandardPaths::GenericDataLocation) + QLatin1Char('/')
        + QLatin1String(appName);
}

// Creates the folder (and its parents) when missing; the folder itself gets mode 0700 from
// the start. An existing folder is left as it is.
bool makePrivateDirectory(const QString &path)
{
    if (QFileInfo(path).isDir())
        return true;
    const QString parent = QFileInfo(path).absolutePath();
    if (!QDir().mkpath(parent))
        return false;
    if (::mkdir(QFile::encodeName(path).constData(), 0700) != 0)
        return QFileInfo(path).isDir();
    ::chmod(QFile::encodeName(path).constData(), 0700); // whatever the umask
    return true;
}

void makePrivateFile(const QString &path)
{
    ::chmod(QFile::encodeName(path).constData(), 0600);
}

} // namespace

SecretStore::SecretStore()
    : SecretStore(defaultDirectory(), defaultLegacyDirectory())
{
}

SecretStore::SecretStore(const QString &directory, const QString &legacyDirectory)
    : m_directory(directory)
    , m_legacyDirectory(legacyDirectory)
{
}

QString SecretStore::defaultDirectory()
{
    return dataFolder("Ketterbloom");
}

QString SecretStore::defaultLegacyDirectory()
{
    return dataFolder("Tallowmere");
}

QString SecretStore::filePath(const QString &fileName) const
{
    return m_directory + QLatin1Char('/') + fileName;
}

void SecretStore::migrateIfNeeded(const QString &fileName) const
{
    const QString target = filePath(fileName);
    if (QFileInfo::exists(target))
        return;
    const QString legacy = m_legacyDirectory + QLatin1Char('/') + fileName;
    if (!QFileInfo::exists(legacy))
        return;
    if (!makePrivateDirectory(m_directory))
        return;
    if (!QFile::copy(legacy, target))
        return;
    makePrivateFile(target);
    qCInfo(lcSettings) << "[Ketterbloom] copied the API key file from" << m_legacyDirectory;
}

void SecretStore::save(const QString &value) const
{
    const QString key = value.trimmed();
    const QString path = filePath();
    if (key.isEmpty()) {
        QFile::remove(path);
        return;
    }
    if (!makePrivateDirectory(m_directory)) {
        qCWarning(lcSettings) << "[Ketterbloom] cannot create the key folder" << m_directory;
        return;
    }
    QSaveFile file(path);
    if (!file.open(QIODevice::WriteOnly)) {
        qCWarning(lcSettings) << "[Ketterbloom] cannot write the key file" << path;
        return;
    }
    // Restrict the temporary file before the key goes into it.
    file.setPermissions(QFileDevice::ReadOwner | QFileDevice::WriteOwner);
    file.write(key.toUtf8());
    if (file.commit())
        makePrivateFile(path);
    else
        qCWarning(lcSettings) << "[Ketterbloom] cannot write the key file" << path;
}

std::optional<QString> SecretStore::readKeyFile() const
{
    QFile file(filePath());
    if (!file.open(QIODevice::ReadOnly))
        return std::nullopt;
    const QByteArray bytes = file.readAll();
    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return std::nullopt;
    const QString key = text.trimmed();
    if (key.isEmpty())
        return std::nullopt;
    return key;
}

QString SecretStore::loadKey() const
{
    migrateIfNeeded();
    if (const auto key = readKeyFile())
        return *key;
    if (qEnvironmentVariableIsSet(environmentVariable))
        return qEnvironmentVariable(environmentVariable);
    return QString();
}
