#include "session/SessionSnapshot.h"

#include <atomic>

namespace {
std::atomic<bool> g_sessionActive{false};
}

bool SessionSnapshot::isSessionActive()
{
    return g_sessionActive.load();
}

void SessionSnapshot::setSessionActive(bool active)
{
    g_sessionActive.store(active);
}

SessionEvents &SessionEvents::instance()
{
    static SessionEvents events;
    return events;
}
