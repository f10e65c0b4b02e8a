#pragma once

#include <QCoreApplication>
#include <QString>

#include <optional>

// Owns the API key file: a small UTF-8 file readable only by the user, in a folder of mode
// 0700, with a one-time copy from the folder earlier versions used. The key itself is never
// logged.
//
// A default-constructed store uses the standard folders (~/.local/share/Ketterbloom, legacy
// ~/.local/share/Tallowmere, honouring XDG_DATA_HOME); tests pass their own folders.
class SecretStore
{
    Q_DECLARE_TR_FUNCTIONS(SecretStore)

public:
    static constexpr const char *keyFileName = "openai.key";
    static constexpr const char *environmentVariable = "OPENAI_API_KEY";

    SecretStore();
    SecretStore(const QString &directory, const QString &legacyDirectory);

    // The standard folders, computed from the data location at the time of the call.
    static QString defaultDirectory();
    static QString defaultLegacyDirectory();

    QString directory() const { return m_directory; }
    QString legacyDirectory() const { return m_legacyDirectory; }
    QString filePath(const QString &fileName = QString::fromLatin1(keyFileName)) const;

    // When the file is missing from the directory but present in the legacy folder, copies it
    // over (the legacy file stays) and gives the copy mode 0600. Failures are silent.
    void migrateIfNeeded(const QString &fileName = QString::fromLatin1(keyFileName)) const;

    // Trims the value; an empty result deletes the key file, anything else is written
    // atomically with mode 0600 (folder 0700). Failures are silent.
    void save(const QString &value) const;

    // The key file as read: the key, or why the file was not used.
    struct KeyFile
    {
        std::optional<QString> key;
        // Empty when the file is missing or blank (which just means "no key"); otherwise one
        // line for the user saying why a file that exists was ignored.
        QString ignoredBecause;
    };
    // Reads the key file. It is used only when it is a regular file (not a symbolic link, not a
    // folder) of valid UTF-8 holding one line. A file or folder that others may read is first
    // tightened to 0600 / 0700, with a log line. Problems are logged; the key never is.
    KeyFile inspectKeyFile() const;
    // The key of inspectKeyFile(), trimmed, when the file could be used and is not blank.
    std::optional<QString> readKeyFile() const;

    // What the settings use at launch: migrate, then the key file, else OPENAI_API_KEY as it
    // stands (untrimmed), else "". `keyFileProblem` receives why an existing key file was ignored.
    QString loadKey(QString *keyFileProblem = nullptr) const;

private:
    QString m_directory;
    QString m_legacyDirectory;
};
