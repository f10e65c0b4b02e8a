// Screen questions: a picture of the screen sent as a user item, and a response asked for it.
#include "realtime/RealtimeConnection.h"

#include "realtime/RealtimeProtocol.h"
#include "realtime/RealtimeScreenQuestion.h"

void RealtimeConnection::askAboutImage(const QByteArray &jpeg, const QString &text)
{
    if (!m_shouldRun)
        return;
    if (!m_isConfigured) {
        // Sent as soon as the (re)connected session is configured, after its history.
        m_pendingImage = PendingImage{jpeg, text};
        log(QStringLiteral("Screen question waits for the connection"));
        return;
    }
    sendImageQuestion(jpeg, text);
}

void RealtimeConnection::sendPendingImage()
{
    if (!m_pendingImage || !m_isConfigured)
        return;
    const PendingImage pending = *std::exchange(m_pendingImage, std::nullopt);
    sendImageQuestion(pending.jpeg, pending.text);
}

void RealtimeConnection::sendImageQuestion(const QByteArray &jpeg, const QString &text)
{
    send(RealtimeScreenQuestion::imageItem(jpeg, text));
    send(RealtimeProtocol::typed("response.create"));
    // A request of ours: if an answer is still running, the service refuses the create and it
    // is asked again when that answer ends (the same path as a regenerated answer).
    m_awaitingRegeneratedResponse = true;
    m_retryCreateOnDone = false;
    m_createRetries = 0;
    log(QStringLiteral("Asked about the screen (%1 KB image)").arg((jpeg.size() + 1023) / 1024));
}
