// Updates over HTTP/2, served by nginx: whole ones, and what becomes of them when a stream or the
// connection ends too early. Qt 6 offers HTTP/2 over TLS; Qt 5.15 does not, and keeps to HTTP/1.1.
//
// Runs that show a message box happen inside the test, each in a process of its own; all others are
// runs of the real executable.

#include "tests/support/Authority.h"
#include "tests/support/HttpServer.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TcpRelay.h"
#include "tests/support/TestMain.h"

#include <QSslConfiguration>

#include <memory>

namespace {

/// By the updater, which is built with the same Qt as this test.
constexpr bool http2IsOffered = QT_VERSION >= QT_VERSION_CHECK(6, 0, 0);

#define NO_HTTP2 "Qt 5.15 does not offer HTTP/2"

/// The second file of the release, to which things happen, and how large it and the first are.
const char* const victim = "b.bin";
constexpr int firstSize = 100000;
constexpr int victimSize = 100000;

/// After so many bytes a connection is in the middle of the victim: the first connection of an
/// update, and one that begins with the victim. What else comes with the files is much less.
constexpr qint64 middleOfTheVictim = firstSize + victimSize / 2;
constexpr qint64 middleOfTheVictimAlone = victimSize / 2;

/// The inside of "http": a server that offers HTTP/2, with @p rules.
QByteArray site(const ServerCertificate& certificate, const QByteArray& rules, quint16 port)
{
    // From 1.25.1 on nginx has another line for HTTP/2. It takes this one, too.
    return QByteArray("  default_type application/octet-stream;\n"
                      "  server {\n"
                      "    listen 127.0.0.1:@port ssl http2;\n"
                      "    ssl_certificate @certificate;\n"
                      "    ssl_certificate_key @key;\n"
                      "    @rules\n"
                      "  }\n")
        .replace("@port", QByteArray::number(port))
        .replace("@certificate", QFile::encodeName(certificate.certificate))
        .replace("@key", QFile::encodeName(certificate.key))
        .replace("@rules", rules);
}

QByteArray rootAt(const QString& dir)
{
    return "root " + QFile::encodeName(dir) + ";";
}

QStringList protocolsOf(const Nginx& server)
{
    QStringList protocols;
    const QList<Nginx::Request> log = server.log();
    for (const Nginx::Request& request : log)
        protocols.append(request.protocol);
    protocols.removeDuplicates();
    return protocols;
}

/// How many requests came over each connection, in the order of the connections.
QList<int> requestsPerConnection(const Nginx& server)
{
    QMap<int, int> counts;
    const QList<Nginx::Request> log = server.log();
    for (const Nginx::Request& request : log)
        ++counts[request.connection];
    return counts.values();
}

/// A published release, and an old installation.
class Http2Scene : public Scene
{
public:
    /// The release has @p further files besides those that most tests look at.
    explicit Http2Scene(const Tree& further = {})
    {
        Tree tree{{"a.bin", QByteArray(firstSize, 'a')},
                  {victim, QByteArray(victimSize, 'b')},
                  {exeName, program.script("Editor 2.0")},
                  {"empty.txt", ""},
                  {"last.bin", QByteArray(3000000, 'l')}};
        for (auto file = further.begin(); file != further.end(); ++file)
            tree.insert(file.key(), file.value());
        publish(tree);
        install({{"a.bin", "old"}, {"own.txt", "not in the release"}});
    }
};

/// What breaks a transfer.
enum class Break { Stream, StreamAtOnce, ConnectionClosed, ConnectionReset };

} // namespace

Q_DECLARE_METATYPE(Break)
Q_DECLARE_METATYPE(TcpRelay::Ending)

class TestHttp2 : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_NGINX();
        NEEDS_PROGRAM("openssl");
        m_authority = std::make_unique<Authority>("Trusted authority");
        m_certificate = m_authority->issueNamed("updates", "IP:127.0.0.1");
        m_trustStore = std::make_unique<TrustStore>(*m_authority);
        UNDER_TRUST(command, *m_trustStore);
        m_command = *command;
        // As in the program: a box that closes ends nothing.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    // ---- Whole updates

    void updateUsesHttp2WhereQtOffersIt_data()
    {
        QTest::addColumn<QByteArray>("rules");
        row("as they are", QByteArray());
        row("packed", QByteArray("gzip on; gzip_types *; gzip_min_length 1;"));
    }

    void updateUsesHttp2WhereQtOffersIt()
    {
        QFETCH(QByteArray, rules);
        Http2Scene scene;
        const auto server = serve(rootAt(scene.releaseDir) + rules);
        QCOMPARE(run(scene, server->url("/index.txt")), 0);
        QCOMPARE(protocolsOf(*server), QStringList{http2IsOffered ? "HTTP/2.0" : "HTTP/1.1"});
        QCOMPARE(server->requests(), scene.wantedPaths());
        QCOMPARE(requestsPerConnection(*server), QList<int>{6});
        QCOMPARE(scene.missingOfTheUpdate(), QString());
        QCOMPARE(scene.updater.output(), QByteArray());
    }

    void moreThanAThousandFilesComeOverOneConnection()
    {
        constexpr int fileCount = 1100;
        Tree further;
        for (int i = 0; i < fileCount - 5; ++i)
            further.insert(QString("many/%1.txt").arg(i), QByteArray::number(i));
        Http2Scene scene(further);
        const auto server = serve(rootAt(scene.releaseDir) + "keepalive_requests 10000;");
        QCOMPARE(run(scene, server->url("/index.txt")), 0);
        QCOMPARE(protocolsOf(*server), QStringList{http2IsOffered ? "HTTP/2.0" : "HTTP/1.1"});
        QCOMPARE(server->requests(), scene.wantedPaths());
        QCOMPARE(requestsPerConnection(*server), QList<int>{fileCount + 1});
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    // ---- Streams that break; the connection goes on

    void versionFileOfABrokenStreamIsUnreadable()
    {
        if (!http2IsOffered)
            QSKIP(NO_HTTP2);
        Http2Scene scene;
        const QByteArray index = files::read(scene.releaseDir + "/index.txt");
        HttpServer upstream;
        upstream.serve("/index.txt",
                       HttpReply::cutShort(index, static_cast<int>(index.size()) / 2));
        const auto server = serve(passedTo(upstream));
        scene.exe = scene.dir / "bin/Editor";
        scene.program.install(scene.exe, "Editor 1.0");
        QCOMPARE(run(scene, server->url("/index.txt")), 0);
        QCOMPARE(protocolsOf(*server), QStringList{"HTTP/2.0"});
        QCOMPARE(server->requests(), QStringList{"/index.txt"});
        QTRY_COMPARE(scene.program.starts(),
                     QStringList{"Editor 1.0|" + (scene.dir / "bin") + "|"});
        QCOMPARE(scene.differencesFrom(scene.installed), QString());
    }

    void fileOfABrokenStreamIsFetchedAgain_data()
    {
        QTest::addColumn<int>("times");
        row("once", 1);
        row("twice", 2);
    }

    void fileOfABrokenStreamIsFetchedAgain()
    {
        if (!http2IsOffered)
            QSKIP(NO_HTTP2);
        QFETCH(int, times);
        Http2Scene scene;
        HttpServer upstream;
        scene.serveFrom(upstream);
        const QByteArray body = scene.published[victim];
        QList<HttpReply> replies;
        QStringList paths = scene.wantedPaths();
        for (int i = 0; i < times; ++i) {
            replies.append(HttpReply::cutShort(body, victimSize / 2));
            paths.insert(paths.indexOf(pathOfVictim()), pathOfVictim());
        }
        upstream.serveInTurn(pathOfVictim(), replies << HttpReply::ok(body));
        const auto server = serve(passedTo(upstream));
        QCOMPARE(run(scene, server->url("/index.txt")), 0);
        QCOMPARE(protocolsOf(*server), QStringList{"HTTP/2.0"});
        QCOMPARE(server->requests(), paths);
        QCOMPARE(requestsPerConnection(*server), QList<int>{static_cast<int>(paths.size())});
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    // ---- Connections that break

    void droppedConnectionIsReplaced_data()
    {
        QTest::addColumn<TcpRelay::Ending>("ending");
        QTest::addColumn<int>("times");
        row("closed once", TcpRelay::Close, 1);
        row("closed twice", TcpRelay::Close, 2);
        row("reset once", TcpRelay::Reset, 1);
        row("reset twice", TcpRelay::Reset, 2);
    }

    void droppedConnectionIsReplaced()
    {
        if (!http2IsOffered)
            QSKIP(NO_HTTP2);
        QFETCH(TcpRelay::Ending, ending);
        QFETCH(int, times);
        Http2Scene scene;
        const auto server = serve(rootAt(scene.releaseDir));
        TcpRelay relay(server->port());
        relay.cut(cuts(times), ending);
        QCOMPARE(run(scene, through(relay)), 0);
        QCOMPARE(protocolsOf(*server), QStringList{"HTTP/2.0"});
        QStringList paths = scene.wantedPaths();
        for (int i = 0; i < times; ++i)
            paths.insert(paths.indexOf(pathOfVictim()), pathOfVictim());
        QCOMPARE(server->requests(), paths);
        QCOMPARE(relay.connections(), 1 + times);
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    // ---- Three in a row

    void threeBrokenTransfersEndTheUpdate_data()
    {
        QTest::addColumn<Break>("cause");
        QTest::addColumn<int>("code");
        // The stream ends with "internal error", which Qt takes for one of the server.
        row("streams reset in the body", Break::Stream, 401);
        row("streams reset before the reply", Break::StreamAtOnce, 399);
        row("connections closed in the body", Break::ConnectionClosed, 2);
        row("connections reset in the body", Break::ConnectionReset, 2);
    }

    void threeBrokenTransfersEndTheUpdate()
    {
        if (!http2IsOffered)
            QSKIP(NO_HTTP2);
        IN_OWN_PROCESS();
        QFETCH(Break, cause);
        QFETCH(int, code);
        trustAuthorityHere();
        Http2Scene scene;
        HttpServer upstream;
        scene.serveFrom(upstream);
        upstream.serve(pathOfVictim(),
                       HttpReply::cutShort(scene.published[victim], victimSize / 2));
        const bool streams = cause == Break::Stream || cause == Break::StreamAtOnce;
        QByteArray rules = streams ? passedTo(upstream) : rootAt(scene.releaseDir);
        if (cause == Break::StreamAtOnce)
            rules += "location = " + pathOfVictim().toUtf8() + " { return 444; }";
        const auto server = serve(rules);
        TcpRelay relay(server->port());
        if (!streams)
            relay.cut(cuts(3), cause == Break::ConnectionReset ? TcpRelay::Reset : TcpRelay::Close);
        const MessageBoxes boxes;

        QCOMPARE(scene.updateHere(through(relay)), 1);

        QCOMPARE(boxes.summaries(), QStringList{MessageBoxes::transferError(code)});
        QCOMPARE(protocolsOf(*server), QStringList{"HTTP/2.0"});
        QCOMPARE(server->requests(), QStringList({"/index.txt", "/a.bin", pathOfVictim(),
                                                  pathOfVictim(), pathOfVictim()}));
        QCOMPARE(relay.connections(), streams ? 1 : 3);
        QCOMPARE(scene.tracesBesides({"a.bin"}), QString());
    }

    // ---- Connections that the server ends between two files

    void connectionThatTheServerEndsIsReplacedOrTheUpdateStays_data()
    {
        QTest::addColumn<bool>("endIsHidden");
        row("ended at once", false);
        row("end is long under way", true);
    }

    /// When a server wants no more requests on a connection, it says so (GOAWAY), answers the last
    /// one and ends the connection. Qt loses a request that is made in between: it is neither sent
    /// nor reported, and the update stays at that file until the user presses Cancel. When the end
    /// follows at once, it is chance which of the two comes first. Over HTTP/1.1 the last answer
    /// says "Connection: close", and Qt makes a new connection.
    void connectionThatTheServerEndsIsReplacedOrTheUpdateStays()
    {
        QFETCH(bool, endIsHidden);
        constexpr int perConnection = 3;
        Http2Scene scene;
        const auto server = serve(rootAt(scene.releaseDir) + "ssl_protocols TLSv1.2;" +
                                  "keepalive_requests " + QByteArray::number(perConnection) + ";");
        TcpRelay relay(server->port());
        if (endIsHidden)
            relay.hideEnds();
        start(scene, through(relay));

        const bool ended = endsOrStays(scene.updater, *server);

        if (!http2IsOffered)
            QVERIFY(ended);
        else if (endIsHidden && QT_VERSION < QT_VERSION_CHECK(6, 9, 0)) // Later ones: not known.
            QVERIFY(!ended);
        const QStringList requests = server->requests();
        if (ended) {
            QCOMPARE(scene.updater.exitStatus(), 0);
            QCOMPARE(requests, scene.wantedPaths());
            QCOMPARE(requestsPerConnection(*server), QList<int>({perConnection, perConnection}));
            QCOMPARE(scene.missingOfTheUpdate(), QString());
        } else {
            QCOMPARE(requests, scene.wantedPaths().mid(0, perConnection));
            QCOMPARE(scene.tracesBesides({"a.bin", victim}), QString());
        }
    }

private:
    static QString pathOfVictim() { return QString("/") + victim; }

    static QByteArray passedTo(const HttpServer& upstream)
    {
        return "location / { proxy_pass " + upstream.url("").toUtf8() + "; }";
    }

    static QList<qint64> cuts(int times)
    {
        return QList<qint64>{middleOfTheVictim, middleOfTheVictimAlone, middleOfTheVictimAlone}.mid(
            0, times);
    }

    static QString through(const TcpRelay& relay)
    {
        return QString("https://127.0.0.1:%1/index.txt").arg(relay.port());
    }

    std::unique_ptr<Nginx> serve(const QByteArray& rules) const
    {
        return std::make_unique<Nginx>(
            "https", [=](quint16 port) { return site(m_certificate, rules, port); });
    }

    void trustAuthorityHere() const
    {
        QSslConfiguration configuration = QSslConfiguration::defaultConfiguration();
        QVERIFY(configuration.addCaCertificates(m_authority->certificate()));
        QSslConfiguration::setDefaultConfiguration(configuration);
    }

    /// Starts an update where the one authority is trusted.
    void start(Scene& scene, const QString& url) const
    {
        scene.updater.setWrapper(m_command);
        scene.updater.start(scene.updateOptions(url));
    }

    int run(Scene& scene, const QString& url) const
    {
        scene.updater.setWrapper(m_command);
        return scene.update(url);
    }

    /// Waits until @p updater has ended, or asks @p server for nothing more.
    /// @return True when it has ended.
    static bool endsOrStays(UpdaterProcess& updater, const Nginx& server)
    {
        qsizetype before = 0;
        for (int waits = 0; waits < 20; ++waits) {
            if (updater.waitForEnd(3000))
                return true;
            const qsizetype now = server.requests().size();
            if (now > 0 && now == before)
                return false;
            before = now;
        }
        return false;
    }

    std::unique_ptr<Authority> m_authority;
    ServerCertificate m_certificate;
    std::unique_ptr<TrustStore> m_trustStore;
    QStringList m_command;
};

UPDATER_TEST_MAIN(TestHttp2)
#include "tst_http2.moc"
