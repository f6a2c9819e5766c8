// Downloads that fail: the retries, the message boxes, and files that cannot be opened.

#include "updater/Updater.h"

#include "tests/support/OwnProcess.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/BracketTranslator.h"
#include "tests/unit/Download.h"

#include <QMessageBox>
#include <QNetworkReply>
#include <QProgressDialog>

#include <utility>

Q_DECLARE_METATYPE(HttpReply)

namespace {

/// What keeps a file from being opened under the download directory.
enum Obstacle { DirectoryAtTheTarget, FileForItsDirectory, FileForTheDownloads };

void putInTheWay(Obstacle obstacle, const TestDir& dir)
{
    if (obstacle == DirectoryAtTheTarget)
        files::makeDirectory(dir / "downloads/sub/a.dat");
    else if (obstacle == FileForItsDirectory)
        files::write(dir / "downloads/sub", "in the way");
    else
        files::write(dir / "downloads", "in the way");
}

void clearTheWay(Obstacle obstacle, const TestDir& dir)
{
    if (obstacle == DirectoryAtTheTarget)
        QDir().rmdir(dir / "downloads/sub/a.dat");
    else if (obstacle == FileForItsDirectory)
        QFile::remove(dir / "downloads/sub");
    else
        QFile::remove(dir / "downloads");
}

} // namespace

class TestDownloadFailures : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // As in the program: a box that closes ends nothing.
        QApplication::setQuitOnLastWindowClosed(false);
    }

    // ---- The retry rule

    void threeFailuresInARowEndTheUpdate_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("requests");
        QTest::addColumn<QString>("box");
        QTest::addColumn<QStringList>("saved");

        const QString none;
        const QString warning = MessageBoxes::transferError(203);
        const QString damage = MessageBoxes::damagedFile("1");
        const auto all = [](int count) {
            QStringList names;
            for (int i = 1; i <= count; ++i)
                names.append(QString::number(i));
            return names;
        };

        row("no failure", "ok", "1", none, all(1));
        row("no failure of several files", "ok | ok | ok", "1 2 3", none, all(3));
        row("one transfer error", "T ok", "1 1", none, all(1));
        row("two transfer errors", "T T ok", "1 1 1", none, all(1));
        row("three transfer errors", "T T T", "1 1 1", warning, all(0));
        row("one wrong digest", "H ok", "1 1", none, all(1));
        row("two wrong digests", "H H ok", "1 1 1", none, all(1));
        row("three wrong digests", "H H H", "1 1 1", damage, all(0));
        row("one body too short", "S ok", "1 1", none, all(1));
        row("two bodies too short", "S S ok", "1 1 1", none, all(1));
        row("three bodies too short", "S S S", "1 1 1", damage, all(0));
        row("three bodies too long", "L L L", "1 1 1", damage, all(0));
        row("every kind of damage", "S L H", "1 1 1", damage, all(0));

        row("transfer error, then damage twice", "T H H", "1 1 1", damage, all(0));
        row("transfer error, then wrong sizes", "T S L", "1 1 1", damage, all(0));
        row("transfer errors, then damage", "T T H", "1 1 1", damage, all(0));
        row("transfer error between damages", "H T S", "1 1 1", damage, all(0));
        row("damage twice, then a transfer error", "H H T", "1 1 1", warning, all(0));
        row("damage, then transfer errors", "S T T", "1 1 1", warning, all(0));
        row("damage between transfer errors", "T H T", "1 1 1", warning, all(0));
        row("two failures of different kinds", "H T ok", "1 1 1", none, all(1));

        row("success resets the count", "H T ok | T T ok", "1 1 1 2 2 2", none, all(2));
        row("two failures of each file", "T T ok | H H ok | S T ok", "1 1 1 2 2 2 3 3 3", none,
            all(3));
        row("one failure, then two of the next file", "T ok | T T ok", "1 1 2 2 2", none, all(2));
        row("three failures of the next file after two of the first", "T T ok | T T T",
            "1 1 1 2 2 2", warning, all(1));
        row("third failure of the next file decides the box", "H H ok | T H S", "1 1 1 2 2 2",
            MessageBoxes::damagedFile("2"), all(1));

        row("files after the aborted one are never requested", "T T T | ok", "1 1 1", warning,
            all(0));
        row("saved files stay when a transfer fails", "ok | ok | T T T | ok", "1 2 3 3 3", warning,
            all(2));
        row("saved files stay when a file is damaged", "ok | ok | H H H | ok", "1 2 3 3 3",
            MessageBoxes::damagedFile("3"), all(2));
        row("last file aborts", "ok | S S S", "1 2 2 2", MessageBoxes::damagedFile("2"), all(1));
    }

    void threeFailuresInARowEndTheUpdate()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(QString, requests);
        QFETCH(QString, box);
        QFETCH(QStringList, saved);
        Download download;
        follow(download, script);

        const bool completes = box.isEmpty();
        QCOMPARE(download.run(), completes ? 0 : 1);
        QCOMPARE(requestsOf(download), requests);
        QCOMPARE(download.boxes.summaries(), completes ? QStringList() : QStringList(box));
        QCOMPARE(download.saved(), saved);
        for (const QString& name : std::as_const(saved))
            QCOMPARE(files::read(download.dir / "downloads/" + name),
                     "contents of " + name.toUtf8());
        QCOMPARE(download.state.currentFile, static_cast<int>(saved.size()));
        QCOMPARE(download.state.downloadedFiles, static_cast<int>(saved.size()));
    }

    void failuresAreCountedForTheWholeProcess()
    {
        IN_OWN_PROCESS();
        {
            Download download;
            follow(download, "T T T");
            QCOMPARE(download.run(), 1);
        }
        {
            // The count is still three.
            Download download;
            follow(download, "H ok");
            QCOMPARE(download.run(), 1);
            QCOMPARE(requestsOf(download), QString("1"));
            QCOMPARE(download.boxes.summaries(), QStringList(MessageBoxes::damagedFile("1")));
        }
        {
            // A saved file resets it.
            Download download;
            follow(download, "ok | T T ok");
            QCOMPARE(download.run(), 0);
        }
    }

    void brokenTransfersCountOnce_data()
    {
        QTest::addColumn<HttpReply>("reply");
        const QByteArray contents(5000, 'x');
        row("connection closed in the body", HttpReply::cutShort(contents, 4999));
        row("connection closed before the body", HttpReply::cutShort(contents, 0));
    }

    void brokenTransfersCountOnce()
    {
        IN_OWN_PROCESS();
        QFETCH(HttpReply, reply);
        const QByteArray contents(5000, 'x');
        Download download;
        download.list(tree::entry("1", contents));
        download.answer("1", {reply, reply, HttpReply::ok(contents)});
        QCOMPARE(download.run(), 0);
        QCOMPARE(requestsOf(download), QString("1 1 1"));
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(files::read(download.dir / "downloads/1"), contents);
    }

    // ---- The message boxes

    void warningGivesTheErrorCode_data()
    {
        QTest::addColumn<HttpReply>("reply");
        QTest::addColumn<int>("code");
        row("401 unauthorized", HttpReply::error(401), 204);
        row("404 not found", HttpReply::error(404), 203);
        row("405 not allowed", HttpReply::error(405), 202);
        row("418 unknown status", HttpReply::error(418), 302);
        const QByteArray contents(5000, 'x');
        row("closed before the end", HttpReply::cutShort(contents, 4000), 2);
        row("reset in the body", HttpReply::resetInBody(contents, 4000), 2);
        row("reset without an answer", HttpReply::reset(), 2);
    }

    void warningGivesTheErrorCode()
    {
        IN_OWN_PROCESS();
        QFETCH(HttpReply, reply);
        QFETCH(int, code);
        Download download;
        download.list(tree::entry("sub/a.dat", "contents"));
        download.answer("sub/a.dat", {reply});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(MessageBoxes::transferError(code)));
    }

    void warningGivesTheCodeOfTheLastError()
    {
        IN_OWN_PROCESS();
        Download download;
        download.list(tree::entry("a.dat", "contents"));
        download.answer("a.dat", {HttpReply::error(404), HttpReply::error(404),
                                  HttpReply::error(405), HttpReply::error(404)});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(MessageBoxes::transferError(202)));
    }

    void noticeOfDamageNamesTheFile_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("shown");
        row("plain name", "plain", "plain");
        row("directories are left out", "sub/dir/a.dat", "a.dat");
        row("backslashes are separators", "a\\b", "b");
        row("slash is the last separator", "a\\b/c.dat", "c.dat");
        row("backslash is the last separator", "a/b\\c.dat", "c.dat");
        row("leading slash is left out", "/a.dat", "a.dat");
        row("slash at the end shows the whole", "dir/", "dir/");
        row("slash at the end shows the directories", "sub/dir/", "sub/dir/");
        row("backslash at the end shows the whole", "sub/dir\\", "sub/dir\\");
        row("one character after the separator", "sub/a", "a");
        row("placeholder stays", "sub/a%1%2.dat", "a%1%2.dat");
        row("quotes and spaces stay", "sub/a \"b\".dat", "a \"b\".dat");
        row("markup stays", "<b>a.dat", "<b>a.dat");
    }

    void noticeOfDamageNamesTheFile()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, name);
        QFETCH(QString, shown);
        Download download;
        download.list(tree::entry(name, "contents"));
        download.answer(name, {HttpReply::ok("damaged")});
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(MessageBoxes::damagedFile(shown)));
    }

    void boxesAreModalNoticesWithOneButton_data()
    {
        QTest::addColumn<QString>("script");
        row("transfer error", "T");
        row("damage", "H");
    }

    void boxesAreModalNoticesWithOneButton()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        Download download;
        follow(download, script);
        download.openDialog();
        int transfers = -1;
        download.boxes.whenShown([&] { transfers = download.transfersRunning(); });
        QCOMPARE(download.run(), 1);

        QCOMPARE(download.boxes.all().size(), 1);
        const ShownBox box = download.boxes.all().first();
        QCOMPARE(box.standardButtons, QMessageBox::StandardButtons(QMessageBox::Ok));
        QCOMPARE(box.buttons, 1);
        QVERIFY(box.modal);
        QVERIFY(!box.hasParent);
        QCOMPARE(transfers, 0);
        // In everything else it is the box that Qt makes for such a call.
        const auto showBox = script == "T" ? &showWarning : &showCritical;
        showBox(box.title, box.text);
        QCOMPARE(download.boxes.all().size(), 2);
        QVERIFY(download.boxes.all().last() == box);
    }

    void boxesAreTranslated_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("expected");
        row("transfer error", "T",
            "warning|[Error]|[An error occured while downloading the update.\nError code: 203]");
        row("damage", "H",
            "critical|[Error]|[An error occured while downloading the file "
            "\"1\"\n\nAborting the update.]");
    }

    void boxesAreTranslated()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(QString, expected);
        const BracketTranslator translator;
        Download download;
        follow(download, script);
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.boxes.summaries(), QStringList(expected));
        QVERIFY(translator.asked().contains("Updater: Error"));
        QCOMPARE(translator.asked().filter("An error occured").size(), 1);
        QVERIFY(translator.asked().filter("An error occured").first().contains("%1"));
    }

    // ---- Files that cannot be opened

    void fileThatCannotBeOpenedIsFetchedUntilItCan_data()
    {
        QTest::addColumn<int>("obstacle");
        row("directory in its place", static_cast<int>(DirectoryAtTheTarget));
        row("file in place of its directory", static_cast<int>(FileForItsDirectory));
        row("file in place of the download directory", static_cast<int>(FileForTheDownloads));
    }

    void fileThatCannotBeOpenedIsFetchedUntilItCan()
    {
        QFETCH(int, obstacle);
        Download download;
        download.offer("sub/a.dat", QByteArray(static_cast<int>(mebibyte), 'x'));
        download.offer("b.dat", QByteArray(static_cast<int>(mebibyte), 'y'));
        QProgressDialog* dialog = download.openDialog();
        putInTheWay(static_cast<Obstacle>(obstacle), download.dir);

        QStringList looks;
        int savedSoFar = -1;
        int repliesAlive = -1;
        download.beforeEachReply([&] {
            const int requests = download.server.requestsFor("/r/sub/a.dat");
            if (download.state.currentFile == 0)
                looks.append(looksOf(*dialog));
            if (requests == 5) {
                // Each attempt sets the label and the value again.
                dialog->setLabelText("stale");
                dialog->setValue(1);
            } else if (requests == 15 && download.state.currentFile == 0) {
                savedSoFar = download.state.downloadedFiles;
                repliesAlive = static_cast<int>(
                    download.state.netManager.findChildren<QNetworkReply*>().size());
                clearTheWay(static_cast<Obstacle>(obstacle), download.dir);
            }
        });
        QCOMPARE(download.run(), 0);

        QCOMPARE(download.server.requestsFor("/r/sub/a.dat"), 15);
        QCOMPARE(download.server.requestsFor("/r/b.dat"), 1);
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(savedSoFar, 0);
        QVERIFY2(repliesAlive <= 2, "handled replies are not released");
        QCOMPARE(looks.size(), 15);
        QCOMPARE(looks.takeFirst(), QString("-1 | An update | shown"));
        QCOMPARE(looks.removeAll("0 | Downloading file 1 of 2 (2.00 MB left) | shown"), 14);
        QCOMPARE(download.saved(), QStringList({"b.dat", "sub/", "sub/a.dat"}));
    }

    void nameOfADirectoryIsFetchedWithoutEnd_data()
    {
        QTest::addColumn<QString>("name");
        row("slash at the end", "dir/");
        row("no name", "");
    }

    void nameOfADirectoryIsFetchedWithoutEnd()
    {
        QFETCH(QString, name);
        Download download;
        download.offer(name, "contents");
        download.beforeEachReply([&] {
            if (download.server.requestsFor(download.pathOf(name)) == 15)
                QCoreApplication::exit(5);
        });
        QCOMPARE(download.run(), 5);
        QVERIFY(download.boxes.all().isEmpty());
        QCOMPARE(download.state.currentFile, 0);
        QCOMPARE(download.state.downloadedFiles, 0);
    }

    void fileThatCannotBeOpenedLeavesTheCountOfFailures_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<int>("requests");
        QTest::addColumn<QString>("box");
        row("two transfer errors before, one after", "T T ok ok T", 5,
            MessageBoxes::transferError(203));
        row("two damages before, one after", "H H ok H", 4, MessageBoxes::damagedFile("1"));
        row("in between each time", "ok T ok H ok S", 6, MessageBoxes::damagedFile("1"));
        row("many in a row", "ok ok ok ok ok ok T T T", 9, MessageBoxes::transferError(203));
    }

    void fileThatCannotBeOpenedLeavesTheCountOfFailures()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, script);
        QFETCH(int, requests);
        QFETCH(QString, box);
        Download download;
        follow(download, script);
        files::makeDirectory(download.dir / "downloads/1");
        QCOMPARE(download.run(), 1);
        QCOMPARE(download.server.requests().size(), requests);
        QCOMPARE(download.boxes.summaries(), QStringList(box));
    }

private:
    static void showWarning(const QString& title, const QString& text)
    {
        QMessageBox::warning(nullptr, title, text, QMessageBox::Ok, QMessageBox::NoButton);
    }

    static void showCritical(const QString& title, const QString& text)
    {
        QMessageBox::critical(nullptr, title, text, QMessageBox::Ok, QMessageBox::NoButton);
    }
};

UPDATER_TEST_MAIN(TestDownloadFailures)
#include "tst_DownloadFailures.moc"
