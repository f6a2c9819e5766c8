#include "tests/support/HttpServer.h"

#include "tests/support/Sockets.h"

#include <QPointer>
#include <QTcpSocket>
#include <QTimer>

namespace {

QByteArray headerOf(const HttpReply& reply)
{
    const qint64 length = reply.declaredLength < 0 ? reply.body.size() : reply.declaredLength;
    QByteArray header = "HTTP/1.1 " + QByteArray::number(reply.status) + " Reply\r\n";
    if (reply.lengthGiven)
        header += "Content-Length: " + QByteArray::number(length) + "\r\n";
    for (const QByteArray& line : reply.headers)
        header += line + "\r\n";
    return header + "\r\n";
}

QByteArray inChunks(const QByteArray& body)
{
    constexpr int chunkSize = 1000;
    QByteArray chunks;
    for (int i = 0; i < body.size(); i += chunkSize) {
        const QByteArray chunk = body.mid(i, chunkSize);
        chunks += QByteArray::number(chunk.size(), 16) + "\r\n" + chunk + "\r\n";
    }
    return chunks + "0\r\n\r\n";
}

quint32 crc32(const QByteArray& bytes)
{
    quint32 crc = 0xFFFFFFFFU;
    for (const char byte : bytes) {
        crc ^= static_cast<quint8>(byte);
        for (int bit = 0; bit < 8; ++bit)
            crc = (crc >> 1) ^ ((crc & 1) ? 0xEDB88320U : 0U);
    }
    return ~crc;
}

QByteArray littleEndian(quint32 number)
{
    QByteArray bytes;
    for (int shift = 0; shift < 32; shift += 8)
        bytes.append(static_cast<char>(number >> shift));
    return bytes;
}

QByteArray gzip(const QByteArray& contents)
{
    // Of what qCompress() gives, without the length and the frame of another format.
    const QByteArray compressed = qCompress(contents);
    return QByteArray("\x1f\x8b\x08\0\0\0\0\0\0\xff", 10) +
           compressed.mid(6, compressed.size() - 10) + littleEndian(crc32(contents)) +
           littleEndian(static_cast<quint32>(contents.size()));
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

HttpReply HttpReply::stallInBody(const QByteArray& body, int bytes)
{
    return with(Stall, cutShort(body, bytes));
}

HttpReply HttpReply::chunked(const QByteArray& body)
{
    HttpReply reply = ok(inChunks(body));
    reply.lengthGiven = false;
    reply.headers.append("Transfer-Encoding: chunked");
    return reply;
}

HttpReply HttpReply::cutChunked(const QByteArray& body)
{
    HttpReply reply = with(Close, chunked(body));
    reply.body.chop(20);
    return reply;
}

HttpReply HttpReply::gzipped(const QByteArray& body)
{
    HttpReply reply = ok(gzip(body));
    reply.headers.append("Content-Encoding: gzip");
    return reply;
}

HttpReply HttpReply::with(Ending ending, HttpReply reply)
{
    reply.ending = ending;
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
    m_port = m_server.serverPort();
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
    return QStringLiteral("http://127.0.0.1:%1%2").arg(m_port).arg(path);
}

void HttpServer::serve(const QString& path, const HttpReply& reply)
{
    serveInTurn(path, {reply});
}

void HttpServer::serveInTurn(const QString& path, const QList<HttpReply>& replies)
{
    m_replies.insert(path, replies);
}

void HttpServer::expect(const QString& path, const HttpReply& reply)
{
    m_strict = true;
    m_expected.append({path, reply, false, false});
}

void HttpServer::expectRepeated(const QString& path, const HttpReply& reply)
{
    m_strict = true;
    m_expected.append({path, reply, true, false});
}

void HttpServer::endRepeats()
{
    // The last one stays: Qt may repeat even a request that has failed for good.
    if (m_expected.size() > 1 && m_expected.first().came)
        m_expected.removeFirst();
}

QStringList HttpServer::complaints() const
{
    QStringList lines = m_unexpected;
    for (const ExpectedRequest& expected : m_expected) {
        if (!expected.came)
            lines.append("never came: " + expected.path);
    }
    return lines;
}

void HttpServer::stop()
{
    m_server.close();
    closeConnections();
}

void HttpServer::closeConnections()
{
    const auto sockets = m_server.findChildren<QTcpSocket*>();
    for (QTcpSocket* socket : sockets)
        socket->disconnectFromHost();
}

void HttpServer::comeBack()
{
    if (!m_server.listen(QHostAddress::LocalHost, m_port))
        qFatal("test server: cannot come back: %s", qPrintable(m_server.errorString()));
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
    if (m_strict)
        return expectedReplyTo(path);
    const auto replies = m_replies.find(path);
    if (replies == m_replies.end())
        return m_otherReply;
    return replies->size() > 1 ? replies->takeFirst() : replies->first();
}

HttpReply HttpServer::expectedReplyTo(const QString& path)
{
    if (!m_expected.isEmpty() && m_expected.first().path != path)
        endRepeats();
    if (m_expected.isEmpty() || m_expected.first().path != path) {
        m_unexpected.append(
            QStringLiteral("came as request %1: %2; expected: %3")
                .arg(QString::number(m_requests.size()), path,
                     m_expected.isEmpty() ? QStringLiteral("none") : m_expected.first().path));
        return HttpReply::error(500, "not expected");
    }
    ExpectedRequest& expected = m_expected.first();
    expected.came = true;
    const HttpReply reply = expected.reply;
    if (!expected.repeated)
        m_expected.removeFirst();
    return reply;
}

void HttpServer::send(QTcpSocket* socket, const HttpReply& reply)
{
    --m_inFlight;
    if (!reply.silent)
        socket->write(headerOf(reply) + reply.body);
    if (reply.ending != HttpReply::KeepAlive)
        end(socket, reply.ending);
}

void HttpServer::end(QTcpSocket* socket, HttpReply::Ending ending)
{
    // The client must not get as far as its next request while the server still listens.
    if (ending == HttpReply::Stop)
        stop();
    if (ending == HttpReply::Restart) {
        // The client must find the server whenever it sees the end: three refusals end an update.
        m_server.close();
        comeBack();
        closeConnections();
    }
    socket->flush();
    if (ending == HttpReply::Close) {
        socket->disconnectFromHost();
    } else if (ending == HttpReply::Stall) {
        QTimer::singleShot(100, socket, [socket] { socket->disconnectFromHost(); });
    } else if (ending == HttpReply::Reset) {
        sockets::reset(socket);
    }
}
