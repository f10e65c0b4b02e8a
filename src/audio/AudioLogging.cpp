#include "audio/AudioLogging.h"

Q_LOGGING_CATEGORY(lcAudio, "ketterbloom.audio")
