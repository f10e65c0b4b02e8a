#pragma once

#include "audio/PulseConnection.h"

#include <QHash>
#include <QList>
#include <QString>

#include <optional>

// Synchronous queries against a connected PulseConnection. Call them with the connection's
// lock held, never from its loop thread. Each gives up after timeoutMs.
namespace PulseQueries {

constexpr int defaultTimeoutMs = 3000;

using Properties = QHash<QString, QString>;

struct ServerInfo
{
    QString defaultSink;
    QString defaultSource;
    quint32 protocolVersion = 0;
};

struct SourceEntry
{
    quint32 index = 0;
    QString name;
    QString description;
    pa_sample_spec spec{};
    pa_channel_map channelMap{};
    bool isMonitor = false;
};

struct SinkEntry
{
    quint32 index = 0;
    QString name;
    QString monitorSource;
};

struct SinkInputEntry
{
    quint32 index = 0;
    quint32 client = PA_INVALID_INDEX;
    quint32 sink = PA_INVALID_INDEX;
    bool corked = false;
    Properties properties;   // the stream's own, then its client's where the stream has none
};

// Copies a libpulse property list into a hash (string values only).
Properties toProperties(const pa_proplist *list);
// Adds the entries of `from` that `into` lacks.
void mergeMissing(Properties &into, const Properties &from);

std::optional<ServerInfo> serverInfo(PulseConnection &c, int timeoutMs = defaultTimeoutMs);
QList<SourceEntry> sources(PulseConnection &c, int timeoutMs = defaultTimeoutMs);
std::optional<SourceEntry> source(PulseConnection &c, const QString &name, int timeoutMs = defaultTimeoutMs);
std::optional<SinkEntry> sink(PulseConnection &c, const QString &name, int timeoutMs = defaultTimeoutMs);
QHash<quint32, Properties> clients(PulseConnection &c, int timeoutMs = defaultTimeoutMs);
// Every sink input, its properties merged with its client's.
QList<SinkInputEntry> sinkInputs(PulseConnection &c, int timeoutMs = defaultTimeoutMs);

} // namespace PulseQueries
