// What tests do with connections, and whether there is IPv6.
#ifndef TESTS_SUPPORT_SOCKETS_H
#define TESTS_SUPPORT_SOCKETS_H

#include <QTcpServer>
#include <QTcpSocket>

#include <sys/socket.h>

namespace sockets {

/// Ends the connection of @p socket with a reset rather than in order.
inline void reset(QTcpSocket* socket)
{
    const linger immediately = {1, 0};
    ::setsockopt(static_cast<int>(socket->socketDescriptor()), SOL_SOCKET, SO_LINGER, &immediately,
                 sizeof immediately);
    socket->abort();
}

/// Sends no more on the connection of @p socket, which the peer sees as its end. What the peer
/// still sends is taken: closing before it came would be a reset.
inline void finish(const QTcpSocket* socket)
{
    ::shutdown(static_cast<int>(socket->socketDescriptor()), SHUT_WR);
}

/// True where servers can listen on ::1.
inline bool hasIpv6()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHostIPv6);
}

} // namespace sockets

#endif // TESTS_SUPPORT_SOCKETS_H
