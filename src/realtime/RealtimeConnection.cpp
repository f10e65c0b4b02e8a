#include "realtime/RealtimeConnection.h"

#include "realtime/RealtimeFailure.h"
#include "realtime/RealtimeLogging.h"
#include "realtime/RealtimeProtocol.h"

#include <QJsonArray>
#include <QJsonDocument>
#include <QNetworkRequest>
#include <QUuid>


RealtimeConnection::RealtimeConnection(const RealtimeTiming &timing, QObject *parent)
    : QObject(parent),
      m_timing(timing),
      // Parented, so that they move to the client's thread with this object.
      m_events(this),
      m_socket(timing, this),
      m_cycleTimer(this)
{
    m_socket.setConfigureTimeout(true);
    m_cycleTimer.setSingleShot(true);
    m_cycleTimer.setTimerType(Qt::PreciseTimer);

    connect(&m_socket, &ServiceSocket::retryDue, this, [this] {
        if (m_shouldRun)
            openSocket();
    });
    connect(&m_socket, &ServiceSocket::timedOut, this, &RealtimeConnection::scheduleReconnect);
    connect(&m_socket, &ServiceSocket::failed, this, &RealtimeConnection::handleSocketError);
    connect(&m_socket, &ServiceSocket::closed, this, &RealtimeConnection::handleClose);
    connect(&m_socket, &ServiceSocket::textReceived, this, &RealtimeConnection::handleText);
    connect(&m_cycleTimer, &QTimer::timeout, this, &RealtimeConnection::cycle);
}

RealtimeConnection::~RealtimeConnection()
{
    m_shouldRun = false;
    teardown();
}

// MARK: - Lifecycle

void RealtimeConnection::start(const RealtimeConfig &config)
{
    m_socket.cancelRetry();
    teardown();
    m_config = config;
    m_socket.setKey(config.apiKey);
    m_pendingImage.reset();
    m_shouldRun = true;
    m_socket.resetBackoff();
    trace(QStringLiteral("        websocket open"));
    m_usedLegacyShape = false;
    m_assistantContentType = QStringLiteral("output_text");
    m_transcribeFallback = false;
    m_serviceClosesInARow = 0;
    m_lastNotice.clear();
    openSocket();
}

void RealtimeConnection::stop()
{
    // The last part-batch of audio is sent rather than dropped: the end of what was heard
    // (a recording's last words) reaches the service too.
    if (m_shouldRun && m_isConfigured && !m_pending.isEmpty())
        send(RealtimeProtocol::audioAppend(std::exchange(m_pending, QByteArray())));
    m_shouldRun = false;
    m_socket.cancelRetry();
    m_pendingImage.reset();
    teardown();
    report(RealtimeStatus::idle());
}

void RealtimeConnection::openSocket()
{
    if (!m_config)
        return;
    report(m_socket.attempt() != 0 ? RealtimeStatus::reconnecting() : RealtimeStatus::connecting());
    if (m_config->apiKey.isEmpty()) {
        report(RealtimeStatus::failed(tr("No API key set — open Settings and paste your OpenAI key.")));
        return;
    }
    connectSocket();
}

void RealtimeConnection::connectSocket()
{
    const Result<QUrl> endpoint = RealtimeProtocol::resolveEndpoint(RealtimeProtocol::endpointOverride(), m_config->model);
    if (!endpoint.ok()) {
        // Not retried: the address will not change while the process runs.
        log(endpoint.error());
        m_shouldRun = false;
        report(RealtimeStatus::failed(endpoint.error()));
        return;
    }

    QNetworkRequest request(endpoint.value());
    request.setTransferTimeout(60000);
    request.setRawHeader("Authorization", "Bearer " + m_config->apiKey.toUtf8());
    // The legacy session shape and the "text" content type exist only on the beta interface.
    if (betaInterface())
        request.setRawHeader(RealtimeProtocol::betaHeaderName, RealtimeProtocol::betaHeaderValue);

    m_isConfigured = false;
    m_seededThisSocket = false;
    m_pending.clear();
    m_socket.open(request);
}

void RealtimeConnection::handleSocketError(QAbstractSocket::SocketError error, const QString &host,
                                           const QString &errorString)
{
    const std::optional<QString> unreachable = RealtimeFailure::unreachableReason(error, host, errorString);
    if (!unreachable) {
        scheduleReconnect(error == QAbstractSocket::UnknownSocketError
                              ? QStringLiteral("the connection closed during the WebSocket handshake")
                              : errorString);
        return;
    }
    // Said once per cause, not on every attempt of a retry loop.
    if (m_shouldRun && *unreachable != m_lastNotice) {
        m_lastNotice = *unreachable;
        const QString cause = unreachable->at(0).toUpper() + unreachable->mid(1);
        emit m_events.noticeRaised(redact(tr("%1. Reconnecting…").arg(cause)));
    }
    scheduleReconnect(*unreachable);
}

void RealtimeConnection::handleClose(int code, const QString &closeReason)
{
    if (!m_shouldRun)
        return;
    const QString reason = closeReason.isEmpty() ? QStringLiteral("code %1").arg(code) : closeReason;
    const QString description = QStringLiteral("socket closed (%1)").arg(reason);
    if (const auto message = RealtimeFailure::finalCloseMessage(closeReason, m_config->model)) {
        fail(*message, description);
        return;
    }
    if (RealtimeFailure::isServiceCloseCode(code)
        && ++m_serviceClosesInARow >= RealtimeFailure::maxServiceClosesInARow) {
        fail(RealtimeFailure::repeatedCloseMessage(reason), description);
        return;
    }
    scheduleReconnect(description);
}

void RealtimeConnection::fail(const QString &message, const QString &reason)
{
    if (!m_shouldRun)
        return;
    m_shouldRun = false;
    m_socket.cancelRetry();
    teardown();
    log(QStringLiteral("Not reconnecting — %1").arg(reason));
    trace(QStringLiteral("        connection refused by the service — %1").arg(redact(reason)));
    report(RealtimeStatus::failed(redact(message)));
}

void RealtimeConnection::switchToBetaInterface(const QString &reason)
{
    m_usedLegacyShape = true;
    m_assistantContentType = QStringLiteral("text");
    scheduleReconnect(reason);
}

bool RealtimeConnection::betaInterface() const
{
    return m_usedLegacyShape || m_assistantContentType != QLatin1String("output_text");
}

void RealtimeConnection::scheduleReconnect(const QString &rawReason)
{
    if (!m_shouldRun || m_socket.retryPending())
        return;
    const QString reason = redact(rawReason);
    teardown();
    const int seconds = m_socket.scheduleRetry();
    log(QStringLiteral("Reconnecting in %1s — %2").arg(seconds).arg(reason));
    trace(QStringLiteral("        connection lost (attempt %1) — %2").arg(m_socket.attempt()).arg(reason));
    report(RealtimeStatus::reconnecting());
}

void RealtimeConnection::teardown()
{
    m_cycleTimer.stop();
    m_socket.close();
    m_isConfigured = false;
    m_pending.clear();
    m_activeResponseID.reset();
    m_cancelledResponseID.reset();
    m_awaitingRegeneratedResponse = false;
    m_retryCreateOnDone = false;
    m_sentAssistantItems = false;
}

void RealtimeConnection::startTimers()
{
    m_socket.configured();
    const int minutes = RealtimeProtocol::cycleMinutes(m_config ? m_config->reconnectMinutes : 0);
    m_cycleTimer.start(m_timing.cycleMs > 0 ? m_timing.cycleMs : minutes * 60 * 1000);
}

void RealtimeConnection::cycle()
{
    if (!m_shouldRun || !m_config)
        return;
    log(QStringLiteral("Cycling session (%1 min limit)").arg(m_config->reconnectMinutes));
    m_socket.resetBackoff();
    teardown();
    openSocket();
}

// MARK: - Operations

void RealtimeConnection::append(const QByteArray &pcm16)
{
    if (!m_shouldRun || !m_isConfigured)
        return;
    m_pending.append(pcm16);
    if (m_pending.size() >= RealtimeProtocol::chunkBytes) {
        const QByteArray batch = std::exchange(m_pending, QByteArray());
        send(RealtimeProtocol::audioAppend(batch));
    }
}

void RealtimeConnection::updateHistory(const History &history)
{
    m_history = history;
}

void RealtimeConnection::updateInstructions(const QString &instructions)
{
    if (!m_config)
        return;
    m_config->instructions = instructions;
    if (m_isConfigured) {
        sendSessionUpdate(m_usedLegacyShape);
        log(QStringLiteral("Instructions updated live"));
    }
}

void RealtimeConnection::regenerate(const QString &question)
{
    if (!m_isConfigured)
        return;
    if (m_activeResponseID) {
        send(RealtimeProtocol::typed("response.cancel"));
        m_cancelledResponseID = m_activeResponseID;
        m_activeResponseID.reset();
    }
    send(RealtimeProtocol::userItem(question));
    send(RealtimeProtocol::typed("response.create"));
    m_awaitingRegeneratedResponse = true;
    m_retryCreateOnDone = false;
    m_createRetries = 0;
    log(QStringLiteral("Regenerating answer for the extended question"));
}

void RealtimeConnection::sendSessionUpdate(bool legacy)
{
    if (m_config)
        send(RealtimeProtocol::sessionUpdate(*m_config, legacy));
}

void RealtimeConnection::seedHistory()
{
    if (m_seededThisSocket)
        return;
    m_seededThisSocket = true;
    const History selected = RealtimeProtocol::selectHistory(m_history);
    if (selected.isEmpty())
        return;
    for (const HistoryEntry &pair : selected) {
        if (!pair.question.isEmpty())
            send(RealtimeProtocol::userItem(pair.question));
        if (!pair.answer.isEmpty()) {
            send(RealtimeProtocol::assistantItem(pair.answer, m_assistantContentType));
            m_sentAssistantItems = true;
        }
    }
    log(QStringLiteral("Seeded %1 earlier Q&A pair(s) into the new session").arg(selected.size()));
}

void RealtimeConnection::send(const QJsonObject &message)
{
    m_socket.send(message);
}

// MARK: - Reporting

void RealtimeConnection::report(const RealtimeStatus &status)
{
    emit m_events.statusChanged(status);
}

void RealtimeConnection::log(const QString &rawLine)
{
    const QString line = redact(rawLine);
    qCInfo(lcRealtime, "[Ketterbloom] %s", qUtf8Printable(line));
    emit m_events.logLine(line);
}

void RealtimeConnection::trace(const QString &line)
{
    emit m_events.traceLine(redact(line));
}
