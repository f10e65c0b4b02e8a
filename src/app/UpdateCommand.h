#pragma once

#include "updates/UpdateHost.h"

#include <QCoreApplication>
#include <QString>

#include <cstdio>
#include <optional>

// `ketterbloom --check-updates` and `--install-update`: the updater of the window, run from a
// terminal. Prints each outcome as the window's banner would word it and returns the exit
// code: 0 an update is available (check) or was installed (install), 1 this version is up to
// date, 2 it could not check or install (the reason is printed). Installing is refused while
// the running window has a session: an interview is never disturbed.
class UpdateCommand : private UpdateHost
{
    Q_DECLARE_TR_FUNCTIONS(UpdateCommand)

public:
    enum class Mode { check, install };
    static constexpr int exitAvailable = 0;
    static constexpr int exitInstalled = 0;
    static constexpr int exitUpToDate = 1;
    static constexpr int exitNotDone = 2;

    // Needs a QCoreApplication; runs its event loop until there is an answer.
    static int run(Mode mode, std::FILE *out, std::FILE *err);

    // The apt source the package installs when it was built with one.
    static constexpr const char *updateSourcePath = "/etc/apt/sources.list.d/ketterbloom.sources";

private:
    UpdateCommand(std::FILE *out, std::FILE *err);

    bool isSessionActive() const override { return false; }
    void showBanner(const QString &text, std::optional<Action> action) override;
    void clearBanner(const QString &) override {}
    Result<void> relaunch(const QString &) override;

    std::FILE *m_out;
    std::FILE *m_err;
    QString m_last;  // the newest banner line
};
