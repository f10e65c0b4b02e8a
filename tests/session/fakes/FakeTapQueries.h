#pragma once

#include "session/TapQueries.h"

#include <QHash>

// The applications playing on a pretend computer.
class FakeTapQueries final : public TapQueries
{
public:
    bool probeTapAccess() override
    {
        ++probeCount;
        if (!probeAnswers.isEmpty()) {
            return probeAnswers.takeFirst();
        }
        return tapAccess;
    }
    std::optional<AudioProcessInfo> audioObject(const QString &bundleID) override
    {
        ++audioObjectQueries;
        if (playing.contains(bundleID)) {
            return playing.value(bundleID);
        }
        return std::nullopt;
    }
    QList<AudioProcessInfo> selectableApps() override { return apps; }
    QList<QPair<QString, QStringList>> audioHelpers() const override { return helpers; }

    bool tapAccess = true;
    QList<bool> probeAnswers;   // consumed first, one per probe
    int probeCount = 0;
    int audioObjectQueries = 0;
    QHash<QString, AudioProcessInfo> playing;
    QList<AudioProcessInfo> apps;
    QList<QPair<QString, QStringList>> helpers;
};
