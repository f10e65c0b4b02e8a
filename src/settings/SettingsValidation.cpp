#include "settings/SettingsValidation.h"

#include <cmath>

namespace SettingsValidation {

namespace {

std::optional<QString> checkDuration(int value, const char *what, int fallback)
{
    if (value >= 0 && value <= maxDurationMs)
        return std::nullopt;
    return QStringLiteral("Settings: %1 (%2 ms) must be from 0 to %3 ms; reset to %4 ms.")
        .arg(QLatin1String(what))
        .arg(value)
        .arg(maxDurationMs)
        .arg(fallback);
}

} // namespace

std::optional<QString> checkVadThreshold(double value)
{
    if (std::isfinite(value) && value >= 0.0 && value <= 1.0)
        return std::nullopt;
    return QStringLiteral("Settings: the voice detection threshold (%1) must be a number from 0 to 1; reset to %2.")
        .arg(value)
        .arg(defaultVadThreshold);
}

std::optional<QString> checkPrefixPaddingMs(int value)
{
    return checkDuration(value, "the audio kept before speech", defaultPrefixPaddingMs);
}

std::optional<QString> checkSilenceDurationMs(int value)
{
    return checkDuration(value, "the silence that ends a question", defaultSilenceDurationMs);
}

std::optional<QString> checkModelName(const QString &value, const QString &what, const QString &fallback)
{
    if (!value.trimmed().isEmpty())
        return std::nullopt;
    return QStringLiteral("Settings: the %1 was blank; reset to %2.").arg(what, fallback);
}

} // namespace SettingsValidation
