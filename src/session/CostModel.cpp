#include "session/CostModel.h"

#include <QCoreApplication>
#include <QMetaType>
#include <QRegularExpression>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>

namespace CostModel {

// ---- Price tables: update these two tables and the date together ---------------------

const char *const pricesTakenOn = "2026-11-22";

namespace {

struct ModelPrices
{
    const char *model;
    Prices prices;   // text in, cached text in, audio in, cached audio in, text out, audio out
};

// USD per million tokens, from the service's model pages.
const ModelPrices kRealtimePrices[] = {
    {"gpt-realtime", {4.0, 0.40, 32.0, 0.40, 16.0, 64.0}},
    {"gpt-realtime-1.5", {4.0, 0.40, 32.0, 0.40, 16.0, 64.0}},
    {"gpt-realtime-2", {4.0, 0.40, 32.0, 0.40, 24.0, 64.0}},
    {"gpt-realtime-2.1", {4.0, 0.40, 32.0, 0.40, 24.0, 64.0}},
    {"gpt-realtime-mini", {0.60, 0.06, 10.0, 0.30, 2.40, 20.0}},
    {"gpt-realtime-2.1-mini", {0.60, 0.06, 10.0, 0.30, 2.40, 20.0}},
    {"gpt-4o-realtime-preview", {5.0, 2.50, 40.0, 2.50, 20.0, 80.0}},
};

// Unknown realtime models: the program's long-standing flat table.
const Prices kFallbackPrices{4.0, 0.40, 32.0, 0.40, 16.0, 16.0};

struct TranscriptionPrices
{
    const char *model;
    double perMinute;          // USD per minute of audio, 0 when priced by tokens
    double inputPerMillion;    // USD per million input tokens
    double outputPerMillion;   // USD per million output tokens
};

const TranscriptionPrices kTranscriptionPrices[] = {
    {"gpt-live-transcribe", 0.017, 0, 0},
    {"gpt-realtime-whisper", 0.017, 0, 0},
    {"gpt-transcribe", 0.0045, 0, 0},
    {"whisper-1", 0.006, 0, 0},
    {"gpt-4o-transcribe", 0, 2.50, 10.0},
    {"gpt-4o-mini-transcribe", 0, 1.25, 5.0},
};

// Unknown transcription models: by the minute like the default model, by tokens like the
// dearer token-priced model.
const TranscriptionPrices kFallbackTranscription{"", 0.017, 2.50, 10.0};

// "<model>" or "<model>-YYYY-MM-DD".
bool namesModel(const QString &id, const char *model)
{
    const QLatin1StringView name(model);
    if (id == name) {
        return true;
    }
    static const QRegularExpression snapshot(QStringLiteral("^-\\d{4}-\\d{2}-\\d{2}$"));
    return id.startsWith(name) && snapshot.match(id.mid(name.size())).hasMatch();
}

const TranscriptionPrices &transcriptionPricesFor(const QString &model)
{
    for (const TranscriptionPrices &entry : kTranscriptionPrices) {
        if (namesModel(model.trimmed(), entry.model)) {
            return entry;
        }
    }
    return kFallbackTranscription;
}

} // namespace

Prices pricesFor(const QString &model)
{
    for (const ModelPrices &entry : kRealtimePrices) {
        if (namesModel(model.trimmed(), entry.model)) {
            return entry.prices;
        }
    }
    return kFallbackPrices;
}

const Prices &fallbackPrices()
{
    return kFallbackPrices;
}

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
    return cost(kFallbackPrices);
}

double Usage::cost(const Prices &p) const
{
    return (p.audioInput * double(audioInput) + p.audioInputCached * double(audioInputCached)
            + p.textInput * double(textInput) + p.textInputCached * double(textInputCached)
            + p.textOutput * double(textOutput) + p.audioOutput * double(audioOutput))
        / 1000000.0;
}

void TranscriptionUsage::add(const TranscriptionUsage &other)
{
    inputTokens = checkedAdd(inputTokens, other.inputTokens);
    outputTokens = checkedAdd(outputTokens, other.outputTokens);
    seconds += other.seconds;
}

TranscriptionUsage parseTranscription(const QVariantMap &usage)
{
    TranscriptionUsage result;
    if (usage.value(QStringLiteral("type")).toString() == QLatin1String("duration")) {
        const double seconds = usage.value(QStringLiteral("seconds")).toDouble();
        result.seconds = std::isfinite(seconds) && seconds > 0 ? seconds : 0;
        return result;
    }
    result.inputTokens = std::max<qint64>(integerAt(usage, QStringLiteral("input_tokens")), 0);
    result.outputTokens = std::max<qint64>(integerAt(usage, QStringLiteral("output_tokens")), 0);
    if (result.inputTokens == 0 && result.outputTokens == 0) {
        result.inputTokens = std::max<qint64>(integerAt(usage, QStringLiteral("total_tokens")), 0);
    }
    return result;
}

double transcriptionCost(const TranscriptionUsage &usage, const QString &model, double heardSeconds)
{
    const TranscriptionPrices &prices = transcriptionPricesFor(model);
    if (usage.seconds > 0) {
        return usage.seconds / 60.0 * prices.perMinute;
    }
    if (prices.inputPerMillion > 0 || prices.outputPerMillion > 0) {
        return (prices.inputPerMillion * double(usage.inputTokens) + prices.outputPerMillion * double(usage.outputTokens))
            / 1000000.0;
    }
    // Priced by the minute but reported in tokens: the speech the service heard.
    return usage.tokens() > 0 ? std::max(heardSeconds, 0.0) / 60.0 * prices.perMinute : 0.0;
}

double estimatedTranscriptionCost(const QString &model, double seconds)
{
    // Audio is about one token per 100 ms; speech about 150 words a minute.
    constexpr double audioTokensPerSecond = 10.0;
    constexpr double textTokensPerSecond = 3.0;
    const TranscriptionPrices &prices = transcriptionPricesFor(model);
    const double heard = std::max(seconds, 0.0);
    if (prices.perMinute > 0) {
        return heard / 60.0 * prices.perMinute;
    }
    return (prices.inputPerMillion * audioTokensPerSecond + prices.outputPerMillion * textTokensPerSecond) * heard
        / 1000000.0;
}

std::optional<QString> transcriptionSummary(const QVariantMap &usage, const QString &model, double heardSeconds)
{
    if (usage.isEmpty()) {
        return std::nullopt;
    }
    const TranscriptionUsage used = parseTranscription(usage);
    const QString cost = money(transcriptionCost(used, model, heardSeconds));
    return used.tokens() > 0
        ? QCoreApplication::translate("CostModel", "%1 tokens, %2").arg(QString::number(used.tokens()), cost)
        : QCoreApplication::translate("CostModel", "%1 s of audio, %2")
              .arg(QString::number(std::llround(used.seconds)), cost);
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
    return summary(usage.cost(), usage.total(), sessionElapsedSeconds);
}

std::optional<QString> summary(double cost, qint64 tokens, double sessionElapsedSeconds)
{
    if (tokens < 1 || !(sessionElapsedSeconds > 0)) {
        return std::nullopt;
    }
    const double perMinute = cost / minutes(sessionElapsedSeconds);
    return QCoreApplication::translate("CostModel", "%1 this session · %2/min · %3 tokens")
        .arg(money(cost), money(perMinute), QString::number(tokens));
}

} // namespace CostModel
