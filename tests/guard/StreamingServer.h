// A web server whose replies a test makes up as they go.
//
//   const StreamingServer server([](QTcpSocket* client) { client->write("HTTP/1.1 200 OK\r\n"); });
#ifndef TESTS_GUARD_STREAMINGSERVER_H
#define TESTS_GUARD_STREAMINGSERVER_H

#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <functional>

/// Listens on 127.0.0.1, on a port that the system picks. Works from the event loop of the test.
class StreamingServer
{
public:
    /// @param begin is called once for each client that has sent something
    explicit StreamingServer(const std::function<void(QTcpSocket*)>& begin)
    {
        QObject::connect(&m_server, &QTcpServer::newConnection, &m_server, [this, begin] {
            QTcpSocket* client = m_server.nextPendingConnection();
            QObject::connect(client, &QTcpSocket::readyRead, client, [client, begin] {
                client->disconnect(SIGNAL(readyRead()));
                begin(client);
            });
        });
        if (!m_server.listen(QHostAddress::LocalHost))
            qFatal("test fixture: cannot listen on 127.0.0.1");
    }

    QUrl url() const { return QUrl(QString("http://127.0.0.1:%1/").arg(m_server.serverPort())); }

private:
    QTcpServer m_server;
};

#endif // TESTS_GUARD_STREAMINGSERVER_H
