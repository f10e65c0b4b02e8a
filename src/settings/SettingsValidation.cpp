#include "settings/SettingsValidation.h"

#include <QCoreApplication>

#include <cmath>

namespace SettingsValidation {

namespace {

QString translated(const char *text)
{
    return QCoreApplication::translate("SettingsValidation", text);
}

Result<void> checkDuration(int value, const char *what, int fallback)
{
    if (value >= 0 && value <= maxDurationMs)
        return {};
    return Result<void>::failure(translated("Settings: %1 (%2 ms) must be from 0 to %3 ms; reset to %4 ms.")
                                     .arg(translated(what))
                                     .arg(value)
                                     .arg(maxDurationMs)
                                     .arg(fallback));
}

} // namespace

Result<void> checkVadThreshold(double value)
{
    if (std::isfinite(value) && value >= 0.0 && value <= 1.0)
        return {};
    return Result<void>::failure(
        translated("Settings: the voice detection threshold (%1) must be a number from 0 to 1; reset to %2.")
            .arg(value)
            .arg(defaultVadThreshold));
}

Result<void> checkPrefixPaddingMs(int value)
{
    return checkDuration(value, QT_TRANSLATE_NOOP("SettingsValidation", "the audio kept before speech"),
                         defaultPrefixPaddingMs);
}

Result<void> checkSilenceDurationMs(int value)
{
    return checkDuration(value, QT_TRANSLATE_NOOP("SettingsValidation", "the silence that ends a question"),
                         defaultSilenceDurationMs);
}

Result<void> checkModelName(const QString &value, const QString &what, const QString &fallback)
{
    if (!value.trimmed().isEmpty())
        return {};
    return Result<void>::failure(translated("Settings: the %1 was blank; reset to %2.").arg(what, fallback));
}

} // namespace SettingsValidation
