#include "singleinstance/SingleInstanceLogging.h"

Q_LOGGING_CATEGORY(lcSingleInstance, "ketterbloom.singleinstance")
