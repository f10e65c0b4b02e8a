#include "updates/UpdatesLogging.h"

Q_LOGGING_CATEGORY(lcUpdates, "ketterbloom.updates")
