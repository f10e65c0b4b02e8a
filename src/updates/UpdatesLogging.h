#pragma once

#include <QLoggingCategory>

// Diagnostics of the updater ("ketterbloom.updates"), each line prefixed with "[Ketterbloom] ".
Q_DECLARE_LOGGING_CATEGORY(lcUpdates)
