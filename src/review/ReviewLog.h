#pragma once

#include <QLoggingCategory>

// Diagnostics of the session review ("ketterbloom.review"), each line prefixed with
// "[Ketterbloom] ".
Q_DECLARE_LOGGING_CATEGORY(lcReview)
