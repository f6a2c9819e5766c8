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
        Stall,     ///< Nothing happens for a moment, then it is closed in order.
        Stop,      ///< It is closed in order, and the server stops as in HttpServer::stop().
        Restart,   ///< The same, and the server comes back at once.
    };

    int status = 200;
    QByteArray body;
    QList<QByteArray> headers;  ///< Further header lines, without their line ends.
    qint64 declaredLength = -1; ///< Content-Length; below zero the length of the body.
    bool lengthGiven = true;    ///< Whether there is a Content-Length at all.
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
    /// Announces the whole of @p body, sends its first @p bytes, stalls and closes.
    static HttpReply stallInBody(const QByteArray& body, int bytes);
    /// @p body in chunks.
    static HttpReply chunked(const QByteArray& body);
    /// @p body in chunks, closed before the last of it and the end mark.
    static HttpReply cutChunked(const QByteArray& body);
    /// @p body as gzip packs it.
    static HttpReply gzipped(const QByteArray& body);
    /// @p reply with another ending.
    static HttpReply with(Ending ending, HttpReply reply);
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

    /// Makes the server strict: the requests must be those named by calls of this and of
    /// expectRepeated(), in that order; serve() and its like count no more. Any other request is
    /// answered with 500 and makes a complaint, as does one that never comes.
    void expect(const QString& path, const HttpReply& reply);

    /// Expects the request once or more often, up to endRepeats() or a request for another path.
    /// For connections that end without a reply: Qt then sends a request again
    /// by itself, on its own count.
    void expectRepeated(const QString& path, const HttpReply& reply);

    /// Goes on to the next expected request, if there is one and that of expectRepeated() has come.
    void endRepeats();

    /// What was not as expect() said, one line each: requests that nobody expected, in the order
    /// they came, and at the end those that have not come.
    QStringList complaints() const;

    /// True when exactly the expected requests have come.
    bool isSatisfied() const { return complaints().isEmpty(); }

    /// Closes all connections and takes no more, so that they are refused.
    void stop();

    /// Takes connections again, on the same port.
    void comeBack();

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
    HttpReply expectedReplyTo(const QString& path);
    void send(QTcpSocket* socket, const HttpReply& reply);
    void end(QTcpSocket* socket, HttpReply::Ending ending);
    void closeConnections();

    struct ExpectedRequest
    {
        QString path;
        HttpReply reply;
        bool repeated;
        bool came;
    };

    QTcpServer m_server;
    quint16 m_port = 0;
    QHash<QString, QList<HttpReply>> m_replies;
    HttpReply m_otherReply = HttpReply::error(404, "no such file");
    QHash<QTcpSocket*, QByteArray> m_received;
    QList<QPair<QTcpSocket*, HttpReply>> m_held;
    bool m_strict = false;
    QList<ExpectedRequest> m_expected; ///< Those to come, and the one that is being repeated.
    QStringList m_unexpected;
    QStringList m_requests;
    QByteArray m_lastHeader;
    bool m_released = false;
    int m_inFlight = 0;
    int m_mostInFlight = 0;
};

#endif // TESTS_SUPPORT_HTTPSERVER_H
