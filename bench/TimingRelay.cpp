#include "TimingRelay.h"

#include <QJsonDocument>
#include <QJsonObject>
#include <QMutexLocker>
#include <QNetworkRequest>
#include <QStringList>
#include <QWebSocket>
#include <QWebSocketServer>

#include <memory>
#include <time.h>

TimingRelay::TimingRelay(const QUrl &upstream)
    : m_upstream(upstream)
{
}

TimingRelay::~TimingRelay() = default;

std::int64_t TimingRelay::monotonicNs()
{
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return std::int64_t(now.tv_sec) * 1000000000 + now.tv_nsec;
}

bool TimingRelay::listen()
{
    m_server = new QWebSocketServer(QStringLiteral("bench-relay"), QWebSocketServer::NonSecureMode, this);
    if (!m_server->listen(QHostAddress::LocalHost, 0))
        return false;
    connect(m_server, &QWebSocketServer::newConnection, this, &TimingRelay::onNewConnection);
    QMutexLocker lock(&m_mutex);
    m_url = QUrl(QStringLiteral("ws://127.0.0.1:%1%2").arg(m_server->serverPort()).arg(m_upstream.path()));
    return true;
}

QUrl TimingRelay::url() const
{
    QMutexLocker lock(&m_mutex);
    return m_url;
}

QList<TimingRelay::Stamp> TimingRelay::transcripts() const
{
    QMutexLocker lock(&m_mutex);
    return m_transcripts;
}

QList<TimingRelay::Stamp> TimingRelay::firstDeltas() const
{
    QMutexLocker lock(&m_mutex);
    return m_firstDeltas;
}

QList<std::int64_t> TimingRelay::configured() const
{
    QMutexLocker lock(&m_mutex);
    return m_configured;
}

void TimingRelay::onNewConnection()
{
    while (QWebSocket *app = m_server->nextPendingConnection()) {
        app->setParent(this);
        auto *sim = new QWebSocket(QString(), QWebSocketProtocol::VersionLatest, this);
        // Messages from the app before the simulator's side is open wait here.
        auto pending = std::make_shared<QStringList>();

        connect(app, &QWebSocket::textMessageReceived, sim, [sim, pending](const QString &message) {
            if (sim->state() == QAbstractSocket::ConnectedState)
                sim->sendTextMessage(message);
            else
                pending->append(message);
        });
        connect(sim, &QWebSocket::connected, sim, [sim, pending] {
            for (const QString &message : std::as_const(*pending))
                sim->sendTextMessage(message);
            pending->clear();
        });
        connect(sim, &QWebSocket::textMessageReceived, app, [this, app](const QString &message) {
            fromSimulator(message);
            app->sendTextMessage(message);
        });
        // A close on either side closes the other with the same code; an abort aborts.
        connect(app, &QWebSocket::disconnected, sim, [app, sim] {
            if (app->closeCode() == QWebSocketProtocol::CloseCodeAbnormalDisconnection)
                sim->abort();
            else
                sim->close(app->closeCode(), app->closeReason());
            sim->deleteLater();
            app->deleteLater();
        });
        connect(sim, &QWebSocket::disconnected, app, [app, sim] {
            if (sim->closeCode() == QWebSocketProtocol::CloseCodeAbnormalDisconnection)
                app->abort();
            else
                app->close(sim->closeCode(), sim->closeReason());
        });

        QUrl target = m_upstream;
        target.setPath(app->requestUrl().path());
        target.setQuery(app->requestUrl().query());
        QNetworkRequest request(target);
        QByteArray authorization = app->request().rawHeader("Authorization");
        if (authorization.isEmpty())
            authorization = "Bearer sk-bench-relay";
        request.setRawHeader("Authorization", authorization);
        sim->open(request);
    }
}

void TimingRelay::fromSimulator(const QString &message)
{
    const std::int64_t now = monotonicNs();
    const bool transcript = message.contains(QLatin1String("input_audio_transcription.completed"));
    const bool delta = !transcript && message.contains(QLatin1String("response.output_text.delta"));
    const bool updated = !transcript && !delta && message.contains(QLatin1String("session.updated"));
    if (!transcript && !delta && !updated)
        return;
    const QJsonObject event = QJsonDocument::fromJson(message.toUtf8()).object();
    const QString type = event.value(QStringLiteral("type")).toString();
    QMutexLocker lock(&m_mutex);
    if (type == QLatin1String("conversation.item.input_audio_transcription.completed")) {
        m_transcripts.append({now, event.value(QStringLiteral("transcript")).toString()});
    } else if (type == QLatin1String("response.output_text.delta")) {
        const QString id = event.value(QStringLiteral("response_id")).toString();
        if (!m_seenResponses.contains(id) && !event.value(QStringLiteral("delta")).toString().isEmpty()) {
            m_seenResponses.insert(id, true);
            m_firstDeltas.append({now, id});
        }
    } else if (type == QLatin1String("session.updated")) {
        m_configured.append(now);
    }
}
