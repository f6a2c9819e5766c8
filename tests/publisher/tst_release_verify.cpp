// "updater-release verify": good and damaged releases on a real web server, and faults that only
// the tests' own server makes.

#include "publisher/Lint.h"
#include "publisher/Verify.h"

#include "tests/publisher/Tool.h"
#include "tests/support/CollectedOutput.h"
#include "tests/support/Command.h"
#include "tests/support/EditorRelease.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Release.h"
#include "tests/support/ReleaseDir.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QFile>
#include <QTimer>

#include <utility>

namespace {

/// Seconds that no transfer of these tests needs.
constexpr int longTimeout = 60;

const Tree editorTree{{"Contents/Info.plist", "<plist/>\n"},
                      {"Contents/MacOS/Editor", QByteArray(300000, 'E')},
                      {"Contents/Resources/empty.dat", ""},
                      {"Contents/Resources/with space & percent 100%.txt", "text"},
                      {"zz", "last"}};

/// What a check of the release at one URL has said.
class Verified : public CollectedOutput
{
public:
    explicit Verified(const QString& url, const QString& program = QString(),
                      int timeout = longTimeout)
    {
        publisher::verify(url, program, timeout, *this);
    }
};

/// A release of Editor, described by the real updater and served by nginx.
class Published : public ReleaseDir
{
public:
    Published()
    {
        release::lay(editorTree, tree());
        release::describe(tree(), "Editor", "2.1");
        m_server.emplace(tree());
    }

    QString url() const { return m_server->url("/index.txt"); }
    const Nginx& server() const { return *m_server; }

private:
    std::optional<Nginx> m_server;
};

/// A release of one file on the tests' own server.
class Scripted
{
public:
    Scripted()
    {
        serveIndex(tree::versionFile(data).toUtf8());
        serveFile(HttpReply::ok(contents));
    }

    QString url() const { return server.url("/1/index.txt"); }

    void serveIndex(const QByteArray& text) { server.serve("/1/index.txt", HttpReply::ok(text)); }
    void serveFile(const HttpReply& reply) { server.serve("/1/sub/a", reply); }

    const QByteArray contents = QByteArray("contents ").repeated(100);
    ProgramData data = editorRelease("2.1", {tree::entry("sub/a", contents)});
    HttpServer server;
};

/// The header of the request without its first line, which has the path.
QByteArray headerLines(const QByteArray& request)
{
    return request.mid(request.indexOf("\r\n"));
}

} // namespace

class TestReleaseVerify : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void healthyReleaseIsRight()
    {
        NEEDS_NGINX();
        const Published published;
        const Verified output(published.url(), "Editor");
        QCOMPARE(output.lines, QStringList());
        QCOMPARE(output.notes, QStringList{"Editor 2.1: 5 files checked, 0 findings"});
        QCOMPARE(output.steps, QStringList({"1/5", "2/5", "3/5", "4/5", "5/5", "0/0"}));
        QCOMPARE(
            published.server().requests(),
            QStringList({"/index.txt", "/Contents/Info.plist", "/Contents/MacOS/Editor",
                         "/Contents/Resources/empty.dat",
                         "/Contents/Resources/with%20space%20&%20percent%20100%25.txt", "/zz"}));

        Tool tool;
        QCOMPARE(tool.run({"verify", published.url()}), 0);
        QCOMPARE(tool.output(), QByteArray("Editor 2.1: 5 files checked, 0 findings\n"));
    }

    void damagedReleaseHasAFindingForEachFile()
    {
        NEEDS_NGINX();
        const Published published;
        files::write(published / "Contents/Info.plist", "<PLIST/>\n");
        files::write(published / "Contents/MacOS/Editor", QByteArray(299999, 'E'));
        files::write(published / "Contents/Resources/empty.dat", "1");
        QVERIFY(QFile::remove(published / "zz"));
        const QStringList findings{
            "Contents/Info.plist: has the SHA-1 " + files::sha1("<PLIST/>\n"),
            "Contents/MacOS/Editor: has 299999 bytes", "Contents/Resources/empty.dat: has 1 bytes",
            "zz: missing on the server"};
        const Verified output(published.url(), "Editor");
        QCOMPARE(output.withoutReasons(), findings);
        QCOMPARE(output.findings(), 4);
        QCOMPARE(output.notes, QStringList{"Editor 2.1: 5 files checked, 4 findings"});

        Tool tool;
        QCOMPARE(tool.run({"verify", "--name", "Editor", published.url()}), 1);
        QCOMPARE(tool.output().count('\n'), 5);
    }

    void missingVersionFileIsFound()
    {
        NEEDS_NGINX();
        const Published published;
        QVERIFY(QFile::remove(published / "index.txt"));
        QCOMPARE(Verified(published.url()).lines,
                 QStringList{published.url() + ": missing on the server; upload it"});
        QCOMPARE(published.server().requests(), QStringList{"/index.txt"});
    }

    /// Names of difficult characters, alone and together: "verify" finds nothing wrong with those
    /// that "lint" accepts.
    void whatLintLetsPassIsRight()
    {
        NEEDS_NGINX();
        QStringList shortNames;
        for (const QChar character : QStringLiteral("\t\x01 !\"#$%&'()*+,-09:;<=>?@L[\\]^_`a{|}~"))
            shortNames.append(character);
        const QString few = " #%1\\a";
        for (const QChar first : few) {
            for (const QChar second : few) {
                for (const QChar third : few)
                    shortNames.append(QString(first) + second + third);
            }
        }
        const TestDir dir;
        QStringList names;
        for (const QString& name : std::as_const(shortNames)) {
            names << name << name + ".d/f";
            files::write(dir / "all" + "/" + name, name.toUtf8());
            files::write(dir / "all" + "/" + name + ".d/f", name.toUtf8());
        }
        CollectedOutput lint;
        publisher::lint(dir / "all", QString(), {}, lint);
        QStringList found;
        for (const QString& line : std::as_const(lint.lines))
            found.append(line.left(line.indexOf(": ", 1)));

        int fine = 0;
        for (const QString& name : std::as_const(names)) {
            const QString top = name.section('/', 0, 0);
            if (found.contains(manifest::printable(top)))
                continue;
            files::write(dir / "fine" + "/" + name, name.toUtf8());
            ++fine;
        }
        QVERIFY2(fine > 100, qPrintable(QString::number(fine)));
        QVERIFY2(fine < names.size(), qPrintable(QString::number(fine)));
        release::describe(dir / "fine", "Editor", "2.1");
        const Nginx server(dir / "fine");
        const Verified output(server.url("/index.txt"));
        QCOMPARE(output.lines, QStringList());
        QCOMPARE(output.notes,
                 QStringList{QString("Editor 2.1: %1 files checked, 0 findings").arg(fine)});
    }

    void replyHasItsFinding_data()
    {
        QTest::addColumn<int>("status");
        QTest::addColumn<QString>("finding");
        row("not found", 404, "missing on the server");
        row("gone", 410, "missing on the server");
        row("forbidden", 403, "cannot be fetched");
        row("server error", 500, "cannot be fetched");
        row("no content", 204, "has 0 bytes");
    }

    void replyHasItsFinding()
    {
        QFETCH(int, status);
        QFETCH(QString, finding);
        Scripted release;
        release.serveFile(HttpReply::error(status));
        QCOMPARE(Verified(release.url()).withoutReasons(), QStringList{"sub/a: " + finding});

        release.server.serve("/1/index.txt", HttpReply::error(status));
        const QStringList lines = Verified(release.url()).withoutReasons();
        QCOMPARE(lines, QStringList{release.url() + ": " +
                                    (status == 204 ? "is no version file" : finding)});
    }

    void redirectIsFoundAndNotFollowed()
    {
        Scripted release;
        release.serveFile(HttpReply::redirect("/elsewhere", release.contents));
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList{"sub/a: redirected to /elsewhere"});
        QCOMPARE(release.server.requestsFor("/elsewhere"), 0);
    }

    void redirectedVersionFileIsFoundAndNotFollowed()
    {
        Scripted release;
        release.server.serve(
            "/1/index.txt",
            HttpReply::redirect("/2/index.txt", tree::versionFile(release.data).toUtf8()));
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList{release.url() + ": redirected to /2/index.txt"});
        QCOMPARE(release.server.requests(), QStringList{"/1/index.txt"});
    }

    void otherEncodingIsFound()
    {
        Scripted release;
        release.serveFile(HttpReply::gzipped(release.contents));
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList{"sub/a: sent with Content-Encoding gzip"});

        // The server declares a .gz file as an encoding of another one: it is unpacked.
        release.data.files = {tree::entry("sub/a", HttpReply::gzipped(release.contents).body)};
        release.serveIndex(tree::versionFile(release.data).toUtf8());
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList({"sub/a: sent with Content-Encoding gzip", "sub/a: has 900 bytes"}));

        // The version file may be compressed on the way: it is not installed.
        const HttpReply index = HttpReply::gzipped(tree::versionFile(release.data).toUtf8());
        release.server.serve("/1/index.txt", index);
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList({"sub/a: sent with Content-Encoding gzip", "sub/a: has 900 bytes"}));
    }

    void brokenTransferIsFound_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind : {"reset", "cut short", "reset in the body", "cut chunks"})
            row(kind, kind);
    }

    void brokenTransferIsFound()
    {
        QFETCH(QString, kind);
        Scripted release;
        const QByteArray body(5000, 'b');
        if (kind == "reset")
            release.serveFile(HttpReply::reset());
        else if (kind == "cut short")
            release.serveFile(HttpReply::cutShort(body, 10));
        else if (kind == "reset in the body")
            release.serveFile(HttpReply::resetInBody(body, 10));
        else
            release.serveFile(HttpReply::cutChunked(body));
        const QStringList findings = Verified(release.url()).withoutReasons();
        // Qt may take the chunks that came for the whole body.
        if (kind == "cut chunks" && findings != QStringList{"sub/a: cannot be fetched"})
            QCOMPARE(findings, QStringList{"sub/a: has 4987 bytes"});
        else
            QCOMPARE(findings, QStringList{"sub/a: cannot be fetched"});
    }

    void refusedConnectionIsFound()
    {
        Scripted release;
        release.server.stop();
        QCOMPARE(Verified(release.url()).withoutReasons(),
                 QStringList{release.url() + ": cannot be fetched"});
    }

    void silenceEndsTheTransferAndTheRestIsChecked()
    {
        Scripted release;
        release.data.files.append(tree::entry("b", "b"));
        release.serveIndex(tree::versionFile(release.data).toUtf8());
        release.serveFile(HttpReply::hold(HttpReply::ok(release.contents)));
        // The server answers half a second after the limit. Its timer and that of the transfer run
        // in this thread, and its own starts later. So the limit comes first even on a busy
        // machine.
        constexpr int limit = 2; // With room for the transfers that are to succeed.
        QTimer server;
        connect(&server, &QTimer::timeout, this, [&release, &server] {
            if (server.isSingleShot()) {
                release.server.release();
            } else if (release.server.requestsFor("/1/sub/a") > 0) {
                server.setSingleShot(true);
                server.start(limit * 1000 + 500);
            }
        });
        server.setTimerType(Qt::PreciseTimer);
        server.start(1);
        QCOMPARE(Verified(release.url(), QString(), limit).withoutReasons(),
                 QStringList({"sub/a: no data for 2 seconds", "b: missing on the server"}));
    }

    void timeoutIsTheOneGiven_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<bool>("silent");
        row("shortest", QStringList{"--timeout", "1"}, true);
        row("longest", QStringList{"-t", "86400"}, false);
    }

    void timeoutIsTheOneGiven()
    {
        QFETCH(QStringList, options);
        QFETCH(bool, silent);
        Scripted release;
        // The version file never comes. No other transfer has so short a limit: on a busy machine a
        // good one may take a second.
        if (silent)
            release.server.serve("/1/index.txt", HttpReply::hold(HttpReply::ok("")));
        Tool tool;
        QCOMPARE(tool.run(QStringList{"verify", release.url()} + options), silent ? 1 : 0);
        const QString expected =
            silent
                ? release.url() + ": no data for 1 seconds; try again, or give a longer --timeout\n"
                : "Editor 2.1: 1 files checked, 0 findings\n";
        QCOMPARE(QString::fromLocal8Bit(tool.output()), expected);
    }

    /// The finding is written before the note. At the end there is nothing left to write, so the
    /// tool has to remember the earlier error.
    void resultThatCannotBeWrittenIsReported()
    {
        if (!QFile::exists("/dev/full"))
            QSKIP("needs /dev/full");
        Scripted release;
        release.serveFile(HttpReply::error(404));
        Tool tool;
        tool.writeToFullDevice();
        QCOMPARE(tool.run({"verify", release.url()}), 1);
        QCOMPARE(tool.output(), QByteArray("Editor 2.1: 1 files checked, 1 findings\n"
                                           "updater-release: the output could not be written\n"));
    }

    /// Qt ends some of these before the tool can wait for them.
    void transferThatEndsAtOnceIsNotWaitedFor_data()
    {
        QTest::addColumn<QString>("url");
        QTest::addColumn<QString>("finding");
        row("text in the URL", "data:,text", "is no version file");
        row("missing file", "file:///nowhere/index.txt", "missing on the server");
        row("unknown scheme", "unknown://127.0.0.1/index.txt", "cannot be fetched");
    }

    void transferThatEndsAtOnceIsNotWaitedFor()
    {
        QFETCH(QString, url);
        QFETCH(QString, finding);
        QCOMPARE(Verified(url).withoutReasons(), QStringList{url + ": " + finding});
    }

    void filesAreFetchedOneAfterTheOther()
    {
        Scripted release;
        for (const char* name : {"b", "c", "d"})
            release.data.files.append(tree::entry(name, "x"));
        release.serveIndex(tree::versionFile(release.data).toUtf8());
        QCOMPARE(Verified(release.url()).lines.size(), 3);
        QCOMPARE(release.server.requests(),
                 QStringList({"/1/index.txt", "/1/sub/a", "/1/b", "/1/c", "/1/d"}));
        QCOMPARE(release.server.mostInFlight(), 1);
    }

    /// The server cannot tell the tool from the updater.
    void requestsAreThoseOfTheUpdater()
    {
        Scripted release;
        UpdaterProcess updater;
        updater.run({"-c", "-n", "Editor", "-v", "2.1", "-l", release.url(), "-s", "none"});
        QCOMPARE(release.server.requests(), QStringList{"/1/index.txt"});
        const QByteArray expected = headerLines(release.server.lastHeader());
        // Qt 6.8 writes the names of header lines in lower case.
        QVERIFY2(expected.toLower().contains("\r\naccept-encoding: "), expected.constData());
        QCOMPARE(Verified(release.url()).lines, QStringList());
        QCOMPARE(headerLines(release.server.lastHeader()), expected);
    }

    void badVersionFileIsFound_data()
    {
        QTest::addColumn<QByteArray>("text");
        QTest::addColumn<QStringList>("findings"); // After the URL.
        ProgramData data = Scripted().data;
        data.files.append({"b", "", 1});
        const QByteArray good = tree::versionFile(Scripted().data).toUtf8();
        const QByteArray early = tree::versionFile(data).toUtf8();
        data.files.clear();
        const QByteArray none = tree::versionFile(data).toUtf8();
        const QByteArray cut = good.left(good.indexOf("<file>"));

        row("zero byte at the end", good + QByteArray(1, '\0'),
            QStringList{QString("has a zero byte at position %1").arg(good.size())});
        row("zero byte inside", cut + QByteArray(1, '\0') + good,
            QStringList{QString("has a zero byte at position %1").arg(cut.size()),
                        "has no record of \"Editor\" with a version"});
        row("list ends early", early,
            QStringList{"lists 2 files, of which the updater sees 1 (the last is "
                        "\"sub/a\")"});
        row("no files", none, QStringList{"lists no file that the updater sees"});
        row("cut off", cut, QStringList{"has no record of \"Editor\" with a version"});
        row("outside ASCII", good + "\xc3\xa4", QStringList{"has characters outside ASCII"});
    }

    void badVersionFileIsFound()
    {
        QFETCH(QByteArray, text);
        QFETCH(QStringList, findings);
        Scripted release;
        release.serveIndex(text);
        for (QString& finding : findings)
            finding.prepend(release.url() + ": ");
        QCOMPARE(Verified(release.url()).withoutReasons(), findings);
    }

    void nameChoosesTheRecord()
    {
        Scripted release;
        ProgramData viewer = release.data;
        viewer.name = "Viewer";
        viewer.files = {tree::entry("sub/a", "other")};
        release.serveIndex((tree::versionFile(viewer) + tree::versionFile(release.data)).toUtf8());
        QCOMPARE(Verified(release.url(), "editor").lines, QStringList());
        QCOMPARE(Verified(release.url(), "Viewer").lines.size(), 1);
        QCOMPARE(Verified(release.url()).lines.size(), 1);
        QCOMPARE(Verified(release.url(), "Printer").withoutReasons(),
                 QStringList{release.url() + ": has no record of \"Printer\" with a version"});
    }

    void progressIsForTerminalsOnly()
    {
        // "script" runs the tool in a terminal, if the system has one.
        if (runCommand({"script", "-q", "-e", "-c", "true", "/dev/null"}).status != 0)
            QSKIP("no terminal can be had here");
        Scripted release;
        release.serveFile(HttpReply::error(404));
        Tool tool;
        QCOMPARE(tool.run({"verify", release.url()}), 1);
        QCOMPARE(tool.output(), QByteArray("sub/a: missing on the server; upload it\n"
                                           "Editor 2.1: 1 files checked, 1 findings\n"));

        // Shown, cleared for the finding, shown again, cleared at the end.
        const QString quoted = "'" UPDATER_RELEASE_EXECUTABLE "' verify '" + release.url() + "'";
        Tool onTerminal;
        onTerminal.setProgram("script");
        QCOMPARE(onTerminal.run({"-q", "-e", "-c", quoted, "/dev/null"}), 1);
        QCOMPARE(onTerminal.output(),
                 QByteArray("\r\x1b[K1 of 1"
                            "\r\x1b[Ksub/a: missing on the server; upload it\r\n"
                            "\r\x1b[K1 of 1\r\x1b[K"
                            "Editor 2.1: 1 files checked, 1 findings\r\n"));
    }
};

UPDATER_TEST_MAIN(TestReleaseVerify)
#include "tst_release_verify.moc"
