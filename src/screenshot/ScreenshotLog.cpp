#include "screenshot/ScreenshotLog.h"

Q_LOGGING_CATEGORY(lcScreenshot, "ketterbloom.screenshot")
