// The ways to a server: over IPv6, and through the proxy that the user has set.

#include "tests/support/Authority.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TcpRelay.h"
#include "tests/support/TestMain.h"

namespace {

/// A name that nobody can look up.
const char* const elsewhere = "http://updates.example/editor";

/// A published release, and nothing installed. The test chooses the proxy.
class RoutedScene : public Scene
{
public:
    RoutedScene()
    {
        publish({{exeName, program.script("Editor 2.0")},
                 {"data.bin", QByteArray(300000, 'n')},
                 {"readme.txt", "of 2.0"}});
        for (const char* variable : {"http_proxy", "https_proxy", "all_proxy", "no_proxy"}) {
            updater.setEnvironment(variable, "");
            updater.setEnvironment(QString(variable).toUpper(), "");
        }
    }

    /// Updates from the release at @p url.
    int updateFrom(const QString& url) { return update(url + "/index.txt"); }
};

/// The inside of "http": @p dir on 127.0.0.1 and, where it is there, on ::1.
QByteArray siteOnLoopback(const QString& dir, quint16 port)
{
    const QByteArray number = QByteArray::number(port);
    return "server { listen 127.0.0.1:" + number + ";" +
           (sockets::hasIpv6() ? "listen [::1]:" + number + ";" : QByteArray()) + "root " +
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
        NEEDS_NGINX();
        NEEDS_IPV6();
        RoutedScene scene;
        const Nginx server("http",
                           [&](quint16 port) { return siteOnLoopback(scene.releaseDir, port); });
        QCOMPARE(scene.updateFrom(urlAt(server, "[::1]")), 0);
        QCOMPARE(server.requests(), scene.wantedPaths());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void updateComesThroughTheProxy()
    {
        RoutedScene scene;
        HttpServer proxy;
        scene.serveFrom(proxy, elsewhere);
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        QCOMPARE(scene.updateFrom(elsewhere), 0);
        QCOMPARE(proxy.requests(), scene.wantedPaths(elsewhere));
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void checkComesThroughTheProxy()
    {
        RoutedScene scene;
        HttpServer proxy;
        scene.serveFrom(proxy, elsewhere);
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        QCOMPARE(scene.check(QString(elsewhere) + "/index.txt"), HostProcess::reported("2.0"));
        QCOMPARE(proxy.requests(), QStringList{QString(elsewhere) + "/index.txt"});
    }

    /// The proxy only passes bytes on: the certificate is that of the server.
    void updateOverHttpsComesThroughTheProxy()
    {
        NEEDS_NGINX();
        NEEDS_PROGRAM("openssl");
        const Authority authority("Trusted authority");
        const TrustStore trustStore(authority);
        UNDER_TRUST(command, trustStore);
        RoutedScene scene;
        const Nginx server(scene.releaseDir,
                           authority.issueNamed("updates", "DNS:updates.example"));
        TcpRelay proxy(server.port());
        proxy.beProxy();
        scene.updater.setWrapper(*command);
        scene.updater.setEnvironment("https_proxy",
                                     QString("http://127.0.0.1:%1").arg(proxy.port()));
        QCOMPARE(scene.updateFrom("https://updates.example"), 0);
        QCOMPARE(proxy.targets(), QStringList{"updates.example:443"});
        QCOMPARE(server.requests(), scene.wantedPaths());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }

    void serverOnThisMachineIsAskedDirectly_data()
    {
        QTest::addColumn<QString>("host");
        for (const char* host : {"127.0.0.1", "localhost", "[::1]"})
            row(host, host);
    }

    void serverOnThisMachineIsAskedDirectly()
    {
        QFETCH(QString, host);
        NEEDS_NGINX();
        if (host.startsWith('['))
            NEEDS_IPV6();
        RoutedScene scene;
        const Nginx server("http",
                           [&](quint16 port) { return siteOnLoopback(scene.releaseDir, port); });
        HttpServer proxy;
        scene.serveFrom(proxy, urlAt(server, host));
        scene.updater.setEnvironment("http_proxy", proxy.url(""));
        QCOMPARE(scene.updateFrom(urlAt(server, host)), 0);
        QCOMPARE(proxy.requests(), QStringList());
        QCOMPARE(server.requests(), scene.wantedPaths());
        QCOMPARE(scene.missingOfTheUpdate(), QString());
    }
};

UPDATER_TEST_MAIN(TestRoutes)
#include "tst_routes.moc"
