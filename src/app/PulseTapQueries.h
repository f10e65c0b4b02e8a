#pragma once

#include "audio/ProcessTapCapture.h"
#include "session/TapQueries.h"

// Answers the session's questions about what plays on this computer from the sound server.
class PulseTapQueries final : public TapQueries
{
public:
    bool probeTapAccess() override { return ProcessTapCapture::probeTapAccess(); }
    std::optional<AudioProcessInfo> audioObject(const QString &bundleID) override
    {
        return ProcessTapCapture::audioObject(bundleID);
    }
    QList<AudioProcessInfo> selectableApps() override { return ProcessTapCapture::selectableApps(); }
    QList<QPair<QString, QStringList>> audioHelpers() const override { return ProcessTapCapture::audioHelpers(); }
};
