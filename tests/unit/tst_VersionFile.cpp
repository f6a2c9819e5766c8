// The build of the version file: its contents, its place, and what is left when it fails.

#include "updater/Updater.h"

#include "tests/support/Needs.h"
#include "tests/support/OpenWatch.h"
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
class Publisher
{
public:
    Publisher() { files::makeDirectory(tree()); }

    QString tree() const { return m_dir / "tree"; }
    QString operator/(const QString& name) const { return tree() + "/" + name; }
    QString outside(const QString& name) const { return m_dir / name; }
    QString index() const { return *this / "index.txt"; }
    QString indexText() const { return QString::fromUtf8(files::read(index())); }

    void add(const QString& name, const QByteArray& contents) const
    {
        files::write(*this / name, contents);
    }

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

private:
    TestDir m_dir;
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
        Publisher publisher;
        publisher.add("Contents/Resources/readme.txt", "hello\n");
        publisher.add("Contents/Resources/empty.dat", "");
        publisher.add(".hidden", "abc");
        files::write(publisher.outside("notes"),
                     "Version 2.1\n- Faster start-up\n- Fixed printing\n");
        publisher.changelogFile = publisher.outside("notes");

        QVERIFY(publisher.build());
        QCOMPARE(files::read(publisher.index()), exampleText.toUtf8());
        QCOMPARE(publisher.path, publisher.index());
    }

    void emptyTreeHasNoFileEntries()
    {
        Publisher publisher;
        QVERIFY(publisher.build());
        QCOMPARE(files::read(publisher.index()), QByteArray("<Editor>\n"
                                                            "\t<version>2.1</version>\n"
                                                            "\t<required>false</required>\n"
                                                            "\t<changelog></changelog>\n"
                                                            "</Editor>\n"));
        QCOMPARE(files::list(publisher.tree()), QStringList{"index.txt"});
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
        Publisher publisher;
        publisher.required = required;
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText().count("\t<required>true</required>\n"), required ? 1 : 0);
        QCOMPARE(publisher.indexText().count("\t<required>false</required>\n"), required ? 0 : 1);
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
        Publisher publisher;
        QFETCH(QString, name);
        QFETCH(QString, version);
        publisher.name = name;
        publisher.version = version;
        QVERIFY(publisher.build());
        QCOMPARE(files::read(publisher.index()), QByteArray("<My  Editor>\n"
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
        Publisher publisher;
        files::write(publisher.outside("notes"), "Text");
        files::write(publisher.outside("feed"), "\n");
        files::write(publisher.outside("empty"), "");
        publisher.changelogFile = notes.isEmpty() ? QString() : publisher.outside(notes);
        QVERIFY(publisher.build());
        QVERIFY(files::read(publisher.index()).contains(line));
    }

    // Scripts of a publisher may keep them there.
    void notesInTheTreeAreListed()
    {
        Publisher publisher;
        publisher.add("notes", "Text");
        publisher.changelogFile = publisher / "notes";
        QVERIFY(publisher.build());
        QVERIFY(publisher.indexText().contains("\t<changelog>VGV4dA==</changelog>\n"));
        QCOMPARE(tree::lines(tree::entriesOf(publisher.indexText())),
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
        Publisher publisher;
        files::makeDirectory(publisher.outside("base"));
        files::link("base", publisher.outside("link"));
        files::write(publisher.outside(dir) + "/a", "a");
        QVERIFY(publisher.buildAt(publisher.outside(dir)));
        QCOMPARE(publisher.path, publisher.outside(path));
        QCOMPARE(files::read(publisher.outside(path)),
                 publisher.expected({tree::entry("a", "a")}).toLatin1());
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
        Publisher publisher;
        publisher.add("a", "a");
        const ScopedWorkingDir workingDir(publisher.outside(""));
        QVERIFY(publisher.buildAt(dir));
        QCOMPARE(publisher.path, path);
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("a", "a")}));
    }

    // The backslash counts as a separator, but for this system it is a character of the name: the
    // version file is beside the directory.
    void backslashAtTheEndOfTheBaseDirectoryGetsNoSeparator()
    {
        Publisher publisher;
        files::write(publisher.outside("dir\\/a"), "a");
        for (int build = 0; build < 2; ++build) {
            publisher.path = untouched;
            QVERIFY(publisher.buildAt(publisher.outside("dir\\")));
            QCOMPARE(publisher.path, publisher.outside("dir\\index.txt"));
            QCOMPARE(files::read(publisher.path),
                     publisher.expected({tree::entry("a", "a")}).toLatin1());
            QCOMPARE(files::list(publisher.outside("dir\\")), QStringList{"a"});
        }
    }

    void nullPathIsAllowed()
    {
        Publisher publisher;
        publisher.add("a", "a");
        Updater updater("Editor", publisher.tree(), "2.1", "", "", "");
        QVERIFY(updater.buildVersionFile(nullptr, false, QString()));
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("a", "a")}));
    }

    void nullPathIsAllowedOnFailure()
    {
        const Publisher publisher;
        Updater unnamed(" ", publisher.tree(), "2.1", "", "", "");
        QVERIFY(!unnamed.buildVersionFile(nullptr, false, QString()));
        Updater missing("Editor", publisher / "missing", "2.1", "", "", "");
        QVERIFY(!missing.buildVersionFile(nullptr, false, QString()));
        QVERIFY(files::list(publisher.tree()).isEmpty());
    }

    void otherOptionsDoNotMatterAndNothingIsKept()
    {
        Publisher publisher;
        publisher.add("a", "a");
        Updater updater(" Editor ", publisher.tree(), " 2.1 ", "http://host/", "key", "/exe");
        QVERIFY(updater.buildVersionFile(nullptr, true, QString()));
        publisher.required = true;
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("a", "a")}));

        const UpdaterProbe probe(updater);
        QCOMPARE(probe.programName, QString(" Editor "));
        QCOMPARE(probe.programBaseDir, publisher.tree());
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
        Publisher publisher;
        publisher.add("a", "a");
        publisher.add("z", "z");
        QVector<ProgramFile> listed{tree::entry("a", "a"), tree::entry("z", "z")};
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected(listed));

        const QByteArray first = files::read(publisher.index());
        listed.insert(1, tree::entry("index.txt", first));
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected(listed));

        const QByteArray second = files::read(publisher.index());
        QVERIFY(second != first);
        listed[1] = tree::entry("index.txt", second);
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected(listed));
    }

    void longerVersionFileIsReplacedWhole()
    {
        Publisher publisher;
        const QByteArray old(100000, 'x');
        publisher.add("index.txt", old);
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("index.txt", old)}));
        QCOMPARE(files::list(publisher.tree()), QStringList{"index.txt"});
    }

    void textIsInTheSystemsEncoding()
    {
        Publisher publisher;
        publisher.name = QString::fromUtf8("Éditeur ☃");
        publisher.version = QString::fromUtf8("2.1β");
        QVERIFY(publisher.build());
        QCOMPARE(files::read(publisher.index()), publisher.expected({}).toLocal8Bit());
    }

    void textIsInTheSystemsEncodingWhenThatIsLatin1()
    {
#if QT_VERSION >= QT_VERSION_CHECK(6, 0, 0)
        QSKIP("with Qt 6 the encoding is always UTF-8 here");
#else
        const ScopedSystemEncoding latin1("ISO-8859-1");
        Publisher publisher;
        publisher.name = QString::fromUtf8("Éditeur");
        publisher.version = QString::fromUtf8("2.1☃");
        QVERIFY(publisher.build());
        const QByteArray text = files::read(publisher.index());
        QCOMPARE(text, publisher.expected({}).toLocal8Bit());
        QVERIFY(text.startsWith("<\311diteur>\n\t<version>2.1?</version>\n"));
#endif
    }

    void emptyNameFails_data() { addTextsOfWhitespace(); }

    void emptyNameFails()
    {
        QFETCH(QString, text);
        Publisher publisher;
        publisher.name = text;
        buildFailsAndLeavesTheOldFile(publisher);
    }

    void emptyVersionFails_data() { addTextsOfWhitespace(); }

    void emptyVersionFails()
    {
        QFETCH(QString, text);
        Publisher publisher;
        publisher.version = text;
        buildFailsAndLeavesTheOldFile(publisher);
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
        Publisher publisher;
        publisher.name = name;
        publisher.version = version;
        publisher.changelogFile = publisher.outside("notes");
        files::write(publisher.changelogFile, "Text");
        const OpenWatch notes(publisher.changelogFile);
        const OpenWatch tree(publisher.tree());
        QVERIFY(!publisher.build());
        QVERIFY(notes.opened());
        QVERIFY(!tree.opened());

        publisher.name = "Editor";
        publisher.version = "2.1";
        QVERIFY(publisher.build());
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
        Publisher publisher;
        publisher.add("index.txt", "old");
        files::write(publisher.outside("file"), "file");
        files::link("nowhere", publisher.outside("broken"));
        const QStringList before = files::list(publisher.outside(""));
        QVERIFY(!publisher.buildAt(publisher.outside(dir)));
        QCOMPARE(publisher.path, QString(untouched));
        QCOMPARE(files::list(publisher.outside("")), before);
        QCOMPARE(files::read(publisher.index()), QByteArray("old"));
    }

    void missingBaseDirectoryFailsAfterTheNotesAreRead()
    {
        if (!OpenWatch::isSupported)
            QSKIP("files cannot be watched here");
        Publisher publisher;
        publisher.changelogFile = publisher.outside("notes");
        files::write(publisher.changelogFile, "Text");
        const OpenWatch notes(publisher.changelogFile);
        QVERIFY(!publisher.buildAt(publisher.outside("missing")));
        QVERIFY(notes.opened());
    }

    void spaceBeforeTheBaseDirectoryIsNotTrimmed()
    {
        Publisher publisher;
        QVERIFY(!publisher.buildAt(" " + publisher.tree()));
        QVERIFY(files::list(publisher.tree()).isEmpty());
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
        Publisher publisher;
        for (const char* name : {"a", "b/c/d", "b/e", "index.txt", "z"})
            publisher.add(name, "contents");
        {
            const ScopedMode locked(publisher / unreadable, 0);
            ENFORCE_PERMISSIONS();
            buildFailsAndMakesNoFile(publisher);
        }
        QCOMPARE(files::read(publisher.index()), QByteArray("contents"));
    }

    void unreadableFileFailsAndMakesNoVersionFile()
    {
        Publisher publisher;
        publisher.add("a", "a");
        files::setMode(publisher / "a", 0);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(publisher);
    }

    void unreadableDirectoryIsLeftOut()
    {
        Publisher publisher;
        publisher.add("a", "a");
        publisher.add("locked/b", "b");
        const ScopedMode locked(publisher / "locked", 0);
        ENFORCE_PERMISSIONS();
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("a", "a")}));
    }

    // It cannot be listed, so its contents are unknown. It can be entered, so a file can be made in
    // it.
    void unreadableBaseDirectoryIsDescribedAsEmpty()
    {
        Publisher publisher;
        publisher.add("a", "a");
        {
            const ScopedMode locked(publisher.tree(), 0300);
            ENFORCE_PERMISSIONS();
            QVERIFY(publisher.build());
        }
        QCOMPARE(publisher.indexText(), publisher.expected({}));
    }

    void oldVersionFileIsGoneWhenTheNewOneCannotBeOpened()
    {
        Publisher publisher;
        publisher.add("a", "a");
        publisher.add("index.txt", "old");
        bool result = true;
        {
            const NoDescriptorsLeft none;
            result = publisher.build();
        }
        QVERIFY(!result);
        QCOMPARE(publisher.path, QString(untouched));
        QCOMPARE(files::list(publisher.tree()), QStringList{"a"});
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
        Publisher publisher;
        files::makeDirectory(publisher.index());
        if (!inside.endsWith('/'))
            publisher.add(inside, "inside");
        buildFailsAndMakesNoFile(publisher);
    }

    void closedBaseDirectoryFails()
    {
        Publisher publisher;
        publisher.add("a", "a");
        const ScopedMode closed(publisher.tree(), 0500);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(publisher);
    }

    void oldVersionFileThatCanNeitherBeRemovedNorWrittenStays()
    {
        Publisher publisher;
        publisher.add("index.txt", "old");
        files::setMode(publisher.index(), 0400);
        const ScopedMode closed(publisher.tree(), 0500);
        ENFORCE_PERMISSIONS();
        buildFailsAndMakesNoFile(publisher);
        QCOMPARE(files::read(publisher.index()), QByteArray("old"));
    }

    // It does not matter whether the removal succeeds.
    void oldVersionFileThatCannotBeRemovedIsOverwritten()
    {
        Publisher publisher;
        const QByteArray old(10000, 'x');
        publisher.add("index.txt", old);
        const ScopedMode closed(publisher.tree(), 0500);
        ENFORCE_PERMISSIONS();
        QVERIFY(publisher.build());
        QCOMPARE(publisher.path, publisher.index());
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("index.txt", old)}));
    }

    void readOnlyVersionFileIsReplaced()
    {
        Publisher publisher;
        publisher.add("index.txt", "old");
        files::setMode(publisher.index(), 0400);
        ENFORCE_PERMISSIONS();
        QVERIFY(publisher.build());
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("index.txt", "old")}));
    }

    void linkInThePlaceOfTheVersionFileIsReplacedAndItsTargetStays()
    {
        Publisher publisher;
        files::write(publisher.outside("target"), "old");
        files::link("../target", publisher.index());
        QVERIFY(publisher.build());
        QVERIFY(!QFileInfo(publisher.index()).isSymLink());
        QCOMPARE(publisher.indexText(), publisher.expected({tree::entry("index.txt", "old")}));
        QCOMPARE(files::read(publisher.outside("target")), QByteArray("old"));
    }

    // For QFile no file exists at such a path: nothing is removed, and opening it makes the target.
    void brokenLinkInThePlaceOfTheVersionFileIsWrittenThrough()
    {
        Publisher publisher;
        files::link("../target", publisher.index());
        QVERIFY(publisher.build());
        QVERIFY(QFileInfo(publisher.index()).isSymLink());
        QCOMPARE(files::read(publisher.outside("target")), publisher.expected({}).toLatin1());
    }

    void brokenLinkThatLeadsIntoNoDirectoryFails()
    {
        Publisher publisher;
        files::link("../missing/target", publisher.index());
        buildFailsAndMakesNoFile(publisher);
        QVERIFY(QFileInfo(publisher.index()).isSymLink());
    }

private:
    static void buildFailsAndMakesNoFile(Publisher& publisher)
    {
        const QStringList before = files::list(publisher.tree());
        QVERIFY(!publisher.build());
        QCOMPARE(publisher.path, QString(untouched));
        QCOMPARE(files::list(publisher.tree()), before);
    }

    static void buildFailsAndLeavesTheOldFile(Publisher& publisher)
    {
        publisher.add("index.txt", "old");
        buildFailsAndMakesNoFile(publisher);
        QCOMPARE(files::read(publisher.index()), QByteArray("old"));
    }
};

UPDATER_TEST_MAIN(TestVersionFile)
#include "tst_VersionFile.moc"
