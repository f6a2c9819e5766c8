#include "tests/support/TcpRelay.h"

#include "tests/support/Sockets.h"

#include <QTcpSocket>

#include <memory>

namespace {

constexpr int recordHeader = 5;
constexpr char alert = 21;

/// Takes the TLS records that are complete from the start of @p received.
/// @return The records without the alerts.
QByteArray takeRecordsWithoutAlerts(QByteArray& received)
{
    QByteArray records;
    while (received.size() >= recordHeader) {
        const int size = recordHeader + (static_cast<quint8>(received.at(3)) << 8) +
                         static_cast<quint8>(received.at(4));
        if (received.size() < size)
            break;
        if (received.at(0) != alert)
            records += received.left(size);
        received.remove(0, size);
    }
    return records;
}

} // namespace

TcpRelay::TcpRelay(quint16 serverPort) : m_serverPort(serverPort)
{
    connect(&m_server, &QTcpServer::newConnection, this, [this] {
        while (QTcpSocket* client = m_server.nextPendingConnection())
            accept(client);
    });
    if (!m_server.listen(QHostAddress::LocalHost))
        qFatal("test fixture: cannot listen on 127.0.0.1");
}

void TcpRelay::cut(const QList<qint64>& bytes, Ending ending)
{
    m_cuts = bytes;
    m_ending = ending;
}

void TcpRelay::accept(QTcpSocket* client)
{
    ++m_connections;
    constexpr qint64 unlimited = -1;
    const auto left = std::make_shared<qint64>(m_cuts.isEmpty() ? unlimited : m_cuts.takeFirst());
    const auto received = std::make_shared<QByteArray>();
    auto* server = new QTcpSocket(client);

    connect(client, &QTcpSocket::readyRead, server, [=, connected = !m_isProxy]() mutable {
        if (!connected)
            connected = takeTarget(client);
        if (connected)
            server->write(client->readAll());
    });
    connect(server, &QTcpSocket::readyRead, client, [=] {
        *received += server->readAll();
        QByteArray bytes =
            m_endsHidden ? takeRecordsWithoutAlerts(*received) : std::exchange(*received, {});
        if (*left == 0)
            return;
        if (*left != unlimited) {
            bytes = bytes.left(static_cast<int>(*left));
            *left -= bytes.size();
        }
        client->write(bytes);
        if (*left == 0)
            end(client);
    });
    connect(server, &QTcpSocket::disconnected, client, [=] {
        if (!m_endsHidden)
            client->disconnectFromHost();
    });
    connect(client, &QTcpSocket::disconnected, client, &QObject::deleteLater);
    server->connectToHost(QHostAddress::LocalHost, m_serverPort);
}

/// @return False when the client has not said all of it yet.
bool TcpRelay::takeTarget(QTcpSocket* client)
{
    const auto end = client->peek(client->bytesAvailable()).indexOf("\r\n\r\n");
    if (end < 0)
        return false;
    m_targets.append(QString::fromLatin1(client->read(end + 4).split(' ').value(1)));
    client->write("HTTP/1.1 200 Connected\r\n\r\n");
    return true;
}

void TcpRelay::end(QTcpSocket* client) const
{
    client->flush();
    if (m_ending == Reset)
        sockets::reset(client);
    else
        sockets::finish(client);
}
