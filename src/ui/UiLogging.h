#pragma once

#include <QLoggingCategory>

// The user interface's log categories: revealing files and keeping the screen awake.
Q_DECLARE_LOGGING_CATEGORY(lcReveal)
Q_DECLARE_LOGGING_CATEGORY(lcIdle)
