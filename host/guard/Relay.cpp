// The relay: which path is which file, and a conversation for each connection.

#include "host/guard/Relay.h"

#include "host/guard/Downloads.h"
#include "manifest/Paths.h"

#include <QBuffer>
#include <QFile>
#include <QHash>
#include <QHostAddress>
#include <QNetworkProxy>
#include <QRandomGenerator>
#include <QSet>
#include <QTcpServer>
#include <QTcpSocket>
#include <QUrl>

#include <array>
#include <optional>

// Not without a name: members of the class below have these types.
namespace relaying {

/// The longest header of a request, its end included.
constexpr int longestHeader = 65536;

/// What is read from a file at once. Twice as much may wait for a slow client.
constexpr int relayBlock = 65536;

/// What a client that asks for @p url names in the first line of its request.
QByteArray targetOf(const QUrl& url)
{
    // Qt resolves "." and ".." before it asks.
    QString target = url.adjusted(QUrl::NormalizePathSegments).path(QUrl::FullyEncoded);
    if (url.hasQuery())
        target += QLatin1Char('?') + url.query(QUrl::FullyEncoded);
    return target.toLatin1();
}

QString randomDigits()
{
    std::array<quint32, 4> numbers{};
    QRandomGenerator::system()->fillRange(numbers.data(), numbers.size());
    return QString::fromLatin1(
        QByteArray(reinterpret_cast<const char*>(numbers.data()), sizeof numbers).toHex());
}

/// A request without its body, as far as it matters here.
struct Request
{
    bool isWellFormed = false;
    bool hasBody = false;
    bool closes = false; ///< The client does not want to ask for more on this connection.
    QByteArray method;
    QByteArray target;
};

Request requestOf(const QByteArray& header)
{
    Request request;
    const QList<QByteArray> lines = header.split('\n');
    const QList<QByteArray> words = lines.first().trimmed().split(' ');
    if (words.size() != 3 || !words.at(2).startsWith("HTTP/1."))
        return request;
    request.isWellFormed = true;
    request.method = words.at(0);
    request.target = words.at(1);
    request.closes = words.at(2) == "HTTP/1.0";
    for (const QByteArray& line : lines) {
        const QByteArray name = line.left(line.indexOf(':')).toLower();
        const QByteArray value = line.mid(line.indexOf(':') + 1).trimmed().toLower();
        if (name == "connection")
            request.closes = request.closes || value.contains("close");
        else if (name == "transfer-encoding" || (name == "content-length" && value != "0"))
            request.hasBody = true;
    }
    return request;
}

/// What is served where.
class Site
{
public:
    Site(const QByteArray& versionFile, Downloads& downloads)
        : versionFile(versionFile), downloads(downloads)
    {
    }

    /// Gives each of @p files that is downloaded its place beside the version file at @p url.
    void lay(const QString& url, const QVector<ProgramFile>& files);

    bool isVersionFile(const QByteArray& target) const { return target == m_versionFileTarget; }
    std::optional<ProgramFile> fileAt(const QByteArray& target) const;
    void noteSent(const QByteArray& target) { m_unsent.remove(target); }
    bool allWereSent() const { return m_unsent.isEmpty(); }

    const QByteArray versionFile;
    Downloads& downloads;

private:
    QByteArray m_versionFileTarget;
    QHash<QByteArray, ProgramFile> m_files;
    QSet<QByteArray> m_unsent; ///< Targets of files.
};

void Site::lay(const QString& url, const QVector<ProgramFile>& files)
{
    m_versionFileTarget = targetOf(QUrl(url));
    for (const ProgramFile& file : files) {
        const QByteArray target = targetOf(QUrl(paths::besideVersionFile(url, file.name)));
        if (!downloads.contains(file) || m_files.contains(target))
            continue;
        m_files.insert(target, file);
        m_unsent.insert(target);
    }
}

std::optional<ProgramFile> Site::fileAt(const QByteArray& target) const
{
    const auto file = m_files.find(target);
    return file == m_files.end() ? std::nullopt : std::optional<ProgramFile>(*file);
}

/// Answers the requests of one connection, one after the other. A child of its socket.
class Conversation : public QObject
{
public:
    /// Keeps references to both.
    Conversation(QTcpSocket& socket, Site& site);

private:
    void proceed();
    void answer(const Request& request);
    void answerWaiting();
    void sendFile();
    void refuse(const char* status, const QByteArray& text);
    void send(const char* status, std::unique_ptr<QIODevice> body);
    void sendMore();

    enum class State {
        Idle,    ///< The next request is awaited.
        Waiting, ///< The requested file is not downloaded yet.
        Sending,
        Over
    };

    QTcpSocket& m_socket;
    Site& m_site;
    State m_state = State::Idle;
    QByteArray m_received;
    bool m_closes = false;
    QByteArray m_target;
    ProgramFile m_file;
    std::unique_ptr<QIODevice> m_body; ///< What is being sent.
    qint64 m_left = 0;                 ///< Bytes of it that are not handed to the socket.
};

Conversation::Conversation(QTcpSocket& socket, Site& site)
    : QObject(&socket), m_socket(socket), m_site(site)
{
    m_socket.setReadBufferSize(longestHeader);
    connect(&m_socket, &QTcpSocket::readyRead, this, [this] { proceed(); });
    connect(&m_socket, &QTcpSocket::bytesWritten, this, [this] { sendMore(); });
    connect(&m_site.downloads, &Downloads::settled, this, [this] { answerWaiting(); });
}

/// Takes what the client has sent. While a request is being answered, the next ones stay in the
/// socket.
void Conversation::proceed()
{
    while (m_state == State::Idle) {
        m_received += m_socket.read(longestHeader - m_received.size());
        const QByteArray end("\r\n\r\n");
        const auto position = m_received.indexOf(end);
        if (position >= 0) {
            const Request request = requestOf(m_received.left(position));
            m_received.remove(0, position + end.size());
            answer(request);
        } else {
            if (m_received.size() >= longestHeader)
                m_socket.abort();
            return;
        }
    }
}

void Conversation::answer(const Request& request)
{
    m_target = request.target;
    // A body is not looked for, so what follows cannot be told from it.
    m_closes = request.closes || request.hasBody || !request.isWellFormed;
    if (!request.isWellFormed) {
        refuse("400 Bad Request", "This is no request.\n");
    } else if (request.method != "GET") {
        m_closes = true;
        // Without a text: after HEAD there must be none.
        refuse("405 Method Not Allowed\r\nAllow: GET", QByteArray());
    } else if (m_site.isVersionFile(m_target)) {
        auto body = std::make_unique<QBuffer>();
        body->setData(m_site.versionFile);
        send("200 OK", std::move(body));
    } else if (const std::optional<ProgramFile> file = m_site.fileAt(m_target)) {
        m_file = *file;
        m_state = State::Waiting;
        answerWaiting();
    } else {
        refuse("404 Not Found", "There is no such file.\n");
    }
}

void Conversation::answerWaiting()
{
    if (m_state != State::Waiting)
        return;
    const Downloads::State state = m_site.downloads.stateOf(m_file);
    if (state == Downloads::State::Ready)
        sendFile();
    else if (state == Downloads::State::Failed)
        refuse("502 Bad Gateway", "The file could not be downloaded.\n");
}

void Conversation::sendFile()
{
    auto body = std::make_unique<QFile>(m_site.downloads.pathOf(m_file));
    if (body->open(QIODevice::ReadOnly | QIODevice::Unbuffered) &&
        static_cast<quint64>(body->size()) == m_file.size)
        send("200 OK", std::move(body));
    else
        refuse("502 Bad Gateway", "The downloaded file cannot be read.\n");
}

void Conversation::refuse(const char* status, const QByteArray& text)
{
    m_target.clear();
    auto body = std::make_unique<QBuffer>();
    body->setData(text);
    send(status, std::move(body));
}

/// Sends the header, and begins with @p body, which is open or a buffer.
void Conversation::send(const char* status, std::unique_ptr<QIODevice> body)
{
    m_state = State::Sending;
    m_body = std::move(body);
    if (!m_body->isOpen())
        m_body->open(QIODevice::ReadOnly);
    m_left = m_body->size();
    m_socket.write(QByteArray("HTTP/1.1 ") + status +
                   "\r\nContent-Type: application/octet-stream\r\nContent-Length: " +
                   QByteArray::number(m_left) + (m_closes ? "\r\nConnection: close" : "") +
                   "\r\n\r\n");
    sendMore();
}

/// Keeps the socket busy, with little in memory.
void Conversation::sendMore()
{
    if (m_state != State::Sending)
        return;
    while (m_left > 0 && m_socket.bytesToWrite() < relayBlock) {
        const QByteArray block = m_body->read(qMin<qint64>(m_left, relayBlock));
        if (block.isEmpty()) {
            m_state = State::Over;
            m_socket.abort();
            return;
        }
        m_socket.write(block);
        m_left -= block.size();
    }
    if (m_left > 0 || m_socket.bytesToWrite() > 0)
        return;
    m_body.reset();
    m_site.noteSent(m_target);
    if (m_closes) {
        m_state = State::Over;
        m_socket.disconnectFromHost();
    } else {
        m_state = State::Idle;
        proceed();
    }
}

} // namespace relaying

/// Listens, and has a conversation with each client.
class Relay::Server
{
public:
    Server(const QByteArray& versionFile, const QVector<ProgramFile>& files, Downloads& downloads)
        : m_files(files), m_site(versionFile, downloads)
    {
    }

    bool listen(QString& why);

    QString url() const
    {
        return QStringLiteral("http://127.0.0.1:%1/%2/index.txt")
            .arg(QString::number(m_server.serverPort()), m_secret);
    }

    bool allWereSent() const { return m_site.allWereSent(); }

private:
    void acceptConnections();

    const QVector<ProgramFile> m_files;
    const QString m_secret = relaying::randomDigits();
    relaying::Site m_site;
    QTcpServer m_server;
};

bool Relay::Server::listen(QString& why)
{
    // The proxy that a user has set is not for this.
    m_server.setProxy(QNetworkProxy::NoProxy);
    if (!m_server.listen(QHostAddress::LocalHost)) {
        why = m_server.errorString();
        return false;
    }
    m_site.lay(url(), m_files);
    connect(&m_server, &QTcpServer::newConnection, &m_server, [this] { acceptConnections(); });
    return true;
}

void Relay::Server::acceptConnections()
{
    while (QTcpSocket* socket = m_server.nextPendingConnection()) {
        connect(socket, &QTcpSocket::disconnected, socket, &QObject::deleteLater);
        // A header must not wait until the client has acknowledged the last file: 40 ms for each.
        socket->setSocketOption(QAbstractSocket::LowDelayOption, 1);
        new relaying::Conversation(*socket, m_site);
    }
}

Relay::Relay(const QByteArray& versionFile, const QVector<ProgramFile>& files, Downloads& downloads)
    : m_server(std::make_unique<Server>(versionFile, files, downloads))
{
}

Relay::~Relay() = default;

bool Relay::listen(QString& why)
{
    return m_server->listen(why);
}

QString Relay::url() const
{
    return m_server->url();
}

bool Relay::allWereFetched() const
{
    return m_server->allWereSent();
}
