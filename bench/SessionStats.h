#pragma once

#include <QJsonValue>
#include <QString>

#include <optional>
#include <utility>
#include <vector>

// Small measurements for the session benchmark.
namespace benchstats {

struct Stats
{
    int count = 0;
    double median = 0;
    double mean = 0;
    double p90 = 0;   // nearest rank
    double min = 0;
    double max = 0;
};

Stats stats(std::vector<double> values);

// The first number found under `key` anywhere in a JSON tree.
std::optional<double> findNumber(const QJsonValue &value, const QString &key);

// Where the speech in a mono WAV ends, by the simulator's own rule: the end of the last 10 ms
// frame whose RMS reaches `threshold / 10` of full scale. Returns {voiced end, file length} in
// seconds; {0, 0} for a file it cannot read.
std::pair<double, double> voicedEnd(const QString &wav, double threshold);

} // namespace benchstats
