#include "audio/AudioDeviceManager.h"

#include "audio/PulseConnection.h"
#include "audio/PulseQueries.h"

#include <QCollator>
#include <QCoreApplication>

#include <algorithm>

namespace {
constexpr int connectTimeoutMs = 3000;
}

AudioInputDevice AudioDeviceManager::fromSource(const PulseQueries::SourceEntry &source)
{
    AudioInputDevice d;
    d.id = source.index;
    d.uid = source.name;
    d.name = source.description.isEmpty() ? QCoreApplication::translate("AudioDeviceManager", "Device %1").arg(source.index)
                                          : source.description;
    d.channelCount = std::max(1, int(source.spec.channels));
    d.sampleRate = double(source.spec.rate);
    return d;
}

void AudioDeviceManager::sortByName(QList<AudioInputDevice> &devices)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(devices.begin(), devices.end(), [&collator](const AudioInputDevice &a, const AudioInputDevice &b) {
        return collator.compare(a.name, b.name) < 0;
    });
}

QList<AudioInputDevice> AudioDeviceManager::listFrom(const QList<PulseQueries::SourceEntry> &sources)
{
    QList<AudioInputDevice> out;
    for (const auto &s : sources) {
        if (!s.isMonitor && s.spec.channels > 0)
            out.append(fromSource(s));
    }
    sortByName(out);
    return out;
}

QList<AudioInputDevice> AudioDeviceManager::inputDevices()
{
    PulseConnection c("Ketterbloom device list");
    if (!c.connect(connectTimeoutMs).ok())
        return {};
    PulseLock lock(c);
    return listFrom(PulseQueries::sources(c));
}

std::optional<AudioInputDevice> AudioDeviceManager::device(const QString &uid)
{
    for (const auto &d : inputDevices()) {
        if (d.uid == uid)
            return d;
    }
    return std::nullopt;
}

std::optional<AudioInputDevice> AudioDeviceManager::defaultInputDevice()
{
    PulseConnection c("Ketterbloom device list");
    if (!c.connect(connectTimeoutMs).ok())
        return std::nullopt;
    PulseLock lock(c);
    const auto info = PulseQueries::serverInfo(c);
    if (!info)
        return std::nullopt;
    for (const auto &d : listFrom(PulseQueries::sources(c))) {
        if (d.uid == info->defaultSource)
            return d;
    }
    return std::nullopt;
}
