#include "realtime/RealtimeLogging.h"

Q_LOGGING_CATEGORY(lcRealtime, "ketterbloom.realtime")
