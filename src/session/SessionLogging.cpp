#include "session/SessionLogging.h"

Q_LOGGING_CATEGORY(lcSession, "ketterbloom.session")
