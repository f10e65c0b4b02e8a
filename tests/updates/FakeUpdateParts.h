#pragma once

#include "updates/PackageDatabase.h"
#include "updates/UpdateHost.h"

#include <QList>
#include <QStringList>

// The shell as the updater sees it: a session flag, a banner that remembers every line
// shown, and a relaunch that only records.
class FakeUpdateHost final : public UpdateHost
{
public:
    struct Shown
    {
        QString text;
        std::optional<Action> action;
    };

    bool sessionActive = false;
    QList<Shown> shown;
    std::optional<QString> current;
    QStringList relaunched;
    QString relaunchError;

    bool isSessionActive() const override { return sessionActive; }
    void showBanner(const QString &text, std::optional<Action> action) override
    {
        shown.append({text, action});
        current = text;
    }
    void clearBanner(const QString &text) override
    {
        if (current == text)
            current.reset();
    }
    Result<void> relaunch(const QString &executable) override
    {
        if (!relaunchError.isEmpty()) {
            return Result<void>::failure(relaunchError);
        }
        relaunched.append(executable);
        return {};
    }

    qsizetype count(const QString &text) const
    {
        qsizetype n = 0;
        for (const Shown &line : shown)
            n += line.text == text ? 1 : 0;
        return n;
    }
    QString last() const { return shown.isEmpty() ? QString() : shown.constLast().text; }
    std::optional<Action> lastAction() const
    {
        return shown.isEmpty() ? std::nullopt : shown.constLast().action;
    }
};

// The dpkg database with one package whose version a test sets.
class FakePackageDatabase final : public PackageDatabase
{
public:
    // The package that owns the executable; none for a build folder.
    std::optional<QString> owningPackage = QStringLiteral("ketterbloom");
    // The installed version of ketterbloom; none when not installed.
    std::optional<QString> version = QStringLiteral("0.1.0-1");
    int versionReads = 0;

    void owner(const QString &path, std::function<void(std::optional<Owner>)> done) override
    {
        Q_UNUSED(path);
        if (owningPackage && version)
            done(Owner{*owningPackage, *version});
        else
            done(std::nullopt);
    }
    void installedVersion(const QString &package, std::function<void(std::optional<QString>)> done) override
    {
        Q_UNUSED(package);
        ++versionReads;
        done(version);
    }
};
