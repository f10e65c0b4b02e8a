#include "realtime/SocketRetire.h"

#include <QTimer>
#include <QWebSocket>

namespace RealtimeSockets {

void retire(QWebSocket *socket, bool broken)
{
    if (broken || socket->state() != QAbstractSocket::ConnectedState) {
        socket->abort();
        socket->deleteLater();
        return;
    }
    QObject::connect(socket, &QWebSocket::disconnected, socket, &QObject::deleteLater);
    QTimer::singleShot(2000, socket, &QObject::deleteLater);
    socket->close(QWebSocketProtocol::CloseCodeGoingAway);
}

} // namespace RealtimeSockets
