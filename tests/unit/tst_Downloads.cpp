// The downloads: one file after the other, each verified before it is saved.

#include "updater/Updater.h"

#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/Download.h"

#include <QNetworkReply>
#include <QProgressDialog>
#include <QPushButton>

#include <utility>

Q_DECLARE_METATYPE(HttpReply)
Q_DECLARE_METATYPE(ProgramFile)

namespace {

/// Contents that compression or a conversion of line ends would change.
QByteArray noise(int size)
{
    QByteArray bytes;
    bytes.reserve(size);
    quint32 state = 1;
    for (int i = 0; i < size; ++i) {
        state = state * 1664525 + 1013904223;
        bytes.append(static_cast<char>(state >> 24));
    }
    return bytes;
}

} // namespace

class TestDownloads : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // As in the program: a box that closes ends nothing.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    // ---- Where files are fetched from

    void filesAreBesideTheVersionFile_data()
    {
        QTest::addColumn<QString>("updateUrl");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("expected");

        row("version file at the top", "http://127.0.0.1:1/index.txt", "a.dat",
            "http://127.0.0.1:1/a.dat");
        row("version file in directories", "http://127.0.0.1:1/x/y/index.txt", "a.dat",
            "http://127.0.0.1:1/x/y/a.dat");
        row("query of the version file is dropped", "http://127.0.0.1:1/x/index.txt?c=beta",
            "a.dat", "http://127.0.0.1:1/x/a.dat");
        row("slash in the query counts", "http://127.0.0.1:1/get?file=x/index.txt", "a.dat",
            "http://127.0.0.1:1/get?file=x/a.dat");
        row("slash at the end", "http://127.0.0.1:1/x/", "a.dat", "http://127.0.0.1:1/x/a.dat");
        row("two slashes at the end", "http://127.0.0.1:1/x//", "a.dat",
            "http://127.0.0.1:1/x//a.dat");
        row("host alone is taken for the version file", "http://example.invalid", "localhost",
            "http://localhost");
        row("backslash is no separator", "http://127.0.0.1:1/x\\index.txt", "a.dat",
            "http://127.0.0.1:1/a.dat");
        row("no slash leaves the bare name", "index.txt", "a.dat", "a.dat");
        row("no slash, name with directory", "index.txt", "sub/a.dat", "sub/a.dat");
        row("empty update URL leaves the bare name", "", "a.dat", "a.dat");
        const QString base = "http://127.0.0.1:1/r/index.txt";
        const auto addName = [&base](const char* property, const QString& name) {
            row(property, base, name, "http://127.0.0.1:1/r/" + name);
        };
        addName("name with directories", "sub/dir/a.dat");
        addName("name with spaces", "a b  c.dat");
        addName("name with a lone percent sign", "100%.dat");
        addName("name that looks escaped", "a%20b%2Fc.dat");
        addName("name with a number sign", "a#b.dat");
        addName("name with a question mark", "a?b=c.dat");
        addName("name with a plus and an ampersand", "a+b&c.dat");
        addName("name with a backslash", "sub\\a.dat");
        addName("name outside ASCII", QString::fromUtf8("Gr\xC3\xB6\xC3\x9F"
                                                        "e.dat"));
        addName("name with a leading slash", "/a.dat");
        addName("name that is a URL", "http://localhost/a.dat");
        addName("name with a colon", "a:b.dat");
        addName("name that leads to the parent directory", "../a.dat");
        addName("name with a slash at the end", "sub/");
        addName("empty name", "");
    }

    void filesAreBesideTheVersionFile()
    {
        QFETCH(QString, updateUrl);
        QFETCH(QString, name);
        QFETCH(QString, expected);
        Download download;
        download.state.updateUrl = updateUrl;
        download.list(tree::entry(name, "x"));
        download.updater.downloadNewProgramData();

        const auto* reply = download.state.netManager.findChild<QNetworkReply*>();
        QVERIFY(reply);
        QCOMPARE(reply->request().url(), QUrl(expected));
        QCOMPARE(reply->operation(), QNetworkAccessManager::GetOperation);
    }

    void fileAtTheIndexIsFetched()
    {
        Download download;
        download.offer("0.dat", "zero");
        download.offer("1.dat", "one");
        download.offer("2.dat", "two");
        download.state.currentFile = 1;
        QCOMPARE(download.run(), 0);
        QCOMPARE(requestsOf(download), QString("1.dat 2.dat"));
        QCOMPARE(download.saved(), QStringList({"1.dat", "2.dat"}));
    }

    void namesAreRequestedAsTheUrlHasThem_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("path");
        row("plain", "a.dat", "/r/a.dat");
        row("directories", "sub/dir/a.dat", "/r/sub/dir/a.dat");
        row("space", "a b.dat", "/r/a%20b.dat");
        row("lone percent sign", "100%.dat", "/r/100%25.dat");
        row("looks escaped", "a%20b.dat", "/r/a%20b.dat");
        row("number sign cuts the name", "a#b.dat", "/r/a");
        row("question mark begins a query", "a?b.dat", "/r/a?b.dat");
        row("outside ASCII",
            QString::fromUtf8("Gr\xC3\xB6\xC3\x9F"
                              "e.dat"),
            "/r/Gr%C3%B6%C3%9Fe.dat");
    }

    void namesAreRequestedAsTheUrlHasThem()
    {
        QFETCH(QString, name);
        QFETCH(QString, path);
        Download download;
        download.list(tree::entry(name, "contents"));
        download.server.serve(path, HttpReply::ok("contents"));
        QVERIFY(download.saveAll());
        QCOMPARE(download.server.requests().first(), path);
        // On disk the file has the name that the manifest gives it.
        QCOMPARE(files::read(download.dir / "downloads/" + name), QByteArray("contents"));
    }

    void bareNamesCannotBeFetched()
    {
        IN_OWN_PROCESS();
        Download download;
        download.offer("a.dat", "contents");
        download.state.updateUrl = "index.txt";
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(),
                 QStringList(MessageBoxes::transferError(QNetworkReply::ProtocolUnknownError)));
        QCOMPARE(download.server.requests(), QStringList());
    }

    // ---- One transfer at a time

    void nextFileWaitsForTheOneBefore()
    {
        Download download;
        const QStringList names = {"b", "a", "d", "c"};
        for (const QString& name : names)
            download.offer(name, "contents of " + name.toUtf8());
        download.answer("b", {HttpReply::hold(HttpReply::ok("contents of b"))});

        download.updater.downloadNewProgramData();
        QCOMPARE(download.transfersRunning(), 1);
        QVERIFY(download.waitForRequest("b"));
        QCOMPARE(download.transfersRunning(), 1);
        QCOMPARE(download.state.currentFile, 0);
        QVERIFY(download.saved().isEmpty());

        download.server.release();
        QVERIFY(QTest::qWaitFor([&] { return download.state.currentFile == 4; }));
        QCOMPARE(requestsOf(download), QString("b a d c"));
        QCOMPARE(download.server.mostInFlight(), 1);
    }

    void noTransferRunsWhileAReplyIsHandled()
    {
        IN_OWN_PROCESS();
        Download download;
        follow(download, "ok | T ok | H ok | ok");
        QList<int> running;
        download.beforeEachReply([&] { running.append(download.transfersRunning()); });
        QCOMPARE(download.run(), 0);
        QCOMPARE(running, QList<int>({0, 0, 0, 0, 0, 0}));
        QCOMPARE(download.server.mostInFlight(), 1);
    }

    // ---- Where and how files are saved

    void filesAreSavedUnderTheDownloadDirectory_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("expected");

        row("plain name", "", "a.dat", QStringList({"downloads/a.dat"}));
        row("separator at the end of the directory", "/", "a.dat",
            QStringList({"downloads/a.dat"}));
        row("backslash at the end of the directory stays", "\\", "a.dat",
            QStringList({"downloads/", "downloads\\a.dat"}));
        row("sub-directories are made", "", "sub/dir/a.dat",
            QStringList({"downloads/sub/", "downloads/sub/dir/", "downloads/sub/dir/a.dat"}));
        row("backslash in the name makes a directory beside the file", "", "sub\\a.dat",
            QStringList({"downloads/sub/", "downloads/sub\\a.dat"}));
        row("slash after a backslash is the last separator", "", "one\\two/a.dat",
            QStringList({"downloads/one\\two/", "downloads/one\\two/a.dat"}));
        row("backslash after a slash is the last separator", "", "one/two\\a.dat",
            QStringList({"downloads/one/", "downloads/one/two/", "downloads/one/two\\a.dat"}));
        row("leading slash stays inside", "", "/a.dat", QStringList({"downloads/a.dat"}));
        row("spaces and percent signs stay", "", "a %41%1.dat",
            QStringList({"downloads/a %41%1.dat"}));
    }

    void filesAreSavedUnderTheDownloadDirectory()
    {
        QFETCH(QString, ending);
        QFETCH(QString, name);
        QFETCH(QStringList, expected);
        Download download;
        download.state.tempDir = download.dir / "downloads" + ending;
        download.offer(name, "contents");
        QVERIFY(download.saveAll());

        QStringList found = files::list(download.dir.path());
        found.removeOne("nowhere");
        found.removeOne("downloads/");
        if (ending == "\\")
            found.prepend("downloads/");
        QCOMPARE(found, expected);
        QCOMPARE(files::read(download.dir / expected.last()), QByteArray("contents"));
    }

    void downloadDirectoryIsMadeWhenMissing()
    {
        Download download;
        download.state.tempDir = download.dir / "not/yet/there";
        download.offer("a.dat", "contents");
        QVERIFY(download.saveAll());
        QCOMPARE(files::read(download.dir / "not/yet/there/a.dat"), QByteArray("contents"));
    }

    void earlierCopyIsOverwritten()
    {
        Download download;
        files::write(download.dir / "downloads/a.dat", "a longer text from an earlier run");
        download.offer("a.dat", "short");
        QVERIFY(download.saveAll());
        QCOMPARE(files::read(download.dir / "downloads/a.dat"), QByteArray("short"));
    }

    void contentsArriveUnchanged_data()
    {
        QTest::addColumn<QByteArray>("contents");
        row("nothing", QByteArray());
        row("one byte", QByteArray("x"));
        row("line ends and zero bytes", QByteArray("a\r\nb\n\0c\r\x1a", 9));
        row("5 MiB", noise(5 * static_cast<int>(mebibyte)));
    }

    void contentsArriveUnchanged()
    {
        QFETCH(QByteArray, contents);
        Download download;
        download.offer("a.dat", contents);
        QVERIFY(download.saveAll());
        QCOMPARE(download.saved(), QStringList("a.dat"));
        QVERIFY(files::read(download.dir / "downloads/a.dat") == contents);
    }

    void savedFilesAreCounted()
    {
        Download download;
        for (const char* name : {"a", "b", "c"})
            download.offer(name, name);
        QVERIFY(download.saveAll());
        QCOMPARE(download.state.currentFile, 3);
        QCOMPARE(download.state.downloadedFiles, 3);
    }

    void outcomeOfTheWriteDoesNotMatter()
    {
        if (!QFile::exists("/dev/full"))
            QSKIP("this system has no /dev/full");
        Download download;
        files::link("/dev/full", download.dir / "downloads/a.dat");
        download.offer("a.dat", "contents");
        QVERIFY(download.saveAll());
        QCOMPARE(download.state.currentFile, 1);
        QCOMPARE(download.server.requestsFor("/r/a.dat"), 1);
    }

    // ---- Verification

    void onlyIntactFilesAreSaved_data()
    {
        QTest::addColumn<ProgramFile>("file");
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<bool>("intact");

        const QByteArray contents = "the contents";
        const quint64 size = static_cast<quint64>(contents.size());
        const QString sha1 = files::sha1(contents);
        const HttpReply ok = HttpReply::ok(contents);
        const auto entry = [](const QString& digest, quint64 bytes) {
            return ProgramFile{"a.dat", digest, bytes};
        };
        row("size and digest are right", entry(sha1, size), ok, true);
        row("digest in upper case", entry(sha1.toUpper(), size), ok, true);
        row("digest in upper and lower case", entry(sha1.left(20).toUpper() + sha1.mid(20), size),
            ok, true);
        row("body too short for the size", entry(sha1, size + 1), ok, false);
        row("body too long for the size", entry(sha1, size - 1), ok, false);
        row("size of zero", entry(sha1, 0), ok, false);
        row("size larger by 2^32", entry(sha1, (1ULL << 32) + size), ok, false);
        row("size of 2^32 and no body", entry(files::sha1(""), 1ULL << 32), HttpReply::ok(""),
            false);
        row("largest size and no body", entry(files::sha1(""), ~0ULL), HttpReply::ok(""), false);
        row("digest of something else", entry(files::sha1("something else"), size), ok, false);
        row("digest with its last digit missing", entry(sha1.left(39), size), ok, false);
        row("digest with a space at the end", entry(sha1 + ' ', size), ok, false);
        row("no digest", entry(QString(), size), ok, false);
        row("empty file with another digest", entry(sha1, 0), HttpReply::ok(""), false);
        row("redirect with the right contents", entry(sha1, size),
            HttpReply::redirect("/r/elsewhere", contents), true);
        row("redirect with other contents", entry(sha1, size),
            HttpReply::redirect("/r/elsewhere", "moved"), false);
        row("success with another status", entry(sha1, size), HttpReply::error(203, contents),
            true);
        row("compressed transfer of the right contents", entry(sha1, size),
            HttpReply::gzipped(contents), true);
        row("compressed transfer, listed as compressed",
            tree::entry("a.dat", HttpReply::gzipped(contents).body), HttpReply::gzipped(contents),
            false);
        row("compressed file, not a compressed transfer",
            tree::entry("a.dat", HttpReply::gzipped(contents).body),
            HttpReply::ok(HttpReply::gzipped(contents).body), true);
    }

    void onlyIntactFilesAreSaved()
    {
        IN_OWN_PROCESS();
        QFETCH(ProgramFile, file);
        QFETCH(HttpReply, reply);
        QFETCH(bool, intact);
        Download download;
        download.server.serve("/r/elsewhere", HttpReply::ok("the contents"));
        download.list(file);
        download.answer(file.name, {reply});
        QCOMPARE(download.run(), intact ? 0 : 1);
        QCOMPARE(download.boxes.summaries(),
                 intact ? QStringList() : QStringList(MessageBoxes::damagedFile("a.dat")));
        QCOMPARE(download.saved(), intact ? QStringList("a.dat") : QStringList());
        QCOMPARE(requestsOf(download), QString(intact ? "a.dat" : "a.dat a.dat a.dat"));
        if (intact)
            QCOMPARE(files::sha1(files::read(download.dir / "downloads/a.dat")),
                     file.sha1.toLower());
    }

    void compressedTransferMayGrowAThousandfold()
    {
        const QByteArray zeros(12 * static_cast<int>(mebibyte), '\0');
        Download download;
        download.list(tree::entry("a.dat", zeros));
        download.answer("a.dat", {HttpReply::gzipped(zeros)});
        QVERIFY(download.saveAll());
        QVERIFY(files::read(download.dir / "downloads/a.dat") == zeros);
    }

    void damagedFileLeavesTheDirectoryMadeForIt()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(tree::entry("sub/dir/a.dat", "contents"));
        download.answer("sub/dir/a.dat", {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.saved(), QStringList({"sub/", "sub/dir/"}));
    }

    /// The memory of one body is used for the next. Nothing of the first may be left in the second.
    void shortFileAfterALongOneIsIntact()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(tree::entry("a.dat", "short"));
        download.answer("a.dat", {HttpReply::ok(QByteArray(100000, 'x')), HttpReply::ok("short")});
        QCOMPARE(download.run(), 0);
        QCOMPARE(download.boxes.summaries(), QStringList());
    }

    void failedTransferMakesNoDirectory()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(tree::entry("sub/dir/a.dat", "contents"));
        QCOMPARE(download.run(), 1);
        QVERIFY(!QFile::exists(download.dir / "downloads"));
    }

    void damagedFileLeavesAnEarlierCopyAlone()
    {
        IN_OWN_PROCESS();
        Download download;
        files::write(download.dir / "downloads/a.dat", "from an earlier run");
        download.list(tree::entry("a.dat", "contents"));
        download.answer("a.dat", {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(files::read(download.dir / "downloads/a.dat"), QByteArray("from an earlier run"));
    }

    // ---- The ends of a run

    void cancelLeavesTheSavedFiles()
    {
        TestDir tmp;
        const ScopedTmpDir scoped(tmp.path());
        {
            Download download;
            download.state.programBaseDir = download.dir / "app";
            download.offer("a", "contents of a");
            download.offer("b", "contents of b");
            download.answer("b", {HttpReply::hold(HttpReply::ok("contents of b"))});
            download.publish();
            download.updater.start(false);
            QVERIFY(download.waitForRequest("b"));

            auto* cancel = download.state.progressDialog->findChild<QPushButton*>();
            QCOMPARE(cancel->text(), QString("Cancel"));
            QCOMPARE(exitStatusOf([cancel] { cancel->click(); }), 0);
            QVERIFY(!QFile::exists(download.dir / "app"));
            QVERIFY(download.boxes.all().isEmpty());
        }
        const QString saved = tmp / "wUpEditor2.0";
        QCOMPARE(files::list(saved), QStringList("a"));
        QCOMPARE(files::read(saved + "/a"), QByteArray("contents of a"));
    }

    void abortOfAWholeRunInstallsNothing()
    {
        IN_OWN_PROCESS();
        TestDir tmp;
        const ScopedTmpDir scoped(tmp.path());
        Download download;
        download.state.programBaseDir = download.dir / "app";
        download.offer("a", "contents of a");
        download.list(tree::entry("sub/b", "contents of b"));
        download.answer("sub/b", {HttpReply::ok("damaged")});
        download.publish();
        bool visible = true;
        download.boxes.whenShown([&] { visible = download.state.progressDialog->isVisible(); });
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(MessageBoxes::damagedFile("b")));
        QVERIFY(!visible);
        QVERIFY(!QFile::exists(download.dir / "app"));
        QCOMPARE(files::list(tmp / "wUpEditor2.0"), QStringList({"a", "sub/"}));
    }

    void repliesAreReleased_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("left");
        row("all saved", "ok | ok | ok", 0);
        row("saved after failures", "T T ok | H S ok", 0);
        row("aborted by damage", "T H H", 0);
        // Intended: the reply whose error ends the update is left to the manager.
        row("aborted by a transfer error", "ok | H T T", 1);
    }

    void repliesAreReleased()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(int, left);
        Download download;
        follow(download, script);
        QVERIFY(download.run() != endless);
        QCOMPARE(download.repliesLeft(), left);
    }

    void nothingLeftToDownloadIsInstalledAtOnce_data()
    {
        QTest::addColumn<QStringList>("names");
        row("no files at all", QStringList());
        row("all saved before", QStringList({"a", "b"}));
    }

    void nothingLeftToDownloadIsInstalledAtOnce()
    {
        QFETCH(QStringList, names);
        Download download;
        download.state.programBaseDir = download.dir / "app";
        for (const QString& name : std::as_const(names)) {
            files::write(download.dir / "downloads/" + name, "saved before");
            download.offer(name, "new");
        }
        download.state.currentFile = static_cast<int>(names.size());
        QCOMPARE(download.run(), 0);
        QCOMPARE(files::list(download.dir / "app"), names);
        QVERIFY(download.server.requests().isEmpty());
        QVERIFY(download.state.netManager.findChildren<QNetworkReply*>().isEmpty());
    }
};

UPDATER_TEST_MAIN(TestDownloads)
#include "tst_Downloads.moc"
