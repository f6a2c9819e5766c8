// The whole road over https: a release served by nginx under a certificate that the updater trusts,
// and under several that it must refuse.

#include "tests/support/Authority.h"
#include "tests/support/HostProcess.h"
#include "tests/support/Nginx.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Release.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QStandardPaths>

#include <memory>

namespace {

const char* const exeName = "Contents/MacOS/Editor";

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
    return {{exeName, program.script("Editor 2.0")},
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
        if (!Nginx::isInstalled())
            QSKIP("nginx is not installed");
        if (QStandardPaths::findExecutable("openssl").isEmpty())
            QSKIP("openssl is not installed");
        m_other = std::make_unique<Authority>("Other authority");
        m_trusted = std::make_unique<Authority>("Trusted authority");
        m_trustStore = std::make_unique<TrustStore>(*m_trusted);
        const auto command = m_trustStore->command();
        if (!command)
            QSKIP("no private mount namespace is allowed here");
        m_command = *command;
    }

    void init()
    {
        m_scene = std::make_unique<TestDir>();
        m_program = std::make_unique<RelaunchedProgram>();
        files::makeDirectory(installDir());
        files::write(tmpDir() + "/keep", ""); // Else an emptied temporary directory would go, too.
        release::lay(publishedTree(*m_program), releaseDir());
        release::describe(releaseDir(), "Editor", "2.0");
    }

    void cleanup() { m_program.reset(); }

    void trustedServerUpdatesTheProgram()
    {
        const Nginx server(releaseDir(), certificate(Flaw::None));

        QCOMPARE(run({"-u", "-n", "Editor", "-d", installDir(), "-v", "1.0", "-l",
                      server.url("/index.txt")}),
                 0);

        QCOMPARE(server.requests(), QStringList({"/index.txt", QString("/") + exeName,
                                                 "/Contents/Resources/data.bin", "/readme.txt"}));
        QCOMPARE(release::differences(release::read(installDir()), publishedTree(*m_program)),
                 QStringList());
        QCOMPARE(files::list(tmpDir()), QStringList{"keep"});
        QTRY_COMPARE(m_program->starts(),
                     QStringList{"Editor 2.0|" + installDir() + "/Contents/MacOS|"});
    }

    void trustedServerIsReported()
    {
        const Nginx server(releaseDir(), certificate(Flaw::None));
        QCOMPARE(checkedReport(server), QByteArray("2.0\0"
                                                   "0\0",
                                                   6)
                                            .leftJustified(16, '\0'));
        QCOMPARE(server.requests(), QStringList{"/index.txt"});
    }

    void eitherKindOfNameIsEnough_data()
    {
        QTest::addColumn<QString>("host");
        QTest::addColumn<QString>("commonName");
        QTest::addColumn<QString>("altNames");
        const QString others = "IP:127.0.0.2,DNS:downloads.example.org";
        for (const char* host : {"127.0.0.1", "localhost"}) {
            QTest::addRow("%s, common name alone", host) << host << host << QString();
            QTest::addRow("%s, common name beside alternative names of others", host)
                << host << host << others;
            QTest::addRow("%s, alternative name alone", host)
                << host << "updates" << QString(host).prepend("DNS:");
        }
        QTest::newRow("address as such") << "127.0.0.1"
                                         << "updates"
                                         << "IP:127.0.0.1";
    }

    /// Where a certificate has alternative names, the common name does not count by the rules of
    /// the web (RFC 6125). For Qt it does.
    void eitherKindOfNameIsEnough()
    {
        QFETCH(QString, host);
        QFETCH(QString, commonName);
        QFETCH(QString, altNames);
        const Nginx server(releaseDir(), m_trusted->issueNamed(commonName, altNames));

        QCOMPARE(run({"-u", "-n", "Editor", "-d", installDir(), "-v", "1.0", "-l",
                      server.url("/index.txt").replace("127.0.0.1", host)}),
                 0);

        QCOMPARE(server.requests().size(), 4);
        QCOMPARE(release::differences(release::read(installDir()), publishedTree(*m_program)),
                 QStringList());
    }

    void distrustedServerUpdatesNothing_data() { addFlaws(); }

    /// As after a failed transfer of the version file: the program is started again.
    void distrustedServerUpdatesNothing()
    {
        QFETCH(Flaw, flaw);
        const Nginx server(releaseDir(), certificate(flaw));
        files::write(installDir() + "/readme.txt", "of 1.0");
        const Tree installed = release::read(installDir());
        m_program->install(*m_scene / "bin/Editor", "Editor 1.0");

        QCOMPARE(run({"-u", "-n", "Editor", "-d", installDir(), "-v", "1.0", "-l",
                      server.url("/index.txt"), "-x", *m_scene / "bin/Editor"}),
                 0);

        QCOMPARE(server.requests(), QStringList());
        QCOMPARE(release::differences(release::read(installDir()), installed), QStringList());
        QCOMPARE(files::list(tmpDir()), QStringList({"keep", "wUp/"}));
        QTRY_COMPARE(m_program->starts(), QStringList{"Editor 1.0|" + (*m_scene / "bin") + "|"});
    }

    void distrustedServerIsReportedAsUnreadable_data() { addFlaws(); }

    void distrustedServerIsReportedAsUnreadable()
    {
        QFETCH(Flaw, flaw);
        const Nginx server(releaseDir(), certificate(flaw));
        QCOMPARE(checkedReport(server), QByteArray("\0"
                                                   "0\0",
                                                   3)
                                            .leftJustified(16, '\0'));
        QCOMPARE(server.requests(), QStringList());
    }

private:
    static void addFlaws()
    {
        QTest::addColumn<Flaw>("flaw");
        QTest::newRow("signed by an authority that is not trusted") << Flaw::OtherAuthority;
        QTest::newRow("signed by itself") << Flaw::SelfSigned;
        QTest::newRow("expired") << Flaw::Expired;
        QTest::newRow("not yet valid") << Flaw::NotYetValid;
        QTest::newRow("issued for another name") << Flaw::OtherName;
        QTest::newRow("common name that only begins with it") << Flaw::LongerCommonName;
        QTest::newRow("issued for no name") << Flaw::NoName;
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
            return selfSigned(*m_scene);
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

    QString releaseDir() const { return *m_scene / "release"; }
    QString installDir() const { return *m_scene / "installed/Editor.app"; }
    QString tmpDir() const { return *m_scene / "tmp"; }

    /// Runs the updater where the one authority is trusted, with a temporary directory of its own.
    int run(const QStringList& options) const
    {
        UpdaterProcess updater;
        updater.setWrapper(m_command);
        updater.setEnvironment("TMPDIR", tmpDir());
        return updater.run(options);
    }

    /// What a check leaves in the segment of a host; nothing when the check fails.
    QByteArray checkedReport(const Nginx& server) const
    {
        const ScopedTmpDir tmp(tmpDir());
        HostProcess host(16);
        const int status = run(
            {"-c", "-n", "Editor", "-v", "1.0", "-l", server.url("/index.txt"), "-s", host.key()});
        return status == 0 ? host.dump() : QByteArray();
    }

    std::unique_ptr<Authority> m_trusted;
    std::unique_ptr<Authority> m_other;
    std::unique_ptr<TrustStore> m_trustStore;
    QStringList m_command;
    std::unique_ptr<TestDir> m_scene;
    std::unique_ptr<RelaunchedProgram> m_program;
};

UPDATER_TEST_MAIN(TestTls)
#include "tst_tls.moc"
