#include "app/AppLogging.h"

Q_LOGGING_CATEGORY(lcDemo, "ketterbloom.app.demo")
