#pragma once

#include <QString>
#include <QVariantMap>
#include <QtGlobal>

#include <optional>

// Token usage of the realtime service and its price in US dollars. No state.
namespace CostModel {

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
    // USD: 32, 0.40, 4, 0.40 and 16 (text and audio output together) per million tokens.
    double cost() const;

    friend bool operator==(const Usage &, const Usage &) = default;
};

// Reads the `usage` object of a finished response.
Usage parse(const QVariantMap &usage);

// Rounds to `decimals` places, halves away from zero.
double rounded(double value, int decimals);

// Minutes of a session for per-minute figures: never less than one second's worth.
double minutes(double sessionElapsedSeconds);

// "$%.4f" below one cent, "$%.2f" otherwise.
QString money(double dollars);

// "$0.27 this session · $0.0093/min · 15210 tokens", or none without tokens or time.
std::optional<QString> summary(const Usage &usage, double sessionElapsedSeconds);

} // namespace CostModel
