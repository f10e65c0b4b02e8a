#include "realtime/TranscriptionClient.h"

#include <QMetaObject>

TranscriptionClient::TranscriptionClient(QObject *parent) : TranscriptionClient(RealtimeTiming{}, parent) {}

TranscriptionClient::TranscriptionClient(const RealtimeTiming &timing, QObject *parent) : QObject(parent)
{
    // Each report is posted to this object, so it runs on the owner's thread, in order.
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
    TranscriptionConnection::Sink sink;
    sink.status = deliver(&TranscriptionClient::onStatus);
    sink.delta = deliver(&TranscriptionClient::onDelta);
    sink.completed = deliver(&TranscriptionClient::onCompleted);
    sink.failed = deliver(&TranscriptionClient::onFailed);
    sink.usage = deliver(&TranscriptionClient::onUsage);
    sink.log = deliver(&TranscriptionClient::onLog);
    m_connection = new TranscriptionConnection(timing, std::move(sink));
    m_connection->moveToThread(&m_thread);
    m_thread.setObjectName(QStringLiteral("kb-transcribe"));
    m_thread.start();
}

TranscriptionClient::~TranscriptionClient()
{
    TranscriptionConnection *connection = m_connection;
    QMetaObject::invokeMethod(connection, [connection] { delete connection; }, Qt::BlockingQueuedConnection);
    m_thread.quit();
    m_thread.wait();
}

void TranscriptionClient::start(const TranscriptionConfig &config)
{
    QMetaObject::invokeMethod(m_connection, [c = m_connection, config] { c->start(config); }, Qt::QueuedConnection);
}

void TranscriptionClient::stop()
{
    QMetaObject::invokeMethod(m_connection, [c = m_connection] { c->stop(); }, Qt::QueuedConnection);
}

void TranscriptionClient::append(const QByteArray &pcm16)
{
    QMetaObject::invokeMethod(m_connection, [c = m_connection, pcm16] { c->append(pcm16); }, Qt::QueuedConnection);
}
