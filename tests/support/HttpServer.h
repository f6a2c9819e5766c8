// A web server that misbehaves on command, for what a real one does not do when asked.
#ifndef TESTS_SUPPORT_HTTPSERVER_H
#define TESTS_SUPPORT_HTTPSERVER_H

#include <QByteArray>
#include <QHash>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTcpServer>

class QTcpSocket;

/// What the server sends for one request, and how it goes wrong.
struct HttpReply
{
    /// What becomes of the connection when the bytes are sent.
    enum Ending {
        KeepAlive, ///< It stays open for the next request.
        Close,     ///< It is closed in order.
        Reset,     ///< It is torn down (RST).
    };

    int status = 200;
    QByteArray body;
    QList<QByteArray> headers;  ///< Further header lines, without their line ends.
    qint64 declaredLength = -1; ///< Content-Length; below zero the length of the body.
    bool silent = false;        ///< Send not a single byte.
    bool held = false;          ///< Wait for HttpServer::release().
    Ending ending = KeepAlive;

    static HttpReply ok(const QByteArray& body);
    static HttpReply error(int status, const QByteArray& body = QByteArray());
    static HttpReply redirect(const QString& target, const QByteArray& body = QByteArray());
    /// Announces the whole of @p body, sends its first @p bytes and closes.
    static HttpReply cutShort(const QByteArray& body, int bytes);
    /// Reads the request, then resets the connection.
    static HttpReply reset();
    /// Announces the whole of @p body, sends its first @p bytes and resets the connection.
    static HttpReply resetInBody(const QByteArray& body, int bytes);
    /// @p reply, held back until HttpServer::release().
    static HttpReply hold(HttpReply reply);
};

/// Serves fixed replies on 127.0.0.1, on a port that the system picks, with connections kept alive,
/// and records what it is asked for. Works from the event loop of the test.
class HttpServer : public QObject
{
    Q_OBJECT

public:
    HttpServer();
    ~HttpServer() override;

    /// Returns the URL of @p path, which begins with "/".
    QString url(const QString& path) const;

    /// Answers every request for @p path with @p reply. Paths never named are answered with 404,
    /// unless serveAllElse() says otherwise.
    void serve(const QString& path, const HttpReply& reply);

    /// Answers the first request for @p path with the first of @p replies, and so on; the last one
    /// serves for all that follow.
    void serveInTurn(const QString& path, const QList<HttpReply>& replies);

    /// Answers every request for a path never named with @p reply.
    void serveAllElse(const HttpReply& reply) { m_otherReply = reply; }

    /// Sends the replies that are held back. Those of later requests are not held any more.
    void release();

    /// The paths asked for, in order, as the client wrote them.
    const QStringList& requests() const { return m_requests; }

    int requestsFor(const QString& path) const { return static_cast<int>(m_requests.count(path)); }

    /// The largest number of requests that were waiting for their reply at one time.
    int mostInFlight() const { return m_mostInFlight; }

    /// The header of the last request, from its first line on.
    const QByteArray& lastHeader() const { return m_lastHeader; }

private Q_SLOTS:
    void acceptConnections();

private:
    void readRequests(QTcpSocket* socket);
    void handle(QTcpSocket* socket, const QByteArray& header);
    HttpReply replyTo(const QString& path);
    void send(QTcpSocket* socket, const HttpReply& reply);

    QTcpServer m_server;
    QHash<QString, QList<HttpReply>> m_replies;
    HttpReply m_otherReply = HttpReply::error(404, "no such file");
    QHash<QTcpSocket*, QByteArray> m_received;
    QList<QPair<QTcpSocket*, HttpReply>> m_held;
    QStringList m_requests;
    QByteArray m_lastHeader;
    bool m_released = false;
    int m_inFlight = 0;
    int m_mostInFlight = 0;
};

#endif // TESTS_SUPPORT_HTTPSERVER_H
