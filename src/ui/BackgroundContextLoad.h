#pragma once

#include "settings/ContextLoader.h"

#include <QStringList>

#include <functional>

class QObject;

// Reads context documents on a worker thread, so a long PDF never stalls the window. The
// result reaches `done` on the GUI thread, and never once `owner` has been destroyed.
class BackgroundContextLoad
{
public:
    BackgroundContextLoad() = delete;

    static void start(QObject *owner, const QStringList &paths,
                      std::function<void(const ContextLoader::Result &)> done);
};
