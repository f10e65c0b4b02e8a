#pragma once

#include <QString>
#include <QVariantMap>
#include <QtGlobal>

#include <optional>

// Token usage of the realtime service and of its meeting transcription, and their price in
// US dollars. No state.
namespace CostModel {

// USD per million tokens for one realtime model.
struct Prices
{
    double textInput = 0;
    double textInputCached = 0;
    double audioInput = 0;
    double audioInputCached = 0;
    double textOutput = 0;
    double audioOutput = 0;

    friend bool operator==(const Prices &, const Prices &) = default;
};

// The date the price tables were taken from the service's model pages (YYYY-MM-DD).
extern const char *const pricesTakenOn;

// The prices of a realtime model id, a dated snapshot ("<id>-YYYY-MM-DD") priced as its
// model. Unknown ids get the fallback table: 4 / 0.40 text in, 32 / 0.40 audio in, and 16
// for text and audio output alike.
Prices pricesFor(const QString &model);
const Prices &fallbackPrices();

// Six token counters. Adding overflows nothing in practice; an overflow is a programming
// error and stops the process.
struct Usage
{
    qint64 audioInput = 0;        // audio input not served from the cache
    qint64 audioInputCached = 0;  // audio input served from the cache
    qint64 textInput = 0;         // text input not served from the cache
    qint64 textInputCached = 0;   // text input served from the cache
    qint64 textOutput = 0;
    qint64 audioOutput = 0;

    void add(const Usage &other);
    qint64 total() const;
    // USD at the fallback prices.
    double cost() const;
    double cost(const Prices &prices) const;

    friend bool operator==(const Usage &, const Usage &) = default;
};

// Reads the `usage` object of a finished response.
Usage parse(const QVariantMap &usage);

// The meeting transcription's own usage: tokens, or seconds where the service reports a
// duration.
struct TranscriptionUsage
{
    qint64 inputTokens = 0;
    qint64 outputTokens = 0;
    double seconds = 0;

    void add(const TranscriptionUsage &other);
    qint64 tokens() const { return inputTokens + outputTokens; }

    friend bool operator==(const TranscriptionUsage &, const TranscriptionUsage &) = default;
};

// Reads a transcription's `usage` ({"type":"tokens",...} or {"type":"duration","seconds":...}).
TranscriptionUsage parseTranscription(const QVariantMap &usage);

// USD for one transcription's usage with `model`. Models priced by the minute that report
// tokens are priced by `heardSeconds` (the length of the speech the service heard, when
// known). Unknown models are priced like the default transcription model.
double transcriptionCost(const TranscriptionUsage &usage, const QString &model, double heardSeconds = 0);

// USD for transcribing `seconds` of speech with `model`, before it is sent: by the minute for
// models priced so, else at about 10 audio tokens in and 3 text tokens out per second of speech.
double estimatedTranscriptionCost(const QString &model, double seconds);

// "4210 tokens, $0.0105" or "95 s of audio, $0.0095": a transcription's usage (the service's
// "usage" form) and its price with `model`; none for an empty usage.
std::optional<QString> transcriptionSummary(const QVariantMap &usage, const QString &model, double heardSeconds);

// Rounds to `decimals` places, halves away from zero.
double rounded(double value, int decimals);

// Minutes of a session for per-minute figures: never less than one second's worth.
double minutes(double sessionElapsedSeconds);

// "$%.4f" below one cent, "$%.2f" otherwise.
QString money(double dollars);

// "$0.27 this session · $0.0093/min · 15210 tokens", or none without tokens or time.
std::optional<QString> summary(const Usage &usage, double sessionElapsedSeconds);
// The same for a cost and token count already added up.
std::optional<QString> summary(double cost, qint64 tokens, double sessionElapsedSeconds);

} // namespace CostModel
