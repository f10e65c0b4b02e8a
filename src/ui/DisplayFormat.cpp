#include "ui/DisplayFormat.h"

#include <cmath>

namespace DisplayFormat {

namespace {
long long wholeSeconds(double seconds)
{
    if (!std::isfinite(seconds) || seconds <= 0)
        return 0;
    return static_cast<long long>(seconds);
}
} // namespace

QString clock(double seconds)
{
    const long long total = wholeSeconds(seconds);
    const long long h = total / 3600;
    const long long m = (total % 3600) / 60;
    const long long s = total % 60;
    if (h == 0)
        return QString::asprintf("%02lld:%02lld", m, s);
    return QString::asprintf("%lld:%02lld:%02lld", h, m, s);
}

QString shortDuration(double seconds)
{
    const long long total = wholeSeconds(seconds);
    if (total < 60)
        return QString::number(total) + QLatin1Char('s');
    return QString::asprintf("%lld:%02lld", total / 60, total % 60);
}

} // namespace DisplayFormat
