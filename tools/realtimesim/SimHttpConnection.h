#pragma once

#include <QByteArray>
#include <QList>
#include <QMap>
#include <QObject>
#include <QPair>
#include <QPointer>

#include <functional>

class QTcpSocket;

// One HTTP/1.1 request as it arrived; header names in lower case.
struct SimHttpRequest
{
    QByteArray method;
    QByteArray target; // the path and query as sent
    QMap<QByteArray, QByteArray> headers;
    QByteArray body;

    QByteArray header(const char *name) const { return headers.value(QByteArray(name)); }
};

// What is sent back, after `delayMs`.
struct SimHttpResponse
{
    int status = 200;
    QList<QPair<QByteArray, QByteArray>> headers;
    QByteArray body;
    int delayMs = 0;
};

// The simulator's side of one plain HTTP connection on its port (the WebSocket handshakes go
// elsewhere): reads requests one after another (Content-Length or chunked bodies), hands each
// to `handler`, writes its response and keeps the connection open for the next one, as the
// service does. A client that goes away before its answer gets nothing.
class SimHttpConnection : public QObject
{
    Q_OBJECT
public:
    using Handler = std::function<SimHttpResponse(const SimHttpRequest &request)>;

    SimHttpConnection(QTcpSocket *socket, Handler handler, QObject *parent = nullptr);
    ~SimHttpConnection() override;

    bool isOpen() const;
    void abort();

    static QByteArray reasonPhrase(int status);

signals:
    void closed();

private:
    void readRequests();
    // A whole request at the start of `m_buffer`: true, with it in `request` and its bytes in `used`.
    bool parse(SimHttpRequest &request, qsizetype &used, QByteArray &problem) const;
    void respond(const SimHttpResponse &response);

    QPointer<QTcpSocket> m_socket;
    Handler m_handler;
    QByteArray m_buffer;
    bool m_answering = false; // a response is waiting for its delay
};
