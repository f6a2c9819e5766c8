// The web server for the updater: what it hands out, when, and how it takes strange clients.

#include "host/guard/Relay.h"

#include "host/guard/Downloads.h"
#include "manifest/Paths.h"

#include "tests/guard/PeakMemory.h"
#include "tests/support/Command.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/Needs.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"

#include <QNetworkAccessManager>
#include <QNetworkReply>
#include <QTcpSocket>

#include <memory>
#include <optional>

namespace {

const QByteArray versionFile("<Editor>\n\t<version>2.0</version>\n</Editor>\n");

/// Downloads from a scripted server, and the relay that hands them out.
class Relayed
{
public:
    /// Adds a file that is listed and downloaded. The server has it under its key, whatever it is
    /// called.
    void add(const QString& name, const QByteArray& contents)
    {
        addListed(name, contents);
        m_downloaded.append(m_listed.constLast());
        if (!::files::list(m_dir.path()).contains(Downloads::keyOf(m_listed.constLast())))
            ::files::write(m_dir / Downloads::keyOf(m_listed.constLast()), contents);
    }

    /// Adds a file that is listed, but not downloaded.
    void addListed(const QString& name, const QByteArray& contents)
    {
        m_listed.append(tree::entry(name, contents));
    }

    /// Adds a file that is downloaded from the server, which answers with @p reply.
    void addRemote(const QString& name, const QByteArray& contents, const HttpReply& reply)
    {
        addListed(name, contents);
        m_downloaded.append(m_listed.constLast());
        server.serve('/' + name, reply);
    }

    /// Adds a listed and downloaded file of @p size zeros, without having it in memory.
    void addZeros(const QString& name, qint64 size)
    {
        const TestDir dir;
        QFile file(dir / name);
        if (!file.open(QIODevice::WriteOnly) || !file.resize(size))
            qFatal("test fixture: cannot make a large file");
        file.close();
        const ProgramFile entry = tree::seenByTools(dir.path()).value(name);
        m_listed.append({name, entry.sha1, entry.size});
        m_downloaded.append(m_listed.constLast());
        if (!QFile::rename(dir / name, m_dir / Downloads::keyOf(m_listed.constLast())))
            qFatal("test fixture: cannot move a large file");
    }

    /// Starts the downloads and the relay.
    void start()
    {
        downloads = std::make_unique<Downloads>(
            Downloads::Settings{server.url("/index.txt"), m_dir.path(), 6, 60}, m_downloaded);
        relay = std::make_unique<Relay>(versionFile, m_listed, *downloads);
        QString why;
        if (!relay->listen(why))
            qFatal("the relay does not listen: %s", qPrintable(why));
        downloads->start();
    }

    /// True when the state of every download is final.
    bool isSettled() const
    {
        return std::none_of(m_downloaded.begin(), m_downloaded.end(), [this](const auto& file) {
            return downloads->stateOf(file) == Downloads::State::Waiting;
        });
    }

    quint16 port() const { return static_cast<quint16>(QUrl(relay->url()).port()); }

    /// The path of the version file.
    QByteArray indexPath() const { return QUrl(relay->url()).path().toLatin1(); }

    /// The path of a file with a plain name.
    QByteArray path(const QByteArray& name) const { return indexPath().replace("index.txt", name); }

    /// Where a file that is Ready is.
    QString pathOnDisk(int index) const { return downloads->pathOf(m_listed.at(index)); }

    HttpServer server;
    std::unique_ptr<Downloads> downloads;
    std::unique_ptr<Relay> relay;

private:
    const TestDir m_dir;
    QVector<ProgramFile> m_listed;
    QVector<ProgramFile> m_downloaded;
};

struct Reply
{
    int status = 0; ///< 0 when there was none.
    QByteArray header;
    QByteArray body;
};

/// Cuts the first reply out of @p received; nothing when it is not whole.
std::optional<Reply> takeReply(QByteArray& received)
{
    const auto end = received.indexOf("\r\n\r\n");
    if (end < 0)
        return std::nullopt;
    Reply reply;
    reply.header = received.left(end);
    reply.status = reply.header.split(' ').value(1).toInt();
    static const QByteArray lengthLine("\r\nContent-Length: ");
    const auto length = reply.header.mid(reply.header.indexOf(lengthLine) + lengthLine.size())
                            .split('\r')
                            .first()
                            .toInt();
    if (!reply.header.contains(lengthLine) || received.size() < end + 4 + length)
        return std::nullopt;
    reply.body = received.mid(end + 4, length);
    received.remove(0, end + 4 + length);
    return reply;
}

/// A client that writes its requests by hand.
class Client
{
public:
    explicit Client(quint16 port)
    {
        m_socket.connectToHost(QHostAddress::LocalHost, port);
        if (!m_socket.waitForConnected(30000))
            qFatal("test fixture: no connection to the relay");
    }

    void send(const QByteArray& bytes)
    {
        m_socket.write(bytes);
        m_socket.flush();
    }

    /// Asks for @p target.
    void get(const QByteArray& target)
    {
        send("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1\r\n\r\n");
    }

    /// Waits for the next reply.
    Reply reply()
    {
        std::optional<Reply> reply;
        const bool came = QTest::qWaitFor(
            [&] {
                m_received += m_socket.readAll();
                reply = takeReply(m_received);
                return reply.has_value() || isClosed();
            },
            30000);
        return came && reply ? *reply : Reply();
    }

    /// Waits until the relay ends the connection. @return What it has sent before; nothing at all
    /// when it does not end it.
    std::optional<QByteArray> rest()
    {
        if (!QTest::qWaitFor([this] { return isClosed(); }, 30000))
            return std::nullopt;
        return m_received + m_socket.readAll();
    }

    bool isClosed() const { return m_socket.state() == QAbstractSocket::UnconnectedState; }

    QTcpSocket& socket() { return m_socket; }

private:
    QTcpSocket m_socket;
    QByteArray m_received;
};

/// What Qt gets for @p url, as the updater asks.
struct Fetched
{
    int status;
    QByteArray body;
    QNetworkReply::NetworkError error;
};

Fetched fetchedFrom(const QUrl& url)
{
    QNetworkAccessManager manager;
    const std::unique_ptr<QNetworkReply> reply(manager.get(QNetworkRequest(url)));
    if (!QTest::qWaitFor([&] { return reply->isFinished(); }, 30000))
        qFatal("the relay does not answer");
    return {reply->attribute(QNetworkRequest::HttpStatusCodeAttribute).toInt(), reply->readAll(),
            reply->error()};
}

QUrl urlOf(const Relayed& relayed, const QString& name)
{
    return QUrl(paths::besideVersionFile(relayed.relay->url(), name));
}

} // namespace

class TestRelay : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- What is handed out

    void urlCannotBeGuessed()
    {
        Relayed one;
        one.start();
        Relayed other;
        other.start();
        const QRegularExpression form("^http://127\\.0\\.0\\.1:[0-9]+/([0-9a-f]{32})/index\\.txt$");
        const QString first = form.match(one.relay->url()).captured(1);
        const QString second = form.match(other.relay->url()).captured(1);
        QVERIFY2(!first.isEmpty(), qPrintable(one.relay->url()));
        QVERIFY(!second.isEmpty());
        QVERIFY(first != second);
        // Random in each part.
        for (int i = 0; i < 32; i += 8)
            QVERIFY(first.mid(i, 8) != second.mid(i, 8));
    }

    void versionFileIsServedAsItIs()
    {
        Relayed relayed;
        relayed.add("a.txt", "a");
        relayed.start();
        for (int i = 0; i < 2; ++i) {
            const Fetched fetched = fetchedFrom(relayed.relay->url());
            QCOMPARE(fetched.error, QNetworkReply::NoError);
            QCOMPARE(fetched.status, 200);
            QCOMPARE(fetched.body, versionFile);
        }
        QVERIFY(!relayed.relay->allWereFetched());
    }

    void curlIsServed()
    {
        NEEDS_PROGRAM("curl");
        Relayed relayed;
        relayed.add("sub/a b.txt", "contents of a");
        relayed.start();
        const auto curl = [](const QByteArray& url) {
            return outputOf({"curl", "--silent", "--show-error", "--fail", "--noproxy", "*",
                             QString::fromLatin1(url)});
        };
        QCOMPARE(curl(relayed.relay->url().toLatin1()), versionFile);
        QCOMPARE(curl(urlOf(relayed, "sub/a b.txt").toEncoded()), QByteArray("contents of a"));
        QVERIFY(relayed.relay->allWereFetched());
    }

    void fileIsServedUnderAnyName_data()
    {
        QTest::addColumn<QString>("name");
        for (const char* name : {"a.txt",
                                 "Contents/Resources/de.lproj/File.strings",
                                 "a b.txt",
                                 " a",
                                 "100%.txt",
                                 "a%20b.txt",
                                 "%zz",
                                 "%2e%2e/a.txt",
                                 "%2F",
                                 "a#b.txt",
                                 "#",
                                 "a?b.txt",
                                 "a?b=c&d=e f",
                                 "a?b?c#d",
                                 "?",
                                 "a+b.txt",
                                 "a&b.txt",
                                 "a;b",
                                 "a=b",
                                 "a:b",
                                 "a@b",
                                 "a~b",
                                 "a!$'()*,b",
                                 "a\"b<c>d",
                                 "[a]{b}|c^d`e",
                                 "a\\b.txt",
                                 "...",
                                 "..a",
                                 "a/..b/c",
                                 "index.txt.sig"})
            row(name, QString::fromLatin1(name));
        row("umlauts", QString::fromLatin1("\xdc"
                                           "bung \xe4\xf6\xfc\xdf.txt"));
        row("bytes of UTF-8", QString::fromLatin1("\xc3\xbc.txt"));
        row("controls", QString::fromLatin1("a\x01\x7f\x80\xa0\xff"));
    }

    void fileIsServedUnderAnyName()
    {
        QFETCH(QString, name);
        Relayed relayed;
        relayed.add("another.txt", "other contents");
        relayed.add(name, "the contents");
        relayed.start();
        const Fetched fetched = fetchedFrom(urlOf(relayed, name));
        QCOMPARE(fetched.error, QNetworkReply::NoError);
        QCOMPARE(fetched.body, QByteArray("the contents"));
        QVERIFY(!relayed.relay->allWereFetched());
        QCOMPARE(fetchedFrom(urlOf(relayed, "another.txt")).body, QByteArray("other contents"));
        QVERIFY(relayed.relay->allWereFetched());
    }

    void emptyFileIsServed()
    {
        Relayed relayed;
        relayed.add("empty", "");
        relayed.start();
        const Fetched fetched = fetchedFrom(urlOf(relayed, "empty"));
        QCOMPARE(fetched.status, 200);
        QCOMPARE(fetched.body, QByteArray());
        QVERIFY(relayed.relay->allWereFetched());
    }

    void firstOfTwoFilesAtOnePlaceIsServed_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        row("number sign", "a#one", "a#two");
        row("escaped", "a b", "a%20b");
        row("fragment", "a", "a#");
    }

    void firstOfTwoFilesAtOnePlaceIsServed()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        {
            Relayed relayed;
            relayed.add(first, "first");
            relayed.add(second, "second");
            relayed.start();
            QCOMPARE(fetchedFrom(urlOf(relayed, second)).body, QByteArray("first"));
            QVERIFY(relayed.relay->allWereFetched()); // There is nothing else to ask for.
        }
        {
            Relayed relayed;
            relayed.addListed(first, "first");
            relayed.add(second, "second");
            relayed.start();
            QCOMPARE(fetchedFrom(urlOf(relayed, first)).body, QByteArray("second"));
        }
    }

    void nothingIsInPlaceOfTheVersionFile()
    {
        Relayed relayed;
        relayed.add("index.txt", "no version file");
        relayed.start();
        QVERIFY(!relayed.relay->allWereFetched());
        QCOMPARE(fetchedFrom(relayed.relay->url()).body, versionFile);
        QVERIFY(relayed.relay->allWereFetched());
    }

    void everythingElseIsMissing_data()
    {
        QTest::addColumn<QByteArray>("target"); // "@" stands for the random part.
        for (const char* target : {"/",
                                   "/index.txt",
                                   "/a.txt",
                                   "/@",
                                   "/@/",
                                   "/@/b.txt",
                                   "/@/a.txt/",
                                   "/@/a.txt?",
                                   "/@/a.txt?x",
                                   "/@/A.txt",
                                   "//@/a.txt",
                                   "/@//a.txt",
                                   "/@/./a.txt",
                                   "/@/../@/a.txt",
                                   "/@/..",
                                   "/@/../",
                                   "/@/%2e%2e/@/a.txt",
                                   "/@/%61.txt",
                                   "/@/a%2etxt",
                                   "/@/a.txt%00",
                                   "/@/sub%2fb.txt",
                                   "/@/sub\\b.txt",
                                   "/@/index.txt?",
                                   "/@/%69ndex.txt",
                                   "/@/index.txt.sig",
                                   "/@/listed.txt",
                                   "/00000000000000000000000000000000/index.txt",
                                   "/00000000000000000000000000000000/a.txt",
                                   "/../../../../etc/passwd",
                                   "@/a.txt",
                                   "*",
                                   "http://127.0.0.1/@/a.txt",
                                   "/@/a.txt#"})
            row(target, QByteArray(target));
    }

    void everythingElseIsMissing()
    {
        QFETCH(QByteArray, target);
        Relayed relayed;
        relayed.add("a.txt", "contents of a");
        relayed.add("sub/b.txt", "contents of b");
        relayed.addListed("listed.txt", "not downloaded");
        relayed.start();
        Client client(relayed.port());
        const QByteArray secret = relayed.indexPath().mid(1, 32);
        client.get(QByteArray(target).replace("@", secret));
        const Reply reply = client.reply();
        QCOMPARE(reply.status, 404);
        QVERIFY(reply.body.size() < 100);
        QByteArray other = secret;
        other[31] = secret.at(31) == '0' ? '1' : '0';
        client.get("/" + other + "/a.txt");
        QCOMPARE(client.reply().status, 404);
        client.get(relayed.path("a.txt")); // The connection is good for more.
        QCOMPARE(client.reply().body, QByteArray("contents of a"));
    }

    // ---- When

    void requestWaitsForItsFile()
    {
        Relayed relayed;
        relayed.addRemote("slow.txt", "slow contents",
                          HttpReply::hold(HttpReply::ok("slow contents")));
        relayed.add("there.txt", "there");
        relayed.start();
        Client waiting(relayed.port());
        waiting.get(relayed.path("slow.txt"));
        QTRY_COMPARE(relayed.server.requests().size(), 1);
        Client other(relayed.port());
        other.get(relayed.path("there.txt"));
        QCOMPARE(other.reply().body, QByteArray("there"));
        QCOMPARE(waiting.socket().bytesAvailable(), 0);
        QVERIFY(!relayed.relay->allWereFetched());
        relayed.server.release();
        const Reply reply = waiting.reply();
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.body, QByteArray("slow contents"));
        QVERIFY(relayed.relay->allWereFetched());
    }

    void failedFileIsABadGateway()
    {
        Relayed relayed;
        relayed.addRemote("bad.txt", "what it should be", HttpReply::error(404, "secret page"));
        relayed.add("good.txt", "good");
        relayed.start();
        Client client(relayed.port());
        client.get(relayed.path("bad.txt")); // Asked for before, and then again.
        for (int i = 0; i < 2; ++i) {
            const Reply reply = client.reply();
            QCOMPARE(reply.status, 502);
            QVERIFY(!reply.body.isEmpty() && reply.body.size() < 100);
            client.get(relayed.path("bad.txt"));
        }
        QCOMPARE(client.reply().status, 502);
        QVERIFY(relayed.isSettled());
        client.get(relayed.path("good.txt"));
        QCOMPARE(client.reply().body, QByteArray("good"));
        QVERIFY(!relayed.relay->allWereFetched());
    }

    void fileThatIsGoneIsABadGateway_data()
    {
        QTest::addColumn<bool>("removed");
        row("removed", true);
        row("of another size", false);
    }

    void fileThatIsGoneIsABadGateway()
    {
        QFETCH(bool, removed);
        Relayed relayed;
        relayed.add("a.txt", "contents");
        relayed.start();
        QTRY_VERIFY(relayed.isSettled());
        if (removed)
            QFile::remove(relayed.pathOnDisk(0));
        else
            files::write(relayed.pathOnDisk(0), "longer contents");
        Client client(relayed.port());
        client.get(relayed.path("a.txt"));
        QCOMPARE(client.reply().status, 502);
        QVERIFY(!relayed.relay->allWereFetched());
    }

    void clientThatLeavesIsForgotten()
    {
        Relayed relayed;
        relayed.addRemote("slow.txt", "slow contents",
                          HttpReply::hold(HttpReply::ok("slow contents")));
        relayed.start();
        auto leaving = std::make_unique<Client>(relayed.port());
        leaving->get(relayed.path("slow.txt"));
        Client staying(relayed.port());
        staying.get(relayed.path("slow.txt"));
        QTRY_COMPARE(relayed.server.requests().size(), 1);
        leaving.reset();
        // The relay sees the end before the answer to this.
        Client later(relayed.port());
        later.get("/");
        QCOMPARE(later.reply().status, 404);
        relayed.server.release();
        QCOMPARE(staying.reply().body, QByteArray("slow contents"));
        QVERIFY(relayed.relay->allWereFetched());
    }

    void fileThatIsNotTakenWholeIsNotFetched()
    {
        Relayed relayed;
        relayed.addZeros("large.bin", 16000000);
        relayed.start();
        {
            Client client(relayed.port());
            client.socket().setReadBufferSize(65536);
            client.get(relayed.path("large.bin"));
            QTRY_COMPARE_WITH_TIMEOUT(client.socket().bytesAvailable(), 65536, 30000);
        }
        Client client(relayed.port());
        client.get("/");
        QCOMPARE(client.reply().status, 404);
        QVERIFY(!relayed.relay->allWereFetched());
        client.get(relayed.path("large.bin"));
        QCOMPARE(client.reply().body.size(), 16000000);
        QVERIFY(relayed.relay->allWereFetched());
    }

    void everyNameHasToBeFetched()
    {
        Relayed relayed;
        relayed.add("a.txt", "the same");
        relayed.add("b.txt", "the same");
        relayed.addListed("c.txt", "the same");
        relayed.start();
        QCOMPARE(fetchedFrom(urlOf(relayed, "a.txt")).body, QByteArray("the same"));
        QVERIFY(!relayed.relay->allWereFetched());
        QCOMPARE(fetchedFrom(urlOf(relayed, "c.txt")).status, 404);
        QCOMPARE(fetchedFrom(urlOf(relayed, "b.txt")).body, QByteArray("the same"));
        QVERIFY(relayed.relay->allWereFetched());
    }

    void withoutDownloadsAllIsFetched()
    {
        Relayed relayed;
        relayed.addListed("a.txt", "there already");
        relayed.start();
        QVERIFY(relayed.relay->allWereFetched());
    }

    // ---- Strange clients

    void otherMethodIsRefused_data()
    {
        QTest::addColumn<QByteArray>("request");
        row("HEAD", QByteArray("HEAD @ HTTP/1.1\r\n\r\n"));
        row("POST", QByteArray("POST @ HTTP/1.1\r\nContent-Length: 5\r\n\r\nhello"));
        row("POST without a body", QByteArray("POST @ HTTP/1.1\r\nContent-Length: 0\r\n\r\n"));
        row("PUT", QByteArray("PUT @ HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n0\r\n\r\n"));
        row("DELETE", QByteArray("DELETE @ HTTP/1.1\r\n\r\n"));
        row("OPTIONS", QByteArray("OPTIONS * HTTP/1.1\r\n\r\n"));
        row("CONNECT", QByteArray("CONNECT example.org:443 HTTP/1.1\r\n\r\n"));
        row("lower case", QByteArray("get @ HTTP/1.1\r\n\r\n"));
    }

    void otherMethodIsRefused()
    {
        QFETCH(QByteArray, request);
        Relayed relayed;
        relayed.add("a.txt", "contents");
        relayed.start();
        Client client(relayed.port());
        client.send(request.replace("@", relayed.path("a.txt")));
        const std::optional<QByteArray> rest = client.rest();
        QVERIFY(rest);
        QByteArray received = *rest;
        const std::optional<Reply> reply = takeReply(received);
        QVERIFY(reply);
        QCOMPARE(reply->status, 405);
        QVERIFY(reply->header.contains("\r\nAllow: GET"));
        QCOMPARE(reply->body, QByteArray());
        QCOMPARE(received, QByteArray()); // One answer, and nothing after it.
        QVERIFY(!relayed.relay->allWereFetched());
    }

    void nonsenseIsRefused_data()
    {
        QTest::addColumn<QByteArray>("request");
        row("one word", QByteArray("GET\r\n\r\n"));
        row("two words", QByteArray("GET @\r\n\r\n"));
        row("four words", QByteArray("GET @ b HTTP/1.1\r\n\r\n"));
        row("two spaces", QByteArray("GET  @ HTTP/1.1\r\n\r\n"));
        row("another protocol", QByteArray("GET @ RTSP/1.0\r\n\r\n"));
        row("HTTP/2", QByteArray("PRI * HTTP/2.0\r\n\r\n"));
        row("an empty line", QByteArray("\r\n\r\n"));
        row("bytes", QByteArray("\0\x01\x02\xff\r\n\r\n", 8));
    }

    void nonsenseIsRefused()
    {
        QFETCH(QByteArray, request);
        Relayed relayed;
        relayed.add("a.txt", "contents");
        relayed.start();
        Client client(relayed.port());
        client.send(request.replace("@", relayed.path("a.txt")) + "GET / HTTP/1.1\r\n\r\n");
        const std::optional<QByteArray> rest = client.rest();
        QVERIFY(rest);
        QByteArray received = *rest;
        const std::optional<Reply> reply = takeReply(received);
        QVERIFY(reply);
        QCOMPARE(reply->status, 400);
        QCOMPARE(received, QByteArray());
    }

    void longHeaderEndsTheConnection_data()
    {
        QTest::addColumn<int>("length");
        QTest::addColumn<bool>("answered");
        row("as long as allowed", 65536, true);
        row("one more", 65537, false);
        row("much longer", 1000000, false);
    }

    void longHeaderEndsTheConnection()
    {
        QFETCH(int, length);
        QFETCH(bool, answered);
        Relayed relayed;
        relayed.start();
        Client client(relayed.port());
        const QByteArray begin = "GET " + relayed.indexPath() + " HTTP/1.1\r\nX: ";
        const QByteArray end("\r\n\r\n");
        client.send(begin + QByteArray(length - begin.size() - end.size(), 'x') + end);
        if (answered)
            QCOMPARE(client.reply().body, versionFile);
        else
            QCOMPARE(client.rest(), std::optional<QByteArray>(""));
    }

    void longFirstLineEndsTheConnection()
    {
        Relayed relayed;
        relayed.start();
        Client client(relayed.port());
        client.send("GET /" + QByteArray(70000, 'x'));
        QCOMPARE(client.rest(), std::optional<QByteArray>(""));
    }

    void requestMayComeInPieces()
    {
        Relayed relayed;
        relayed.add("a.txt", "contents");
        relayed.start();
        Client client(relayed.port());
        client.socket().setSocketOption(QAbstractSocket::LowDelayOption, 1);
        const QByteArray request = "GET " + relayed.path("a.txt") + " HTTP/1.1\r\nHost: x\r\n\r\n";
        for (const char byte : request) {
            client.send(QByteArray(1, byte));
            QCoreApplication::processEvents();
        }
        QCOMPARE(client.reply().body, QByteArray("contents"));
    }

    void hostIsNotLookedAt_data()
    {
        QTest::addColumn<QByteArray>("lines");
        row("none", QByteArray(""));
        row("another", QByteArray("Host: updates.example\r\n"));
        row("two", QByteArray("Host: a\r\nHost: b\r\n"));
        row("other headers", QByteArray("Accept: */*\r\nRange: bytes=3-\r\nX\r\n: y\r\n"
                                        "If-None-Match: *\r\nContent-Length: 0\r\n"));
    }

    void hostIsNotLookedAt()
    {
        QFETCH(QByteArray, lines);
        Relayed relayed;
        relayed.add("a.txt", "contents");
        relayed.start();
        Client client(relayed.port());
        client.send("GET " + relayed.path("a.txt") + " HTTP/1.1\r\n" + lines + "\r\n");
        const Reply reply = client.reply();
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.body, QByteArray("contents"));
        QVERIFY(!client.isClosed());
    }

    void connectionIsUsedAgain()
    {
        Relayed relayed;
        for (int i = 0; i < 20; ++i)
            relayed.add(QString::number(i), QByteArray(i * 1000, 'x'));
        relayed.start();
        Client client(relayed.port());
        for (int i = 0; i < 20; ++i) {
            client.get(relayed.path(QByteArray::number(i)));
            const Reply reply = client.reply();
            QCOMPARE(reply.status, 200);
            QCOMPARE(reply.body.size(), i * 1000);
            QVERIFY(!client.isClosed());
        }
        QVERIFY(relayed.relay->allWereFetched());
    }

    void connectionEndsWhereTheClientWants_data()
    {
        QTest::addColumn<QByteArray>("request");
        row("Connection: close", QByteArray("GET @ HTTP/1.1\r\nConnection: close\r\n\r\n"));
        row("in another case", QByteArray("GET @ HTTP/1.1\r\nCONNECTION: Close\r\n\r\n"));
        row("HTTP/1.0", QByteArray("GET @ HTTP/1.0\r\n\r\n"));
        row("a body", QByteArray("GET @ HTTP/1.1\r\nContent-Length: 27\r\n\r\n"));
    }

    void connectionEndsWhereTheClientWants()
    {
        QFETCH(QByteArray, request);
        Relayed relayed;
        relayed.add("a.txt", QByteArray(1000000, 'x'));
        relayed.start();
        Client client(relayed.port());
        client.send(request.replace("@", relayed.path("a.txt")) +
                    "GET / HTTP/1.1\r\nHost: x\r\n\r\n");
        const Reply reply = client.reply();
        QCOMPARE(reply.status, 200);
        QCOMPARE(reply.body.size(), 1000000);
        QVERIFY(reply.header.contains("\r\nConnection: close"));
        QCOMPARE(client.rest(), std::optional<QByteArray>(""));
    }

    void requestsMayComeTogether()
    {
        Relayed relayed;
        relayed.addRemote("slow.txt", "slow contents",
                          HttpReply::hold(HttpReply::ok("slow contents")));
        relayed.add("large.bin", QByteArray(3000000, 'l'));
        relayed.start();
        Client client(relayed.port());
        QByteArray requests;
        for (const QByteArray& target :
             {relayed.indexPath(), relayed.path("large.bin"), QByteArray("/"),
              relayed.path("slow.txt"), relayed.path("large.bin"), relayed.indexPath()})
            requests += "GET " + target + " HTTP/1.1\r\n\r\n";
        client.send(requests);
        QCOMPARE(client.reply().body, versionFile);
        QCOMPARE(client.reply().body.size(), 3000000);
        QCOMPARE(client.reply().status, 404);
        QTRY_COMPARE(relayed.server.requests().size(), 1);
        relayed.server.release();
        QCOMPARE(client.reply().body, QByteArray("slow contents"));
        QCOMPARE(client.reply().body.size(), 3000000);
        QCOMPARE(client.reply().body, versionFile);
    }

    /// More requests than the relay takes at once.
    void manyRequestsMayComeTogether()
    {
        Relayed relayed;
        relayed.start();
        Client client(relayed.port());
        const QByteArray request =
            "GET " + relayed.indexPath() + " HTTP/1.1\r\nX: " + QByteArray(4900, 'x') + "\r\n\r\n";
        const int count = 100;
        QVERIFY(count * request.size() > 3 * 65536);
        client.send(request.repeated(count));
        for (int i = 0; i < count; ++i)
            QCOMPARE(client.reply().body, versionFile);
    }

    void slowClientTakesLittleMemory()
    {
        if (!ownprocess::isOne()) {
            // Else AddressSanitizer keeps what is freed.
            const QByteArray failure = ownprocess::failureOf(
                QTest::currentTestFunction(), {{"ASAN_OPTIONS", "quarantine_size_mb=1"}});
            QVERIFY2(failure.isNull(), failure.constData());
            return;
        }
        const qint64 size = 100000000;
        Relayed relayed;
        relayed.addZeros("large.bin", size);
        relayed.start();
        QTRY_VERIFY_WITH_TIMEOUT(relayed.isSettled(), 30000);
        const qint64 before = peakMemory();
        Client client(relayed.port());
        client.socket().setReadBufferSize(65536);
        client.get(relayed.path("large.bin"));
        qint64 received = 0;
        QEventLoop loop;
        QObject::connect(&client.socket(), &QTcpSocket::readyRead, &loop, [&] {
            received += client.socket().readAll().size();
            if (received >= size)
                loop.quit();
        });
        QTimer::singleShot(100000, &loop, &QEventLoop::quit);
        loop.exec();
        QVERIFY(received > size);
        const qint64 grown = peakMemory() - before;
        QVERIFY2(grown < 10000, qPrintable(QString("%1 KiB").arg(grown)));
    }

    void endOfTheRelayEndsItsConnections()
    {
        Relayed relayed;
        relayed.addRemote("slow.txt", "slow contents",
                          HttpReply::hold(HttpReply::ok("slow contents")));
        relayed.addZeros("large.bin", 16000000);
        relayed.start();
        Client idle(relayed.port());
        Client waiting(relayed.port());
        waiting.get(relayed.path("slow.txt"));
        Client reading(relayed.port());
        reading.socket().setReadBufferSize(1000);
        reading.get(relayed.path("large.bin"));
        QTRY_VERIFY(reading.socket().bytesAvailable() > 0);
        relayed.relay.reset();
        QCOMPARE(idle.rest(), std::optional<QByteArray>(""));
        QCOMPARE(waiting.rest(), std::optional<QByteArray>(""));
        relayed.server.release();
        QTRY_VERIFY(relayed.isSettled());
    }

    void relayThatCannotListenSaysWhy()
    {
        Relayed relayed;
        relayed.start();
        Relay other(versionFile, {}, *relayed.downloads);
        const NoDescriptorsLeft none;
        QString why;
        QVERIFY(!other.listen(why));
        QVERIFY(!why.isEmpty());
    }

    // ---- The updater

    void updaterInstallsThroughTheRelay()
    {
        Scene scene;
        const QByteArray program = scene.program.script("Editor 2.0");
        scene.publish({{Scene::exeName, program},
                       {"Contents/Info.txt", "the same"},
                       {"Contents/Resources/100% of it.txt", "with an odd name"},
                       {"Contents/Resources/a+b&c.txt", "with another one"},
                       {"Contents/Resources/large.bin", QByteArray(5000000, 'n')},
                       {"Contents/Resources/copy.bin", QByteArray(5000000, 'n')},
                       {"Contents/empty", ""}});
        scene.install({{Scene::exeName, scene.program.script("Editor 1.0")},
                       {"Contents/Info.txt", "the same"},
                       {"Contents/Resources/large.bin", QByteArray(5000000, 'o')}});
        Guarded guarded(scene);
        QCOMPARE(scene.update(guarded.relay.url()), 0);
        QCOMPARE(scene.missingOfTheUpdate(), QString());
        QVERIFY(guarded.relay.allWereFetched());
        QCOMPARE(guarded.downloads.failure(), QString());
        // Each of the contents once.
        QCOMPARE(guarded.server.requests().size(), 5);
    }

    void updaterReportsAFailedFile()
    {
        IN_OWN_PROCESS();
        Scene scene;
        scene.publish({{"a.txt", "new a"}, {"b.txt", "new b"}, {"c.txt", "new c"}});
        scene.install({{"a.txt", "old a"}, {"b.txt", "old b"}, {"c.txt", "old c"}});
        Guarded guarded(scene, "/b.txt");
        const MessageBoxes boxes;
        QCOMPARE(scene.updateHere(guarded.relay.url()), 1);
        QCOMPARE(boxes.summaries(),
                 QStringList(MessageBoxes::transferError(QNetworkReply::UnknownServerError)));
        QCOMPARE(scene.tracesBesides({"a.txt"}), QString());
        QVERIFY(!guarded.relay.allWereFetched());
        QCOMPARE(guarded.server.requestsFor("/b.txt"), 3);
    }

private:
    /// A server with the release of a scene, and the relay in front of it.
    class Guarded
    {
    public:
        /// @param missing a path that the server does not have
        explicit Guarded(const Scene& scene, const QString& missing = QString())
            : m_text(files::read(scene.releaseDir + "/index.txt"))
            , downloads({server.url("/index.txt"), m_dir.path(), 6, 60}, wanted(scene))
            , relay(m_text, tree::entriesOf(QString::fromLatin1(m_text)), downloads)
        {
            for (const ProgramFile& file : wanted(scene)) {
                const QUrl url(server.url('/' + file.name));
                server.serve(url.path(QUrl::FullyEncoded),
                             HttpReply::ok(scene.published[file.name]));
            }
            if (!missing.isEmpty())
                server.serve(missing, HttpReply::error(404));
            QString why;
            if (!relay.listen(why))
                qFatal("the relay does not listen: %s", qPrintable(why));
            downloads.start();
        }

    private:
        QVector<ProgramFile> wanted(const Scene& scene) const
        {
            const QStringList names = scene.wantedNames();
            QVector<ProgramFile> files;
            for (const ProgramFile& file : tree::entriesOf(QString::fromLatin1(m_text))) {
                if (names.contains(file.name))
                    files.append(file);
            }
            return files;
        }

        const QByteArray m_text;
        const TestDir m_dir;

    public:
        HttpServer server;
        Downloads downloads;
        Relay relay;
    };
};

UPDATER_TEST_MAIN(TestRelay)
#include "tst_relay.moc"
