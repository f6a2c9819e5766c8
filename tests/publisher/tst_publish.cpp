// Publishing: releases that publisher/publish.sh makes, served by nginx with the shipped
// publisher/nginx.conf, and the commands in docs/publishing.md.

#include "tests/support/Authority.h"
#include "tests/support/Command.h"
#include "tests/support/FakeProgram.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestMain.h"

#include <QDateTime>
#include <QDir>
#include <QFileInfo>
#include <QRegularExpression>
#include <QStandardPaths>
#include <QUrl>

#include <filesystem>
#include <memory>

namespace {

const char* const pageName = "Contents/Resources/help.html";

// Headings of the guide. The tests run the first commands after each.
const char* const runThis = "### On a build server";
const char* const runAsTheUser = "## Rehearse";
const char* const runBeforeRepetition = "### When a job failed before it published";
const char* const runToEnd = "### When a job failed after it published";

/// What a web server that serves other sites may have set for all of them.
const char* const settingsOfOtherSites = "  types { text/html html; application/json json; }\n"
                                         "  default_type text/html;\n"
                                         "  charset utf-8;\n"
                                         "  charset_types *;\n"
                                         "  gzip on;\n"
                                         "  gzip_types application/octet-stream;\n"
                                         "  autoindex on;\n"
                                         "  etag off;\n"
                                         "  if_modified_since before;\n"
                                         "  open_file_cache max=100 inactive=1h;\n"
                                         "  open_file_cache_valid 1h;\n";

/// The shipped configuration, with @p certificate and the directory @p dest filled in.
QByteArray shippedServer(const ServerCertificate& certificate, const QString& dest, quint16 port)
{
    const QList<QPair<QByteArray, QByteArray>> ours{
        {"listen 443 ssl", "listen 127.0.0.1:" + QByteArray::number(port) + " ssl"},
        {"listen [::]:443 ssl;",
         sockets::hasIpv6() ? "listen [::1]:" + QByteArray::number(port) + " ssl;" : QByteArray()},
        {"/etc/ssl/updates.example/fullchain.pem", QFile::encodeName(certificate.certificate)},
        {"/etc/ssl/updates.example/private.pem", QFile::encodeName(certificate.key)},
        {"alias /srv/updates/editor/", "alias " + QFile::encodeName(dest) + "/"}};
    QByteArray site = files::read(PUBLISH_DIR "/nginx.conf");
    for (const auto& [placeholder, value] : ours) {
        if (!site.contains(placeholder))
            qFatal("test fixture: nginx.conf lacks %s", placeholder.constData());
        site.replace(placeholder, value);
    }
    return site;
}

/// The same after settings of other sites.
QByteArray shippedSite(const ServerCertificate& certificate, const QString& dest, quint16 port)
{
    return settingsOfOtherSites + shippedServer(certificate, dest, port);
}

/// What a server answers.
struct Answer
{
    QByteArray protocol; ///< Such as "HTTP/1.1".
    int status = 0;
    QMap<QByteArray, QByteArray> headers; ///< By their names in lower case.
    QByteArray body;
};

/// Gets @p url with curl, which trusts @p authority.
Answer get(const QString& url, const Authority& authority, const QStringList& options = {})
{
    const TestDir dir;
    files::write(dir / "body", "");
    mustRun(QStringList{"curl", "-q", "-sS", "--noproxy", "*", "--cacert", authority.certificate(),
                        "-D", dir / "headers", "-o", dir / "body", url} +
            options);
    Answer answer;
    answer.body = files::read(dir / "body");
    const QList<QByteArray> lines = files::read(dir / "headers").split('\n');
    answer.protocol = lines.first().split(' ').first();
    answer.status = lines.first().split(' ').value(1).toInt();
    for (const QByteArray& line : lines.mid(1)) {
        const auto colon = line.indexOf(':');
        if (colon > 0)
            answer.headers.insert(line.left(colon).toLower(), line.mid(colon + 1).trimmed());
    }
    return answer;
}

QStringList header(const QByteArray& name, const QByteArray& value)
{
    return {"-H", QString::fromLatin1(name + ": " + value)};
}

/// Gives all files below @p dir the same old date, as reproducible builds do.
void makeOld(const QString& dir)
{
    const QStringList names = files::list(dir);
    for (const QString& name : names) {
        QFile file(dir + '/' + name);
        if (name.endsWith('/') || !file.open(QIODevice::ReadWrite))
            continue;
        file.setFileTime(QDateTime::fromSecsSinceEpoch(1000000000),
                         QFileDevice::FileModificationTime);
    }
}

/// The first commands in the section of the guide with the heading @p heading.
QByteArray linesOfTheGuide(const QByteArray& heading)
{
    const QByteArray guide = files::read(PUBLISHING_GUIDE);
    const QByteArray begin = "\n```sh\n";
    const auto section = guide.indexOf('\n' + heading + '\n') + 1;
    const auto fence = guide.indexOf(begin, section);
    const auto from = fence + begin.size();
    const auto to = guide.indexOf("\n```\n", from);
    if (section == 0 || fence < 0 || to < 0 || guide.mid(section, fence - section).contains("\n#"))
        qFatal("test fixture: no commands in the guide below %s", heading.constData());
    return guide.mid(from, to - from);
}

} // namespace

class TestPublish : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        NEEDS_NGINX();
        NEEDS_PROGRAM("bash");
        NEEDS_PROGRAM("curl");
        NEEDS_PROGRAM("openssl");
        NEEDS_PROGRAM("perl");
        m_authority = std::make_unique<Authority>("Authority");
        m_trustStore = std::make_unique<TrustStore>(*m_authority);
        m_certificate =
            m_authority->issue("IP:127.0.0.1,IP:::1,DNS:updates.example,DNS:staging.example",
                               "20200101000000Z", "20480101000000Z");
    }

    void init()
    {
        m_scene = std::make_unique<Scene>();
        files::write(m_scene->dir / "CHANGES.txt", "News\n");
        for (const QByteArray version : {"1.0", "2.0"}) {
            release::lay(editor(version), tree(version));
            makeOld(tree(version));
        }
    }

    void cleanup() { m_scene.reset(); }

    void releaseIsTheTreeAndItsVersionFile()
    {
        files::link("help.html", tree("1.0") + "/Contents/Resources/start.html");
        files::setMode(tree("1.0") + '/' + pageName, 0400);
        const QStringList before = files::list(tree("1.0"));

        const Variables noDisplay{
            {"QT_QPA_PLATFORM", ""}, {"DISPLAY", ""}, {"WAYLAND_DISPLAY", ""}};
        const CommandResult outcome = publish({"-r", "--changelog", m_scene->dir / "CHANGES.txt",
                                               "Editor", "1.0", tree("1.0"), dest()},
                                              noDisplay);
        QCOMPARE(outcome.status, 0);
        QVERIFY2(outcome.output.endsWith(dest() + "/current leads to 1.0\n"),
                 qPrintable(outcome.output));

        Tree published = release::read(dest() + "/current");
        const QByteArray index = published.take("index.txt");
        QCOMPARE(release::differences(published, release::read(tree("1.0"))), QStringList());
        QCOMPARE(index.count("<file>"),
                 static_cast<int>(before.filter(QRegularExpression("[^/]$")).size()));
        QVERIFY(index.startsWith("<Editor>\n\t<version>1.0</version>\n\t<required>true</required>\n"
                                 "\t<changelog>" +
                                 QByteArray("News\n").toBase64() + "</changelog>\n"));
        QVERIFY(!QFileInfo(dest() + "/current/Contents/Resources/start.html").isSymLink());
        QCOMPARE(files::mode(dest() + "/current/" + pageName), 0644U);
        QCOMPARE(files::mode(dest() + "/current/index.txt"), 0644U);
        QCOMPARE(files::mode(dest() + "/releases/1.0"), 0755U);
        // The link is relative, nothing else is left, and the tree is unchanged.
        QCOMPARE(linkOf(dest() + "/current"), QString("releases/1.0"));
        QCOMPARE(QDir(dest()).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList({"current", "releases"}));
        QCOMPARE(QDir(dest() + "/releases")
                     .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList("1.0"));
        QCOMPARE(files::list(tree("1.0")), before);
    }

    void answersHaveSafeHeaders_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("options"); // Of curl.
        QTest::addColumn<QString>("expected");

        const QStringList gzip{"--compressed"};
        const QStringList byProxy = gzip + header("Via", "1.1 proxy");
        const QString file = "200|application/octet-stream|no-cache, no-transform||";
        const QString index = "200|text/plain|no-cache, no-transform|%1|Accept-Encoding";
        row("version file", "index.txt", QStringList(), index.arg(""));
        row("version file, compressed", "index.txt", gzip, index.arg("gzip"));
        row("version file, for a cache", "index.txt", byProxy, index.arg("gzip"));
        row("file", pageName, QStringList(), file);
        row("file, to one who would unpack it", pageName, gzip, file);
        row("part of a file", pageName, QStringList({"-r", "0-1"}), file);
        row("hidden file", "Contents/.hidden", QStringList(), file);
        row("missing file", "none", QStringList(), "404|text/html|no-cache, no-transform||");
        row("list of a directory", "Contents/MacOS/", QStringList(),
            "403|text/html|no-cache, no-transform||");
        row("outside of the release", "../index.txt", QStringList(),
            "404|text/html|no-cache, no-transform||");
    }

    void answersHaveSafeHeaders()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, options);
        publishVersion("1.0");
        const auto server = serve(dest());

        const Answer answer = ask(*server, path, options);
        const QByteArrayList summary{
            QByteArray::number(answer.status), answer.headers.value("content-type"),
            answer.headers.value("cache-control"), answer.headers.value("content-encoding"),
            answer.headers.value("vary")};
        QTEST(QString::fromLatin1(summary.join('|')), "expected");
        if (answer.status == 200)
            QCOMPARE(answer.body, files::read(dest() + "/current/" + path));
    }

    /// With HTTP/2 an update can stay at a file for good: Qt loses a request that it makes while
    /// the server ends the connection.
    void http2IsNotOffered()
    {
        publishVersion("1.0");
        const auto server = serve(dest());
        const Answer answer = ask(*server, "index.txt", {"--http2"});
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.protocol, QByteArray("HTTP/1.1"));
    }

    void ipv6IsAnswered()
    {
        NEEDS_IPV6();
        publishVersion("1.0");
        const auto server = serve(dest());
        QString url = server->url("/editor/index.txt");
        url.replace("127.0.0.1", "[::1]");

        const Answer answer = get(url, *m_authority);
        QCOMPARE(answer.status, 200);
        QCOMPARE(answer.body, files::read(dest() + "/current/index.txt"));
    }

    void stagingServerIsACopyOfTheBlock()
    {
        publishVersion("1.0");
        QCOMPARE(publish({"Editor", "2.0", tree("2.0"), staging()}).status, 0);
        const Nginx server("https", [this](quint16 port) {
            const QByteArray copy = shippedServer(m_certificate, staging(), port)
                                        .replace("server_name updates.", "server_name staging.");
            return shippedSite(m_certificate, dest(), port) + copy;
        });

        for (const auto& [host, dir] :
             {std::pair<QString, QString>("updates.example", dest()),
              std::pair<QString, QString>("staging.example", staging())}) {
            QString url = server.url("/editor/index.txt");
            const QString port = QString::number(QUrl(url).port());
            url.replace("127.0.0.1", host);
            const Answer answer =
                get(url, *m_authority, {"--resolve", host + ':' + port + ":127.0.0.1"});
            QCOMPARE(answer.status, 200);
            QCOMPARE(answer.body, files::read(dir + "/current/index.txt"));
        }
    }

    void cachesLearnOfEveryRelease_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QStringList>("options");
        row("version file", "index.txt", QStringList());
        row("version file, compressed", "index.txt", QStringList("--compressed"));
        row("file of equal size", pageName, QStringList());
    }

    /// The files of both releases have the same date and size, as those of reproducible builds.
    void cachesLearnOfEveryRelease()
    {
        QFETCH(QString, path);
        QFETCH(QStringList, options);
        publishVersion("1.0");
        makeOld(dest() + "/releases/1.0"); // It was published long ago.
        const auto server = serve(dest());

        const Answer first = ask(*server, path, options);
        for (const QStringList& question : questionsOfCache(first)) {
            const Answer same = ask(*server, path, options + question);
            QCOMPARE(same.status, 304);
            QCOMPARE(same.headers.value("cache-control"), QByteArray("no-cache, no-transform"));
        }

        publishVersion("2.0");
        for (const QStringList& question : questionsOfCache(first)) {
            const Answer other = ask(*server, path, options + question);
            QCOMPARE(other.status, 200);
            QCOMPARE(other.body, files::read(dest() + "/releases/2.0/" + path));
        }

        const Answer second = ask(*server, path, options);
        rollBack("1.0");
        for (const QStringList& question : questionsOfCache(second)) {
            const Answer other = ask(*server, path, options + question);
            QCOMPARE(other.status, 200);
            QCOMPARE(other.body, files::read(dest() + "/releases/1.0/" + path));
        }
    }

    /// From release to release and back, over https, with the real updater.
    void usersFollowWhatIsPublished()
    {
        UNDER_TRUST(command, *m_trustStore);
        m_scene->install(editor("1.0"));
        publishVersion("1.0");
        const auto server = serve(dest());

        QCOMPARE(update(*server, "1.0", *command), 0);
        QCOMPARE(server->requests(), QStringList("/editor/index.txt"));
        QCOMPARE(m_scene->program.starts(), QStringList());

        publishVersion("2.0");
        QCOMPARE(update(*server, "1.0", *command), 0);
        QCOMPARE(m_scene->differencesFrom(editor("2.0")), QString());
        // The version file for each update, and each file that differs once.
        QCOMPARE(server->requests().size(), 1 + 1 + 4);
        QTRY_COMPARE(m_scene->program.starts().size(), 1);

        rollBack("1.0");
        QCOMPARE(update(*server, "2.0", *command), 0);
        QCOMPARE(m_scene->differencesFrom(editor("1.0")), QString());
        QTRY_COMPARE(m_scene->program.starts(),
                     QStringList({m_scene->startOf("Editor 2.0"), m_scene->startOf("Editor 1.0")}));
    }

    void interruptedPublicationIsNotSeen_data()
    {
        QTest::addColumn<QString>("replaced"); // The program that fails.
        QTest::addColumn<QByteArray>("lines");
        QTest::addColumn<bool>("complete");
        const QByteArray kill = "kill -9 $PPID\n";
        row("no version file", "updater", QByteArray("exit 1\n"), false);
        row("killed before the version file", "updater", kill, false);
        row("killed after the version file", "updater",
            QByteArray(UPDATER_EXECUTABLE " \"$@\"\n") + kill, false);
        row("damaged copy", "cp", QByteArray("/bin/cp \"$@\" && : >\"$3/Contents/.hidden\"\n"),
            false);
        row("killed before the switch", "perl", kill, true);
    }

    void interruptedPublicationIsNotSeen()
    {
        QFETCH(QString, replaced);
        QFETCH(QByteArray, lines);
        QFETCH(bool, complete);
        publishVersion("1.0");
        const auto server = serve(dest());
        const QByteArray index = ask(*server, "index.txt").body;
        const QString program = m_scene->dir / "trouble/" + replaced;
        writeScript(program, lines);

        const CommandResult outcome = publish(
            {"Editor", "2.0", tree("2.0"), dest()},
            replaced == "updater"
                ? Variables{{"UPDATER", program}}
                : Variables{{"PATH", m_scene->dir / "trouble:" + qEnvironmentVariable("PATH")}});
        QVERIFY(outcome.status != 0);

        QCOMPARE(linkOf(dest() + "/current"), QString("releases/1.0"));
        QCOMPARE(ask(*server, "index.txt").body, index);
        QCOMPARE(ask(*server, pageName).body, editor("1.0").value(pageName));
        QCOMPARE(QFileInfo::exists(dest() + "/releases/2.0"), complete);

        // The second attempt.
        if (complete) {
            const CommandResult again = publish({"Editor", "2.0", tree("2.0"), dest()});
            QVERIFY2(again.output.contains("/releases/2.0 is there"), qPrintable(again.output));
            QCOMPARE(linkOf(dest() + "/current"), QString("releases/1.0"));
            rollBack("2.0");
        } else {
            publishVersion("2.0");
        }
        QVERIFY(ask(*server, "index.txt").body.contains("<version>2.0</version>"));
        QCOMPARE(ask(*server, pageName).body, editor("2.0").value(pageName));
    }

    void refusalsChangeNothing_data()
    {
        QTest::addColumn<QStringList>("arguments");
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("reason");
        row("version file in the tree", QStringList({"Editor", "2.0", "@scene/described", "@dest"}),
            1, "described/index.txt would be listed as a file of the release");
        row("published version", QStringList({"Editor", "1.0", "@tree", "@dest"}), 1,
            "a published release does not change");
        row("no tree", QStringList({"Editor", "2.0", "@scene/none", "@dest"}), 1,
            "there is no tree");
        row("link that leads nowhere", QStringList({"Editor", "2.0", "@scene/broken", "@dest"}), 1,
            "/link");
        row("version that leads elsewhere", QStringList({"Editor", "../2.0", "@tree", "@dest"}), 1,
            "'../2.0' cannot be the name of a directory");
        row("no version", QStringList({"Editor", "", "@tree", "@dest"}), 1,
            "'' cannot be the name of a directory");
        row("no name", QStringList({"", "2.0", "@tree", "@dest"}), 1,
            "the updater cannot describe");
        row("no changelog",
            QStringList({"--changelog", "@scene/none", "Editor", "2.0", "@tree", "@dest"}), 1,
            "there is no changelog");
        row("finding of lint", QStringList({"Editor", "2.0", "@scene/untidy", "@dest"}), 1,
            "untidy");
        row("pattern that is not there",
            QStringList({"--accept", "", "Editor", "2.0", "@tree", "@dest"}), 1,
            "--accept needs a pattern");
        row("rollback to what is not there", QStringList({"--rollback", "0.9", "@dest"}), 1,
            "there is no release");
        row("rollback without a version", QStringList({"--rollback", "@dest"}), 2,
            "usage: publish.sh");
        row("nothing", QStringList(), 2, "usage: publish.sh");
        row("unknown option", QStringList({"-z", "2.0", "@tree"}), 2, "usage: publish.sh");
    }

    void refusalsChangeNothing()
    {
        QFETCH(QStringList, arguments);
        QFETCH(QString, reason);
        files::write(m_scene->dir / "described/index.txt", "");
        files::link("nowhere", m_scene->dir / "broken/link");
        files::write(m_scene->dir / "untidy/file", "");
        const QString lint = m_scene->dir / "bin/lint";
        writeScript(lint,
                    "case $* in 'lint --name Editor '*/untidy) echo untidy; exit 1 ;; esac\n");
        publishVersion("1.0");
        const QStringList before = files::list(dest());
        arguments.replaceInStrings("@scene", m_scene->dir.path());
        arguments.replaceInStrings("@tree", tree("2.0"));
        arguments.replaceInStrings("@dest", dest());

        const CommandResult outcome = publish(arguments, {{"UPDATER_RELEASE", lint}});

        QTEST(outcome.status, "status");
        QVERIFY2(outcome.output.contains(reason), qPrintable(outcome.output));
        QCOMPARE(files::list(dest()), before);
        QCOMPARE(linkOf(dest() + "/current"), QString("releases/1.0"));
    }

    /// Every message of the script is on the troubleshooting page, without the values in it.
    void refusalsAreExplained()
    {
        QString script = QString::fromUtf8(files::read(PUBLISH_DIR "/publish.sh"));
        script.remove(QRegularExpression("perl -e .*")); // It has a "die" of its own.
        const QString page = QString::fromUtf8(files::read(TROUBLESHOOTING_PAGE));
        auto message = QRegularExpression("\\bdie \"([^\"]*)\"").globalMatch(script);
        int messages = 0;
        while (message.hasNext()) {
            QStringList words =
                message.next().captured(1).split(QRegularExpression("'?\\$(\\w+|\\{[^}]*\\})/?'?"));
            for (QString& part : words)
                part = part.remove(QRegularExpression(" \\(.*")).trimmed();
            words.removeAll(QString());
            QCOMPARE(words.size(), 1);
            QVERIFY2(page.contains("\n| " + words.first() + " |"), qPrintable(words.first()));
            ++messages;
        }
        QCOMPARE(messages, static_cast<int>(script.count("die \"")));
        QVERIFY(page.contains("\"executable here, but not for users\""));
    }

    void nothingIsPublishedWhenLintCannotBeAsked_data()
    {
        QTest::addColumn<QString>("tool");
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("reason"); // Empty when it is published anyway.
        const QStringList accept{"--accept", "x"};
        row("another tool is named", "@scene/none", QStringList(), "there is no linting tool");
        row("findings are accepted", "", accept, "there is no linting tool");
        row("nobody asks for it", "", QStringList(), "");
        row("it does not know an option", "@scene/two", accept, "lint ended with 2");
    }

    void nothingIsPublishedWhenLintCannotBeAsked()
    {
        QFETCH(QString, tool);
        QFETCH(QStringList, options);
        QFETCH(QString, reason);
        if (tool.isEmpty() && !QStandardPaths::findExecutable("updater-release").isEmpty())
            QSKIP("updater-release is installed here");
        writeScript(m_scene->dir / "two", "exit 2\n");
        const CommandResult outcome =
            publish(options + QStringList{"Editor", "1.0", tree("1.0"), dest()},
                    {{"UPDATER_RELEASE", tool.replace("@scene", m_scene->dir.path())}});
        QCOMPARE(outcome.status, reason.isEmpty() ? 0 : 1);
        QVERIFY2(outcome.output.contains(reason.isEmpty() ? "publish.sh: not linted" : reason),
                 qPrintable(outcome.output));
        QCOMPARE(QFileInfo::exists(dest()), reason.isEmpty());
    }

    void findingsMustBeAccepted_data()
    {
        QTest::addColumn<QStringList>("accepted");
        QTest::addColumn<QString>("refused"); // The start of a line; empty when it is published.
        const QString executable = ": executable here, but not for users";
        const QString updaterName = "Contents/MacOS/updater";
        const QString frameworks = "Contents/Frameworks/*";
        row("none", QStringList(), "Contents/Frameworks/libeditor.dylib" + executable);
        row("all but the updater", QStringList{"--accept", frameworks}, updaterName + executable);
        row("the updater only", QStringList{"--accept", updaterName},
            "Contents/Frameworks/Kit.framework/Kit: symbolic link");
        row("all", QStringList{"--accept", updaterName, "--accept", frameworks}, "");
    }

    /// A bundle with the updater, a library and a framework, and the real lint.
    void findingsMustBeAccepted()
    {
        QFETCH(QStringList, accepted);
        QFETCH(QString, refused);
        const QString bundle = tree("1.0");
        const QString frameworks = bundle + "/Contents/Frameworks/";
        files::setMode(bundle + '/' + Scene::exeName, 0755);
        files::writeExecutable(bundle + "/Contents/MacOS/updater", "updates");
        files::writeExecutable(frameworks + "libeditor.dylib", "library");
        files::write(frameworks + "Kit.framework/Versions/A/Kit", "framework");
        files::link("A", frameworks + "Kit.framework/Versions/Current");
        files::link("Versions/Current/Kit", frameworks + "Kit.framework/Kit");

        const CommandResult outcome =
            publish(accepted + QStringList{"Editor", "1.0", bundle, dest()},
                    {{"UPDATER_RELEASE", UPDATER_RELEASE_EXECUTABLE}});

        if (!refused.isEmpty()) {
            QCOMPARE(outcome.status, 1);
            QVERIFY2(('\n' + outcome.output).contains('\n' + refused), qPrintable(outcome.output));
            const QString message = "findings that are not accepted (fix them, or use --accept)\n";
            QVERIFY2(outcome.output.endsWith(message), qPrintable(outcome.output));
            QVERIFY(!QFileInfo::exists(dest()));
            return;
        }
        QVERIFY2(outcome.status == 0, qPrintable(outcome.output));
        QCOMPARE(outcome.output.count("accepted: "), 4);
        const Tree published = release::read(dest() + "/current");
        QCOMPARE(published.value("Contents/MacOS/updater"), QByteArray("updates"));
        QCOMPARE(published.value("Contents/Frameworks/Kit.framework/Kit"), QByteArray("framework"));
        QCOMPARE(published.value("Contents/Frameworks/Kit.framework/Versions/Current/Kit"),
                 QByteArray("framework"));
    }

    /// One system call replaces the link, so there always is one.
    void switchIsOneStep()
    {
        NEEDS_STRACE();
        publishVersion("1.0");
        publishVersion("2.0");
        const QString record = m_scene->dir / "calls";
        QCOMPARE(
            runCommand({"strace", "-f", "-qq", "-s", "4096", "-e", "trace=/link|rename|open|creat",
                        "-o", record, PUBLISH_DIR "/publish.sh", "--rollback", "1.0", dest()})
                .status,
            0);

        QStringList calls;
        const QStringList lines = QString::fromLocal8Bit(files::read(record)).split('\n');
        for (const QString& line : lines) {
            if (line.contains('"' + dest() + "/current\"") && !line.contains("readlink"))
                calls.append(line.section(' ', 1).section('(', 0, 0).trimmed());
        }
        QCOMPARE(calls, QStringList("rename"));
    }

    /// The commands of the guide for a build server, for two releases in turn.
    void linesOfTheGuidePublish()
    {
        UNDER_TRUST(command, *m_trustStore);
        publishVersion("1.0");
        const auto server = serve(dest());
        const auto stagingServer = serve(staging());
        const QString verify = "updater-release verify --name Editor %1";
        const QString verified = "Editor %1: 5 files checked, 0 findings";

        QString previous = "1.0";
        for (const QString version : {"2.0", "3.0"}) {
            layBuild(version, previous);
            const CommandResult outcome =
                runLines(runThis, *command, version, *server, *stagingServer);
            QVERIFY2(outcome.status == 0, qPrintable(outcome.output));

            const QStringList said = outcome.output.split('\n').filter(
                QRegularExpression("^updater-release|leads to|checked"));
            QCOMPARE(
                said,
                QStringList({"updater-release lint --name Editor Editor.app",
                             staging() + "/current leads to " + version,
                             verify.arg(stagingServer->url("/editor/index.txt")),
                             verified.arg(version), "updater-release lint --name Editor Editor.app",
                             dest() + "/current leads to " + version,
                             verify.arg(server->url("/editor/index.txt")), verified.arg(version)}));
            QCOMPARE(release::differences(release::read(work() + "/rehearsal.app"),
                                          editor(version.toLatin1())),
                     QStringList("unexpected: gone.txt"));
            QVERIFY(ask(*server, "index.txt")
                        .body.contains("<version>" + version.toLatin1() + "</version>"));
            previous = version;
        }
        QCOMPARE(m_scene->program.starts(), QStringList());
    }

    /// By hand. The copy of an earlier rehearsal is still there.
    void linesOfTheGuideRehearse()
    {
        UNDER_TRUST(command, *m_trustStore);
        publishVersion("1.0");
        const auto server = serve(dest());
        layBuild("2.0", "1.0");
        QCOMPARE(publish({"Editor", "2.0", tree("2.0"), staging()}).status, 0);
        const auto stagingServer = serve(staging());
        files::write(work() + "/rehearsal.app/Contents/earlier.txt", "an earlier rehearsal");

        const CommandResult outcome =
            runLines(runAsTheUser, *command, "2.0", *server, *stagingServer);

        QVERIFY2(outcome.status == 0, qPrintable(outcome.output));
        QCOMPARE(release::differences(release::read(work() + "/rehearsal.app"), editor("2.0")),
                 QStringList("unexpected: gone.txt"));
        QCOMPARE(m_scene->program.starts(), QStringList());
    }

    void linesOfTheGuideRepeatAJob()
    {
        UNDER_TRUST(command, *m_trustStore);
        publishVersion("1.0");
        const auto server = serve(dest());
        const auto stagingServer = serve(staging());
        const auto empty = serve(m_scene->dir / "nothing");
        layBuild("2.0", "1.0");

        // The release is not published yet.
        QCOMPARE(runLines(runThis, *command, "2.0", *server, *empty).status, 1);
        const CommandResult refused = runLines(runThis, *command, "2.0", *server, *stagingServer);
        QCOMPARE(refused.status, 1);
        QVERIFY2(refused.output.contains(staging() + "/releases/2.0 is there"),
                 qPrintable(refused.output));
        QCOMPARE(linkOf(dest() + "/current"), QString("releases/1.0"));
        QCOMPARE(runLines(runBeforeRepetition, *command, "2.0", *server, *stagingServer).status, 0);
        // Now the release is published, but its check fails.
        QCOMPARE(runLines(runThis, *command, "2.0", *empty, *stagingServer).status, 1);
        QCOMPARE(linkOf(dest() + "/current"), QString("releases/2.0"));
        rollBack("1.0"); // As if it had been killed before the switch.

        const CommandResult outcome = runLines(runToEnd, *command, "2.0", *server, *stagingServer);
        QVERIFY2(outcome.status == 0, qPrintable(outcome.output));
        QVERIFY2(outcome.output.contains("Editor 2.0: 5 files checked, 0 findings"),
                 qPrintable(outcome.output));
    }

private:
    using Variables = QMap<QString, QString>;

    /// Four files of the same size that differ between versions, and one that does not.
    Tree editor(const QByteArray& version) const
    {
        return {{Scene::exeName, m_scene->program.script("Editor " + version)},
                {pageName, "<html>\r\n  <!-- " + version + " -->\r\n</html>\r\n"},
                {"Contents/Resources/a (b) + c, d.txt", "of " + version},
                {"Contents/.hidden", "hidden in " + version},
                {"Contents/Resources/same.json", "{ }"}};
    }

    QString tree(const QString& version) const { return m_scene->dir / "trees/" + version; }
    QString dest() const { return m_scene->dir / "www"; }
    QString staging() const { return m_scene->dir / "staging"; }
    QString work() const { return m_scene->dir / "work"; }

    /// Makes what the commands of the guide work on: a build, the one before it, the changelog.
    void layBuild(const QString& version, const QString& previous) const
    {
        release::lay(editor(version.toLatin1()), work() + "/Editor.app");
        release::lay(editor(previous.toLatin1()), work() + "/previous/Editor.app");
        files::write(work() + "/previous/Editor.app/gone.txt", "not in " + version.toLatin1());
        files::write(work() + "/previous/version", previous.toLatin1());
        files::write(work() + "/CHANGES.txt", "News\n");
    }

    /// Runs the commands of the guide below @p heading after layBuild(), under @p command.
    CommandResult runLines(const QByteArray& heading, const QStringList& command,
                           const QString& version, const Nginx& server,
                           const Nginx& stagingServer) const
    {
        const QString bin = m_scene->dir / "bin";
        if (!QFileInfo::exists(bin)) {
            files::link(PUBLISH_DIR "/publish.sh", bin + "/publish.sh");
            files::link(UPDATER_EXECUTABLE, bin + "/updater");
            writeScript(bin + "/updater-release",
                        "echo \"updater-release $*\"\nexec " UPDATER_RELEASE_EXECUTABLE
                        " \"$@\"\n");
        }
        writeScript(work() + "/lines", linesOfTheGuide(heading));
        return runCommand(
            command + QStringList{"sh", "./lines"},
            {{"PATH", bin + ":" + qEnvironmentVariable("PATH")},
             {"TMPDIR", m_scene->tmpDir},
             {"VERSION", version},
             {"PREVIOUS", QString::fromLatin1(files::read(work() + "/previous/version"))},
             {"STAGING_DEST", staging()},
             {"STAGING_URL", stagingServer.url("/editor/index.txt")},
             {"DEST", dest()},
             {"URL", server.url("/editor/index.txt")}},
            work());
    }

    /// The target of the link @p path, as it is stored.
    static QString linkOf(const QString& path)
    {
        return QString::fromStdString(std::filesystem::read_symlink(path.toStdString()).string());
    }

    /// Runs publish.sh with the updater built along with the test and, unless @p variables say
    /// otherwise, without lint.
    static CommandResult publish(const QStringList& arguments, const Variables& variables = {})
    {
        Variables all{{"UPDATER", UPDATER_EXECUTABLE}, {"UPDATER_RELEASE", "true"}};
        for (auto variable = variables.begin(); variable != variables.end(); ++variable)
            all.insert(variable.key(), variable.value());
        return runCommand(QStringList(PUBLISH_DIR "/publish.sh") + arguments, all);
    }

    void publishVersion(const QString& version) const
    {
        const CommandResult outcome = publish({"Editor", version, tree(version), dest()});
        if (outcome.status != 0)
            qFatal("publish.sh: %s", qPrintable(outcome.output));
    }

    void rollBack(const QString& version) const
    {
        const CommandResult outcome = publish({"--rollback", version, dest()});
        if (outcome.status != 0)
            qFatal("publish.sh --rollback: %s", qPrintable(outcome.output));
    }

    std::unique_ptr<Nginx> serve(const QString& dir) const
    {
        return std::make_unique<Nginx>(
            "https", [this, dir](quint16 port) { return shippedSite(m_certificate, dir, port); });
    }

    Answer ask(const Nginx& server, const QString& path, const QStringList& options = {}) const
    {
        return get(server.url("/editor/") + path, *m_authority, options);
    }

    /// The options with which a cache that has @p answer asks for a newer one.
    static QList<QStringList> questionsOfCache(const Answer& answer)
    {
        return {header("If-None-Match", answer.headers.value("etag")),
                header("If-Modified-Since", answer.headers.value("last-modified"))};
    }

    /// Runs the updater of a user of @p version.
    int update(const Nginx& server, const QString& version, const QStringList& command) const
    {
        m_scene->installedVersion = version;
        m_scene->updater.setWrapper(command);
        return m_scene->update(server.url("/editor/index.txt"));
    }

    std::unique_ptr<Authority> m_authority;
    std::unique_ptr<TrustStore> m_trustStore;
    ServerCertificate m_certificate;
    std::unique_ptr<Scene> m_scene;
};

UPDATER_TEST_MAIN(TestPublish)
#include "tst_publish.moc"
