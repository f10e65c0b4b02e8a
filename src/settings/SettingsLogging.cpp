#include "settings/SettingsLogging.h"

Q_LOGGING_CATEGORY(lcSettings, "ketterbloom.settings")
