#include "realtime/RealtimeClient.h"

#include "realtime/RealtimeConnection.h"

#include <QMetaObject>
#include <QPointer>

RealtimeClient::RealtimeClient(QObject *parent) : RealtimeClient(Timing{}, parent) {}

RealtimeClient::RealtimeClient(const Timing &timing, QObject *parent) : QObject(parent)
{
    // Each report is posted to this object, so it runs on the owner's thread, in order, and
    // is dropped if the client is gone by then.
    auto deliver = [this](auto member) {
        return [this, member](auto... args) {
            QMetaObject::invokeMethod(
                this, [this, member, args...] {
                    if (this->*member)
                        (this->*member)(args...);
                },
                Qt::QueuedConnection);
        };
    };
    RealtimeConnection::Sink sink;
    sink.status = deliver(&RealtimeClient::onStatus);
    sink.transcript = deliver(&RealtimeClient::onTranscript);
    sink.delta = deliver(&RealtimeClient::onDelta);
    sink.responseDone = deliver(&RealtimeClient::onResponseDone);
    sink.usage = deliver(&RealtimeClient::onUsage);
    sink.log = deliver(&RealtimeClient::onLog);
    sink.trace = deliver(&RealtimeClient::onTrace);
    sink.speechStarted = deliver(&RealtimeClient::onSpeechStarted);
    sink.speechStopped = deliver(&RealtimeClient::onSpeechStopped);
    sink.transcriptDelta = deliver(&RealtimeClient::onTranscriptDelta);
    sink.transcriptFailed = deliver(&RealtimeClient::onTranscriptFailed);
    sink.transcriptionUsage = deliver(&RealtimeClient::onTranscriptionUsage);
    sink.responseCreated = deliver(&RealtimeClient::onResponseCreated);
    sink.responseEnded = deliver(&RealtimeClient::onResponseEnded);
    sink.configured = deliver(&RealtimeClient::onConfigured);
    sink.transcribeModelFallback = deliver(&RealtimeClient::onTranscribeModelFallback);
    sink.notice = deliver(&RealtimeClient::onNotice);

    m_connection = new RealtimeConnection(timing, std::move(sink));
    m_connection->moveToThread(&m_thread);
    m_thread.setObjectName(QStringLiteral("kb-realtime"));
    m_thread.start();
}

RealtimeClient::~RealtimeClient()
{
    RealtimeConnection *connection = m_connection;
    QMetaObject::invokeMethod(connection, [connection] { delete connection; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

template<typename Fn>
void RealtimeClient::post(Fn &&fn)
{
    QMetaObject::invokeMethod(m_connection, std::forward<Fn>(fn), Qt::QueuedConnection);
}

void RealtimeClient::start(const Config &config)
{
    post([c = m_connection, config] { c->start(config); });
}

void RealtimeClient::stop()
{
    post([c = m_connection] { c->stop(); });
}

void RealtimeClient::append(const QByteArray &pcm16)
{
    post([c = m_connection, pcm16] { c->append(pcm16); });
}

void RealtimeClient::updateHistory(const History &history)
{
    post([c = m_connection, history] { c->updateHistory(history); });
}

void RealtimeClient::updateInstructions(const QString &instructions)
{
    post([c = m_connection, instructions] { c->updateInstructions(instructions); });
}

void RealtimeClient::regenerate(const QString &question)
{
    post([c = m_connection, question] { c->regenerate(question); });
}
