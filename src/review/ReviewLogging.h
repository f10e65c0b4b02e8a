#pragma once

#include <QLoggingCategory>

// Diagnostics of the session review ("ketterbloom.review"), each line prefixed with
// "[Ketterbloom] ". Warnings only unless QT_LOGGING_RULES asks for more, so that --review
// prints nothing but the page's path.
Q_DECLARE_LOGGING_CATEGORY(lcReview)
