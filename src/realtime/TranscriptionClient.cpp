#include "realtime/TranscriptionClient.h"

TranscriptionClient::TranscriptionClient(QObject *parent) : TranscriptionClient(RealtimeTiming{}, parent) {}

namespace {

TranscriptionConnection::Sink sinkFor(TranscriptionClient *client)
{
    TranscriptionConnection::Sink sink;
    sink.status = deliverTo(client, &TranscriptionClient::onStatus);
    sink.delta = deliverTo(client, &TranscriptionClient::onDelta);
    sink.completed = deliverTo(client, &TranscriptionClient::onCompleted);
    sink.failed = deliverTo(client, &TranscriptionClient::onFailed);
    sink.usage = deliverTo(client, &TranscriptionClient::onUsage);
    sink.log = deliverTo(client, &TranscriptionClient::onLog);
    return sink;
}

} // namespace

TranscriptionClient::TranscriptionClient(const RealtimeTiming &timing, QObject *parent)
    : QObject(parent), m_connection(QStringLiteral("kb-transcribe"), new TranscriptionConnection(timing, sinkFor(this)))
{
}

TranscriptionClient::~TranscriptionClient() = default;

void TranscriptionClient::start(const TranscriptionConfig &config)
{
    m_connection.post([config](TranscriptionConnection &c) { c.start(config); });
}

void TranscriptionClient::stop()
{
    m_connection.post([](TranscriptionConnection &c) { c.stop(); });
}

void TranscriptionClient::append(const QByteArray &pcm16)
{
    m_connection.post([pcm16](TranscriptionConnection &c) { c.append(pcm16); });
}
