#pragma once

class QWebSocket;

namespace RealtimeSockets {

// Lets go of a WebSocket its owner no longer listens to. A healthy one is closed with "going
// away"; one the network already broke (an error, a reset, a close by the peer) is aborted,
// since a close frame written to it only makes Qt warn about an invalid socket. The socket is
// deleted once it is closed, or after 2 s.
void retire(QWebSocket *socket, bool broken);

} // namespace RealtimeSockets
