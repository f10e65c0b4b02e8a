#include "audio/PulseQueries.h"

namespace PulseQueries {

Properties toProperties(const pa_proplist *list)
{
    Properties out;
    if (!list)
        return out;
    void *state = nullptr;
    while (const char *key = pa_proplist_iterate(list, &state)) {
        if (const char *value = pa_proplist_gets(list, key))
            out.insert(QString::fromUtf8(key), QString::fromUtf8(value));
    }
    return out;
}

void mergeMissing(Properties &into, const Properties &from)
{
    for (auto it = from.cbegin(); it != from.cend(); ++it) {
        if (into.value(it.key()).isEmpty())
            into.insert(it.key(), it.value());
    }
}

namespace {
template <typename T>
struct Query
{
    PulseConnection *connection;
    T result{};
    bool found = false;
};
} // namespace

std::optional<ServerInfo> serverInfo(PulseConnection &c, int timeoutMs)
{
    Query<ServerInfo> q{&c};
    auto cb = [](pa_context *ctx, const pa_server_info *i, void *userdata) {
        auto *q = static_cast<Query<ServerInfo> *>(userdata);
        if (i) {
            q->result.defaultSink = QString::fromUtf8(i->default_sink_name ? i->default_sink_name : "");
            q->result.defaultSource = QString::fromUtf8(i->default_source_name ? i->default_source_name : "");
            q->result.protocolVersion = pa_context_get_server_protocol_version(ctx);
            q->found = true;
        }
        q->connection->signal();
    };
    if (!c.waitFor(pa_context_get_server_info(c.context(), cb, &q), timeoutMs) || !q.found)
        return std::nullopt;
    return q.result;
}

namespace {
SourceEntry toSourceEntry(const pa_source_info *i)
{
    SourceEntry e;
    e.index = i->index;
    e.name = QString::fromUtf8(i->name ? i->name : "");
    e.description = QString::fromUtf8(i->description ? i->description : "");
    e.spec = i->sample_spec;
    e.channelMap = i->channel_map;
    e.isMonitor = i->monitor_of_sink != PA_INVALID_INDEX;
    return e;
}
} // namespace

QList<SourceEntry> sources(PulseConnection &c, int timeoutMs)
{
    Query<QList<SourceEntry>> q{&c};
    auto cb = [](pa_context *, const pa_source_info *i, int eol, void *userdata) {
        auto *q = static_cast<Query<QList<SourceEntry>> *>(userdata);
        if (eol == 0 && i)
            q->result.append(toSourceEntry(i));
        if (eol != 0)
            q->connection->signal();
    };
    if (!c.waitFor(pa_context_get_source_info_list(c.context(), cb, &q), timeoutMs))
        return {};
    return q.result;
}

std::optional<SourceEntry> source(PulseConnection &c, const QString &name, int timeoutMs)
{
    Query<SourceEntry> q{&c};
    auto cb = [](pa_context *, const pa_source_info *i, int eol, void *userdata) {
        auto *q = static_cast<Query<SourceEntry> *>(userdata);
        if (eol == 0 && i) {
            q->result = toSourceEntry(i);
            q->found = true;
        }
        if (eol != 0)
            q->connection->signal();
    };
    const QByteArray n = name.toUtf8();
    if (!c.waitFor(pa_context_get_source_info_by_name(c.context(), n.constData(), cb, &q), timeoutMs) || !q.found)
        return std::nullopt;
    return q.result;
}

std::optional<SinkEntry> sink(PulseConnection &c, const QString &name, int timeoutMs)
{
    Query<SinkEntry> q{&c};
    auto cb = [](pa_context *, const pa_sink_info *i, int eol, void *userdata) {
        auto *q = static_cast<Query<SinkEntry> *>(userdata);
        if (eol == 0 && i) {
            q->result.index = i->index;
            q->result.name = QString::fromUtf8(i->name ? i->name : "");
            q->result.monitorSource = QString::fromUtf8(i->monitor_source_name ? i->monitor_source_name : "");
            q->found = true;
        }
        if (eol != 0)
            q->connection->signal();
    };
    const QByteArray n = name.toUtf8();
    if (!c.waitFor(pa_context_get_sink_info_by_name(c.context(), n.constData(), cb, &q), timeoutMs) || !q.found)
        return std::nullopt;
    return q.result;
}

QHash<quint32, Properties> clients(PulseConnection &c, int timeoutMs)
{
    Query<QHash<quint32, Properties>> q{&c};
    auto cb = [](pa_context *, const pa_client_info *i, int eol, void *userdata) {
        auto *q = static_cast<Query<QHash<quint32, Properties>> *>(userdata);
        if (eol == 0 && i)
            q->result.insert(i->index, toProperties(i->proplist));
        if (eol != 0)
            q->connection->signal();
    };
    if (!c.waitFor(pa_context_get_client_info_list(c.context(), cb, &q), timeoutMs))
        return {};
    return q.result;
}

QList<SinkInputEntry> sinkInputs(PulseConnection &c, int timeoutMs)
{
    Query<QList<SinkInputEntry>> q{&c};
    auto cb = [](pa_context *, const pa_sink_input_info *i, int eol, void *userdata) {
        auto *q = static_cast<Query<QList<SinkInputEntry>> *>(userdata);
        if (eol == 0 && i) {
            SinkInputEntry e;
            e.index = i->index;
            e.client = i->client;
            e.sink = i->sink;
            e.corked = i->corked != 0;
            e.properties = toProperties(i->proplist);
            q->result.append(e);
        }
        if (eol != 0)
            q->connection->signal();
    };
    if (!c.waitFor(pa_context_get_sink_input_info_list(c.context(), cb, &q), timeoutMs))
        return {};
    const auto clientProps = clients(c, timeoutMs);
    for (auto &e : q.result) {
        if (e.client != PA_INVALID_INDEX)
            mergeMissing(e.properties, clientProps.value(e.client));
    }
    return q.result;
}

} // namespace PulseQueries
