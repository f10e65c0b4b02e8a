#pragma once

#include <QString>

#include <optional>

// The ranges of the settings that go to the realtime service as they are. A value outside
// them is replaced by its default, and the message says which setting was reset and why.
namespace SettingsValidation {

inline constexpr double defaultVadThreshold = 0.5;
inline constexpr int defaultPrefixPaddingMs = 300;
inline constexpr int defaultSilenceDurationMs = 800;
inline constexpr int maxDurationMs = 10000;

// Each returns nothing when the value may be used, else the message for the reset.
std::optional<QString> checkVadThreshold(double value);
std::optional<QString> checkPrefixPaddingMs(int value);
std::optional<QString> checkSilenceDurationMs(int value);
// `what` names the setting ("realtime model"), `fallback` is its default.
std::optional<QString> checkModelName(const QString &value, const QString &what, const QString &fallback);

} // namespace SettingsValidation
