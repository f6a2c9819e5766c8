// What an update has to download, and where to: the download directory and the selection of files.

#include "updater/Updater.h"

#include "tests/support/Needs.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/Run.h"

#include <QFileInfo>
#include <QProgressDialog>

#include <functional>

namespace {

/// Changes the installation in a directory before an update.
using Setup = std::function<void(const QString& baseDir)>;

} // namespace

Q_DECLARE_METATYPE(Setup)

class TestSelection : public RunTest
{
    Q_OBJECT

private Q_SLOTS:
    // ---- The download directory

    void downloadDirectoryIsNamedAfterTheRelease_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QByteArray>("version");
        QTest::addColumn<QString>("directory");
        const auto add = [](const char* name, const char* program, const char* version,
                            const char* directory) {
            row(name, QString(program), QByteArray(version), QString::fromUtf8(directory));
        };
        add("plain", "Editor", "2.1", "wUpEditor2.1");
        add("spaces inside", "My Editor", "2.1 beta", "wUpMy Editor2.1 beta");
        add("spaces around are trimmed", " Editor ", " 2.1 ", "wUpEditor2.1");
        add("case of the option, not of the file", "eDITOR", "2.1", "wUpeDITOR2.1");
        add("Latin-1", "Editor", "2.\xE4", "wUpEditor2.\xC3\xA4");
        add("slash makes a subdirectory", "Editor", "2/1", "wUpEditor2/1");
        // The name replaces %1 first. A placeholder in the name is then replaced by the version.
        add("%1 in the name", "A%1B", "2.1", "wUpA2.1B%2");
        add("%2 in the name", "A%2B", "2.1", "wUpA2.1B2.1");
        add("%3 in the name", "A%3B", "2.1", "wUpA%3B2.1");
        add("%1 and %2 in the name", "%1%2", "2.1", "wUp2.1%2%2");
        add("%L1 in the name", "A%L1B", "2.1", "wUpA2.1B%2");
        add("percent sign in the name", "100%", "2.1", "wUp100%2.1");
        add("%1 in the version", "Editor", "2%1", "wUpEditor2%1");
        add("%2 in the version", "Editor", "2%2", "wUpEditor2%2");
        add("placeholders in both", "A%1", "2%1%2", "wUpA2%1%2%2");
    }

    void downloadDirectoryIsNamedAfterTheRelease()
    {
        QFETCH(QString, name);
        QFETCH(QByteArray, version);
        QFETCH(QString, directory);
        for (const char* ending : {"", "/"}) {
            const ScopedTmpDir tmp(tmpPath() + ending);
            Run run;
            run.programName = name;
            run.publish(record(name.toLatin1(),
                               "<version>" + version + "</version>" + entry("missing", "1")));
            QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
            QCOMPARE(run.state().tempDir, tmpPath() + '/' + directory);
            QVERIFY(QFileInfo(tmpPath() + '/' + directory).isDir());
        }
    }

    void downloadDirectoryIsMadeEvenWithoutDownloads_data()
    {
        QTest::addColumn<QByteArray>("entries");
        row("no files listed", QByteArray());
        row("all files in place", entry("a.dat", "same"));
    }

    void downloadDirectoryIsMadeEvenWithoutDownloads()
    {
        QFETCH(QByteArray, entries);
        Run run;
        run.install("a.dat", "same");
        run.publish(editorRecord("2.1", entries));
        QCOMPARE(run.update(), 0);
        QCOMPARE(downloadDirectories(), QStringList{"wUpEditor2.1"});
        QCOMPARE(run.state().tempDir, tmpPath() + "/wUpEditor2.1");
    }

    void downloadDirectoryMayExist()
    {
        files::write(tmpPath() + "/wUpEditor2.1/old.dat", "old");
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(files::read(tmpPath() + "/wUpEditor2.1/old.dat"), QByteArray("old"));
    }

    void downloadDirectoryThatCannotBeMadeIsIgnored()
    {
        files::write(tmpPath() + "/wUpEditor2.1", "in the way");
        Run run;
        run.publish(anUpdate());
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.state().tempDir, tmpPath() + "/wUpEditor2.1");
    }

    // ---- The files

    void filesInPlaceAreNotDownloaded_data()
    {
        QTest::addColumn<Setup>("setup");
        QTest::addColumn<bool>("download");
        const auto add = [](const char* name, bool download, const Setup& setup) {
            row(name, setup, download);
        };
        add("missing", true, [](const QString&) {});
        add("identical", false,
            [](const QString& dir) { files::write(dir + "/a.dat", "contents"); });
        add("other contents, same size", true,
            [](const QString& dir) { files::write(dir + "/a.dat", "Contents"); });
        add("shorter", true, [](const QString& dir) { files::write(dir + "/a.dat", "content"); });
        add("longer", true, [](const QString& dir) { files::write(dir + "/a.dat", "contents "); });
        add("empty", true, [](const QString& dir) { files::write(dir + "/a.dat", ""); });
        add("directory", true, [](const QString& dir) { files::makeDirectory(dir + "/a.dat"); });
        add("link to an identical file", false, [](const QString& dir) {
            files::write(dir + "/target", "contents");
            files::link("target", dir + "/a.dat");
        });
        add("link to another file", true, [](const QString& dir) {
            files::write(dir + "/target", "Contents");
            files::link("target", dir + "/a.dat");
        });
        add("broken link", true, [](const QString& dir) { files::link("gone", dir + "/a.dat"); });
        add("identical, name in another case", true,
            [](const QString& dir) { files::write(dir + "/A.dat", "contents"); });
        add("identical, elsewhere", true,
            [](const QString& dir) { files::write(dir + "/sub/a.dat", "contents"); });
    }

    void filesInPlaceAreNotDownloaded()
    {
        QFETCH(Setup, setup);
        QFETCH(bool, download);
        Run run;
        setup(run.baseDir);
        run.publish(editorRecord("2.1", entry("a.dat", "contents")));
        QCOMPARE(run.update(), download ? static_cast<int>(Run::Downloading) : 0);
        QCOMPARE(run.selected(), download ? QStringList{"a.dat"} : QStringList());
    }

    void unreadableFileIsDownloaded()
    {
        ENFORCE_PERMISSIONS();
        Run run;
        run.install("a.dat", "contents");
        const ScopedMode locked(run.baseDir + "/a.dat", 0);
        run.publish(editorRecord("2.1", entry("a.dat", "contents")));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), QStringList{"a.dat"});
    }

    void directoryOfTheRightSizeIsDownloaded()
    {
        Run run;
        files::makeDirectory(run.baseDir + "/a.dat");
        const qint64 size = QFileInfo(run.baseDir + "/a.dat").size();
        run.publish(
            editorRecord("2.1", entry("a.dat", files::sha1(""), static_cast<quint64>(size))));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), QStringList{"a.dat"});
    }

    void entryDecidesWhatIsIdentical_data()
    {
        QTest::addColumn<QString>("sha1");
        QTest::addColumn<quint64>("size");
        QTest::addColumn<bool>("download");
        const QString sha1 = files::sha1("contents");
        row("as it is", sha1, quint64(8), false);
        row("digest in upper case", sha1.toUpper(), quint64(8), false);
        row("digest in upper and lower case", sha1.left(20).toUpper() + sha1.mid(20), quint64(8),
            false);
        row("another digest", files::sha1("Contents"), quint64(8), true);
        row("digest cut short", sha1.left(39), quint64(8), true);
        row("no digest at all", "x", quint64(8), true);
        row("another size", sha1, quint64(9), true);
        row("size 0", sha1, quint64(0), true);
        row("size beyond 32 bits", sha1, (quint64(1) << 32) + 8, true);
        row("largest size", sha1, ~quint64(0), true);
    }

    void entryDecidesWhatIsIdentical()
    {
        QFETCH(QString, sha1);
        QFETCH(quint64, size);
        QFETCH(bool, download);
        Run run;
        run.install("a.dat", "contents");
        run.publish(editorRecord("2.1", entry("a.dat", sha1, size)));
        QCOMPARE(run.update(), download ? static_cast<int>(Run::Downloading) : 0);
        QCOMPARE(run.selected(), download ? QStringList{"a.dat"} : QStringList());
    }

    void emptyFileCanBeInPlace()
    {
        Run run;
        run.install("a.dat", "");
        run.publish(editorRecord("2.1", entry("a.dat", "")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void filesAreLookedForInTheBaseDirectory_data()
    {
        QTest::addColumn<QString>("ending");
        QTest::addColumn<QString>("place");
        row("no separator at the end", "", "/");
        row("slash at the end", "/", "/");
        row("two slashes at the end", "//", "/");
        // No slash is added after a backslash, which is a character of the name here.
        row("backslash at the end", "\\", "\\");
    }

    void filesAreLookedForInTheBaseDirectory()
    {
        QFETCH(QString, ending);
        QFETCH(QString, place);
        Run run;
        files::write(run.baseDir + place + "a.dat", "1");
        files::write(run.baseDir + place + "sub/b.dat", "2");
        run.baseDir += ending;
        run.publish(editorRecord("2.1", entry("a.dat", "1") + entry("sub/b.dat", "2")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void emptyBaseDirectoryIsTheRoot()
    {
        Run run;
        run.install("a.dat", "1");
        const QString fromRoot = run.baseDir.mid(1) + "/a.dat";
        run.baseDir.clear();
        run.publish(editorRecord("2.1", entry(fromRoot, "1")));
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.selected(), QStringList());
    }

    void selectionKeepsTheOrder_data()
    {
        QTest::addColumn<QByteArray>("entries");
        QTest::addColumn<QStringList>("selected");
        const QByteArray here = entry("here", "here");
        const auto away = [](const char* name) {
            return entry(name, "away");
        };
        row("first in place", here + away("b") + away("a"), QStringList{"b", "a"});
        row("last in place", away("b") + away("a") + here, QStringList{"b", "a"});
        row("between", away("b") + here + away("a"), QStringList{"b", "a"});
        row("neighbours in place", away("c") + here + here + away("a") + here + away("b"),
            QStringList{"c", "a", "b"});
        row("none in place", away("c") + away("a") + away("b"), QStringList{"c", "a", "b"});
        row("one missing file twice", away("a") + here + away("a"), QStringList{"a", "a"});
        row("one file in place, also listed with other contents",
            here + entry("here", "else") + here, QStringList{"here"});
    }

    void selectionKeepsTheOrder()
    {
        QFETCH(QByteArray, entries);
        QFETCH(QStringList, selected);
        Run run;
        run.install("here", "here");
        run.publish(editorRecord("2.1", entries));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), selected);
    }

    void everySecondFileOfALargeReleaseIsSelected()
    {
        constexpr int pairs = 50000;
        Run run;
        run.install("here", "here");
        const QByteArray here = entry("here", "here");
        QByteArray entries;
        QStringList missing;
        for (int i = 0; i < pairs; ++i) {
            missing.append(QStringLiteral("away/%1.dat").arg(i));
            entries += entry(missing.last(), "away") + here;
        }
        run.publish(editorRecord("2.1", entries));
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.selected(), missing);
        QCOMPARE(run.dialog()->maximum(), pairs);
    }

    // ---- The start of the downloads

    void downloadsBeginWithTheFirstFile()
    {
        Run run;
        run.publish(editorRecord("2.1", entry("a", "1") + entry("b", "2")));
        run.state().currentFile = 1;
        run.state().downloadedFiles = 9;
        QCOMPARE(run.update(), static_cast<int>(Run::Downloading));
        QCOMPARE(run.state().currentFile, 0);
        QCOMPARE(run.state().downloadedFiles, 0);
        QCOMPARE(run.fileRequests(), QStringList{"/releases/a"});
        QCOMPARE(run.dialog()->labelText(), QString("Downloading file 1 of 2 (0.00 MB left)"));
    }

    void positionIsZeroedEvenWithoutDownloads()
    {
        Run run;
        run.publish(editorRecord("2.1"));
        run.state().currentFile = 7;
        run.state().downloadedFiles = 9;
        QCOMPARE(run.update(), 0);
        QCOMPARE(run.state().currentFile, 0);
        QCOMPARE(run.state().downloadedFiles, 0);
    }
};

UPDATER_TEST_MAIN(TestSelection)
#include "moc_Run.cpp"
#include "tst_Selection.moc"
