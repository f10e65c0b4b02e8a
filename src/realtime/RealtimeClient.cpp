#include "realtime/RealtimeClient.h"

#include "realtime/RealtimeConnection.h"

RealtimeClient::RealtimeClient(QObject *parent) : RealtimeClient(Timing{}, parent) {}

RealtimeClient::RealtimeClient(const Timing &timing, QObject *parent)
    : RealtimeService(parent), m_connection(QStringLiteral("kb-realtime"), new RealtimeConnection(timing))
{
    RealtimeEvents::relay(&m_connection.object()->events(), this);
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

bool RealtimeClient::askAboutImage(const QByteArray &jpeg, const QString &text)
{
    m_connection.post([jpeg, text](RealtimeConnection &c) { c.askAboutImage(jpeg, text); });
    return true;
}
