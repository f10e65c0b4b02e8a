#include "speech/SpeechLogging.h"

Q_LOGGING_CATEGORY(lcSpeech, "ketterbloom.speech")
