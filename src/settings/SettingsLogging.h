#pragma once

#include <QLoggingCategory>

// Diagnostics of the settings subsystem ("ketterbloom.settings"), each line prefixed with
// "[Ketterbloom] ". The API key never goes into a log line.
Q_DECLARE_LOGGING_CATEGORY(lcSettings)
