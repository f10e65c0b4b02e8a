#include "screenshot/ScreenshotLogging.h"

Q_LOGGING_CATEGORY(lcScreenshot, "ketterbloom.screenshot")
