// The scan of a release tree: which files are listed, in which order, and with what digest and
// size.

#include "updater/Updater.h"

#include "tests/support/Needs.h"
#include "tests/support/ReleaseDir.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"
#include "tests/unit/EveryByte.h"

#include <QDir>
#include <QFileInfo>

namespace {

/// A release tree, and what a scan of it finds.
class ScannedRelease : public ReleaseDir
{
public:
    bool scan(const QString& prefix = QString()) { return scan(QDir(tree()), prefix); }

    bool scan(const QDir& dir, const QString& prefix)
    {
        return m_updater.collectFiles(dir, found, prefix);
    }

    QStringList names() const
    {
        QStringList names;
        for (const ProgramFile& file : found.files)
            names.append(file.name);
        return names;
    }

    QStringList lines() const { return tree::lines(found.files); }

    Updater& updater() { return m_updater; }

    ProgramData found;

private:
    Updater m_updater{"", "", "", "", "", ""};
};

/// The line of the entry for a file with @p contents.
QString lineOf(const QString& name, const QByteArray& contents)
{
    return tree::lines({tree::entry(name, contents)}).first();
}

/// The line of the entry for a file that cannot be opened.
QString lineWithoutDigest(const QString& name, qint64 size)
{
    return " " + QString::number(size) + " " + name;
}

} // namespace

class TestTreeScan : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void nameIsThePathFromTheTop_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        row("bare at the top", "a.txt", "a.txt");
        row("two levels down", "sub/deeper/b.dat", "sub/deeper/b.dat");
        row("ten levels down", "a/b/c/d/e/f/g/h/i/j/k", "a/b/c/d/e/f/g/h/i/j/k");
        row("hidden file", ".hidden", ".hidden");
        row("hidden file below", "sub/.hidden", "sub/.hidden");
        row("hidden directory", ".git/config", ".git/config");
        row("two dots at the start", "sub/..a", "sub/..a");
        row("upper and lower case", "Contents/MacOS/eDiToR", "Contents/MacOS/eDiToR");
        row("version file at the top", "index.txt", "index.txt");
        row("version file below", "sub/index.txt", "sub/index.txt");
        row("spaces around", " sub / a ", " sub / a ");
        row("markup", "<file>/<name>&\"", "<file>/<name>&\"");
        row("semicolons and quotes", "a;b/'c'", "a;b/'c'");
    }

    void nameIsThePathFromTheTop() { nameIsMadeOfPath(); }

    void nameBeyondAsciiIsKept()
    {
        const QString name = QString::fromUtf8("Ä/ß☃.txt");
        if (QFile::decodeName(QFile::encodeName(name)) != name)
            QSKIP("the locale's encoding has no such file names");
        ScannedRelease release;
        release.add(name);
        QVERIFY(release.scan());
        QCOMPARE(release.names(), QStringList{name});
    }

    void backslashSeparatesInDirectoryNamesOnly_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        row("inside a directory's name", "a\\b/f", "a/b/f");
        row("at its start", "\\a/f", "/a/f");
        row("at its end, where no separator is added", "a\\/f", "a/f");
        row("two at its end", "a\\\\/f", "a//f");
        row("all of it", "\\/f", "/f");
        row("on two levels", "a\\b/c\\d/f", "a/b/c/d/f");
        row("in a file's name at the top", "b\\c", "b\\c");
        row("in a file's name below", "sub/b\\c", "sub/b\\c");
        row("in both", "a\\b/c\\d", "a/b/c\\d");
    }

    void backslashSeparatesInDirectoryNamesOnly() { nameIsMadeOfPath(); }

    // The file name replaces every occurrence of the lowest-numbered placeholder in the path of the
    // directory followed by "%2". A number has one or two digits; "L" before it is allowed.
    void placeholderInDirectoryNameIsFilledIn_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        row("%1", "%1/f", "f/%2");
        row("%1 between letters", "d%1x/f", "dfx/%2");
        row("%1 twice", "%1%1/f", "ff/%2");
        row("%1 on two levels", "%1/%1/f", "f/f/%2");
        row("%1 in a parent directory", "a/%1/b/f", "a/f/b/%2");
        row("%01", "%01/f", "f/%2");
        row("%0", "%0/f", "f/%2");
        row("%2", "%2/f", "f/f");
        row("%2 twice", "%2-%2/f", "f-f/f");
        row("%3", "%3/f", "%3/f");
        row("%9", "%9/f", "%9/f");
        row("%10", "%10/f", "%10/f");
        row("%100", "%100/f", "%100/f");
        row("%3 and %1", "%3%1/f", "%3f/%2");
        row("%3 and %2", "%3%2/f", "%3f/f");
        row("%1 above %2", "%1/%2/f", "f/%2/%2");
        row("%2 above %1", "%2/%1/f", "%2/f/%2");
        row("%L1", "%L1/f", "f/%2");
        row("%L2", "%L2/f", "f/f");
        row("%1 after a percent sign", "%%1/f", "%f/%2");
        row("percent sign alone", "%/f", "%/f");
        row("percent sign before a letter", "%a%L/f", "%a%L/f");
        row("percent sign before a file name of digits", "%/1", "%/1");
    }

    void placeholderInDirectoryNameIsFilledIn() { nameIsMadeOfPath(); }

    void placeholderInFileNameIsKept_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("name");
        row("%1", "%1", "%1");
        row("%2", "%2", "%2");
        row("%2 and %1", "%2%1", "%2%1");
        row("%9", "%9", "%9");
        row("%L1", "%L1", "%L1");
        row("%1 in a subdirectory", "sub/%1", "sub/%1");
        row("%2 in a subdirectory", "sub/%2", "sub/%2");
        row("%1 in a directory with %1", "%1/%1", "%1/%2");
        row("%2 in a directory with %1", "%1/%2", "%2/%2");
        row("%1 in a directory with %2", "%2/%1", "%1/%1");
    }

    void placeholderInFileNameIsKept() { nameIsMadeOfPath(); }

    void prefixIsBeforeEveryName_data()
    {
        QTest::addColumn<QString>("prefix");
        QTest::addColumn<QString>("before");
        row("null", QString(), "");
        row("empty", "", "");
        row("without separator", "pre", "pre/");
        row("slash at the end", "pre/", "pre/");
        row("two slashes at the end", "pre//", "pre//");
        row("backslash at the end", "pre\\", "pre/");
        row("backslash inside", "a\\b", "a/b/");
        row("backslashes and slashes", "\\a/b\\\\c/", "/a/b//c/");
        row("slash alone", "/", "/");
        row("backslash alone", "\\", "/");
        row("space", " ", " /");
        row("upper and lower case", "Pre", "Pre/");
    }

    void prefixIsBeforeEveryName()
    {
        QFETCH(QString, prefix);
        QFETCH(QString, before);
        ScannedRelease release;
        release.add("f");
        release.add("sub/g\\h");
        const QString original = QString::fromUtf8(prefix.toUtf8());
        QVERIFY(release.scan(prefix));
        QCOMPARE(release.names(), QStringList({before + "f", before + "sub/g\\h"}));
        QCOMPARE(prefix, original);
    }

    void placeholderInPrefixIsFilledIn()
    {
        ScannedRelease release;
        release.add("f");
        QVERIFY(release.scan("%1"));
        QCOMPARE(release.names(), QStringList{"f/%2"});
    }

    void contentsGiveDigestAndSize_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("sha1");
        // The expected digests were made with sha1sum.
        row("empty", QByteArray(), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
        row("three letters", QByteArray("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
        row("carriage returns", QByteArray("a\r\nb\r"), "2b42365b4afcf00d7ccc5d1d2005c11bd0f60d7f");
        row("zero byte", QByteArray("a\0b", 3), "4a3dec2d1f8245280855c42db0ee4239f917fdb8");
        row("every byte, many times", everyByte().repeated(10000),
            "7eefc49fb20ec508f67f7fe79307466d2492ab28");
    }

    void contentsGiveDigestAndSize()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, sha1);
        ScannedRelease release;
        release.add("sub/UPPER", contents);
        QVERIFY(release.scan());
        QCOMPARE(release.names(), QStringList{"sub/UPPER"});
        QCOMPARE(release.found.files[0].sha1, sha1);
        QCOMPARE(release.found.files[0].size, static_cast<quint64>(contents.size()));
    }

    void fileBeyondFourGigabytesHasItsSize()
    {
        // The file is sparse. It is unreadable, so that its five gigabytes are not read either.
        constexpr qint64 size = 5'000'000'000;
        ScannedRelease release;
        QFile file(release / "large");
        if (!file.open(QIODevice::WriteOnly) || !file.resize(size))
            QSKIP("the file system has no such files");
        file.close();
        const ScopedMode locked(release / "large", 0);
        ENFORCE_PERMISSIONS();
        QVERIFY(!release.scan());
        QCOMPARE(release.lines(), QStringList{lineWithoutDigest("large", size)});
    }

    void sizeIsThatOfTheListingNotOfTheBytesRead()
    {
        QFile version("/proc/version");
        if (!version.open(QIODevice::ReadOnly))
            QSKIP("this system has no /proc");
        const QByteArray contents = version.readAll();
        QVERIFY(!contents.isEmpty());
        QCOMPARE(QFileInfo(version).size(), qint64(0));
        ScannedRelease release;
        files::link("/proc/version", release / "link");
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList{files::sha1(contents) + " 0 link"});
    }

    void errorWhileReadingIsNotNoticed()
    {
        QFile memory("/proc/self/mem"); // It can be opened, but reading at address 0 fails.
        if (!memory.open(QIODevice::ReadOnly))
            QSKIP("this system has no /proc");
        QVERIFY(memory.readAll().isEmpty());
        ScannedRelease release;
        files::link("/proc/self/mem", release / "link");
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList{lineOf("link", QByteArray())});
    }

    void linkToFileIsListedUnderItsOwnName_data()
    {
        QTest::addColumn<QString>("target");
        row("in the tree", "sub/target");
        row("outside", "../outside");
        row("to a link", "other");
    }

    void linkToFileIsListedUnderItsOwnName()
    {
        QFETCH(QString, target);
        ScannedRelease release;
        release.add("sub/target", "inside");
        files::write(release.outside("outside"), "outside");
        files::link("../outside", release / "other");
        files::link(target, release / "Link");
        const QByteArray expected = target.startsWith("sub") ? "inside" : "outside";
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList({lineOf("Link", expected), lineOf("other", "outside"),
                                               lineOf("sub/target", "inside")}));
    }

    void linkToDirectoryIsDescendedUnderItsOwnName()
    {
        ScannedRelease release;
        files::write(release.outside("elsewhere/deep/a"), "a");
        files::link("../elsewhere", release / "link");
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList{lineOf("link/deep/a", "a")});
    }

    void topMayBeALink()
    {
        ScannedRelease release;
        release.add("sub/a", "a");
        files::link("tree", release.outside("link"));
        QVERIFY(release.scan(QDir(release.outside("link")), QString()));
        QCOMPARE(release.lines(), QStringList{lineOf("sub/a", "a")});
    }

    // The system follows 40 links in one path, so that each file is listed 41 times: once at the
    // top and once for each link. Files that are listed after the link follow when the descent has
    // ended.
    void linkCycleIsDescendedUntilTheSystemRefuses()
    {
#ifndef Q_OS_LINUX
        QSKIP("this system follows another number of links");
#endif
        ScannedRelease release;
        release.add("a");
        release.add("z");
        files::link(".", release / "loop");
        QVERIFY(release.scan());

        QStringList expected;
        for (int depth = 0; depth <= 40; ++depth)
            expected.append(QString("loop/").repeated(depth) + "a");
        for (int depth = 40; depth >= 0; --depth)
            expected.append(QString("loop/").repeated(depth) + "z");
        QCOMPARE(release.names(), expected);
    }

    void otherKindsAreSkipped_data()
    {
        QTest::addColumn<QString>("kind");
        for (const char* kind :
             {"named pipe", "socket", "broken link", "link to itself", "link to a device",
              "link to a named pipe", "link to an empty directory", "empty directory",
              "hidden empty directory"})
            row(kind, kind);
    }

    void otherKindsAreSkipped()
    {
        QFETCH(QString, kind);
        ScannedRelease release;
        release.add("a");
        release.add("z");
        make(kind, release);
        QVERIFY(release.scan());
        QCOMPARE(release.names(), QStringList({"a", "z"}));
    }

    void unreadableFileIsListedWithoutDigest_data()
    {
        QTest::addColumn<QStringList>("unreadable");
        row("first of all", QStringList{"a"});
        row("last of all", QStringList{"z"});
        row("first subtree", QStringList{"b/b"});
        row("deep in the first subtree", QStringList{"b/c/d"});
        row("last subtree", QStringList{"y/x"});
        row("empty file", QStringList{"empty"});
        row("version file", QStringList{"index.txt"});
        row("two, in one directory", QStringList{"b/b", "b/c/d"});
        row("two, far apart", QStringList{"a", "y/x"});
        row("every one", QStringList{"a", "b/b", "b/c/d", "b/e", "empty", "index.txt", "y/x", "z"});
    }

    void unreadableFileIsListedWithoutDigest()
    {
        QFETCH(QStringList, unreadable);
        ScannedRelease release;
        const QStringList names{"a", "b/b", "b/c/d", "b/e", "empty", "index.txt", "y/x", "z"};
        QStringList expected;
        for (const QString& name : names) {
            const QByteArray contents = name == "empty" ? QByteArray() : name.toLatin1();
            release.add(name, contents);
            expected.append(unreadable.contains(name) ? lineWithoutDigest(name, contents.size())
                                                      : lineOf(name, contents));
        }
        for (const QString& name : unreadable)
            files::setMode(release / name, 0);

        ENFORCE_PERMISSIONS();
        QVERIFY(!release.scan());
        QCOMPARE(release.lines(), expected);
    }

    void permissionToReadIsEnough()
    {
        ScannedRelease release;
        release.add("sub/a", "a");
        files::setMode(release / "sub/a", 0400);
        const ScopedMode closed(release / "sub", 0500);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList{lineOf("sub/a", "a")});
    }

    void unreadableDirectoryCountsAsEmpty_data()
    {
        QTest::addColumn<unsigned>("mode");
        row("no permission", 0u);
        row("to enter, not to list", 0300u);
    }

    void unreadableDirectoryCountsAsEmpty()
    {
        QFETCH(unsigned, mode);
        ScannedRelease release;
        release.add("a");
        release.add("locked/b");
        release.add("locked/sub/c");
        release.add("z");
        const ScopedMode locked(release / "locked", mode);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.scan());
        QCOMPARE(release.names(), QStringList({"a", "z"}));
    }

    void unreadableTopCountsAsEmpty()
    {
        ScannedRelease release;
        release.add("a");
        const ScopedMode locked(release.tree(), 0);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.scan());
        QVERIFY(release.names().isEmpty());
    }

    void directoryThatCannotBeListedCountsAsEmpty_data()
    {
        QTest::addColumn<QString>("path");
        row("never was", "never");
        row("vanished", "vanished");
        row("is a file", "file");
        row("is a broken link", "broken");
    }

    void directoryThatCannotBeListedCountsAsEmpty()
    {
        QFETCH(QString, path);
        ScannedRelease release;
        release.add("file");
        release.add("vanished/a");
        files::link("nowhere", release / "broken");
        const QDir dir(release / path);
        if (path == "vanished")
            QVERIFY(QDir(dir).removeRecursively());
        QVERIFY(release.scan(dir, QString()));
        QVERIFY(release.names().isEmpty());
    }

    void directoryCountsAsEmptyWhenNothingCanBeOpened()
    {
        ScannedRelease release;
        release.add("a");
        bool result = false;
        {
            const NoDescriptorsLeft none;
            result = release.scan();
        }
        QVERIFY(result);
        QVERIFY(release.names().isEmpty());
    }

    void emptyTreeHasNoEntries()
    {
        ScannedRelease release;
        QVERIFY(release.scan());
        QVERIFY(release.found.files.isEmpty());
    }

    void entriesComeDepthFirstInListingOrder()
    {
        ScannedRelease release;
        const QStringList names{"B/x",   "B/Y/b", "B/Y/a", "B/z", "a",     "C",    "b",
                                "d/e/f", "d/f",   "d/D",   "_",   ".h/.h", "10",   "9",
                                "index", "zz/1",  "Zy",    "~",   "a.b/c", "a-b/c"};
        for (const QString& name : names)
            release.add(name);
        QVERIFY(release.scan());
        QCOMPARE(release.names(), tree::listingOrder(release.tree()));
        QCOMPARE(release.names(),
                 QStringList({".h/.h", "10",  "9",     "_",     "a",    "a-b/c", "a.b/c",
                              "b",     "B/x", "B/Y/a", "B/Y/b", "B/z",  "C",     "d/D",
                              "d/e/f", "d/f", "index", "Zy",    "zz/1", "~"}));
    }

    void entriesOfManyFilesComeInListingOrder()
    {
        ScannedRelease release;
        for (int i = 0; i < 300; ++i)
            release.add(QString("%1/%2").arg(i * 37 % 17).arg(i * 7919 % 1000));
        QVERIFY(release.scan());
        QCOMPARE(release.names().size(), 300);
        QCOMPARE(release.names(), tree::listingOrder(release.tree()));
    }

    // The scan asks for no order, so the order of the directory object counts.
    void topIsListedInTheOrderOfItsObject()
    {
        ScannedRelease release;
        release.add("a");
        release.add("b/c");
        release.add("b/d");
        release.add("e");
        QDir dir(release.tree());
        dir.setSorting(QDir::Name | QDir::Reversed);
        QVERIFY(release.scan(dir, QString()));
        QCOMPARE(release.names(), QStringList({"e", "b/c", "b/d", "a"}));
    }

    void entriesAreAppended()
    {
        ScannedRelease release;
        release.add("a", "a");
        release.found.files.append(tree::entry("z", "first"));
        release.found.files.append(tree::entry("a", "second"));
        QVERIFY(release.scan());
        QVERIFY(release.scan());
        QCOMPARE(release.lines(), QStringList({lineOf("z", "first"), lineOf("a", "second"),
                                               lineOf("a", "a"), lineOf("a", "a")}));
    }

    void nothingButTheFileListIsTouched()
    {
        ScannedRelease release;
        release.add("a");
        release.found.name = "Editor";
        release.found.version = " 2.1 ";
        release.found.required = true;
        release.found.changelog = "Cg==";
        QVERIFY(release.scan());
        QCOMPARE(release.found.name, QString("Editor"));
        QCOMPARE(release.found.version, QString(" 2.1 "));
        QVERIFY(release.found.required);
        QCOMPARE(release.found.changelog, QString("Cg=="));

        const UpdaterProbe probe(release.updater());
        QVERIFY(probe.programData.files.isEmpty());
        QVERIFY(probe.programBaseDir.isEmpty());
    }

    void treeIsLeftAsItWas()
    {
        ScannedRelease release;
        release.add("a", "a");
        release.add("sub/b", "b");
        const QStringList before = files::list(release.tree());
        QVERIFY(release.scan());
        QCOMPARE(files::list(release.tree()), before);
        QCOMPARE(files::read(release / "sub/b"), QByteArray("b"));
    }

private:
    /// Checks that a tree with one file, at the row's path, has one entry, with the row's name.
    static void nameIsMadeOfPath()
    {
        QFETCH(QString, path);
        QFETCH(QString, name);
        ScannedRelease release;
        release.add(path, "abc");
        QVERIFY(release.scan());
        QCOMPARE(release.lines(),
                 QStringList{"a9993e364706816aba3e25717850c26c9cd0d89d 3 " + name});
    }

    static void make(const QString& kind, const ScannedRelease& release)
    {
        if (kind == "named pipe")
            tree::makeFifo(release / "m");
        else if (kind == "socket")
            tree::makeSocket(release / "m");
        else if (kind == "broken link")
            files::link("nowhere", release / "m");
        else if (kind == "link to itself")
            files::link("m", release / "m");
        else if (kind == "link to a device")
            files::link("/dev/null", release / "m");
        else if (kind == "link to a named pipe")
            makeLinkOutside(release, [&] { tree::makeFifo(release.outside("target")); });
        else if (kind == "link to an empty directory")
            makeLinkOutside(release, [&] { files::makeDirectory(release.outside("target")); });
        else if (kind == "empty directory")
            files::makeDirectory(release / "m/n");
        else
            files::makeDirectory(release / ".m/.n");
    }

    template <typename MakeTarget>
    static void makeLinkOutside(const ScannedRelease& release, MakeTarget makeTarget)
    {
        makeTarget();
        files::link("../target", release / "m");
    }
};

UPDATER_TEST_MAIN(TestTreeScan)
#include "tst_TreeScan.moc"
