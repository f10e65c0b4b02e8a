#include "shortcuts/ShortcutsLog.h"

Q_LOGGING_CATEGORY(lcShortcuts, "ketterbloom.shortcuts")
