// The ways to a server: over IPv6, and through the proxy that the user has set.

#include "tests/support/Authority.h"
#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Nginx.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Relay.h"
#include "tests/support/Release.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QStandardPaths>
#include <QTcpServer>

#include <memory>

namespace {

const char* const exeName = "Contents/MacOS/Editor";

/// A name that nobody can look up.
const char* const elsewhere = "http://updates.example/editor";

bool hasIpv6()
{
    QTcpServer server;
    return server.listen(QHostAddress::LocalHostIPv6);
}

#define NO_IPV6 "there is no ::1 here"

/// A publisher, and a user with nothing installed yet.
class Scene
{
public:
    Scene()
    {
        published = {{exeName, program.script("Editor 2.0")},
                     {"data.bin", QByteArray(300000, 'n')},
                     {"readme.txt", "of 2.0"}};
        release::lay(published, releaseDir);
        release::describe(releaseDir, "Editor", "2.0");
        files::makeDirectory(installDir);
        files::write(tmpDir + "/keep", ""); // Else an emptied temporary directory would go, too.
        updater.setEnvironment("TMPDIR", tmpDir);
        // The test's own choice of a proxy, and none of the user's.
        for (const char* variable : {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}) {
            updater.setEnvironment(variable, "");
            updater.setEnvironment(QString(variable).toUpper(), "");
        }
    }

    /// Puts the release onto @p server, which knows it below @p url.
    void serveFrom(HttpServer& server, const QString& url) const
    {
        for (const QString& name : wantedNames())
            server.serve(url + '/' + name, HttpReply::ok(files::read(releaseDir + '/' + name)));
    }

    /// What an update asks for, in this order.
    static QStringList wantedNames() { return {"index.txt", exeName, "data.bin", "readme.txt"}; }

    /// What an update asks for below @p url.
    static QStringList wantedBelow(const QString& url)
    {
        QStringList urls = wantedNames();
        for (QString& name : urls)
            name.prepend(url + '/');
        return urls;
    }

    int update(const QString& url)
    {
        return updater.run(
            {"-u", "-n", "Editor", "-d", installDir, "-v", "1.0", "-l", url + "/index.txt"});
    }

    /// What differs from a finished update; nothing when nothing does.
    QString missingOfTheUpdate() const
    {
        QStringList lines = release::differences(release::read(installDir), published);
        if (!QTest::qWaitFor([this] { return !program.starts().isEmpty(); }, 30000))
            lines += "the program was not started";
        return lines.join('\n');
    }

    const TestDir dir;
    const QString releaseDir = dir / "release";
    const QString installDir = dir / "installed";
    const QString tmpDir = dir / "tmp";
    const RelaunchedProgram program;
    Tree published;
    UpdaterProcess updater;
};

/// The inside of "http": @p dir on 127.0.0.1 and, where it is there, on ::1.
QByteArray siteOnLoopback(const QString& dir, quint16 port)
{
    const QByteArray number = QByteArray::number(port);
    return "server { listen 127.0.0.1:" + number + ";" +
           (hasIpv6() ? "listen [::1]:" + number + ";" : QByteArray()) + "root " +
           QFile::encodeName(dir) + "; }\n";
}

/// The URL of @p server under another name of this machine.
QString urlAt(const Nginx& server, const QString& host)
{
    return QString("http://%1:%2").arg(host).arg(server.port());
}

} // namespace

class TestRoutes : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void updateComesOverIpv6()
    {
        if (!Nginx::isInstalled())
            QSKIP("nginx is not installed");
        if (!hasIpv6())
            QSKIP(NO_IPV6);
        Scene scene;
        const Nginx server("http",
                           [&](quint16 port) { return siteOnLoopback(scene.releaseDir, port); });
        QCOMPARE(scene.update(urlAt(server, "[::1]")), 0);
        QCOMPARE(server.requests(), Scene::wantedBelow(""));
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void updateComesThroughTheProxy()
    {
        Scene scene;
        HttpServer proxy;
        scene.serveFrom(proxy, elsewhere);
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        QCOMPARE(scene.update(elsewhere), 0);
        QCOMPARE(proxy.requests(), Scene::wantedBelow(elsewhere));
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void checkComesThroughTheProxy()
    {
        Scene scene;
        HttpServer proxy;
        scene.serveFrom(proxy, elsewhere);
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        const ScopedTmpDir tmp(scene.tmpDir);
        HostProcess host(16);
        QCOMPARE(scene.updater.run({"-c", "-n", "Editor", "-v", "1.0", "-l",
                                    QString(elsewhere) + "/index.txt", "-s", host.key()}),
                 0);
        QCOMPARE(proxy.requests(), QStringList{QString(elsewhere) + "/index.txt"});
        QCOMPARE(host.dump(), QByteArray("2.0\0"
                                         "0\0",
                                         6)
                                  .leftJustified(16, '\0'));
    }

    /// The proxy only passes bytes on: the certificate is that of the server.
    void updateOverHttpsComesThroughTheProxy()
    {
        if (!Nginx::isInstalled())
            QSKIP("nginx is not installed");
        if (QStandardPaths::findExecutable("openssl").isEmpty())
            QSKIP("openssl is not installed");
        const Authority authority("Trusted authority");
        const TrustStore trustStore(authority);
        const auto command = trustStore.command();
        if (!command)
            QSKIP("no private mount namespace is allowed here");
        Scene scene;
        const Nginx server(scene.releaseDir,
                           authority.issueNamed("updates", "DNS:updates.example"));
        Relay proxy(server.port());
        proxy.beProxy();
        scene.updater.setWrapper(*command);
        scene.updater.setEnvironment("https_proxy",
                                     QString("http://127.0.0.1:%1").arg(proxy.port()));
        QCOMPARE(scene.update("https://updates.example"), 0);
        QCOMPARE(proxy.targets(), QStringList{"updates.example:443"});
        QCOMPARE(server.requests(), Scene::wantedBelow(""));
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void serverOnThisMachineIsAskedDirectly_data()
    {
        QTest::addColumn<QString>("host");
        for (const char* host : {"127.0.0.1", "localhost", "[::1]"})
            QTest::newRow(host) << host;
    }

    void serverOnThisMachineIsAskedDirectly()
    {
        QFETCH(QString, host);
        if (!Nginx::isInstalled())
            QSKIP("nginx is not installed");
        if (host.startsWith('[') && !hasIpv6())
            QSKIP(NO_IPV6);
        Scene scene;
        const Nginx server("http",
                           [&](quint16 port) { return siteOnLoopback(scene.releaseDir, port); });
        HttpServer proxy;
        scene.serveFrom(proxy, urlAt(server, host));
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        QCOMPARE(scene.update(urlAt(server, host)), 0);
        QCOMPARE(proxy.requests(), QStringList());
        QCOMPARE(server.requests(), Scene::wantedBelow(""));
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }
};

UPDATER_TEST_MAIN(TestRoutes)
#include "tst_routes.moc"
