#include "review/ReviewLogging.h"

Q_LOGGING_CATEGORY(lcReview, "ketterbloom.review", QtWarningMsg)
