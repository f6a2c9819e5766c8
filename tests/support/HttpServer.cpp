#include "tests/support/HttpServer.h"

#include <QPointer>
#include <QTcpSocket>

#include <sys/socket.h>

namespace {

QByteArray headerOf(const HttpReply& reply)
{
    const qint64 length = reply.declaredLength < 0 ? reply.body.size() : reply.declaredLength;
    QByteArray header = "HTTP/1.1 " + QByteArray::number(reply.status) + " Reply\r\n";
    header += "Content-Length: " + QByteArray::number(length) + "\r\n";
    for (const QByteArray& line : reply.headers)
        header += line + "\r\n";
    return header + "\r\n";
}

/// Makes the next close send a reset rather than an orderly end.
void resetOnClose(QTcpSocket* socket)
{
    const linger immediately = {1, 0};
    ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediately,
                 sizeof immediately);
}

} // namespace

HttpReply HttpReply::ok(const QByteArray& body)
{
    HttpReply reply;
    reply.body = body;
    return reply;
}

HttpReply HttpReply::error(int status, const QByteArray& body)
{
    HttpReply reply = ok(body);
    reply.status = status;
    return reply;
}

HttpReply HttpReply::redirect(const QString& target, const QByteArray& body)
{
    HttpReply reply = error(302, body);
    reply.headers.append("Location: " + target.toUtf8());
    return reply;
}

HttpReply HttpReply::cutShort(const QByteArray& body, int bytes)
{
    HttpReply reply = ok(body.left(bytes));
    reply.declaredLength = body.size();
    reply.ending = Close;
    return reply;
}

HttpReply HttpReply::reset()
{
    HttpReply reply;
    reply.silent = true;
    reply.ending = Reset;
    return reply;
}

HttpReply HttpReply::resetInBody(const QByteArray& body, int bytes)
{
    HttpReply reply = cutShort(body, bytes);
    reply.ending = Reset;
    return reply;
}

HttpReply HttpReply::hold(HttpReply reply)
{
    reply.held = true;
    return reply;
}

HttpServer::HttpServer()
{
    connect(&m_server, SIGNAL(newConnection()), this, SLOT(acceptConnections()));
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("test server: cannot listen: %s", qPrintable(m_server.errorString()));
}

HttpServer::~HttpServer()
{
    // The sockets go after the members that their signals would touch.
    const auto sockets = m_server.findChildren<QTcpSocket*>();
    for (QTcpSocket* socket : sockets)
        socket->disconnect(this);
}

QString HttpServer::url(const QString& path) const
{
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_server.serverPort()).arg(path);
}

void HttpServer::serve(const QString& path, const HttpReply& reply)
{
    serveInTurn(path, {reply});
}

void HttpServer::serveInTurn(const QString& path, const QList<HttpReply>& replies)
{
    m_replies.insert(path, replies);
}

void HttpServer::release()
{
    m_released = true;
    const auto held = m_held;
    m_held.clear();
    for (const auto& [socket, reply] : held)
        send(socket, reply);
}

void HttpServer::acceptConnections()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::readyRead, this, [this, socket] { readRequests(socket); });
        connect(socket, &QTcpSocket::disconnected, this, [this, socket] {
            m_received.remove(socket);
            for (qsizetype i = m_held.size(); i-- > 0;) {
                if (m_held.at(static_cast<int>(i)).first == socket)
                    m_held.removeAt(static_cast<int>(i));
            }
            socket->deleteLater();
        });
        readRequests(socket);
    }
}

void HttpServer::readRequests(QTcpSocket* socket)
{
    QByteArray& received = m_received[socket];
    received += socket->readAll();
    for (;;) {
        const auto end = received.indexOf("\r\n\r\n");
        if (end < 0)
            return;
        const QByteArray header = received.left(end);
        received.remove(0, end + 4);
        handle(socket, header);
    }
}

void HttpServer::handle(QTcpSocket* socket, const QByteArray& header)
{
    m_lastHeader = header;
    const QString path = QString::fromLatin1(header.split(' ').value(1));
    m_requests.append(path);
    m_mostInFlight = qMax(m_mostInFlight, ++m_inFlight);
    const HttpReply reply = replyTo(path);
    if (reply.held && !m_released) {
        m_held.append({socket, reply});
        return;
    }
    // One turn of the event loop later, so that requests sent together are seen together.
    QMetaObject::invokeMethod(
        this,
        [this, guarded = QPointer<QTcpSocket>(socket), reply] {
            if (guarded)
                send(guarded, reply);
            else
                --m_inFlight;
        },
        Qt::QueuedConnection);
}

HttpReply HttpServer::replyTo(const QString& path)
{
    const auto replies = m_replies.find(path);
    if (replies == m_replies.end())
        return m_otherReply;
    return replies->size() > 1 ? replies->takeFirst() : replies->first();
}

void HttpServer::send(QTcpSocket* socket, const HttpReply& reply)
{
    --m_inFlight;
    if (!reply.silent)
        socket->write(headerOf(reply) + reply.body);
    if (reply.ending == HttpReply::KeepAlive)
        return;
    socket->flush();
    if (reply.ending == HttpReply::Reset) {
        resetOnClose(socket);
        socket->abort();
    } else {
        socket->disconnectFromHost();
    }
}
