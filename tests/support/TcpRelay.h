// Passes data between a client and a server, and ends connections as a network does.
#ifndef TESTS_SUPPORT_TCPRELAY_H
#define TESTS_SUPPORT_TCPRELAY_H

#include <QByteArray>
#include <QList>
#include <QObject>
#include <QStringList>
#include <QTcpServer>

class QTcpSocket;

/// Takes connections on 127.0.0.1, on a port that the system picks, and passes on what goes over
/// them to and from a server there. Works from the event loop of the test.
class TcpRelay : public QObject
{
public:
    explicit TcpRelay(quint16 serverPort);

    quint16 port() const { return m_server.serverPort(); }

    /// How a connection to the client ends.
    enum Ending {
        Close, ///< In order.
        Reset, ///< Torn down (RST).
    };

    /// Ends each of the next connections with @p ending when as many bytes have gone to the client
    /// as the list says. Those after them are left alone.
    void cut(const QList<qint64>& bytes, Ending ending);

    /// Hides from the client that the server has ended a connection, as if that took long to
    /// arrive. For TLS up to 1.2, where the server's alert can be recognised.
    void hideEnds() { m_endsHidden = true; }

    /// Makes it a proxy: a client first says where it wants to be connected to (CONNECT), and is
    /// connected to the server in any case.
    void beProxy() { m_isProxy = true; }

    /// Where clients wanted to be connected to, such as "updates.example:443".
    const QStringList& targets() const { return m_targets; }

    /// The number of connections so far.
    int connections() const { return m_connections; }

private:
    void accept(QTcpSocket* client);
    bool takeTarget(QTcpSocket* client);
    void end(QTcpSocket* client) const;

    const quint16 m_serverPort;
    QTcpServer m_server;
    QList<qint64> m_cuts;
    Ending m_ending = Close;
    bool m_endsHidden = false;
    bool m_isProxy = false;
    QStringList m_targets;
    int m_connections = 0;
};

#endif // TESTS_SUPPORT_TCPRELAY_H
