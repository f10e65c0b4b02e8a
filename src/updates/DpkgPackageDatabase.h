#pragma once

#include "updates/PackageDatabase.h"

#include <QObject>
#include <QStringList>

// The dpkg database, read with dpkg-query in a child process so the GUI thread never waits.
// Where dpkg-query is missing or fails, a file has no owner and a package no version.
class DpkgPackageDatabase final : public QObject, public PackageDatabase
{
    Q_OBJECT
public:
    explicit DpkgPackageDatabase(QObject *parent = nullptr, QString program = QStringLiteral("dpkg-query"));

    void owner(const QString &path, std::function<void(std::optional<Owner>)> done) override;
    void installedVersion(const QString &package, std::function<void(std::optional<QString>)> done) override;

    // "ketterbloom: /usr/bin/ketterbloom" (several owners separated by ", "); diversion lines
    // are skipped. Empty when no line names `path`.
    static QStringList parseOwners(const QString &output, const QString &path);
    // "installed 0.2.0-1" → "0.2.0-1" (also with triggers pending); a package not installed,
    // or one dpkg is still unpacking or configuring, gives none.
    static std::optional<QString> parseStatusVersion(const QString &output);

private:
    // Runs dpkg-query with `arguments`; `done` gets standard output, or none when it failed.
    void query(const QStringList &arguments, std::function<void(std::optional<QString>)> done);

    QString m_program;
};
