#pragma once

#include <QString>

#include <functional>
#include <optional>

// The system's record of installed packages. Answers arrive on the GUI thread, possibly
// after the call returned.
class PackageDatabase
{
public:
    struct Owner
    {
        QString package;  // e.g. "ketterbloom"
        QString version;  // the installed version, e.g. "0.2.0-1"
    };

    virtual ~PackageDatabase() = default;

    // The installed package that owns the file at `path`; none when no package does.
    virtual void owner(const QString &path, std::function<void(std::optional<Owner>)> done) = 0;
    // The installed version of `package`; none when it is not installed.
    virtual void installedVersion(const QString &package, std::function<void(std::optional<QString>)> done) = 0;
};
