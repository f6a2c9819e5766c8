// A whole update over https: a release served by nginx under a certificate that the updater trusts,
// and under several that it must refuse.

#include "tests/support/Authority.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"

#include <memory>

namespace {

/// What is wrong with a certificate.
enum class Flaw {
    None,
    OtherAuthority,
    SelfSigned,
    Expired,
    NotYetValid,
    OtherName,
    LongerCommonName,
    NoName
};

ServerCertificate selfSigned(const TestDir& dir)
{
    const ServerCertificate server{dir / "self.pem", dir / "self.key"};
    mustRun({"openssl", "req", "-x509", "-newkey", "ec", "-pkeyopt", "ec_paramgen_curve:prime256v1",
             "-nodes", "-days", "2", "-subj", "/CN=127.0.0.1", "-addext",
             "subjectAltName=IP:127.0.0.1", "-keyout", server.key, "-out", server.certificate});
    return server;
}

Tree publishedTree(const RelaunchedProgram& program)
{
    return {{Scene::exeName, program.script("Editor 2.0")},
            {"Contents/Resources/data.bin", QByteArray(300000, 'n')},
            {"readme.txt", "of 2.0"}};
}

} // namespace

Q_DECLARE_METATYPE(Flaw)

class TestTls : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_NGINX();
        NEEDS_PROGRAM("openssl");
        m_other = std::make_unique<Authority>("Other authority");
        m_trusted = std::make_unique<Authority>("Trusted authority");
        m_trustStore = std::make_unique<TrustStore>(*m_trusted);
        UNDER_TRUST(command, *m_trustStore);
        m_command = *command;
    }

    void init()
    {
        m_scene = std::make_unique<Scene>();
        m_scene->publish(publishedTree(m_scene->program));
        m_scene->updater.setWrapper(m_command);
    }

    void cleanup() { m_scene.reset(); }

    void trustedServerUpdatesTheProgram()
    {
        const Nginx server(m_scene->releaseDir, certificate(Flaw::None));

        QCOMPARE(m_scene->update(server.url("/index.txt")), 0);

        QCOMPARE(server.requests(), QStringList({"/index.txt", QString("/") + Scene::exeName,
                                                 "/Contents/Resources/data.bin", "/readme.txt"}));
        QCOMPARE(m_scene->missingOfTheUpdate(), QString());
        QCOMPARE(m_scene->program.starts(), QStringList{m_scene->startOf("Editor 2.0")});
    }

    void trustedServerIsReported()
    {
        const Nginx server(m_scene->releaseDir, certificate(Flaw::None));
        QCOMPARE(m_scene->check(server.url("/index.txt")), HostProcess::reported("2.0"));
        QCOMPARE(server.requests(), QStringList{"/index.txt"});
    }

    void eitherKindOfNameIsEnough_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("commonName");
        QTest::addColumn<QString>("altNames");
        const QString others = "IP:127.0.0.2,DNS:downloads.example.org";
        for (const char* host : {"127.0.0.1", "localhost"}) {
            const QString name(host);
            row(name + ", common name alone", name, name, QString());
            row(name + ", common name beside alternative names of others", name, name, others);
            row(name + ", alternative name alone", name, QString("updates"), "DNS:" + name);
        }
        row("address as such", QString("127.0.0.1"), QString("updates"), QString("IP:127.0.0.1"));
    }

    /// Where a certificate has alternative names, the common name does not count by the rules of
    /// the web (RFC 6125). For Qt it does.
    void eitherKindOfNameIsEnough()
    {
        QFETCH(QString, host);
        QFETCH(QString, commonName);
        QFETCH(QString, altNames);
        const Nginx server(m_scene->releaseDir, m_trusted->issueNamed(commonName, altNames));

        QCOMPARE(m_scene->update(server.url("/index.txt").replace("127.0.0.1", host)), 0);

        QCOMPARE(server.requests().size(), 4);
        QCOMPARE(m_scene->missingOfTheUpdate(), QString());
    }

    void distrustedServerUpdatesNothing_data() { addFlaws(); }

    /// As after a failed transfer of the version file: the program is started again.
    void distrustedServerUpdatesNothing()
    {
        QFETCH(Flaw, flaw);
        const Nginx server(m_scene->releaseDir, certificate(flaw));
        m_scene->install({{"readme.txt", "of 1.0"}});
        m_scene->exe = m_scene->dir / "bin/Editor";
        m_scene->program.install(m_scene->exe, "Editor 1.0");

        QCOMPARE(m_scene->update(server.url("/index.txt")), 0);

        QCOMPARE(server.requests(), QStringList());
        QCOMPARE(m_scene->differencesFrom(m_scene->installed), QString());
        QCOMPARE(m_scene->leftBehind(), QStringList{"wUp/"});
        QTRY_COMPARE(m_scene->program.starts(),
                     QStringList{"Editor 1.0|" + (m_scene->dir / "bin") + "|"});
    }

    void distrustedServerIsReportedAsUnreadable_data() { addFlaws(); }

    void distrustedServerIsReportedAsUnreadable()
    {
        QFETCH(Flaw, flaw);
        const Nginx server(m_scene->releaseDir, certificate(flaw));
        QCOMPARE(m_scene->check(server.url("/index.txt")), HostProcess::reported(""));
        QCOMPARE(server.requests(), QStringList());
    }

private:
    static void addFlaws()
    {
        QTest::addColumn<Flaw>("flaw");
        row("signed by an authority that is not trusted", Flaw::OtherAuthority);
        row("signed by itself", Flaw::SelfSigned);
        row("expired", Flaw::Expired);
        row("not yet valid", Flaw::NotYetValid);
        row("issued for another name", Flaw::OtherName);
        row("common name that only begins with it", Flaw::LongerCommonName);
        row("issued for no name", Flaw::NoName);
    }

    ServerCertificate certificate(Flaw flaw) const
    {
        const QString host = "IP:127.0.0.1";
        const char* const past = "20200101000000Z";
        const char* const nearPast = "20200201000000Z";
        const char* const future = "20480101000000Z";
        const char* const farFuture = "20490101000000Z";
        switch (flaw) {
        case Flaw::None:
            return m_trusted->issue(host, past, future);
        case Flaw::OtherAuthority:
            return m_other->issue(host, past, future);
        case Flaw::SelfSigned:
            return selfSigned(m_scene->dir);
        case Flaw::Expired:
            return m_trusted->issue(host, past, nearPast);
        case Flaw::NotYetValid:
            return m_trusted->issue(host, future, farFuture);
        case Flaw::OtherName:
            return m_trusted->issue("IP:127.0.0.2,DNS:downloads.example.org", past, future);
        case Flaw::LongerCommonName:
            return m_trusted->issueNamed("127.0.0.1.example.org", QString());
        case Flaw::NoName:
            return m_trusted->issueNamed("updates", QString());
        }
        return {};
    }

    std::unique_ptr<Authority> m_trusted;
    std::unique_ptr<Authority> m_other;
    std::unique_ptr<TrustStore> m_trustStore;
    QStringList m_command;
    std::unique_ptr<Scene> m_scene;
};

UPDATER_TEST_MAIN(TestTls)
#include "tst_tls.moc"
