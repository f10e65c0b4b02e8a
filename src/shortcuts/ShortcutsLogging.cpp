#include "shortcuts/ShortcutsLogging.h"

Q_LOGGING_CATEGORY(lcShortcuts, "ketterbloom.shortcuts")
