#pragma once

#include "audio/AudioTypes.h"

#include <QList>
#include <QPair>
#include <QString>

#include <optional>

// Queries about the applications playing on this computer, used to choose and narrow the
// meeting tap. Called on the GUI thread; each must answer quickly.
class TapQueries
{
public:
    virtual ~TapQueries() = default;

    // The sound server answers and its default sink has a monitor.
    virtual bool probeTapAccess() = 0;
    // The audio of a running application that is producing sound now, or none.
    virtual std::optional<AudioProcessInfo> audioObject(const QString &bundleID) = 0;
    // Applications that can be chosen, those playing now first.
    virtual QList<AudioProcessInfo> selectableApps() = 0;
    // Applications whose call audio is played by a differently named process, in order:
    // application id -> the ids of the processes that play for it.
    virtual QList<QPair<QString, QStringList>> audioHelpers() const = 0;
};
