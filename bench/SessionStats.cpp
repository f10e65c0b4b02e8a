#include "SessionStats.h"

#include "TestSignals.h"

#include <QJsonArray>
#include <QJsonObject>

#include <algorithm>
#include <cmath>

namespace benchstats {

std::pair<double, double> voicedEnd(const QString &wav, double threshold)
{
    const kbtest::WavData data = kbtest::readWav(wav);
    if (!data.ok || data.channels != 1)
        return {0, 0};
    const int frame = data.sampleRate / 100;
    const double level = threshold / 10.0;
    size_t lastVoiced = 0;
    for (size_t start = 0; start + size_t(frame) <= data.samples.size(); start += size_t(frame)) {
        if (kbtest::rms(data.samples.data() + start, frame) >= level)
            lastVoiced = start + size_t(frame);
    }
    return {double(lastVoiced) / data.sampleRate, double(data.samples.size()) / data.sampleRate};
}

std::optional<double> findNumber(const QJsonValue &value, const QString &key)
{
    if (value.isObject()) {
        const QJsonObject object = value.toObject();
        if (object.value(key).isDouble())
            return object.value(key).toDouble();
        for (auto it = object.begin(); it != object.end(); ++it) {
            if (auto found = findNumber(it.value(), key))
                return found;
        }
    } else if (value.isArray()) {
        for (const QJsonValue &item : value.toArray()) {
            if (auto found = findNumber(item, key))
                return found;
        }
    }
    return std::nullopt;
}

Stats stats(std::vector<double> values)
{
    Stats s;
    s.count = int(values.size());
    if (values.empty())
        return s;
    std::sort(values.begin(), values.end());
    const size_t n = values.size();
    s.median = n % 2 ? values[n / 2] : (values[n / 2 - 1] + values[n / 2]) / 2;
    double sum = 0;
    for (double v : values)
        sum += v;
    s.mean = sum / double(n);
    s.p90 = values[size_t(std::ceil(0.9 * double(n))) - 1];   // nearest rank
    s.min = values.front();
    s.max = values.back();
    return s;
}

} // namespace benchstats
