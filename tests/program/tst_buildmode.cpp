// The build mode as a release script meets it: the whole program on real and on broken trees.

#include "tests/support/EditorRelease.h"
#include "tests/support/Needs.h"
#include "tests/support/ReleaseDir.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QDir>
#include <QFileInfo>

namespace {

/// A release tree, and one build of its version file.
class ReleaseScript : public ReleaseDir
{
public:
    /// Builds the tree as version 2.1 of Editor, with @p options after the required ones.
    int build(const QStringList& options = QStringList())
    {
        return run("Editor", tree(), "2.1", options);
    }

    int run(const QString& name, const QString& dir, const QString& version,
            const QStringList& options = QStringList())
    {
        const QStringList needed{"-b", "-n", name, "-d", dir, "-v", version};
        return process.run(needed + options, 120000);
    }

    UpdaterProcess process;
};

/// The first directory of the system's that is a tree worth the name.
QString realTree()
{
    for (const char* dir : {"/usr/include", "/usr/share/doc"}) {
        if (QDir(dir).exists() && tree::listingOrder(dir).size() >= 2000)
            return dir;
    }
    return QString();
}

/// Adds a few of what a release may have and an installed directory need not.
void addVariety(const ReleaseScript& script)
{
    script.add("Contents/Info.plist", "<plist/>\r\n");
    script.add("Contents/MacOS/Editor", QByteArray(300000, '\0'));
    script.add("Contents/empty.dat", "");
    script.add(".hidden", "hidden");
    script.add(".hidden.d/.deep/file", "hidden, too");
    files::makeDirectory(script / "nothing/in/here");
    files::link("Contents/Info.plist", script / "link to a file");
    files::link("Contents", script / "link to a directory");
    files::link("/missing", script / "broken link");
}

} // namespace

class TestBuildMode : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // The version file lists exactly what find, sha1sum and stat report.
    void realTreeIsDescribedAsOtherToolsSeeIt()
    {
        const QString source = realTree();
        if (source.isEmpty())
            QSKIP("no installed directory has 2000 files");
        ReleaseScript script;
        tree::copy(source, script.tree());
        addVariety(script);
        const QMap<QString, ProgramFile> seen = tree::seenByTools(script.tree());
        const QStringList order = tree::listingOrder(script.tree());
        QVERIFY(seen.size() >= 2000);

        QCOMPARE(script.build(), 0);
        QCOMPARE(script.process.output(), QByteArray());
        const QByteArray text = files::read(script.index());

        QMap<QString, ProgramFile> missing = seen;
        const QVector<ProgramFile> entries = tree::entriesOf(QString::fromUtf8(text));
        for (const ProgramFile& entry : entries) {
            QVERIFY2(missing.contains(entry.name), qPrintable("extra: " + entry.name));
            QCOMPARE(tree::lines({entry}), tree::lines({missing.take(entry.name)}));
        }
        QCOMPARE(QStringList(missing.keys()), QStringList());

        QVector<ProgramFile> expected;
        for (const QString& name : order)
            expected.append(seen[name]);
        QCOMPARE(tree::lines(entries), tree::lines(expected));
        QVERIFY(text == editorVersionFile("2.1", expected));
    }

    void tenThousandFilesAreDescribedToTheByte()
    {
        // Names in the order of the listing, and contents that all differ.
        ReleaseScript script;
        QVector<ProgramFile> expected;
        for (int i = 0; i < 10000; ++i) {
            const QString name =
                QString::asprintf("%02d/%d/f%02d.dat", i / 200, i / 100 % 2, i % 100);
            const QByteArray contents = QByteArray::number(i).repeated(i % 300);
            script.add(name, contents);
            expected.append(tree::entry(name, contents));
        }
        QCOMPARE(script.build(), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QVERIFY(files::read(script.index()) == editorVersionFile("2.1", expected));
    }

    void whatIsNoFileIsLeftOut()
    {
        ReleaseScript script;
        script.add("a", "a");
        tree::makeFifo(script / "fifo");
        tree::makeSocket(script / "socket");
        files::link("nowhere", script / "broken");
        files::link("/dev/null", script / "device");
        files::makeDirectory(script / "empty");
        script.add("z", "z");
        QCOMPARE(script.build(), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()),
                 editorVersionFile("2.1", {tree::entry("a", "a"), tree::entry("z", "z")}));
    }

    void linkCycleIsListedUntilTheSystemRefuses()
    {
#ifndef Q_OS_LINUX
        QSKIP("the number of links that are followed is another here");
#endif
        ReleaseScript script;
        script.add("sub/a", "a");
        files::link("..", script / "sub/up");
        const QString canonical = QFileInfo(script.tree()).canonicalFilePath();
        QVector<ProgramFile> expected;
        for (int depth = 0; depth <= 40; ++depth)
            expected.append(tree::entry(QString("sub/up/").repeated(depth) + "sub/a", "a"));
        QCOMPARE(script.run("Editor", canonical, "2.1"), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1", expected));
    }

    void unreadableFileFailsAndTheOldVersionFileStays_data()
    {
        QTest::addColumn<QString>("unreadable");
        row("at the top", "a");
        row("below", "sub/deeper/b");
        row("old version file", "index.txt");
    }

    void unreadableFileFailsAndTheOldVersionFileStays()
    {
        QFETCH(QString, unreadable);
        ReleaseScript script;
        UNDER_PERMISSIONS(command);
        script.process.setWrapper(*command);
        script.add("a", "a");
        script.add("index.txt", "old");
        script.add("sub/deeper/b", "b");
        script.add("z", "z");
        const QStringList before = files::list(script.tree());
        {
            const ScopedMode locked(script / unreadable, 0);
            QCOMPARE(script.build(), 1);
        }
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::list(script.tree()), before);
        QCOMPARE(files::read(script.index()), QByteArray("old"));
    }

    void unreadableDirectoryIsLeftOut()
    {
        ReleaseScript script;
        UNDER_PERMISSIONS(command);
        script.process.setWrapper(*command);
        script.add("a", "a");
        script.add("locked/b", "b");
        const ScopedMode locked(script / "locked", 0);
        QCOMPARE(script.build(), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1", {tree::entry("a", "a")}));
    }

    void closedTopFails()
    {
        ReleaseScript script;
        UNDER_PERMISSIONS(command);
        script.process.setWrapper(*command);
        script.add("a", "a");
        const ScopedMode closed(script.tree(), 0500);
        QCOMPARE(script.build(), 1);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::list(script.tree()), QStringList{"a"});
    }

    void closedTopFailsAndAReadOnlyVersionFileStays()
    {
        ReleaseScript script;
        UNDER_PERMISSIONS(command);
        script.process.setWrapper(*command);
        script.add("index.txt", "old");
        files::setMode(script.index(), 0400);
        const ScopedMode closed(script.tree(), 0500);
        QCOMPARE(script.build(), 1);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()), QByteArray("old"));
    }

    void directoryInThePlaceOfTheVersionFileFails()
    {
        ReleaseScript script;
        script.add("index.txt/inside", "inside");
        QCOMPARE(script.build(), 1);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::list(script.tree()), QStringList({"index.txt/", "index.txt/inside"}));
    }

    void emptyOrMissingOptionFailsAndTheOldVersionFileStays_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("dir");
        QTest::addColumn<QString>("version");
        row("name of a space", " ", "tree", "2.1");
        row("version of a space and a tab", "Editor", "tree", " \t");
        row("both of a space", " ", "tree", " ");
        row("empty name", "", "tree", "2.1");
        row("empty version", "Editor", "tree", "");
        row("empty directory", "Editor", "", "2.1");
        row("missing directory", "Editor", "missing", "2.1");
        row("missing directory, a file could be made beside it", "Editor", "missing\\", "2.1");
        row("file", "Editor", "tree/a", "2.1");
    }

    void emptyOrMissingOptionFailsAndTheOldVersionFileStays()
    {
        QFETCH(QString, name);
        QFETCH(QString, dir);
        QFETCH(QString, version);
        ReleaseScript script;
        script.add("a", "a");
        script.add("index.txt", "old");
        script.process.setWorkingDirectory(script.outside(""));
        const QStringList before = files::list(script.outside(""));
        QCOMPARE(script.run(name, dir, version), 1);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::list(script.outside("")), before);
        QCOMPARE(files::read(script.index()), QByteArray("old"));
    }

    void versionFileLiesInTheDirectoryAsGiven_data()
    {
        QTest::addColumn<QString>("dir");
        QTest::addColumn<QString>("path");
        row("relative", "tree", "tree/index.txt");
        row("slash at the end", "tree/", "tree/index.txt");
        row("quotes around", "\"tree\"", "tree/index.txt");
        row("link", "link", "tree/index.txt");
        row("backslash at the end", "back\\", "back\\index.txt");
    }

    void versionFileLiesInTheDirectoryAsGiven()
    {
        QFETCH(QString, dir);
        QFETCH(QString, path);
        ReleaseScript script;
        script.add("sub/a", "a");
        files::write(script.outside("back\\/sub/a"), "a");
        files::link("tree", script.outside("link"));
        script.process.setWorkingDirectory(script.outside(""));
        QStringList expected = files::list(script.outside("")) << path;
        expected.sort();
        QCOMPARE(script.run("Editor", dir, "2.1"), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::list(script.outside("")), expected);
        QCOMPARE(files::read(script.outside(path)),
                 editorVersionFile("2.1", {tree::entry("sub/a", "a")}));
    }

    void currentDirectoryCanBeTheTree()
    {
        ReleaseScript script;
        script.add("a", "a");
        script.process.setWorkingDirectory(script.tree());
        QCOMPARE(script.run("Editor", ".", "2.1"), 0);
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1", {tree::entry("a", "a")}));
    }

    void emptyTreeHasNoFileEntries()
    {
        ReleaseScript script;
        QCOMPARE(script.build(), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()), QByteArray("<Editor>\n"
                                                         "\t<version>2.1</version>\n"
                                                         "\t<required>false</required>\n"
                                                         "\t<changelog></changelog>\n"
                                                         "</Editor>\n"));
    }

    void spacesAroundNameAndVersionAreTrimmed()
    {
        ReleaseScript script;
        script.add("a", "a");
        QCOMPARE(script.run(" Editor ", script.tree(), "\t2.1 "), 0);
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1", {tree::entry("a", "a")}));
    }

    void requiredOptionMarksTheUpdate()
    {
        ReleaseScript script;
        script.add("a", "a");
        QCOMPARE(script.build({"-r"}), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()),
                 editorVersionFile("2.1", {tree::entry("a", "a")}, true));
    }

    void changelogOptionBringsThePayload_data()
    {
        QTest::addColumn<QByteArray>("notes");
        QTest::addColumn<QString>("payload");
        row("text", QByteArray("Text\r\n"), "VGV4dAo=");
        row("line feed", QByteArray("\n"), "Cg==");
        row("empty file", QByteArray(), "");
    }

    void changelogOptionBringsThePayload()
    {
        QFETCH(QByteArray, notes);
        QFETCH(QString, payload);
        ReleaseScript script;
        files::write(script.outside("notes"), notes);
        QCOMPARE(script.build({"--changelog", script.outside("notes")}), 0);
        QCOMPARE(script.process.output(), QByteArray());
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1", {}, false, payload));
    }

    void missingChangelogIsNoFailure()
    {
        ReleaseScript script;
        QCOMPARE(script.build({"--changelog", script.outside("missing")}), 0);
        QCOMPARE(files::read(script.index()), editorVersionFile("2.1"));
    }

    void secondBuildListsTheFirstVersionFile()
    {
        ReleaseScript script;
        script.add("a", "a");
        QCOMPARE(script.build(), 0);
        const QByteArray first = files::read(script.index());
        QCOMPARE(first, editorVersionFile("2.1", {tree::entry("a", "a")}));
        QCOMPARE(script.build(), 0);
        QCOMPARE(
            files::read(script.index()),
            editorVersionFile("2.1", {tree::entry("a", "a"), tree::entry("index.txt", first)}));
        QCOMPARE(files::list(script.tree()), QStringList({"a", "index.txt"}));
    }

    // The option's bytes are taken one by one, and each goes into the file in the encoding of the
    // system: a name beyond ASCII does not arrive as it was given.
    void nameBeyondAsciiIsWrittenInTheSystemsEncoding()
    {
        ReleaseScript script;
        script.process.setEnvironment("LC_ALL", "C.UTF-8");
        QCOMPARE(script.run(QString::fromUtf8("\xc3\x89"), script.tree(), "2.1"), 0);
        QVERIFY(files::read(script.index()).startsWith("<\xc3\x83\xc2\x89>\n"));
    }
};

UPDATER_TEST_MAIN(TestBuildMode)
#include "tst_buildmode.moc"
