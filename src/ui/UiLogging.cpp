#include "ui/UiLogging.h"

Q_LOGGING_CATEGORY(lcReveal, "ketterbloom.ui.reveal")
Q_LOGGING_CATEGORY(lcIdle, "ketterbloom.ui.idle")
