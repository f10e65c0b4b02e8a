#include "session/CostModel.h"

#include <QMetaType>

#include <cmath>
#include <cstdlib>
#include <limits>

namespace CostModel {

namespace {

qint64 checkedAdd(qint64 a, qint64 b)
{
    qint64 sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) {
        qFatal("[Ketterbloom] token counter overflow");
    }
    return sum;
}

QVariantMap objectAt(const QVariantMap &map, const QString &key)
{
    const QVariant value = map.value(key);
    if (value.metaType().id() == QMetaType::QVariantMap) {
        return value.toMap();
    }
    return {};
}

// Integers are taken as they are; reals are truncated toward zero; anything else is 0.
qint64 integerAt(const QVariantMap &map, const QString &key)
{
    const QVariant value = map.value(key);
    switch (value.metaType().id()) {
    case QMetaType::Int:
    case QMetaType::UInt:
    case QMetaType::Long:
    case QMetaType::LongLong:
    case QMetaType::Short:
    case QMetaType::UShort:
        return value.toLongLong();
    case QMetaType::ULong:
    case QMetaType::ULongLong: {
        const qulonglong raw = value.toULongLong();
        if (raw > qulonglong(std::numeric_limits<qint64>::max())) {
            qFatal("[Ketterbloom] token count beyond 64 bits");
        }
        return qint64(raw);
    }
    case QMetaType::Double:
    case QMetaType::Float: {
        const double real = value.toDouble();
        const double truncated = std::trunc(real);
        // 2^63 is exactly representable; anything at or beyond it does not fit.
        if (!std::isfinite(real) || truncated >= 9223372036854775808.0 || truncated < -9223372036854775808.0) {
            qFatal("[Ketterbloom] token count beyond 64 bits");
        }
        return qint64(truncated);
    }
    default:
        return 0;
    }
}

} // namespace

void Usage::add(const Usage &other)
{
    audioInput = checkedAdd(audioInput, other.audioInput);
    audioInputCached = checkedAdd(audioInputCached, other.audioInputCached);
    textInput = checkedAdd(textInput, other.textInput);
    textInputCached = checkedAdd(textInputCached, other.textInputCached);
    textOutput = checkedAdd(textOutput, other.textOutput);
    audioOutput = checkedAdd(audioOutput, other.audioOutput);
}

qint64 Usage::total() const
{
    qint64 sum = checkedAdd(audioInput, audioInputCached);
    sum = checkedAdd(sum, textInput);
    sum = checkedAdd(sum, textInputCached);
    sum = checkedAdd(sum, textOutput);
    return checkedAdd(sum, audioOutput);
}

double Usage::cost() const
{
    return (32.0 * double(audioInput) + 0.4 * double(audioInputCached) + 4.0 * double(textInput)
            + 0.4 * double(textInputCached) + 16.0 * (double(textOutput) + double(audioOutput)))
        / 1000000.0;
}

Usage parse(const QVariantMap &usage)
{
    const QVariantMap in = objectAt(usage, QStringLiteral("input_token_details"));
    const QVariantMap out = objectAt(usage, QStringLiteral("output_token_details"));
    const QVariantMap cachedDetails = objectAt(in, QStringLiteral("cached_tokens_details"));

    const qint64 cachedAudio = integerAt(cachedDetails, QStringLiteral("audio_tokens"));
    const qint64 cachedText = integerAt(cachedDetails, QStringLiteral("text_tokens"));
    const qint64 cachedTotal = integerAt(in, QStringLiteral("cached_tokens"));
    const qint64 inAudio = integerAt(in, QStringLiteral("audio_tokens"));
    const qint64 inText = integerAt(in, QStringLiteral("text_tokens"));

    Usage result;
    result.audioInputCached = cachedAudio >= 1 ? cachedAudio : std::min(inAudio, cachedTotal);
    result.textInputCached = cachedText >= 1 ? cachedText : std::max<qint64>(cachedTotal - result.audioInputCached, 0);
    result.audioInput = std::max<qint64>(inAudio - result.audioInputCached, 0);
    result.textInput = std::max<qint64>(inText - result.textInputCached, 0);
    result.textOutput = integerAt(out, QStringLiteral("text_tokens"));
    result.audioOutput = integerAt(out, QStringLiteral("audio_tokens"));

    if (result == Usage{}) {
        result.textInput = integerAt(usage, QStringLiteral("input_tokens"));
        result.textOutput = integerAt(usage, QStringLiteral("output_tokens"));
    }
    return result;
}

double rounded(double value, int decimals)
{
    const double scale = std::pow(10.0, decimals);
    return std::round(value * scale) / scale;   // std::round: halves away from zero
}

double minutes(double sessionElapsedSeconds)
{
    return std::max(sessionElapsedSeconds / 60.0, 1.0 / 60.0);
}

QString money(double dollars)
{
    return dollars < 0.01 ? QString::asprintf("$%.4f", dollars) : QString::asprintf("$%.2f", dollars);
}

std::optional<QString> summary(const Usage &usage, double sessionElapsedSeconds)
{
    const qint64 tokens = usage.total();
    if (tokens < 1 || !(sessionElapsedSeconds > 0)) {
        return std::nullopt;
    }
    const double cost = usage.cost();
    const double perMinute = cost / minutes(sessionElapsedSeconds);
    return money(cost) + QStringLiteral(" this session · ") + money(perMinute) + QStringLiteral("/min · ")
        + QString::number(tokens) + QStringLiteral(" tokens");
}

} // namespace CostModel
