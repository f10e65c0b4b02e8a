#pragma once

#include "common/Result.h"

#include <QString>


// The ranges of the settings that go to the realtime service as they are. A value outside
// them is replaced by its default, and the message says which setting was reset and why.
namespace SettingsValidation {

inline constexpr double defaultVadThreshold = 0.5;
inline constexpr int defaultPrefixPaddingMs = 300;
inline constexpr int defaultSilenceDurationMs = 800;
inline constexpr int maxDurationMs = 10000;

// Each succeeds when the value may be used, else fails with the message for the reset.
Result<void> checkVadThreshold(double value);
Result<void> checkPrefixPaddingMs(int value);
Result<void> checkSilenceDurationMs(int value);
// `what` names the setting ("realtime model"), `fallback` is its default.
Result<void> checkModelName(const QString &value, const QString &what, const QString &fallback);

} // namespace SettingsValidation
