#include "realtime/RealtimeClient.h"

#include "realtime/RealtimeConnection.h"

RealtimeClient::RealtimeClient(QObject *parent) : RealtimeClient(Timing{}, parent) {}

namespace {

RealtimeConnection::Sink sinkFor(RealtimeClient *client)
{
    RealtimeConnection::Sink sink;
    sink.status = deliverTo(client, &RealtimeClient::onStatus);
    sink.transcript = deliverTo(client, &RealtimeClient::onTranscript);
    sink.delta = deliverTo(client, &RealtimeClient::onDelta);
    sink.responseDone = deliverTo(client, &RealtimeClient::onResponseDone);
    sink.usage = deliverTo(client, &RealtimeClient::onUsage);
    sink.log = deliverTo(client, &RealtimeClient::onLog);
    sink.trace = deliverTo(client, &RealtimeClient::onTrace);
    sink.speechStarted = deliverTo(client, &RealtimeClient::onSpeechStarted);
    sink.speechStopped = deliverTo(client, &RealtimeClient::onSpeechStopped);
    sink.transcriptDelta = deliverTo(client, &RealtimeClient::onTranscriptDelta);
    sink.transcriptFailed = deliverTo(client, &RealtimeClient::onTranscriptFailed);
    sink.transcriptionUsage = deliverTo(client, &RealtimeClient::onTranscriptionUsage);
    sink.responseCreated = deliverTo(client, &RealtimeClient::onResponseCreated);
    sink.responseEnded = deliverTo(client, &RealtimeClient::onResponseEnded);
    sink.configured = deliverTo(client, &RealtimeClient::onConfigured);
    sink.transcribeModelFallback = deliverTo(client, &RealtimeClient::onTranscribeModelFallback);
    sink.notice = deliverTo(client, &RealtimeClient::onNotice);
    return sink;
}

} // namespace

RealtimeClient::RealtimeClient(const Timing &timing, QObject *parent)
    : QObject(parent), m_connection(QStringLiteral("kb-realtime"), new RealtimeConnection(timing, sinkFor(this)))
{
}

RealtimeClient::~RealtimeClient() = default;

void RealtimeClient::start(const Config &config)
{
    m_connection.post([config](RealtimeConnection &c) { c.start(config); });
}

void RealtimeClient::stop()
{
    m_connection.post([](RealtimeConnection &c) { c.stop(); });
}

void RealtimeClient::append(const QByteArray &pcm16)
{
    m_connection.post([pcm16](RealtimeConnection &c) { c.append(pcm16); });
}

void RealtimeClient::updateHistory(const History &history)
{
    m_connection.post([history](RealtimeConnection &c) { c.updateHistory(history); });
}

void RealtimeClient::updateInstructions(const QString &instructions)
{
    m_connection.post([instructions](RealtimeConnection &c) { c.updateInstructions(instructions); });
}

void RealtimeClient::regenerate(const QString &question)
{
    m_connection.post([question](RealtimeConnection &c) { c.regenerate(question); });
}

void RealtimeClient::askAboutImage(const QByteArray &jpeg, const QString &text)
{
    m_connection.post([jpeg, text](RealtimeConnection &c) { c.askAboutImage(jpeg, text); });
}
