#pragma once

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

    // The key file's content, trimmed, when it can be read, is valid UTF-8 and is not blank.
    std::optional<QString> readKeyFile() const;

    // What the settings use at launch: migrate, then the key file, else OPENAI_API_KEY as it
    // stands (untrimmed), else "".
    QString loadKey() const;

private:
    QString m_directory;
    QString m_legacyDirectory;
};
