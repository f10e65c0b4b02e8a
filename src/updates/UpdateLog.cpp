#include "updates/UpdateLog.h"

Q_LOGGING_CATEGORY(lcUpdates, "ketterbloom.updates")
