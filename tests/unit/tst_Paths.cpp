// The path rules that several subsystems share.

#include "manifest/Paths.h"

#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

class TestPaths : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void separatorIsAddedOnlyWhereThereIsNone_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("ends");
        QTest::addColumn<QString>("expected");
        row("name at the end", "/opt/app", false, "/opt/app/");
        row("slash at the end", "/opt/app/", true, "/opt/app/");
        row("backslash at the end", "C:\\app\\", true, "C:\\app\\");
        row("two slashes at the end", "/opt//", true, "/opt//");
        row("separators only inside", "a/b\\c", false, "a/b\\c/");
        row("root", "/", true, "/");
        row("empty", "", false, "/");
    }

    void separatorIsAddedOnlyWhereThereIsNone()
    {
        QFETCH(QString, path);
        QFETCH(bool, ends);
        QFETCH(QString, expected);
        QCOMPARE(paths::endsWithSeparator(path), ends);
        QCOMPARE(paths::withSeparator(path), expected);
    }

    void separatorsAtTheEndAreRemoved_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("expected");
        row("name at the end", "/opt/app", "/opt/app");
        row("slash at the end", "/opt/app/", "/opt/app");
        row("backslash at the end", "C:\\app\\", "C:\\app");
        row("several slashes and backslashes", "/opt\\/\\//", "/opt");
        row("separators inside stay", "/a//b\\c", "/a//b\\c");
        row("space after the slash", "/opt/ ", "/opt/ ");
        row("root", "/", "");
        row("only separators", "\\/\\", "");
        row("empty", "", "");
    }

    void separatorsAtTheEndAreRemoved()
    {
        QFETCH(QString, path);
        QFETCH(QString, expected);
        QCOMPARE(paths::withoutSeparator(path), expected);
    }

    void directoryEndsAtTheLastSeparator_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("separator");
        QTest::addColumn<QString>("directory");
        row("slashes", "/opt/app/run", 8, "/opt/app");
        row("backslashes", "C:\\app\\run", 6, "C:\\app");
        row("slash after a backslash", "a\\b/c", 3, "a\\b");
        row("backslash after a slash", "a/b\\c", 3, "a/b");
        row("separator at the end", "a/b/", 3, "a/b");
        row("two separators together", "a//b", 2, "a/");
        row("name at the root", "/run", 0, "");
        row("backslash alone", "\\", 0, "");
    }

    void directoryEndsAtTheLastSeparator()
    {
        QFETCH(QString, path);
        QFETCH(int, separator);
        QFETCH(QString, directory);
        QCOMPARE(paths::lastSeparator(path), separator);
        QVERIFY(paths::directoryPart(path).has_value());
        QCOMPARE(*paths::directoryPart(path), directory);
    }

    void bareNameHasNoDirectory_data()
    {
        QTest::addColumn<QString>("path");
        row("name", "run");
        row("empty", "");
    }

    void bareNameHasNoDirectory()
    {
        QFETCH(QString, path);
        QCOMPARE(paths::lastSeparator(path), -1);
        QVERIFY(!paths::directoryPart(path));
    }

    void directoryIsInsideItselfAndItsParents_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<QString>("top");
        QTest::addColumn<bool>("inside");
        row("below, slash at the top", "/tmp/EditorUpdate.app/Contents/MacOS", "/tmp/", true);
        row("below", "/tmp/EditorUpdate.app/Contents/MacOS", "/tmp", true);
        row("below another top", "/tmp/EditorUpdate.app/Contents/MacOS", "/tmp2", false);
        row("directly below", "/tmp/a", "/tmp", true);
        row("sibling that begins with the same letters", "/tmpfiles/app", "/tmp", false);
        row("sibling one letter longer", "/tmp2", "/tmp", false);
        row("sibling, slash at the top", "/tmpfiles", "/tmp/", false);
        row("equal", "/tmp", "/tmp", true);
        row("equal, slash at the path", "/tmp/", "/tmp", true);
        row("equal, slash at the top", "/tmp", "/tmp/", true);
        row("equal, several separators at both", "/tmp//", "/tmp\\/\\", true);
        row("above", "/tmp", "/tmp/a", false);
        row("above, deep down", "/a/b", "/a/b/c", false);
        row("elsewhere, same length", "/opt", "/tmp", false);
        row("elsewhere, longer", "/opt/app", "/tmp", false);
        row("top in the middle of the path", "/opt/tmp/a", "/tmp", false);
        row("path in another case", "/TMP/x", "/tmp", true);
        row("top in another case", "/tmp/x", "/TMP", true);
        row("equal but for the case", "/Tmp", "/tMP", true);
        row("sibling in another case", "/TMPfiles", "/tmp", false);
        row("root contains nothing", "/tmp/a", "/", false);
        row("root does not contain itself", "/", "/", false);
        row("several slashes are the root", "/tmp/a", "///", false);
        row("backslash as root", "\\tmp", "\\", false);
        row("backslashes and another case", "C:/temp/sub", "C:\\Temp", true);
        row("backslashes on the other side", "C:\\temp\\sub", "C:/Temp", true);
        row("backslashes on both sides", "C:\\Temp\\sub", "C:\\Temp\\", true);
        row("backslash after the top", "/tmp\\sub", "/tmp", true);
        row("sibling among backslashes", "C:\\Temporary", "C:\\Temp", false);
        row("no top", "/tmp", "", false);
        row("no path", "", "/tmp", false);
        row("path at the root", "/", "/tmp", false);
        row("neither", "", "", false);
    }

    void directoryIsInsideItselfAndItsParents()
    {
        QFETCH(QString, path);
        QFETCH(QString, top);
        QFETCH(bool, inside);
        QCOMPARE(paths::isInside(path, top), inside);
    }
};

UPDATER_TEST_MAIN(TestPaths)
#include "tst_Paths.moc"
