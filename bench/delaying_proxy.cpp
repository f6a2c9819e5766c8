// Gives a local server the latency of a distant one: passes every byte on, in both directions, half
// a round trip after it came. The first bytes of a connection wait for a whole round trip more,
// which is what opening the connection would have taken.
//
//   delaying_proxy PORT MILLISECONDS   the server's port, the round trip
//
// Prints the port that it listens on, and runs until it is ended.

#include <QCoreApplication>
#include <QDeadlineTimer>
#include <QHostAddress>
#include <QQueue>
#include <QTcpServer>
#include <QTcpSocket>
#include <QTimer>

#include <cstdio>

namespace {

/// Passes on what @p from receives to @p to, each piece at its time. A child of @p from.
class Direction : public QObject
{
public:
    Direction(QTcpSocket* from, QTcpSocket* to, int delay, int firstDelay)
        : QObject(from)
        , m_from(from)
        , m_to(to)
        , m_delay(delay)
        , m_opened(firstDelay, Qt::PreciseTimer)
    {
        m_timer.setTimerType(Qt::PreciseTimer);
        m_timer.setSingleShot(true);
        connect(&m_timer, &QTimer::timeout, this, &Direction::passOn);
        connect(from, &QTcpSocket::readyRead, this, &Direction::take);
        connect(from, &QTcpSocket::disconnected, this, [this] { queue(QByteArray()); });
    }

private:
    struct Piece
    {
        QDeadlineTimer due;
        QByteArray bytes; ///< None: the end of the connection.
    };

    void take() { queue(m_from->readAll()); }

    void queue(const QByteArray& bytes)
    {
        const qint64 wait = m_opened.remainingTime() + m_delay;
        m_pieces.enqueue({QDeadlineTimer(wait, Qt::PreciseTimer), bytes});
        if (!m_timer.isActive())
            m_timer.start(static_cast<int>(wait));
    }

    void passOn()
    {
        while (!m_pieces.isEmpty() && m_pieces.head().due.hasExpired()) {
            const QByteArray bytes = m_pieces.dequeue().bytes;
            if (bytes.isEmpty())
                m_to->disconnectFromHost();
            else
                m_to->write(bytes);
        }
        m_to->flush();
        if (!m_pieces.isEmpty())
            m_timer.start(static_cast<int>(m_pieces.head().due.remainingTime()));
    }

    QTcpSocket* m_from;
    QTcpSocket* m_to;
    int m_delay;
    QDeadlineTimer m_opened; ///< When the connection would have been open.
    QTimer m_timer;
    QQueue<Piece> m_pieces;
};

void connectThrough(QTcpSocket* client, quint16 port, int roundTrip)
{
    auto* server = new QTcpSocket(client->parent());
    // Small pieces must not wait for more.
    client->setSocketOption(QAbstractSocket::LowDelayOption, 1);
    QObject::connect(server, &QTcpSocket::connected, server,
                     [server] { server->setSocketOption(QAbstractSocket::LowDelayOption, 1); });
    new Direction(client, server, roundTrip / 2, roundTrip);
    new Direction(server, client, roundTrip - roundTrip / 2, 0);
    server->connectToHost(QHostAddress::LocalHost, port);
}

} // namespace

int main(int argc, char** argv)
{
    const QCoreApplication app(argc, argv);
    if (argc != 3)
        return 2;
    const auto port = static_cast<quint16>(QByteArray(argv[1]).toUInt());
    const int roundTrip = QByteArray(argv[2]).toInt();

    QTcpServer listener;
    if (!listener.listen(QHostAddress::LocalHost))
        return 1;
    QObject::connect(&listener, &QTcpServer::newConnection, [&] {
        while (QTcpSocket* client = listener.nextPendingConnection())
            connectThrough(client, port, roundTrip);
    });
    std::printf("%u\n", static_cast<unsigned>(listener.serverPort()));
    std::fflush(stdout);
    return QCoreApplication::exec();
}
