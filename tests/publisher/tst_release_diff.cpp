// "updater-release diff": the differences between two releases, by their version files.

#include "publisher/Diff.h"

#include "tests/publisher/Tool.h"
#include "tests/support/CollectedOutput.h"
#include "tests/support/EditorRelease.h"
#include "tests/support/Release.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QFile>

namespace {

/// Two version files, and the comparison of them.
class Releases
{
public:
    /// Version 1.0 with @p before, version 2.0 with @p after.
    Releases(const QVector<ProgramFile>& before, const QVector<ProgramFile>& after)
    {
        writeOld(tree::versionFile(editorRelease("1.0", before)).toUtf8());
        writeNew(tree::versionFile(editorRelease("2.0", after)).toUtf8());
    }

    QString oldPath() const { return m_dir / "old.txt"; }
    QString newPath() const { return m_dir / "new.txt"; }

    void writeOld(const QByteArray& bytes) const { files::write(oldPath(), bytes); }
    void writeNew(const QByteArray& bytes) const { files::write(newPath(), bytes); }

    /// The lines of the result. Findings come without the reasons.
    QStringList compare(const QString& program = QString())
    {
        CollectedOutput output;
        publisher::diff(oldPath(), newPath(), program, output);
        findings = output.findings();
        return output.withoutReasons();
    }

    int findings = 0;

private:
    TestDir m_dir;
};

const QString staysInstalled =
    "Removed files stay on users' machines: the updater deletes nothing.";

} // namespace

class TestReleaseDiff : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void changesAreReported()
    {
        Releases releases({tree::entry("same", "same"), tree::entry("a/changed", "1"),
                           tree::entry("gone", "gone"), tree::entry("size", "22")},
                          {tree::entry("new", "12345"), tree::entry("a/changed", "2"),
                           tree::entry("same", "same"), tree::entry("size", "333"),
                           tree::entry("b/new", "")});
        QCOMPARE(releases.compare(),
                 QStringList({"added   new (5 bytes)", "added   b/new (0 bytes)",
                              "changed a/changed (1 bytes)", "changed size (3 bytes)",
                              "removed gone (4 bytes)",
                              "Editor 1.0 to 2.0: 2 added, 2 changed, 1 removed",
                              "A user of 1.0 downloads 4 files, 9 bytes.", staysInstalled}));
        QCOMPARE(releases.findings, 0);
    }

    void equalReleasesHaveNoChanges()
    {
        ProgramFile upperCase = tree::entry("a", "a");
        upperCase.sha1 = upperCase.sha1.toUpper();
        Releases releases({tree::entry("a", "a")}, {upperCase});
        QCOMPARE(releases.compare(),
                 QStringList({"Editor 1.0 to 2.0: 0 added, 0 changed, 0 removed",
                              "A user of 1.0 downloads 0 files, 0 bytes."}));
        QCOMPARE(releases.findings, 0);
    }

    /// The updater also downloads a file that differs only in size.
    void otherSizeIsAChange()
    {
        ProgramFile longer = tree::entry("a", "1");
        longer.size = 2;
        Releases releases({tree::entry("a", "1")}, {longer});
        QCOMPARE(
            releases.compare(),
            QStringList({"changed a (2 bytes)", "Editor 1.0 to 2.0: 0 added, 1 changed, 0 removed",
                         "A user of 1.0 downloads 1 files, 2 bytes."}));
        QCOMPARE(releases.findings, 0);
    }

    void bytesBeyondFourGigabytesAddUp()
    {
        ProgramFile large = tree::entry("large", "");
        large.size = 5'000'000'000;
        ProgramFile larger = tree::entry("larger", "");
        larger.size = 6'000'000'000;
        Releases releases({}, {large, larger});
        QCOMPARE(releases.compare().constLast(),
                 "A user of 1.0 downloads 2 files, 11000000000 bytes.");
    }

    void sameVersionIsRemarked_data()
    {
        QTest::addColumn<QString>("version");
        QTest::addColumn<bool>("same");
        row("same", "1.0b", true);
        row("in other case", "1.0B", true);
        row("lower", "0.9", false);
    }

    void sameVersionIsRemarked()
    {
        QFETCH(QString, version);
        QFETCH(bool, same);
        Releases releases({}, {});
        releases.writeOld(tree::versionFile(editorRelease("1.0b")).toUtf8());
        releases.writeNew(tree::versionFile(editorRelease(version)).toUtf8());
        QCOMPARE(releases.compare().contains(
                     "Both have the same version: no installation will be updated."),
                 same);
        QCOMPARE(releases.findings, 0);
    }

    void otherRecordsAreNotRead()
    {
        Releases releases({}, {});
        const ProgramData two = editorRelease("2.0", {tree::entry("a", "a")});
        ProgramData viewer = two;
        viewer.name = "Viewer";
        viewer.files = {tree::entry("b", "bb")};
        releases.writeNew((tree::versionFile(two) + tree::versionFile(viewer)).toUtf8());
        QCOMPARE(releases.compare().constFirst(), "added   a (1 bytes)");
        QCOMPARE(releases.findings, 0);

        releases.writeOld((tree::versionFile(two) + tree::versionFile(viewer)).toUtf8());
        QCOMPARE(releases.compare("viewer"),
                 QStringList({"viewer 2.0 to 2.0: 0 added, 0 changed, 0 removed",
                              "A user of 2.0 downloads 0 files, 0 bytes.",
                              "Both have the same version: no installation will be updated."}));
    }

    void listedTwiceCountsAsTheUpdaterInstallsIt()
    {
        // The last of the old ones is installed. The updater fetches every new one that differs
        // from it.
        Releases releases({tree::entry("a", "1"), tree::entry("a", "22")},
                          {tree::entry("a", "1"), tree::entry("a", "22"), tree::entry("a", "333")});
        QCOMPARE(releases.compare(),
                 QStringList({"changed a (1 bytes)", "changed a (3 bytes)",
                              "Editor 1.0 to 2.0: 0 added, 2 changed, 0 removed",
                              "A user of 1.0 downloads 2 files, 4 bytes."}));
    }

    void anotherProgramIsFound()
    {
        Releases releases({}, {});
        releases.writeNew(
            tree::versionFile(editorRelease("2.0")).replace("Editor", "Viewer").toUtf8());
        QCOMPARE(releases.compare(),
                 QStringList{releases.newPath() + ": has no record of \"Editor\" with a version"});
        QCOMPARE(releases.findings, 1);
    }

    void nameIsThatOfTheFirstTag()
    {
        Releases releases({}, {});
        releases.writeOld("</x> > <> text " + tree::versionFile(editorRelease("1.0")).toUtf8());
        QCOMPARE(releases.compare().size(), 2);
        QCOMPARE(releases.findings, 0);
    }

    void badVersionFileIsFound_data()
    {
        QTest::addColumn<QByteArray>("before"); // What to replace in a good version file,
        QTest::addColumn<QByteArray>("after");  // and by what.
        QTest::addColumn<QString>("finding");
        const QString list = "lists 3 files, of which the updater sees ";
        const auto replaced = [](const char* name, const QByteArray& before,
                                 const QByteArray& after, const QString& finding) {
            row(name, before, after, finding);
        };
        replaced("zero byte", "</Editor>\n", QByteArray("</Editor>\n\0", 11),
                 "has a zero byte at position @size");
        replaced("Latin-1", "<name>b", "<name>\xe9", "has characters outside ASCII");
        replaced("list ends first", "<name>a<", "<name><", list + "0 (none)");
        replaced("list ends early", "<name>b<", "<name> <", list + "1 (the last is \"a\")");
        replaced("list ends at the last", "<size>3<", "<size><", list + "2 (the last is \"b\")");
        replaced("list ends at a digest", "<sha1>" + files::sha1("22").toLatin1(), "<sha1>",
                 list + "1 (the last is \"a\")");
        replaced("size is not a number", "<size>1<", "<size>one<", list + "2 (the last is \"c\")");
        replaced("tags in capitals", "<file>\n\t\t<name>c<", "<FILE>\n\t\t<name><",
                 list + "2 (the last is \"b\")");
    }

    void badVersionFileIsFound()
    {
        QFETCH(QByteArray, before);
        QFETCH(QByteArray, after);
        QFETCH(QString, finding);
        const QVector<ProgramFile> files{tree::entry("a", "1"), tree::entry("b", "22"),
                                         tree::entry("c", "333")};
        QByteArray text = tree::versionFile(editorRelease("2.0", files)).toUtf8();
        finding.replace("@size", QString::number(text.size()));
        QCOMPARE(text.count(before), 1);
        Releases releases({}, {});
        releases.writeNew(text.replace(before, after));
        QCOMPARE(releases.compare().constFirst(), releases.newPath() + ": " + finding);
        QCOMPARE(releases.findings, 1);

        // The same in the old version file; the new one is good.
        releases.writeOld(text);
        releases.writeNew(tree::versionFile(editorRelease("2.0")).toUtf8());
        QCOMPARE(releases.compare().constFirst(), releases.oldPath() + ": " + finding);
        QCOMPARE(releases.findings, 1);
    }

    void whatIsNoVersionFileIsFound_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("finding");
        row("empty", QByteArray(), "is no version file");
        row("text", QByteArray("not found"), "is no version file");
        row("page", QByteArray("<html><body></body></html>"),
            "has no record of \"html\" with a version");
        row("cut off", QByteArray("<Editor>\n\t<version>2.1</version>"),
            "has no record of \"Editor\" with a version");
        row("space as the version", QByteArray("<Editor><version> </version></Editor>"),
            "has no record of \"Editor\" with a version");
    }

    void whatIsNoVersionFileIsFound()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, finding);
        Releases releases({}, {});
        releases.writeOld(contents);
        QCOMPARE(releases.compare().constFirst(), releases.oldPath() + ": " + finding);
        QVERIFY(releases.findings > 0);
    }

    void missingFileIsFound()
    {
        Releases releases({}, {});
        QVERIFY(QFile::remove(releases.oldPath()));
        QVERIFY(QFile::remove(releases.newPath()));
        const QStringList lines = releases.compare();
        QCOMPARE(lines, QStringList({releases.oldPath() + ": cannot be read",
                                     releases.newPath() + ": cannot be read"}));
        QCOMPARE(releases.findings, 2);
    }

    void namesHaveNoPowerOverTheTerminal()
    {
        Releases releases({}, {tree::entry("a\x1b[2Jb\nc", "1")});
        QCOMPARE(releases.compare().constFirst(), "added   a\\x1b[2Jb\\x0ac (1 bytes)");
    }

    /// The real updater describes two trees.
    void realReleasesAreCompared()
    {
        const TestDir dir;
        release::lay({{"Contents/MacOS/Editor", "one"}, {"old", "old"}, {"same", "same"}},
                     dir / "1");
        release::lay({{"Contents/MacOS/Editor", "two!"}, {"new", "new"}, {"same", "same"}},
                     dir / "2");
        release::describe(dir / "1", "Editor", "1.0");
        release::describe(dir / "2", "Editor", "2.0");

        Tool tool;
        QCOMPARE(tool.run({"diff", dir / "1/index.txt", dir / "2/index.txt"}), 0);
        QCOMPARE(tool.output(), QByteArray("added   new (3 bytes)\n"
                                           "changed Contents/MacOS/Editor (4 bytes)\n"
                                           "removed old (3 bytes)\n"
                                           "Editor 1.0 to 2.0: 1 added, 1 changed, 1 removed\n"
                                           "A user of 1.0 downloads 2 files, 7 bytes.\n") +
                                    staysInstalled.toUtf8() + "\n");
        QCOMPARE(tool.run({"diff", "-n", "Viewer", dir / "1/index.txt", dir / "2/index.txt"}), 1);
        QCOMPARE(tool.output().count("has no record of \"Viewer\""), 2);
        QCOMPARE(tool.run({"diff", dir / "1/index.txt", dir / "missing"}), 1);
    }
};

UPDATER_TEST_MAIN(TestReleaseDiff)
#include "tst_release_diff.moc"
