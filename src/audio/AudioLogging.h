#pragma once

#include <QLoggingCategory>

// The audio subsystem's log category; messages carry the "[Ketterbloom] " prefix.
Q_DECLARE_LOGGING_CATEGORY(lcAudio)
