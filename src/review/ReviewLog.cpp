#include "review/ReviewLog.h"

Q_LOGGING_CATEGORY(lcReview, "ketterbloom.review", QtWarningMsg)
