// The static queries of ProcessTapCapture: which applications play, or can be chosen, and
// whether the default output can be tapped at all. Each opens a short connection of its own.

#include "audio/ProcessTapCapture.h"

#include "audio/AudioApplications.h"
#include "audio/AudioLogging.h"
#include "audio/PulseConnection.h"
#include "audio/PulseQueries.h"

#include <QCollator>
#include <QHash>
#include <QSet>

#include <algorithm>

namespace {
constexpr int connectTimeoutMs = 3000;

void sortByName(QList<AudioProcessInfo> &list)
{
    QCollator collator;
    collator.setCaseSensitivity(Qt::CaseInsensitive);
    std::stable_sort(list.begin(), list.end(), [&collator](const AudioProcessInfo &a, const AudioProcessInfo &b) {
        return collator.compare(a.name, b.name) < 0;
    });
}

bool isPlaying(const PulseQueries::SinkInputEntry &e)
{
    return !e.corked && e.sink != PA_INVALID_INDEX;
}

AudioProcessInfo infoOf(const PulseQueries::SinkInputEntry &e)
{
    return {e.index + 1, AudioApplications::appID(e.properties), AudioApplications::displayName(e.properties)};
}

struct Snapshot
{
    QList<PulseQueries::SinkInputEntry> sinkInputs;
    QHash<quint32, PulseQueries::Properties> clients;
};

Snapshot snapshot(bool withClients)
{
    Snapshot s;
    PulseConnection c("Ketterbloom app list");
    if (!c.connect(connectTimeoutMs).ok())
        return s;
    PulseLock lock(c);
    s.sinkInputs = PulseQueries::sinkInputs(c);
    if (withClients)
        s.clients = PulseQueries::clients(c);
    return s;
}

QList<AudioProcessInfo> playingFrom(const Snapshot &s)
{
    QList<AudioProcessInfo> out;
    QSet<QString> seen;
    for (const auto &e : s.sinkInputs) {
        if (!isPlaying(e) || AudioApplications::isOwnOrServer(e.properties))
            continue;
        const auto info = infoOf(e);
        if (seen.contains(info.bundleID))
            continue;
        seen.insert(info.bundleID);
        out.append(info);
    }
    sortByName(out);
    return out;
}
} // namespace

bool ProcessTapCapture::probeTapAccess()
{
    PulseConnection c("Ketterbloom probe");
    if (auto connected = c.connect(connectTimeoutMs); !connected.ok()) {
        qCWarning(lcAudio, "[Ketterbloom] tap probe failed: %s", qUtf8Printable(connected.error()));
        return false;
    }
    PulseLock lock(c);
    const auto info = PulseQueries::serverInfo(c);
    if (!info)
        return false;
    const auto sink = PulseQueries::sink(c, info->defaultSink);
    if (!sink || sink->monitorSource.isEmpty()) {
        qCWarning(lcAudio, "[Ketterbloom] tap probe failed: the default output has no monitor");
        return false;
    }
    return true;
}

std::optional<AudioProcessInfo> ProcessTapCapture::audioObject(const QString &bundleID)
{
    if (bundleID.isEmpty())
        return std::nullopt;
    const Snapshot s = snapshot(false);
    auto firstPlaying = [&s](const QString &id) -> std::optional<AudioProcessInfo> {
        for (const auto &e : s.sinkInputs) {
            if (isPlaying(e) && !AudioApplications::isOwnOrServer(e.properties)
                && AudioApplications::belongsTo(e.properties, id))
                return infoOf(e);
        }
        return std::nullopt;
    };
    if (auto direct = firstPlaying(bundleID))
        return direct;
    for (const QString &helper : AudioApplications::helpersOf(bundleID)) {
        if (auto viaHelper = firstPlaying(helper))
            return viaHelper;
    }
    return std::nullopt;
}

QList<AudioProcessInfo> ProcessTapCapture::selectableApps()
{
    const Snapshot s = snapshot(true);
    QList<AudioProcessInfo> playing = playingFrom(s);
    QSet<QString> seen;
    for (const auto &p : playing)
        seen.insert(p.bundleID);
    QList<AudioProcessInfo> others;
    auto consider = [&](const PulseQueries::Properties &props) {
        if (AudioApplications::isOwnOrServer(props))
            return;
        const QString id = AudioApplications::appID(props);
        if (seen.contains(id))
            return;
        seen.insert(id);
        others.append({0, id, AudioApplications::displayName(props)});
    };
    for (const auto &e : s.sinkInputs)
        consider(e.properties);
    for (const auto &props : s.clients)
        consider(props);
    sortByName(others);
    return playing + others;
}

QList<QPair<QString, QStringList>> ProcessTapCapture::audioHelpers()
{
    return AudioApplications::helpers();
}
