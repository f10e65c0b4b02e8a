#include "realtimesim/SimHttpConnection.h"

#include <QTcpSocket>
#include <QTimer>

namespace {

constexpr qsizetype kMaxHeaderBytes = 64 * 1024;
constexpr qsizetype kMaxBodyBytes = 32 * 1024 * 1024;

} // namespace

SimHttpConnection::SimHttpConnection(QTcpSocket *socket, Handler handler, QObject *parent)
    : QObject(parent)
    , m_socket(socket)
    , m_handler(std::move(handler))
{
    socket->setParent(this);
    connect(socket, &QTcpSocket::readyRead, this, &SimHttpConnection::readRequests);
    connect(socket, &QTcpSocket::disconnected, this, [this] {
        m_answering = false;
        emit closed();
    });
    readRequests(); // the first bytes were read before this object existed
}

SimHttpConnection::~SimHttpConnection() = default;

bool SimHttpConnection::isOpen() const
{
    return m_socket && m_socket->state() == QAbstractSocket::ConnectedState;
}

void SimHttpConnection::abort()
{
    if (m_socket)
        m_socket->abort();
}

QByteArray SimHttpConnection::reasonPhrase(int status)
{
    switch (status) {
    case 200: return "OK";
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 413: return "Payload Too Large";
    case 415: return "Unsupported Media Type";
    case 429: return "Too Many Requests";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    default: return "Status";
    }
}

void SimHttpConnection::readRequests()
{
    if (!m_socket)
        return;
    m_buffer.append(m_socket->readAll());
    // One request at a time: the next is read once this one's answer is out.
    while (!m_answering) {
        SimHttpRequest request;
        qsizetype used = 0;
        QByteArray problem;
        if (!parse(request, used, problem)) {
            if (!problem.isEmpty()) {
                SimHttpResponse bad;
                bad.status = problem == "too large" ? 413 : 400;
                bad.headers.append(qMakePair(QByteArray("Connection"), QByteArray("close")));
                bad.body = problem;
                respond(bad);
                m_socket->disconnectFromHost();
            }
            return;
        }
        m_buffer.remove(0, used);
        const SimHttpResponse response = m_handler(request);
        if (response.delayMs <= 0) {
            respond(response);
            continue;
        }
        m_answering = true;
        QTimer::singleShot(response.delayMs, this, [this, response] {
            if (!m_answering)
                return; // the client went away meanwhile
            m_answering = false;
            respond(response);
            readRequests();
        });
    }
}

bool SimHttpConnection::parse(SimHttpRequest &request, qsizetype &used, QByteArray &problem) const
{
    const qsizetype headerEnd = m_buffer.indexOf("\r\n\r\n");
    if (headerEnd < 0) {
        if (m_buffer.size() > kMaxHeaderBytes)
            problem = "too large";
        return false;
    }
    const QList<QByteArray> lines = m_buffer.left(headerEnd).split('\n');
    const QList<QByteArray> requestLine = lines.first().trimmed().split(' ');
    if (requestLine.size() != 3 || !requestLine[2].startsWith("HTTP/1.")) {
        problem = "malformed request line";
        return false;
    }
    request.method = requestLine[0];
    request.target = requestLine[1];
    for (qsizetype i = 1; i < lines.size(); ++i) {
        const QByteArray line = lines[i].trimmed();
        const qsizetype colon = line.indexOf(':');
        if (colon <= 0) {
            problem = "malformed header";
            return false;
        }
        request.headers.insert(line.left(colon).trimmed().toLower(), line.mid(colon + 1).trimmed());
    }

    qsizetype position = headerEnd + 4;
    if (request.header("transfer-encoding").toLower().contains("chunked")) {
        for (;;) {
            const qsizetype lineEnd = m_buffer.indexOf("\r\n", position);
            if (lineEnd < 0)
                return false;
            bool ok = false;
            const qsizetype size = m_buffer.mid(position, lineEnd - position).split(';').first().trimmed().toLongLong(&ok, 16);
            if (!ok || size < 0 || request.body.size() + size > kMaxBodyBytes) {
                problem = ok ? "too large" : "malformed chunk";
                return false;
            }
            position = lineEnd + 2;
            if (size == 0) {
                // Trailers, if any, end with an empty line.
                const qsizetype end = m_buffer.indexOf("\r\n", position);
                if (end < 0)
                    return false;
                if (end != position) {
                    const qsizetype trailers = m_buffer.indexOf("\r\n\r\n", position);
                    if (trailers < 0)
                        return false;
                    position = trailers + 4;
                } else {
                    position = end + 2;
                }
                break;
            }
            if (m_buffer.size() < position + size + 2)
                return false;
            request.body.append(m_buffer.mid(position, size));
            position += size + 2;
        }
    } else {
        bool ok = true;
        const QByteArray lengthText = request.header("content-length");
        const qsizetype length = lengthText.isEmpty() ? 0 : lengthText.toLongLong(&ok);
        if (!ok || length < 0 || length > kMaxBodyBytes) {
            problem = ok ? "too large" : "malformed content length";
            return false;
        }
        if (m_buffer.size() < position + length)
            return false;
        request.body = m_buffer.mid(position, length);
        position += length;
    }
    used = position;
    return true;
}

void SimHttpConnection::respond(const SimHttpResponse &response)
{
    if (!m_socket || m_socket->state() != QAbstractSocket::ConnectedState)
        return;
    QByteArray out = "HTTP/1.1 " + QByteArray::number(response.status) + ' ' + reasonPhrase(response.status) + "\r\n";
    bool typed = false;
    for (const auto &[name, value] : response.headers) {
        out += name + ": " + value + "\r\n";
        typed = typed || name.toLower() == "content-type";
    }
    if (!typed)
        out += "Content-Type: application/json\r\n";
    out += "Content-Length: " + QByteArray::number(response.body.size()) + "\r\n\r\n";
    out += response.body;
    m_socket->write(out);
}
