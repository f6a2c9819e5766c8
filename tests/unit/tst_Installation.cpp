// The installation: files moved into place, permissions, emptied directories, the program started
// again, and the exit status.

#include "updater/Updater.h"

#include "tests/support/EventLoop.h"
#include "tests/support/FakeProgram.h"
#include "tests/support/OwnProcess.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"

#include <QFileInfo>
#include <QProcess>

namespace {

/// An installation in "app", a download directory "tmp/new" beside it, and an updater whose
/// downloads are complete. Files are named from the directory that holds both.
///
/// Trees are written as lists: "sub/" is a directory, "sub/a.txt=text" a file and its contents,
/// "sub/a.txt->b.txt" a symbolic link.
class Installation
{
public:
    explicit Installation(const QString& programName = "Editor")
        : updater(programName, top / "app", "1.0", QString(), QString(), QString()), state(updater)
    {
        state.tempDir = top / "tmp/new";
        files::makeDirectory(top / "app");
    }

    void put(const QStringList& tree) const
    {
        for (const QString& line : tree)
            putOne(line);
    }

    /// Makes @p names the entries of the manifest, all of them saved.
    void list(const QStringList& names) const
    {
        for (const QString& name : names) {
            ProgramFile file;
            file.name = name;
            state.programData.files.append(file);
        }
        state.currentFile = static_cast<int>(state.programData.files.size());
    }

    /// Puts the file @p name, with the mode @p mode, into the download directory and the manifest.
    void download(const QString& name, unsigned mode) const
    {
        files::write(top / "tmp/new/" + name, "new");
        files::setMode(top / "tmp/new/" + name, mode);
        list({name});
    }

    /// Installs what is listed. @return The exit status asked for.
    int finish()
    {
        return exitStatusOf([this] { updater.allFilesDownloaded(); });
    }

    QStringList tree() const
    {
        QStringList tree = files::list(top.path());
        for (QString& line : tree) {
            const QString path = top / line;
            if (QFileInfo(path).isSymLink())
                line += "->link";
            else if (!line.endsWith('/'))
                line += '=' + QString::fromUtf8(files::read(path));
        }
        tree.sort();
        return tree;
    }

    const TestDir top;
    Updater updater;
    const UpdaterProbe state;

private:
    void putOne(const QString& line) const
    {
        const QStringList link = line.split("->");
        if (link.size() == 2)
            files::link(link.last(), top / link.first());
        else if (line.endsWith('/'))
            files::makeDirectory(top / line);
        else
            files::write(top / line.section('=', 0, 0), line.section('=', 1).toUtf8());
    }
};

void addTreeColumns()
{
    QTest::addColumn<QStringList>("entries");
    QTest::addColumn<QStringList>("before");
    QTest::addColumn<QStringList>("after");
}

void treeRow(const char* name, const QStringList& entries, const QStringList& before,
             const QStringList& after)
{
    row(name, entries, before, after);
}

void checkTree()
{
    QFETCH(QStringList, entries);
    QFETCH(QStringList, before);
    QFETCH(QStringList, after);
    Installation installation;
    installation.put(before);
    installation.list(entries);
    QCOMPARE(installation.finish(), 0);
    after.sort();
    QCOMPARE(installation.tree(), after);
}

/// What a relaunched program called @p name records when it runs in @p directory without arguments.
QString startRecord(const QString& name, const QString& directory)
{
    return name + '|' + QFileInfo(directory).canonicalFilePath() + '|';
}

/// True when @p updater can still start a program. It can start only one, so none has been started.
bool canStillStart(const Updater& updater, const RelaunchedProgram& programs, const TestDir& dir)
{
    programs.install(dir / "witness", "witness");
    return updater.startProgram(dir / "witness") &&
           QTest::qWaitFor([&] { return !programs.starts().isEmpty(); }, 30000) &&
           programs.starts() == QStringList{startRecord("witness", dir.path())};
}

} // namespace

class TestInstallation : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nothingHappensWhileFilesAreMissing_data()
    {
        QTest::addColumn<int>("currentFile");
        QTest::addColumn<QStringList>("entries");
        row("nothing saved", 0, QStringList{"a.txt"});
        row("one of two saved", 1, QStringList{"a.txt", "b.txt"});
        row("more saved than listed", 2, QStringList{"a.txt"});
        row("one saved of none", 1, QStringList());
        row("index below zero", -1, QStringList());
    }

    void nothingHappensWhileFilesAreMissing()
    {
        IN_OWN_PROCESS();
        QFETCH(int, currentFile);
        QFETCH(QStringList, entries);
        const RelaunchedProgram programs;
        const TestDir dir;
        programs.install(dir / "given", "given");
        Installation installation;
        installation.put({"app/a.txt=old", "tmp/new/a.txt=new", "tmp/new/b.txt=new"});
        installation.list(entries);
        installation.state.currentFile = currentFile;
        installation.state.programExe = dir / "given";
        const QStringList before = installation.tree();

        QCOMPARE(installation.finish(), 1);
        QCOMPARE(installation.tree(), before);
        QCOMPARE(installation.state.currentFile, currentFile);
        QVERIFY(canStillStart(installation.updater, programs, dir));
    }

    void earlierRequestForAnExitIsReplaced()
    {
        Installation complete;
        QCOMPARE(exitStatusOf([&] {
                     QCoreApplication::exit(1);
                     complete.updater.allFilesDownloaded();
                 }),
                 0);
        Installation incomplete;
        incomplete.state.currentFile = 1;
        QCOMPARE(exitStatusOf([&] {
                     QCoreApplication::exit(0);
                     incomplete.updater.allFilesDownloaded();
                 }),
                 1);
    }

    void filesMoveIntoPlace_data()
    {
        addTreeColumns();
        treeRow("over an older file", {"a.txt"}, {"app/a.txt=old", "tmp/new/a.txt=new"},
                {"app/", "app/a.txt=new"});
        treeRow("shorter than the older file", {"a.txt"},
                {"app/a.txt=old and long", "tmp/new/a.txt="}, {"app/", "app/a.txt="});
        treeRow("beside other files", {"a.txt"}, {"app/b.txt=old", "tmp/new/a.txt=new"},
                {"app/", "app/a.txt=new", "app/b.txt=old"});
        treeRow("into a directory that is there", {"sub/a.txt"},
                {"app/sub/b.txt=old", "tmp/new/sub/a.txt=new"},
                {"app/", "app/sub/", "app/sub/a.txt=new", "app/sub/b.txt=old"});
        treeRow("into a new directory", {"sub/new.dat"}, {"tmp/new/sub/new.dat=new"},
                {"app/", "app/sub/", "app/sub/new.dat=new"});
        treeRow("into new directories, several deep", {"a/b/c/new.dat"},
                {"tmp/new/a/b/c/new.dat=new"},
                {"app/", "app/a/", "app/a/b/", "app/a/b/c/", "app/a/b/c/new.dat=new"});
        treeRow("several files", {"c.txt", "sub/a.txt", "b.txt"},
                {"app/b.txt=old", "tmp/new/b.txt=new b", "tmp/new/c.txt=new c",
                 "tmp/new/sub/a.txt=new a"},
                {"app/", "app/b.txt=new b", "app/c.txt=new c", "app/sub/", "app/sub/a.txt=new a"});
        treeRow("name with spaces", {"my files/the file.txt"},
                {"app/my files/the file.txt=old", "tmp/new/my files/the file.txt=new"},
                {"app/", "app/my files/", "app/my files/the file.txt=new"});
        treeRow("over a link, whose target stays", {"a.txt"},
                {"other.txt=other", "app/a.txt->../other.txt", "tmp/new/a.txt=new"},
                {"app/", "app/a.txt=new", "other.txt=other"});
        treeRow("nothing to install", {}, {"app/a.txt=old"}, {"app/", "app/a.txt=old"});
    }

    void filesMoveIntoPlace() { checkTree(); }

    void onlyReplacedFilesLeaveTheInstallation_data()
    {
        addTreeColumns();
        treeRow(
            "files no longer listed", {"a.txt"},
            {"app/a.txt=old", "app/extra.txt=old", "app/gone/extra.txt=old", "tmp/new/a.txt=new"},
            {"app/", "app/a.txt=new", "app/extra.txt=old", "app/gone/", "app/gone/extra.txt=old"});
        treeRow("empty directories", {"sub/a.txt"},
                {"app/empty/", "app/sub/empty/", "tmp/new/sub/a.txt=new"},
                {"app/", "app/empty/", "app/sub/", "app/sub/a.txt=new", "app/sub/empty/"});
        treeRow(
            "downloads that are not listed stay where they are", {"a.txt"},
            {"app/b.txt=old", "tmp/new/a.txt=new", "tmp/new/b.txt=new"},
            {"app/", "app/a.txt=new", "app/b.txt=old", "tmp/", "tmp/new/", "tmp/new/b.txt=new"});
    }

    void onlyReplacedFilesLeaveTheInstallation() { checkTree(); }

    // Outside Windows a backslash is a character of the name. What comes before the last slash or
    // backslash is the directory all the same.
    void backslashesInNamesSeparate_data()
    {
        addTreeColumns();
        treeRow("backslash", {"sub\\a.txt"}, {"tmp/new/sub\\a.txt=new"},
                {"app/", "app/sub/", "app/sub\\a.txt=new", "tmp/", "tmp/new/"});
        treeRow(
            "backslash after a slash", {"a/b\\c.txt"}, {"tmp/new/a/b\\c.txt=new"},
            {"app/", "app/a/", "app/a/b/", "app/a/b\\c.txt=new", "tmp/", "tmp/new/", "tmp/new/a/"});
        treeRow("slash after a backslash", {"a\\b/c.txt"}, {"tmp/new/a\\b/c.txt=new"},
                {"app/", "app/a\\b/", "app/a\\b/c.txt=new"});
        treeRow("no directory is made beside a file that is there", {"sub\\a.txt"},
                {"app/sub\\a.txt=old", "tmp/new/sub\\a.txt=new"},
                {"app/", "app/sub\\a.txt=new", "tmp/", "tmp/new/"});
        treeRow("emptied directory before a backslash", {"sub\\a.txt"},
                {"tmp/new/sub/", "tmp/new/sub\\a.txt=new"},
                {"app/", "app/sub/", "app/sub\\a.txt=new"});
    }

    void backslashesInNamesSeparate() { checkTree(); }

    void directoriesMayEndWithASeparator_data()
    {
        QTest::addColumn<QString>("baseDir");
        QTest::addColumn<QString>("tempDir");
        QTest::addColumn<QString>("downloaded");
        QTest::addColumn<QString>("installed");
        row("none", "app", "tmp/new", "tmp/new/a.txt", "app/a.txt");
        row("slash at the base directory", "app/", "tmp/new", "tmp/new/a.txt", "app/a.txt");
        row("slash at the download directory", "app", "tmp/new/", "tmp/new/a.txt", "app/a.txt");
        row("two slashes at both", "app//", "tmp/new//", "tmp/new/a.txt", "app/a.txt");
        row("backslash at the base directory", "app\\", "tmp/new", "tmp/new/a.txt", "app\\a.txt");
        row("backslash at the download directory", "app", "tmp/new\\", "tmp/new\\a.txt",
            "app/a.txt");
    }

    void directoriesMayEndWithASeparator()
    {
        QFETCH(QString, baseDir);
        QFETCH(QString, tempDir);
        QFETCH(QString, downloaded);
        QFETCH(QString, installed);
        Installation installation;
        installation.put({"tmp/new/", downloaded + "=new"});
        installation.list({"a.txt"});
        installation.state.programBaseDir = installation.top / baseDir;
        installation.state.tempDir = installation.top / tempDir;
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(installation.tree(), (QStringList{"app/", installed + "=new"}));
    }

    void filesAreInstalledInTheOrderOfTheList_data()
    {
        addTreeColumns();
        // The directory moves as a whole. Its file is then removed as an old one.
        treeRow("directory before its file", {"x", "x/y"}, {"tmp/new/x/y=new"}, {"app/", "app/x/"});
        treeRow("file before its directory", {"x/y", "x"}, {"tmp/new/x/y=new"},
                {"app/", "app/x/", "app/x/y=new"});
    }

    void filesAreInstalledInTheOrderOfTheList() { checkTree(); }

    void failuresDoNotStopTheInstallation_data()
    {
        addTreeColumns();
        treeRow("download missing, the installed file is removed anyway", {"a.txt", "b.txt"},
                {"app/a.txt=old", "tmp/new/b.txt=new"}, {"app/", "app/b.txt=new"});
        treeRow("download missing, its directory is made anyway", {"sub/a.txt", "b.txt"},
                {"tmp/new/b.txt=new"}, {"app/", "app/b.txt=new", "app/sub/"});
        treeRow("entry listed twice, nothing is left to move for the second", {"a.txt", "a.txt"},
                {"tmp/new/a.txt=new"}, {"app/"});
        treeRow("entry listed twice, others follow", {"a.txt", "a.txt", "b.txt"},
                {"app/a.txt=old", "tmp/new/a.txt=new", "tmp/new/b.txt=new"},
                {"app/", "app/b.txt=new"});
        treeRow("directory instead of the file", {"a.txt", "b.txt"},
                {"app/a.txt/", "tmp/new/a.txt=new", "tmp/new/b.txt=new"},
                {"app/", "app/a.txt/", "app/b.txt=new", "tmp/", "tmp/new/", "tmp/new/a.txt=new"});
        treeRow("directory with a file instead of the file", {"a.txt", "b.txt"},
                {"app/a.txt/c.txt=old", "tmp/new/a.txt=new", "tmp/new/b.txt=new"},
                {"app/", "app/a.txt/", "app/a.txt/c.txt=old", "app/b.txt=new", "tmp/", "tmp/new/",
                 "tmp/new/a.txt=new"});
        treeRow("file instead of the directory", {"sub/a.txt", "b.txt"},
                {"app/sub=old", "tmp/new/sub/a.txt=new", "tmp/new/b.txt=new"},
                {"app/", "app/b.txt=new", "app/sub=old", "tmp/", "tmp/new/", "tmp/new/sub/",
                 "tmp/new/sub/a.txt=new"});
        treeRow("no download directory", {"a.txt", "sub/b.txt"}, {"app/a.txt=old"},
                {"app/", "app/sub/"});
    }

    void failuresDoNotStopTheInstallation() { checkTree(); }

    void emptiedDownloadDirectoriesAreRemoved_data()
    {
        addTreeColumns();
        treeRow("download directory", {"a.txt"}, {"tmp/other=other", "tmp/new/a.txt=new"},
                {"app/", "app/a.txt=new", "tmp/", "tmp/other=other"});
        treeRow("download directory and its empty parents", {"a.txt"}, {"tmp/new/a.txt=new"},
                {"app/", "app/a.txt=new"});
        treeRow(
            "directories inside", {"x/y/a.txt", "x/b.txt", "z/c.txt"},
            {"tmp/other=other", "tmp/new/x/y/a.txt=a", "tmp/new/x/b.txt=b", "tmp/new/z/c.txt=c"},
            {"app/", "app/x/", "app/x/b.txt=b", "app/x/y/", "app/x/y/a.txt=a", "app/z/",
             "app/z/c.txt=c", "tmp/", "tmp/other=other"});
        treeRow("not one with a file in it", {"x/a.txt", "y/b.txt"},
                {"tmp/new/x/a.txt=new", "tmp/new/x/left=left", "tmp/new/y/b.txt=new"},
                {"app/", "app/x/", "app/x/a.txt=new", "app/y/", "app/y/b.txt=new", "tmp/",
                 "tmp/new/", "tmp/new/x/", "tmp/new/x/left=left"});
        treeRow("not one with a directory in it", {"a.txt"},
                {"tmp/new/a.txt=new", "tmp/new/empty/"},
                {"app/", "app/a.txt=new", "tmp/", "tmp/new/", "tmp/new/empty/"});
        treeRow("though the download is missing", {"x/a.txt"}, {"tmp/other=other", "tmp/new/x/"},
                {"app/", "app/x/", "tmp/", "tmp/other=other"});
        treeRow("no directory without entries", {}, {"tmp/new/empty/"},
                {"app/", "tmp/", "tmp/new/", "tmp/new/empty/"});
    }

    void emptiedDownloadDirectoriesAreRemoved() { checkTree(); }

    void filesKeepTheModeOfTheDownload_data()
    {
        QTest::addColumn<unsigned>("mode");
        row("private", 0600U);
        row("readable", 0644U);
        row("read-only", 0444U);
        row("executable by the owner", 0700U);
        row("open to all", 0777U);
    }

    void filesKeepTheModeOfTheDownload()
    {
        QFETCH(unsigned, mode);
        Installation installation;
        installation.put({"app/old.txt=old"});
        files::setMode(installation.top / "app/old.txt", 0751);
        installation.download("old.txt", mode);
        installation.download("new.txt", mode);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/old.txt"), mode);
        QCOMPARE(files::mode(installation.top / "app/new.txt"), mode);
    }

    void iconFilesBecomeExecutable_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned>("downloaded");
        QTest::addColumn<unsigned>("installed");
        row("lower case", "app.icns", 0640U, 0755U);
        row("upper case in a directory", "icons/App.ICNS", 0640U, 0755U);
        row("mixed case, deep down", "a/b/c/App.IcNs", 0600U, 0755U);
        row("ending as the whole name", ".icns", 0600U, 0755U);
        row("backslash before the ending", "icons\\.icns", 0600U, 0755U);
        row("wider mode becomes narrower", "app.icns", 0777U, 0755U);
        row("special bits are removed", "app.icns", 04755U, 0755U);
        row("ending inside the name", "x.icns.bak", 0640U, 0640U);
        row("longer ending", "x.icnsx", 0640U, 0640U);
        row("no dot", "xicns", 0640U, 0640U);
        row("space after the ending", "x.icns ", 0640U, 0640U);
        row("ending of a directory", "x.icns/a.png", 0640U, 0640U);
        row("another kind of icon", "x.ico", 0640U, 0640U);
    }

    void iconFilesBecomeExecutable()
    {
        QFETCH(QString, name);
        QFETCH(unsigned, downloaded);
        QFETCH(unsigned, installed);
        Installation installation;
        installation.download(name, downloaded);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/" + name), installed);
        QVERIFY(installation.state.programExe.isEmpty());
    }

    void everyIconFileBecomesExecutable()
    {
        Installation installation;
        installation.download("a.icns", 0600);
        installation.download("Editor.app/Contents/MacOS/Editor", 0600);
        installation.download("b.icns", 0600);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/a.icns"), 0755U);
        QCOMPARE(files::mode(installation.top / "app/b.icns"), 0755U);
    }

    void bundleExecutableIsKnownByTheEndOfItsPath_data()
    {
        QTest::addColumn<QString>("programName");
        QTest::addColumn<QString>("name");
        QTest::addColumn<bool>("known");
        row("in a bundle", "Editor", "Editor.app/Contents/MacOS/Editor", true);
        row("in another case", "Editor", "Editor.app/Contents/MacOS/editor", true);
        row("directories in another case", "Editor", "Editor.app/contents/MACOS/EDITOR", true);
        row("without a bundle", "Editor", "Contents/MacOS/Editor", true);
        row("only the end counts", "Editor", "XContents/MacOS/Editor", true);
        row("in a bundle of another name", "Editor", "a/b/Viewer.app/Contents/MacOS/Editor", true);
        row("name with spaces", "My Editor", "My Editor.app/Contents/MacOS/My Editor", true);
        row("name with a placeholder", "Ed%1", "Contents/MacOS/Ed%1", true);
        row("name that is a placeholder", "%1", "Contents/MacOS/%1", true);
        row("name with other placeholders", "%2%n%%", "Contents/MacOS/%2%n%%", true);
        row("longer name", "Editor", "Contents/MacOS/Editor2", false);
        row("longer beginning", "Editor", "Contents/MacOS/XEditor", false);
        row("shorter name", "Editor", "Contents/MacOS/Edito", false);
        row("name as a pattern", "Edit.r", "Contents/MacOS/Editor", false);
        row("another name in the bundle", "Editor", "Editor.app/Contents/MacOS/helper", false);
        row("directory of that name", "Editor", "Contents/MacOS/Editor/a.txt", false);
        row("directory between", "Editor", "Contents/MacOS/bin/Editor", false);
        row("name alone", "Editor", "Editor", false);
        row("another directory", "Editor", "Contents/Resources/Editor", false);
        row("backslashes", "Editor", "Contents\\MacOS\\Editor", false);
    }

    // The contents are no program, so no row starts anything.
    void bundleExecutableIsKnownByTheEndOfItsPath()
    {
        QFETCH(QString, programName);
        QFETCH(QString, name);
        QFETCH(bool, known);
        Installation installation(programName);
        installation.download(name, 0640);
        QCOMPARE(installation.finish(), 0);
        const QString installed = installation.top / "app/" + name;
        QCOMPARE(files::mode(installed), known ? 0755U : 0640U);
        QCOMPARE(installation.state.programExe, known ? installed : QString());
    }

    void baseDirectoryIsPartOfThePathOfTheBundleExecutable()
    {
        Installation installation;
        const QString baseDir = installation.top / "app/Editor.app/Contents/MacOS";
        installation.state.programBaseDir = baseDir;
        installation.download("Editor", 0600);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(baseDir + "/Editor"), 0755U);
        QCOMPARE(installation.state.programExe, baseDir + "/Editor");
    }

    void firstBundleExecutableIsTheOnlyOne_data()
    {
        QTest::addColumn<QString>("first");
        QTest::addColumn<QString>("second");
        row("in order of names", "A.app/Contents/MacOS/Editor", "B.app/Contents/MacOS/Editor");
        row("against the order of names", "B.app/Contents/MacOS/Editor",
            "A.app/Contents/MacOS/Editor");
    }

    void firstBundleExecutableIsTheOnlyOne()
    {
        QFETCH(QString, first);
        QFETCH(QString, second);
        Installation installation;
        installation.download("a.txt", 0640);
        installation.download(first, 0640);
        installation.download(second, 0640);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/" + first), 0755U);
        QCOMPARE(files::mode(installation.top / "app/" + second), 0640U);
        QCOMPARE(installation.state.programExe, installation.top / "app/" + first);
    }

    void secondBundleExecutableDoesNotReplaceTheFirst()
    {
        Installation installation;
        installation.list({"A.app/Contents/MacOS/Editor"});
        installation.download("B.app/Contents/MacOS/Editor", 0640);
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/B.app/Contents/MacOS/Editor"), 0640U);
        QCOMPARE(installation.state.programExe, QString());
    }

    // A directory in the way stays, and gets the permissions meant for the file.
    void permissionsAreSetThoughTheMoveFailed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned>("mode");
        row("icon file", "app.icns", 0755U);
        row("bundle executable", "Contents/MacOS/Editor", 0755U);
        row("another file", "a.txt", 0700U);
    }

    void permissionsAreSetThoughTheMoveFailed()
    {
        QFETCH(QString, name);
        QFETCH(unsigned, mode);
        Installation installation;
        const QString inTheWay = installation.top / "app/" + name;
        files::makeDirectory(inTheWay);
        files::setMode(inTheWay, 0700);
        installation.download(name, 0600);
        QCOMPARE(installation.finish(), 0);
        QVERIFY(QFileInfo(inTheWay).isDir());
        QCOMPARE(files::mode(inTheWay), mode);
        QCOMPARE(files::mode(installation.top / "tmp/new/" + name), 0600U);
    }

    // Each of "programs" can be started. The name that it records is the path it was written to.
    void programIsChosenAndStarted_data()
    {
        QTest::addColumn<QString>("given");
        QTest::addColumn<QStringList>("programs");
        QTest::addColumn<QStringList>("entries");
        QTest::addColumn<QString>("chosen");
        QTest::addColumn<QString>("started");
        const auto add = [](const char* name, const char* given, const QStringList& programs,
                            const QStringList& entries, const char* chosen, const char* started) {
            row(name, given, programs, entries, chosen, started);
        };
        const QString bundleExe = "Editor.app/Contents/MacOS/Editor";
        add("given, nothing to install", "app/run", {"app/run"}, {}, "app/run", "app/run");
        add("given, no bundle executable in the update", "app/run", {"app/run", "tmp/new/tool"},
            {"tool"}, "app/run", "app/run");
        add("given wins over the bundle executable", "app/run", {"app/run", "tmp/new/" + bundleExe},
            {bundleExe}, "app/run", "app/run");
        add("given outside the installation", "elsewhere/run",
            {"elsewhere/run", "tmp/new/" + bundleExe}, {bundleExe}, "elsewhere/run",
            "elsewhere/run");
        add("given one is replaced by the update", "app/run", {"app/run", "tmp/new/run"}, {"run"},
            "app/run", "tmp/new/run");
        add("given one comes with the update", "app/run", {"tmp/new/run", "tmp/new/" + bundleExe},
            {"run", bundleExe}, "app/run", "tmp/new/run");
        add("given one is lost in the update", "app/run", {"app/run", "tmp/new/" + bundleExe},
            {"run", bundleExe}, "app/Editor.app/Contents/MacOS/Editor",
            "tmp/new/Editor.app/Contents/MacOS/Editor");
        add("given one is missing", "app/run", {"tmp/new/" + bundleExe}, {bundleExe},
            "app/Editor.app/Contents/MacOS/Editor", "tmp/new/Editor.app/Contents/MacOS/Editor");
        add("none given", "", {"tmp/new/" + bundleExe}, {bundleExe},
            "app/Editor.app/Contents/MacOS/Editor", "tmp/new/Editor.app/Contents/MacOS/Editor");
        add("bundle executable is replaced", "", {"app/" + bundleExe, "tmp/new/" + bundleExe},
            {bundleExe}, "app/Editor.app/Contents/MacOS/Editor",
            "tmp/new/Editor.app/Contents/MacOS/Editor");
        add("bundle executable is not the last file", "",
            {"tmp/new/a", "tmp/new/" + bundleExe, "tmp/new/z"}, {"a", bundleExe, "z"},
            "app/Editor.app/Contents/MacOS/Editor", "tmp/new/Editor.app/Contents/MacOS/Editor");

        add("given one is missing, no bundle executable in the update", "app/run",
            {"app/" + bundleExe, "tmp/new/tool"}, {"tool"}, "app/run", "");
        add("given one is missing, and so is that of the bundle", "app/run", {}, {bundleExe},
            "app/run", "");
        add("none given, no bundle executable in the update", "",
            {"app/" + bundleExe, "tmp/new/tool"}, {"tool"}, "", "");
        add("none given, nothing to install", "", {"app/" + bundleExe}, {}, "", "");
        add("none given, bundle executable is missing", "", {"app/" + bundleExe}, {bundleExe}, "",
            "");
        add("given one is a directory", "app/sub", {"app/sub/run", "tmp/new/" + bundleExe},
            {bundleExe}, "app/sub", "");
    }

    void programIsChosenAndStarted()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, given);
        QFETCH(QStringList, programs);
        QFETCH(QStringList, entries);
        QFETCH(QString, chosen);
        QFETCH(QString, started);
        const RelaunchedProgram relaunched;
        Installation installation;
        const TestDir& top = installation.top;
        for (const QString& path : programs)
            relaunched.install(top / path, path.toUtf8());
        installation.list(entries);
        installation.state.programExe = given.isEmpty() ? QString() : top / given;

        QCOMPARE(installation.finish(), 0);
        QCOMPARE(installation.state.programExe, chosen.isEmpty() ? QString() : top / chosen);
        if (started.isEmpty()) {
            QVERIFY(canStillStart(installation.updater, relaunched, top));
            return;
        }
        const QString directory = QFileInfo(top / chosen).path();
        QTRY_COMPARE(relaunched.starts(), QStringList{startRecord(started, directory)});
    }

    void bundleExecutableIsStartedThoughItWasSavedWithoutExecutePermission()
    {
        IN_OWN_PROCESS();
        const RelaunchedProgram relaunched;
        Installation installation;
        const QString name = "Editor.app/Contents/MacOS/Editor";
        files::write(installation.top / "tmp/new/" + name, relaunched.script("Editor"));
        files::setMode(installation.top / "tmp/new/" + name, 0600);
        installation.list({name});
        QCOMPARE(installation.finish(), 0);
        QTRY_COMPARE(relaunched.starts().size(), 1);
    }

    void givenProgramGetsNoExecutePermission()
    {
        IN_OWN_PROCESS();
        const RelaunchedProgram relaunched;
        Installation installation;
        installation.download("run", 0600);
        installation.state.programExe = installation.top / "app/run";
        QCOMPARE(installation.finish(), 0);
        QCOMPARE(files::mode(installation.top / "app/run"), 0600U);
        QVERIFY(canStillStart(installation.updater, relaunched, installation.top));
    }

    // The working directory is "here", which is also in the PATH; the base directory is "base".
    void programRunsInItsDirectory_data()
    {
        QTest::addColumn<QString>("file");
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("directory");
        row("absolute path", "app/run", "@top/app/run", "app");
        row("spaces", "my app/the program", "@top/my app/the program", "my app");
        row("quotes and dollars", "a'b/\"$HOME\"", "@top/a'b/\"$HOME\"", "a'b");
        row("two slashes before the name", "app/run", "@top/app//run", "app");
        row("backslash before the name", "app\\run", "@top/app\\run", "app");
        row("slash after a backslash", "a\\b/run", "@top/a\\b/run", "a\\b");
        row("relative path", "here/run", "./run", "here");
        row("bare name", "here/run", "run", "base");
        // Nothing is before the separator: the program gets the working directory of the updater.
        row("separator at the start", "here/\\run", "\\run", "here");
    }

    void programRunsInItsDirectory()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, file);
        QFETCH(QString, path);
        QFETCH(QString, directory);
        const RelaunchedProgram programs;
        Installation installation;
        const TestDir& top = installation.top;
        installation.put({"base/", "here/", "app/"});
        programs.install(top / file, "program");
        QDir::setCurrent(top / "here");
        qputenv("PATH", QFile::encodeName(top / "here") + ':' + qgetenv("PATH"));
        installation.state.programBaseDir = top / "base";

        QVERIFY(installation.updater.startProgram(path.replace("@top", top.path())));
        QTRY_COMPARE(programs.starts(), QStringList{startRecord("program", top / directory)});
    }

    void failedStartLeavesTheNextOneFree_data()
    {
        QTest::addColumn<QString>("path");
        row("empty path", QString());
        row("missing file", "@top/app/missing");
        row("missing directory", "@top/missing/program");
        row("file without execute permission", "@top/app/plain");
        row("file that is no program", "@top/app/text");
        row("directory", "@top/app");
        row("broken link", "@top/app/link");
        row("name that only the PATH knows", "in-path");
        // It is looked up from its own directory, where there is no "app".
        row("relative path", "app/relative");
    }

    void failedStartLeavesTheNextOneFree()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, path);
        const RelaunchedProgram programs;
        Installation installation;
        const TestDir& top = installation.top;
        files::write(top / "app/plain", programs.script("plain"));
        installation.put({"app/text=no program", "app/link->missing"});
        files::setMode(top / "app/plain", 0644);
        files::setMode(top / "app/text", 0755);
        programs.install(top / "bin/in-path", "in-path");
        programs.install(top / "app/relative", "relative");
        qputenv("PATH", QFile::encodeName(top / "bin") + ':' + qgetenv("PATH"));
        QDir::setCurrent(top.path());

        QVERIFY(!installation.updater.startProgram(path.replace("@top", top.path())));
        QVERIFY(canStillStart(installation.updater, programs, top));
    }

    void secondStartIsRefusedInSilence_data()
    {
        QTest::addColumn<QString>("path");
        row("same program", "@top/app/first");
        row("another program", "@top/app/second");
        row("missing file", "@top/app/missing");
        row("file that is no program", "@top/app/text");
        row("empty path", QString());
    }

    void secondStartIsRefusedInSilence()
    {
        IN_OWN_PROCESS();
        QFETCH(QString, path);
        const RelaunchedProgram programs;
        Installation installation;
        const TestDir& top = installation.top;
        installation.put({"app/text=no program"});
        programs.install(top / "app/first", "first");
        programs.install(top / "app/second", "second");
        programs.install(top / "app/last", "last");
        QVERIFY(installation.updater.startProgram(top / "app/first"));
        QTRY_COMPARE(programs.starts().size(), 1);

        path.replace("@top", top.path());
        QVERIFY(installation.updater.startProgram(path));
        // The start belongs to the process, not to the object.
        Installation another;
        QVERIFY(another.updater.startProgram(path));

        QVERIFY(QProcess::startDetached(top / "app/last", {}, top / "app"));
        QTRY_COMPARE(programs.starts().filter("last").size(), 1);
        QCOMPARE(programs.starts(), (QStringList{startRecord("first", top / "app"),
                                                 startRecord("last", top / "app")}));
    }

    void startedProgramOutlivesTheUpdater()
    {
        if (ownprocess::isOne()) {
            Installation installation;
            installation.state.programExe = qEnvironmentVariable("PROGRAM_TO_START");
            QCOMPARE(installation.finish(), 0);
            return;
        }
        const TestDir dir;
        const RelaunchedProgram programs;
        programs.install(dir / "Editor", "Editor");
        qputenv("PROGRAM_TO_START", QFile::encodeName(dir / "Editor"));
        const QByteArray failure = ownprocess::failureOfCurrentRow();
        QVERIFY2(failure.isNull(), failure.constData());

        // The updater's process has ended. The program waits until the test lets it end.
        QTRY_COMPARE(programs.starts(), QStringList{startRecord("Editor", dir.path())});
        QVERIFY(programs.ends().isEmpty());
        programs.letEnd();
        QTRY_COMPARE(programs.ends(), QStringList{"Editor"});
    }

    void startedProgramIsNoChildAndGetsNoArgument()
    {
        IN_OWN_PROCESS();
        Installation installation;
        const TestDir& top = installation.top;
        const QString record = top / "record";
        writeScript(top / "app/run", "echo $PPID $# >'" + record.toUtf8() + "'\n");
        QVERIFY(installation.updater.startProgram(top / "app/run"));
        QTRY_VERIFY(QFile::exists(record) && files::read(record).endsWith('\n'));
        const QList<QByteArray> words = files::read(record).simplified().split(' ');
        QVERIFY(words.first().toLongLong() != QCoreApplication::applicationPid());
        QCOMPARE(words.last(), QByteArray("0"));
    }
};

UPDATER_TEST_MAIN(TestInstallation)
#include "tst_Installation.moc"
