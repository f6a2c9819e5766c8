// The build of the version file: its contents, its place, and what is left when it fails.

#include "updater/Updater.h"

#include "tests/support/Needs.h"
#include "tests/support/OpenWatch.h"
#include "tests/support/ReleaseDir.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProbe.h"
#include "tests/unit/ManifestExamples.h"

#include <QFileInfo>
#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
#include <QTextCodec>
#endif

namespace {

const char untouched[] = "untouched";

/// A release tree, and the builds of its version file.
class BuiltRelease : public ReleaseDir
{
public:
    QString indexText() const { return QString::fromUtf8(files::read(index())); }

    bool build() { return buildAt(tree()); }

    /// Builds with @p dir for the base directory.
    bool buildAt(const QString& dir)
    {
        Updater updater(name, dir, version, "", "", "");
        return updater.buildVersionFile(&path, required, changelogFile);
    }

    /// The version file of the tree's @p files.
    QString expected(const QVector<ProgramFile>& files) const
    {
        ProgramData data;
        data.name = name.trimmed();
        data.version = version.trimmed();
        data.required = required;
        data.files = files;
        return tree::versionFile(data);
    }

    QString name = "Editor";
    QString version = "2.1";
    bool required = false;
    QString changelogFile;
    QString path = untouched; ///< Receives the path of the version file.
};

/// Changes the working directory until the end of the scope.
class ScopedWorkingDir
{
public:
    explicit ScopedWorkingDir(const QString& path) : m_previous(QDir::currentPath())
    {
        QDir::setCurrent(path);
    }
    ~ScopedWorkingDir() { QDir::setCurrent(m_previous); }
    Q_DISABLE_COPY(ScopedWorkingDir)

private:
    const QString m_previous;
};

#if QT_VERSION < QT_VERSION_CHECK(6, 0, 0)
/// Makes the encoding @p name the system's until the end of the scope.
class ScopedSystemEncoding
{
public:
    explicit ScopedSystemEncoding(const char* name)
    {
        QTextCodec::setCodecForLocale(QTextCodec::codecForName(name));
    }
    ~ScopedSystemEncoding() { QTextCodec::setCodecForLocale(m_previous); }
    Q_DISABLE_COPY(ScopedSystemEncoding)

private:
    QTextCodec* const m_previous = QTextCodec::codecForLocale();
};
#endif

void addTextsOfWhitespace()
{
    QTest::addColumn<QString>("text");
    row("null", QString());
    row("empty", QString(""));
    row("one space", " ");
    row("spaces, tabs and line ends", " \t\r\n ");
    row("no-break space", QString(QChar(0xa0)));
}

} // namespace

class TestVersionFile : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void smallTreeIsDescribedToTheByte()
    {
        BuiltRelease release;
        release.add("Contents/Resources/readme.txt", "hello\n");
        release.add("Contents/Resources/empty.dat", "");
        release.add(".hidden", "abc");
        files::write(release.outside("notes"),
                     "Version 2.1\n- Faster start-up\n- Fixed printing\n");
        release.changelogFile = release.outside("notes");

        QVERIFY(release.build());
        QCOMPARE(files::read(release.index()), exampleText.toUtf8());
        QCOMPARE(release.path, release.index());
    }

    void emptyTreeHasNoFileEntries()
    {
        BuiltRelease release;
        QVERIFY(release.build());
        QCOMPARE(files::read(release.index()), QByteArray("<Editor>\n"
                                                          "\t<version>2.1</version>\n"
                                                          "\t<required>false</required>\n"
                                                          "\t<changelog></changelog>\n"
                                                          "</Editor>\n"));
        QCOMPARE(files::list(release.tree()), QStringList{"index.txt"});
    }

    void requiredFlagIsTheArgument_data()
    {
        QTest::addColumn<bool>("required");
        row("required", true);
        row("not required", false);
    }

    void requiredFlagIsTheArgument()
    {
        QFETCH(bool, required);
        BuiltRelease release;
        release.required = required;
        QVERIFY(release.build());
        QCOMPARE(release.indexText().count("\t<required>true</required>\n"), required ? 1 : 0);
        QCOMPARE(release.indexText().count("\t<required>false</required>\n"), required ? 0 : 1);
    }

    void nameAndVersionAreTrimmed_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("version");
        row("nothing around", "My  Editor", "2.1 beta");
        row("whitespace around the name", " \tMy  Editor\n", "2.1 beta");
        row("whitespace around the version", "My  Editor", "\r\n2.1 beta  ");
    }

    void nameAndVersionAreTrimmed()
    {
        BuiltRelease release;
        QFETCH(QString, name);
        QFETCH(QString, version);
        release.name = name;
        release.version = version;
        QVERIFY(release.build());
        QCOMPARE(files::read(release.index()), QByteArray("<My  Editor>\n"
                                                          "\t<version>2.1 beta</version>\n"
                                                          "\t<required>false</required>\n"
                                                          "\t<changelog></changelog>\n"
                                                          "</My  Editor>\n"));
    }

    void changelogIsThePayloadOfTheNotes_data()
    {
        QTest::addColumn<QString>("notes");
        QTest::addColumn<QByteArray>("line");
        row("text", "notes", QByteArray("\t<changelog>VGV4dA==</changelog>\n"));
        row("line feed", "feed", QByteArray("\t<changelog>Cg==</changelog>\n"));
        row("empty file", "empty", QByteArray("\t<changelog></changelog>\n"));
        row("missing file", "missing", QByteArray("\t<changelog></changelog>\n"));
        row("directory", "tree", QByteArray("\t<changelog></changelog>\n"));
        row("no file named", "", QByteArray("\t<changelog></changelog>\n"));
    }

    void changelogIsThePayloadOfTheNotes()
    {
        QFETCH(QString, notes);
        QFETCH(QByteArray, line);
        BuiltRelease release;
        files::write(release.outside("notes"), "Text");
        files::write(release.outside("feed"), "\n");
        files::write(release.outside("empty"), "");
        release.changelogFile = notes.isEmpty() ? QString() : release.outside(notes);
        QVERIFY(release.build());
        QVERIFY(files::read(release.index()).contains(line));
    }

    // Scripts of a release may keep them there.
    void notesInTheTreeAreListed()
    {
        BuiltRelease release;
        release.add("notes", "Text");
        release.changelogFile = release / "notes";
        QVERIFY(release.build());
        QVERIFY(release.indexText().contains("\t<changelog>VGV4dA==</changelog>\n"));
        QCOMPARE(tree::lines(tree::entriesOf(release.indexText())),
                 tree::lines({tree::entry("notes", "Text")}));
    }

    void pathIsTheBaseDirectoryAsGiven_data()
    {
        QTest::addColumn<QString>("dir");
        QTest::addColumn<QString>("path");
        row("no separator at the end", "base", "base/index.txt");
        row("slash at the end", "base/", "base/index.txt");
        row("two slashes at the end", "base//", "base//index.txt");
        row("dots inside", "base/../base/.", "base/../base/./index.txt");
        row("space at the end", "base ", "base /index.txt");
        row("spaces around a name", " base /", " base /index.txt");
        row("backslash inside", "back\\slash", "back\\slash/index.txt");
        row("placeholder", "%1/%2", "%1/%2/index.txt");
        row("link", "link", "link/index.txt");
    }

    void pathIsTheBaseDirectoryAsGiven()
    {
        QFETCH(QString, dir);
        QFETCH(QString, path);
        BuiltRelease release;
        files::makeDirectory(release.outside("base"));
        files::link("base", release.outside("link"));
        files::write(release.outside(dir) + "/a", "a");
        QVERIFY(release.buildAt(release.outside(dir)));
        QCOMPARE(release.path, release.outside(path));
        QCOMPARE(files::read(release.outside(path)),
                 release.expected({tree::entry("a", "a")}).toLatin1());
    }

    void relativeBaseDirectoryStaysRelative_data()
    {
        QTest::addColumn<QString>("dir");
        QTest::addColumn<QString>("path");
        row("name", "tree", "tree/index.txt");
        row("dot and name", "./tree/", "./tree/index.txt");
        row("up and down", "tree/../tree", "tree/../tree/index.txt");
    }

    void relativeBaseDirectoryStaysRelative()
    {
        QFETCH(QString, dir);
        QFETCH(QString, path);
        BuiltRelease release;
        release.add("a", "a");
        const ScopedWorkingDir workingDir(release.outside(""));
        QVERIFY(release.buildAt(dir));
        QCOMPARE(release.path, path);
        QCOMPARE(release.indexText(), release.expected({tree::entry("a", "a")}));
    }

    // The backslash counts as a separator, but for this system it is a character of the name: the
    // version file is beside the directory.
    void backslashAtTheEndOfTheBaseDirectoryGetsNoSeparator()
    {
        BuiltRelease release;
        files::write(release.outside("dir\\/a"), "a");
        for (int build = 0; build < 2; ++build) {
            release.path = untouched;
            QVERIFY(release.buildAt(release.outside("dir\\")));
            QCOMPARE(release.path, release.outside("dir\\index.txt"));
            QCOMPARE(files::read(release.path),
                     release.expected({tree::entry("a", "a")}).toLatin1());
            QCOMPARE(files::list(release.outside("dir\\")), QStringList{"a"});
        }
    }

    void nullPathIsAllowed()
    {
        BuiltRelease release;
        release.add("a", "a");
        Updater updater("Editor", release.tree(), "2.1", "", "", "");
        QVERIFY(updater.buildVersionFile(nullptr, false, QString()));
        QCOMPARE(release.indexText(), release.expected({tree::entry("a", "a")}));
    }

    void nullPathIsAllowedOnFailure()
    {
        const BuiltRelease release;
        Updater unnamed(" ", release.tree(), "2.1", "", "", "");
        QVERIFY(!unnamed.buildVersionFile(nullptr, false, QString()));
        Updater missing("Editor", release / "missing", "2.1", "", "", "");
        QVERIFY(!missing.buildVersionFile(nullptr, false, QString()));
        QVERIFY(files::list(release.tree()).isEmpty());
    }

    void otherOptionsDoNotMatterAndNothingIsKept()
    {
        BuiltRelease release;
        release.add("a", "a");
        Updater updater(" Editor ", release.tree(), " 2.1 ", "http://host/", "key", "/exe");
        QVERIFY(updater.buildVersionFile(nullptr, true, QString()));
        release.required = true;
        QCOMPARE(release.indexText(), release.expected({tree::entry("a", "a")}));

        const UpdaterProbe probe(updater);
        QCOMPARE(probe.programName, QString(" Editor "));
        QCOMPARE(probe.programBaseDir, release.tree());
        QCOMPARE(probe.programVersion, QString(" 2.1 "));
        QCOMPARE(probe.updateUrl, QString("http://host/"));
        QCOMPARE(probe.sharedMemKey, QString("key"));
        QCOMPARE(probe.programExe, QString("/exe"));
        QVERIFY(probe.programData.name.isEmpty());
        QVERIFY(probe.programData.version.isEmpty());
        QVERIFY(!probe.programData.required);
        QVERIFY(probe.programData.files.isEmpty());
        QVERIFY(probe.tempDir.isEmpty());
    }

    // Each version file lists the one before it, because the scan comes before the old file is
    // removed.
    void secondBuildListsTheFirstVersionFile()
    {
        BuiltRelease release;
        release.add("a", "a");
        release.add("z", "z");
        QVector<ProgramFile> listed{tree::entry("a", "a"), tree::entry("z", "z")};
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected(listed));

        const QByteArray first = files::read(release.index());
        listed.insert(1, tree::entry("index.txt", first));
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected(listed));

        const QByteArray second = files::read(release.index());
        QVERIFY(second != first);
        listed[1] = tree::entry("index.txt", second);
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected(listed));
    }

    void longerVersionFileIsReplacedWhole()
    {
        BuiltRelease release;
        const QByteArray old(100000, 'x');
        release.add("index.txt", old);
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected({tree::entry("index.txt", old)}));
        QCOMPARE(files::list(release.tree()), QStringList{"index.txt"});
    }

    void textIsInTheSystemsEncoding()
    {
        BuiltRelease release;
        release.name = QString::fromUtf8("Éditeur ☃");
        release.version = QString::fromUtf8("2.1β");
        QVERIFY(release.build());
        QCOMPARE(files::read(release.index()), release.expected({}).toLocal8Bit());
    }

    void textIsInTheSystemsEncodingWhenThatIsLatin1()
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        QSKIP("with Qt 6 the encoding is always UTF-8 here");
#else
        const ScopedSystemEncoding latin1("ISO-8859-1");
        BuiltRelease release;
        release.name = QString::fromUtf8("Éditeur");
        release.version = QString::fromUtf8("2.1☃");
        QVERIFY(release.build());
        const QByteArray text = files::read(release.index());
        QCOMPARE(text, release.expected({}).toLocal8Bit());
        QVERIFY(text.startsWith("<\311diteur>\n\t<version>2.1?</version>\n"));
#endif
    }

    void emptyNameFails_data() { addTextsOfWhitespace(); }

    void emptyNameFails()
    {
        QFETCH(QString, text);
        BuiltRelease release;
        release.name = text;
        buildFailsAndLeavesTheOldFile(release);
    }

    void emptyVersionFails_data() { addTextsOfWhitespace(); }

    void emptyVersionFails()
    {
        QFETCH(QString, text);
        BuiltRelease release;
        release.version = text;
        buildFailsAndLeavesTheOldFile(release);
    }

    void emptyNameFailsAfterTheNotesAreReadAndBeforeTheTreeIs_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("version");
        row("name", " ", "2.1");
        row("version", "Editor", " ");
        row("both", "", "");
    }

    void emptyNameFailsAfterTheNotesAreReadAndBeforeTheTreeIs()
    {
        if (!OpenWatch::isSupported)
            QSKIP("files cannot be watched here");
        QFETCH(QString, name);
        QFETCH(QString, version);
        BuiltRelease release;
        release.name = name;
        release.version = version;
        release.changelogFile = release.outside("notes");
        files::write(release.changelogFile, "Text");
        const OpenWatch notes(release.changelogFile);
        const OpenWatch tree(release.tree());
        QVERIFY(!release.build());
        QVERIFY(notes.opened());
        QVERIFY(!tree.opened());

        release.name = "Editor";
        release.version = "2.1";
        QVERIFY(release.build());
        QVERIFY(tree.opened()); // The watch works.
    }

    void missingBaseDirectoryFails_data()
    {
        QTest::addColumn<QString>("dir");
        row("missing", "missing");
        row("missing, with a slash at the end", "missing/");
        row("missing, with a backslash at the end", "missing\\");
        row("file", "file");
        row("broken link", "broken");
        row("space after the name", "tree ");
    }

    void missingBaseDirectoryFails()
    {
        QFETCH(QString, dir);
        BuiltRelease release;
        release.add("index.txt", "old");
        files::write(release.outside("file"), "file");
        files::link("nowhere", release.outside("broken"));
        const QStringList before = files::list(release.outside(""));
        QVERIFY(!release.buildAt(release.outside(dir)));
        QCOMPARE(release.path, QString(untouched));
        QCOMPARE(files::list(release.outside("")), before);
        QCOMPARE(files::read(release.index()), QByteArray("old"));
    }

    void missingBaseDirectoryFailsAfterTheNotesAreRead()
    {
        if (!OpenWatch::isSupported)
            QSKIP("files cannot be watched here");
        BuiltRelease release;
        release.changelogFile = release.outside("notes");
        files::write(release.changelogFile, "Text");
        const OpenWatch notes(release.changelogFile);
        QVERIFY(!release.buildAt(release.outside("missing")));
        QVERIFY(notes.opened());
    }

    void spaceBeforeTheBaseDirectoryIsNotTrimmed()
    {
        BuiltRelease release;
        QVERIFY(!release.buildAt(" " + release.tree()));
        QVERIFY(files::list(release.tree()).isEmpty());
    }

    void unreadableFileFails_data()
    {
        QTest::addColumn<QString>("unreadable");
        row("at the top", "a");
        row("below, with readable files after it", "b/c/d");
        row("last of all", "z");
        row("the old version file", "index.txt");
    }

    void unreadableFileFails()
    {
        QFETCH(QString, unreadable);
        BuiltRelease release;
        for (const char* name : {"a", "b/c/d", "b/e", "index.txt", "z"})
            release.add(name, "contents");
        {
            const ScopedMode locked(release / unreadable, 0);
            ENFORCE_PERMISSIONS();
            buildFailsAndMakesNoFile(release);
        }
        QCOMPARE(files::read(release.index()), QByteArray("contents"));
    }

    void unreadableFileFailsAndMakesNoVersionFile()
    {
        BuiltRelease release;
        release.add("a", "a");
        files::setMode(release / "a", 0);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(release);
    }

    void unreadableDirectoryIsLeftOut()
    {
        BuiltRelease release;
        release.add("a", "a");
        release.add("locked/b", "b");
        const ScopedMode locked(release / "locked", 0);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected({tree::entry("a", "a")}));
    }

    // It cannot be listed, so its contents are unknown. It can be entered, so a file can be made in
    // it.
    void unreadableBaseDirectoryIsDescribedAsEmpty()
    {
        BuiltRelease release;
        release.add("a", "a");
        {
            const ScopedMode locked(release.tree(), 0300);
            ENFORCE_PERMISSIONS();
            QVERIFY(release.build());
        }
        QCOMPARE(release.indexText(), release.expected({}));
    }

    void oldVersionFileIsGoneWhenTheNewOneCannotBeOpened()
    {
        BuiltRelease release;
        release.add("a", "a");
        release.add("index.txt", "old");
        bool result = true;
        {
            const NoDescriptorsLeft none;
            result = release.build();
        }
        QVERIFY(!result);
        QCOMPARE(release.path, QString(untouched));
        QCOMPARE(files::list(release.tree()), QStringList{"a"});
    }

    void directoryInThePlaceOfTheVersionFileStays_data()
    {
        QTest::addColumn<QString>("inside");
        row("empty", "index.txt/");
        row("with a file", "index.txt/inside");
    }

    void directoryInThePlaceOfTheVersionFileStays()
    {
        QFETCH(QString, inside);
        BuiltRelease release;
        files::makeDirectory(release.index());
        if (!inside.endsWith('/'))
            release.add(inside, "inside");
        buildFailsAndMakesNoFile(release);
    }

    void closedBaseDirectoryFails()
    {
        BuiltRelease release;
        release.add("a", "a");
        const ScopedMode closed(release.tree(), 0500);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(release);
    }

    void oldVersionFileThatCanNeitherBeRemovedNorWrittenStays()
    {
        BuiltRelease release;
        release.add("index.txt", "old");
        files::setMode(release.index(), 0400);
        const ScopedMode closed(release.tree(), 0500);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(release);
        QCOMPARE(files::read(release.index()), QByteArray("old"));
    }

    // It does not matter whether the removal succeeds.
    void oldVersionFileThatCannotBeRemovedIsOverwritten()
    {
        BuiltRelease release;
        const QByteArray old(10000, 'x');
        release.add("index.txt", old);
        const ScopedMode closed(release.tree(), 0500);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.build());
        QCOMPARE(release.path, release.index());
        QCOMPARE(release.indexText(), release.expected({tree::entry("index.txt", old)}));
    }

    void readOnlyVersionFileIsReplaced()
    {
        BuiltRelease release;
        release.add("index.txt", "old");
        files::setMode(release.index(), 0400);
        ENFORCE_PERMISSIONS();
        QVERIFY(release.build());
        QCOMPARE(release.indexText(), release.expected({tree::entry("index.txt", "old")}));
    }

    void linkInThePlaceOfTheVersionFileIsReplacedAndItsTargetStays()
    {
        BuiltRelease release;
        files::write(release.outside("target"), "old");
        files::link("../target", release.index());
        QVERIFY(release.build());
        QVERIFY(!QFileInfo(release.index()).isSymLink());
        QCOMPARE(release.indexText(), release.expected({tree::entry("index.txt", "old")}));
        QCOMPARE(files::read(release.outside("target")), QByteArray("old"));
    }

    // For QFile no file exists at such a path: nothing is removed, and opening it makes the target.
    void brokenLinkInThePlaceOfTheVersionFileIsWrittenThrough()
    {
        BuiltRelease release;
        files::link("../target", release.index());
        QVERIFY(release.build());
        QVERIFY(QFileInfo(release.index()).isSymLink());
        QCOMPARE(files::read(release.outside("target")), release.expected({}).toLatin1());
    }

    void brokenLinkThatLeadsIntoNoDirectoryFails()
    {
        BuiltRelease release;
        files::link("../missing/target", release.index());
        buildFailsAndMakesNoFile(release);
        QVERIFY(QFileInfo(release.index()).isSymLink());
    }

private:
    static void buildFailsAndMakesNoFile(BuiltRelease& release)
    {
        const QStringList before = files::list(release.tree());
        QVERIFY(!release.build());
        QCOMPARE(release.path, QString(untouched));
        QCOMPARE(files::list(release.tree()), before);
    }

    static void buildFailsAndLeavesTheOldFile(BuiltRelease& release)
    {
        release.add("index.txt", "old");
        buildFailsAndMakesNoFile(release);
        QCOMPARE(files::read(release.index()), QByteArray("old"));
    }
};

UPDATER_TEST_MAIN(TestVersionFile)
#include "tst_VersionFile.moc"
