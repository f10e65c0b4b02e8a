#include "settings/SecretStore.h"

#include "settings/SettingsLogging.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>
#include <QSaveFile>
#include <QStandardPaths>
#include <QStringDecoder>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

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

// A key file is a line of text; anything much larger is not one.
constexpr qint64 kMaxKeyFileBytes = 64 * 1024;

// Takes away every permission of group and others, saying so.
void tightenMode(const QString &path, mode_t mode, const char *what)
{
    const QByteArray native = QFile::encodeName(path);
    struct stat info{};
    if (::lstat(native.constData(), &info) != 0 || S_ISLNK(info.st_mode) || (info.st_mode & 077) == 0)
        return;
    const QString from = QString::number(info.st_mode & 0777, 8);
    const QString to = QString::number(mode, 8);
    if (::chmod(native.constData(), mode) == 0) {
        qCInfo(lcSettings).noquote() << QStringLiteral("[Ketterbloom] the key %1 %2 was open to others (mode %3); tightened to %4")
                                            .arg(QLatin1String(what), path, from, to);
    } else {
        qCWarning(lcSettings).noquote() << QStringLiteral("[Ketterbloom] the key %1 %2 is open to others (mode %3) and could not be tightened to %4")
                                               .arg(QLatin1String(what), path, from, to);
    }
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
    return inspectKeyFile().key;
}

SecretStore::KeyFile SecretStore::inspectKeyFile() const
{
    const QString path = filePath();
    const QByteArray native = QFile::encodeName(path);
    const auto ignored = [&path](const char *why) {
        KeyFile result;
        result.ignoredBecause = tr("The key file %1 %2, so it was ignored.").arg(path, tr(why));
        qCWarning(lcSettings).noquote() << "[Ketterbloom]" << result.ignoredBecause;
        return result;
    };

    struct stat info{};
    if (::lstat(native.constData(), &info) != 0)
        return {}; // no key file: not a problem
    if (S_ISLNK(info.st_mode))
        return ignored(QT_TR_NOOP("is a symbolic link (it must be a regular file)"));
    if (S_ISDIR(info.st_mode))
        return ignored(QT_TR_NOOP("is a folder"));
    if (!S_ISREG(info.st_mode))
        return ignored(QT_TR_NOOP("is not a regular file"));

    tightenMode(m_directory, 0700, "folder");
    // O_NOFOLLOW: the file cannot be swapped for a link between the check above and the read.
    const int fd = ::open(native.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return ignored(QT_TR_NOOP("cannot be read"));
    QFile file;
    if (!file.open(fd, QIODevice::ReadOnly, QFileDevice::AutoCloseHandle)) {
        ::close(fd);
        return ignored(QT_TR_NOOP("cannot be read"));
    }
    if (::fstat(fd, &info) != 0 || !S_ISREG(info.st_mode))
        return ignored(QT_TR_NOOP("is not a regular file"));
    tightenMode(path, 0600, "file");
    if (info.st_size > kMaxKeyFileBytes)
        return ignored(QT_TR_NOOP("is too large to hold a key"));
    const QByteArray bytes = file.read(kMaxKeyFileBytes + 1);

    QStringDecoder decoder(QStringConverter::Utf8, QStringConverter::Flag::Stateless);
    const QString text = decoder.decode(bytes);
    if (decoder.hasError())
        return ignored(QT_TR_NOOP("is not UTF-8 text"));
    const QString key = text.trimmed();
    if (key.isEmpty())
        return {};
    if (key.contains(QLatin1Char('\n')) || key.contains(QLatin1Char('\r')))
        return ignored(QT_TR_NOOP("holds more than one line (it must hold the key alone)"));
    KeyFile result;
    result.key = key;
    return result;
}

QString SecretStore::loadKey(QString *keyFileProblem) const
{
    migrateIfNeeded();
    const KeyFile file = inspectKeyFile();
    if (keyFileProblem)
        *keyFileProblem = file.ignoredBecause;
    if (file.key)
        return *file.key;
    if (qEnvironmentVariableIsSet(environmentVariable))
        return qEnvironmentVariable(environmentVariable);
    return QString();
}
