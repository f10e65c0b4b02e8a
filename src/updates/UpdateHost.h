#pragma once

#include "common/Result.h"

#include <QString>

#include <optional>

// What the updater needs from the application shell: whether a session runs, the banner,
// and a way to start the program again.
class UpdateHost
{
public:
    // The one button an update banner may carry.
    enum class Action { installUpdate, restartNow };

    virtual ~UpdateHost() = default;

    virtual bool isSessionActive() const = 0;
    // Shows one banner line, with one action button or none.
    virtual void showBanner(const QString &text, std::optional<Action> action) = 0;
    // Clears the banner if, and only if, it still shows `text`.
    virtual void clearBanner(const QString &text) = 0;
    // Keeps what the next launch restores (the window frame), starts `executable` once this
    // process has exited, and quits. Fails with a reason when it could not be started; the
    // program then keeps running.
    virtual Result<void> relaunch(const QString &executable) = 0;
};
