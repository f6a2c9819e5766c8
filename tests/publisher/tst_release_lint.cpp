// "updater-release lint": for every rule, a tree that breaks only this one; and good trees.

#include "publisher/Lint.h"

#include "tests/publisher/Tool.h"
#include "tests/support/CollectedOutput.h"
#include "tests/support/Needs.h"
#include "tests/support/ReleaseDir.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QFile>
#include <QRegularExpression>

#include <utility>

namespace {

/// A release tree without findings, until a test adds some; or one of just the files that are
/// given.
class LintedRelease : public ReleaseDir
{
public:
    LintedRelease()
    {
        add("Contents/MacOS/Editor", 0755);
        add("Contents/Info.plist");
    }

    explicit LintedRelease(const QStringList& files)
    {
        for (const QString& name : files)
            add(name);
    }

    void add(const QString& name, unsigned mode = 0644) const
    {
        ReleaseDir::add(name);
        files::setMode(*this / name, mode);
    }

    /// Adds a special file, an empty directory or else a link to @p kind.
    void addOther(const QString& kind, const QString& name) const
    {
        if (kind == "named pipe")
            tree::makeFifo(*this / name);
        else if (kind == "socket")
            tree::makeSocket(*this / name);
        else if (kind == "empty directory")
            files::makeDirectory(*this / name);
        else
            files::link(kind, *this / name);
    }

    /// The findings, without the reasons.
    QStringList findings(const QString& program = "Editor") const
    {
        CollectedOutput output;
        publisher::lint(tree(), program, {}, output);
        if (output.findings() != output.lines.size())
            return {"lines that are no findings"};
        return output.withoutReasons();
    }
};

/// The long options in @p text, sorted.
QStringList longOptions(const QString& text)
{
    QStringList options;
    auto match = QRegularExpression("(?<!\\S)[`]?(--[a-z]+)").globalMatch(text);
    while (match.hasNext())
        options.append(match.next().captured(1));
    options.removeDuplicates();
    options.sort();
    return options;
}

} // namespace

class TestReleaseLint : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void fineTreeHasNoFinding_data()
    {
        QTest::addColumn<QString>("program");
        row("with the program's name", "Editor");
        row("with its name in other case", "eDITOR");
        row("without", "");
    }

    void fineTreeHasNoFinding()
    {
        QFETCH(QString, program);
        const LintedRelease release;
        release.add("Contents/Resources/app.icns", 0755);
        release.add("Contents/Resources/UPPER.ICNS", 0700);
        release.add("Contents/Resources/index.txt");
        release.add("Contents/Resources/ space before");
        release.add("Contents/space after /a");
        release.add("Contents/space inside/a b");
        release.add("Contents/other/case/INFO.PLIST");
        release.add("%1");
        release.add("100%");
        release.add("50%/percent sign");
        release.add("%L/percent sign");
        release.add("&;=+@!$,()~'\"[]{}^|`:*");
        release.add(".hidden/.deep/.file");
        QCOMPARE(release.findings(program), QStringList());
    }

    void nameHasItsFinding_data()
    {
        const QString control = "control character";
        const QString space = "leading or trailing space";
        const QString placeholder = "\"%\" and a digit in a directory's name";
        const QString url = "\"#\", \"?\" or \"%\" with two digits";

        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("finding");
        row("less than", "a<b", "a<b: \"<\" or \">\"");
        row("greater than, below", "sub/>", "sub/>: \"<\" or \">\"");
        row("less than, directory", "<a/f", "<a: \"<\" or \">\"");
        row("line feed", "a\nb", "a\\x0ab: " + control);
        row("line feed at the end", "a\n", "a\\x0a: " + control);
        row("escape", "sub/\x1b[1m", "sub/\\x1b[1m: " + control);
        row("delete", "\x7f", "\\x7f: " + control);
        row("tab, directory", "a\tb/f", "a\\x09b: " + control);
        row("leading space", " a", " a: " + space);
        row("leading space, directory", " a/f", " a: " + space);
        row("trailing space", "a ", "a : " + space);
        row("trailing space, below", "sub/a ", "sub/a : " + space);
        row("placeholder", "%1/f", "%1: " + placeholder);
        row("placeholder, below", "sub/a%0x/f", "sub/a%0x: " + placeholder);
        row("placeholder for locales", "%L2/f", "%L2: " + placeholder);
        row("backslash", "a\\b", "a\\b: backslash");
        row("backslash, directory", "a\\b/f", "a\\b: backslash in a directory's name");
        row("number sign", "a#b", "a#b: " + url);
        row("number sign at the end", "a#", "a#: " + url);
        row("question mark", "sub/a?", "sub/a?: " + url);
        row("question mark, directory", "a?b/f", "a?b: " + url);
        row("percent-encoded", "%41", "%41: " + url);
        row("percent-encoded space", "sub/a%20b", "sub/a%20b: " + url);
        row("version file", "index.txt", "index.txt: version file of an earlier build");
        row("version file in other case", "Index.TXT",
            "Index.TXT: version file of an earlier build");
        row("letter case", "contents", "contents: differs from \"Contents\" only in letter case");
        row("letter case, below", "Contents/INFO.plist",
            "Contents/Info.plist: differs from \"INFO.plist\" only in letter case");
    }

    void nameHasItsFinding()
    {
        QFETCH(QString, name);
        QFETCH(QString, finding);
        const LintedRelease release;
        release.add(name);
        QCOMPARE(release.findings(), QStringList{finding});
    }

    void nameOutsideAsciiHasItsFinding_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("finding");
        const QString what = ": characters outside ASCII";
        const QString letter = QString::fromUtf8("\xc3\x84");
        const QString snowman = QString::fromUtf8("\xe2\x98\x83");
        row("Latin-1", letter, letter + what);
        row("wider", "sub/" + snowman, "sub/" + snowman + what);
        row("directory", snowman + "/f", snowman + what);
        row("one that turns text around", QString("a") + QChar(0x202e) + "b", "a\\u202eb" + what);
    }

    void nameOutsideAsciiHasItsFinding()
    {
        QFETCH(QString, name);
        if (QFile::decodeName(QFile::encodeName(name)) != name)
            QSKIP("the locale's encoding has no such file names");
        nameHasItsFinding();
    }

    void lettersThatFoldAlikeHaveTheirFinding_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QString>("other");
        const auto letters = [](const char* tag, const char* name, const char* other) {
            row(tag, QString::fromUtf8(name), QString::fromUtf8(other));
        };
        letters("umlauts", "\xc3\x84", "\xc3\xa4");
        // Both of these are small letters.
        letters("long s", "s", "\xc5\xbf");
        letters("final sigma", "\xcf\x82", "\xcf\x83");
    }

    void lettersThatFoldAlikeHaveTheirFinding()
    {
        QFETCH(QString, name);
        QFETCH(QString, other);
        if (QFile::decodeName(QFile::encodeName(name + other)) != name + other)
            QSKIP("the locale's encoding has no such file names");
        const LintedRelease release;
        release.add(name);
        release.add(other);
        QCOMPARE(release.findings().constFirst(),
                 other + ": differs from \"" + name + "\" only in letter case");
    }

    void whatIsNoFileHasItsFinding_data()
    {
        QTest::addColumn<QString>("kind");
        QTest::addColumn<QString>("finding");
        row("named pipe", "named pipe", "x: neither a file nor a directory");
        row("socket", "socket", "x: neither a file nor a directory");
        row("empty directory", "empty directory", "x: empty directory");
        row("link to a file", "Contents/MacOS/Editor", "x: symbolic link");
        row("link to a directory", "Contents", "x: symbolic link");
        row("link to itself", "x", "x: symbolic link");
        row("link into the top", ".", "x: symbolic link");
        row("link to a device", "/dev/null", "x: symbolic link");
        row("broken link", "missing", "x: symbolic link");
    }

    void whatIsNoFileHasItsFinding()
    {
        QFETCH(QString, kind);
        QFETCH(QString, finding);
        const LintedRelease release;
        release.addOther(kind, "x");
        QCOMPARE(release.findings(), QStringList{finding});
    }

    void directoryOfWhatIsNoFileIsNotEmpty_data() { whatIsNoFileHasItsFinding_data(); }

    void directoryOfWhatIsNoFileIsNotEmpty()
    {
        QFETCH(QString, kind);
        QFETCH(QString, finding);
        const LintedRelease release;
        files::makeDirectory(release / "sub");
        release.addOther(kind, "sub/x");
        QCOMPARE(release.findings(), QStringList{"sub/" + finding});
    }

    void executableFileHasItsFinding_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned>("mode");
        row("for its owner", "tool", 0744U);
        row("for its group", "tool", 0654U);
        row("for others", "tool", 0645U);
        row("helper beside the program", "Contents/MacOS/Helper", 0755U);
        row("below the program's directory", "Contents/MacOS/sub/Editor", 0755U);
        row("the second program of that name", "Contents/PlugIns/Contents/MacOS/Editor", 0755U);
        row("icon of another kind", "Contents/a.icns.bak", 0755U);
    }

    void executableFileHasItsFinding()
    {
        QFETCH(QString, name);
        QFETCH(unsigned, mode);
        const LintedRelease release;
        release.add(name, mode);
        QCOMPARE(release.findings(), QStringList{name + ": executable here, but not for users"});
    }

    void treeWithoutProgramHasItsFinding_data()
    {
        const QString named = ": no file Contents/MacOS/Editor";
        const QString unnamed = ": no file Contents/MacOS/NAME";

        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("program");
        QTest::addColumn<QString>("finding");
        row("another program", QStringList{"Contents/MacOS/Viewer"}, "Editor", named);
        row("another program, unnamed", QStringList{"Contents/MacOS/Viewer"}, "", "");
        row("elsewhere", QStringList{"MacOS/Editor"}, "Editor", named);
        row("elsewhere, unnamed", QStringList{"MacOS/Editor"}, "", unnamed);
        row("deeper", QStringList{"Contents/MacOS/sub/Editor"}, "Editor", named);
        row("deeper, unnamed", QStringList{"Contents/MacOS/sub/Editor"}, "", unnamed);
        row("longer name", QStringList{"Contents/MacOS/TheEditor"}, "Editor", named);
        row("in a bundle, unnamed", QStringList{"Editor.app/Contents/MacOS/Editor"}, "", "");
        row("updater only, unnamed", QStringList{"Contents/MacOS/updater"}, "", unnamed);
        row("updater only, in other case", QStringList{"Contents/MacOS/UPDATER"}, "", unnamed);
        row("updater and another, unnamed",
            QStringList{"Contents/MacOS/updater", "Contents/MacOS/Viewer"}, "", "");
        row("updater in the bundle of another, unnamed",
            QStringList{"Contents/MacOS/Viewer", "Contents/Z/Contents/MacOS/updater"}, "", "");
        row("named updater", QStringList{"Contents/MacOS/updater"}, "updater", "");
        row("in other case", QStringList{"contents/macos/editor"}, "Editor", "");
        row("in other case, unnamed", QStringList{"contents/macos/editor"}, "", "");
        row("nothing at all", QStringList(), "Editor", named);
    }

    void treeWithoutProgramHasItsFinding()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, program);
        QFETCH(QString, finding);
        const LintedRelease release(files);
        const QStringList expected =
            finding.isEmpty() ? QStringList() : QStringList{release.tree() + finding};
        QCOMPARE(release.findings(program), expected);
    }

    /// The tree is installed over the bundle. A bundle in the tree becomes a bundle in the bundle.
    void programElsewhereHasItsFinding_data()
    {
        const QString what = ": the program, but not at Contents/MacOS/Editor";
        QTest::addColumn<QStringList>("files");
        QTest::addColumn<QString>("finding");
        row("in a bundle", QStringList{"Editor.app/Contents/MacOS/Editor"},
            "Editor.app/Contents/MacOS/Editor" + what);
        row("in a directory that ends alike", QStringList{"My Contents/MacOS/Editor"},
            "My Contents/MacOS/Editor" + what);
        row("before the one at its place",
            QStringList{"Contents/A/Contents/MacOS/Editor", "Contents/MacOS/Editor"},
            "Contents/A/Contents/MacOS/Editor" + what);
        row("after the one at its place",
            QStringList{"Contents/MacOS/Editor", "Contents/Z/Contents/MacOS/Editor"}, "");
    }

    void programElsewhereHasItsFinding()
    {
        QFETCH(QStringList, files);
        QFETCH(QString, finding);
        QCOMPARE(LintedRelease(files).findings("Editor"),
                 finding.isEmpty() ? QStringList() : QStringList{finding});
    }

    void linkedProgramElsewhereHasItsFinding()
    {
        const LintedRelease release;
        QVERIFY(QFile::remove(release / "Contents/MacOS/Editor"));
        release.add("Contents/MacOS/Viewer");
        release.add("real");
        files::link("../../../real", release / "Editor.app/Contents/MacOS/Editor");
        QCOMPARE(release.findings(),
                 QStringList({"Editor.app/Contents/MacOS/Editor: symbolic link",
                              "Editor.app/Contents/MacOS/Editor: the program, but not at "
                              "Contents/MacOS/Editor"}));
    }

    void linkedProgramIsAProgram()
    {
        const LintedRelease release;
        QVERIFY(QFile::rename(release / "Contents/MacOS/Editor", release / "Contents/real"));
        files::setMode(release / "Contents/real", 0644);
        files::link("../real", release / "Contents/MacOS/Editor");
        QCOMPARE(release.findings(), QStringList{"Contents/MacOS/Editor: symbolic link"});
    }

    void linkToNoFileIsNoProgram_data()
    {
        QTest::addColumn<QString>("target");
        row("broken", "missing");
        row("to a directory", "..");
        row("to a device", "/dev/null");
    }

    void linkToNoFileIsNoProgram()
    {
        QFETCH(QString, target);
        const LintedRelease release;
        QVERIFY(QFile::remove(release / "Contents/MacOS/Editor"));
        files::link(target, release / "Contents/MacOS/Editor");
        QCOMPARE(release.findings(),
                 QStringList({"Contents/MacOS/Editor: symbolic link",
                              release.tree() + ": no file Contents/MacOS/Editor"}));
    }

    void everyFindingSaysWhy()
    {
        const LintedRelease release;
        release.add("a<b");
        CollectedOutput output;
        publisher::lint(release.tree(), "Editor", {}, output);
        QCOMPARE(output.lines, QStringList{"a<b: \"<\" or \">\"; rename it: the version file has "
                                           "no escapes and could read this as a tag"});
    }

    void unreadableHasItsFinding_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned>("mode");
        QTest::addColumn<QString>("what");
        const QString file = ": file that cannot be read;";
        const QString directory = ": directory that cannot be read;";
        const QString top = ": not a readable directory\n";
        row("file", "Contents/Info.plist", 0U, file);
        row("directory", "sub", 0U, directory);
        row("directory that can only be listed", "sub", 0400U, directory);
        row("directory that can only be entered", "sub", 0100U, directory);
        row("top", "", 0U, top);
        row("top that can only be listed", "", 0400U, top);
        row("top that can only be entered", "", 0100U, top);
    }

    void unreadableHasItsFinding()
    {
        QFETCH(QString, name);
        QFETCH(unsigned, mode);
        QFETCH(QString, what);
        UNDER_PERMISSIONS(command);
        const LintedRelease release;
        release.add("sub/a");
        const ScopedMode locked(name.isEmpty() ? release.tree() : release / name, mode);
        Tool tool;
        tool.setWrapper(*command);
        QCOMPARE(tool.run({"lint", release.tree()}), 1);
        const QString output = QString::fromLocal8Bit(tool.output());
        QVERIFY2(output.startsWith((name.isEmpty() ? release.tree() : name) + what),
                 qPrintable(output));
        QCOMPARE(output.count('\n'), 1);
    }

    void whatIsNoDirectoryHasItsFinding_data()
    {
        QTest::addColumn<QString>("name");
        row("missing", "missing");
        row("file", "Contents/Info.plist");
    }

    void whatIsNoDirectoryHasItsFinding()
    {
        QFETCH(QString, name);
        const LintedRelease release;
        CollectedOutput output;
        publisher::lint(release / name, "Editor", {"*"}, output); // Cannot be accepted.
        QCOMPARE(output.lines, QStringList{(release / name) + ": not a readable directory"});
    }

    void acceptedFindingsDoNotCount_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<QStringList>("accepted");
        QTest::addColumn<bool>("counts");
        const QString name = "sub/deep/a<b";
        row("nothing accepted", name, QStringList(), true);
        row("the path itself", name, QStringList{name}, false);
        row("one of several", name, QStringList{"x", name, "y"}, false);
        row("beyond a separator", name, QStringList{"s*<b"}, false);
        row("beyond a line end", "a\nb", QStringList{"a*b"}, false);
        row("no text", name, QStringList{"*sub/deep/a*<*b*"}, false);
        row("a part only", name, QStringList{"sub", "a<b", "sub/deep/a"}, true);
        row("its end only", name, QStringList{"deep/*"}, true);
        row("its begin only", name, QStringList{"*deep/a"}, true);
        row("other case", name, QStringList{"SUB/*"}, true);
        row("empty", name, QStringList{""}, true);
        row("all else is itself", name,
            QStringList{"sub/deep/a?b", "sub/deep/...", "sub/deep/[a]<b"}, true);
        row("a star", "a<*", QStringList{"a<*"}, false);
    }

    void acceptedFindingsDoNotCount()
    {
        QFETCH(QString, name);
        QFETCH(QStringList, accepted);
        QFETCH(bool, counts);
        const LintedRelease release;
        release.add(name);
        CollectedOutput output;
        publisher::lint(release.tree(), "Editor", accepted, output);
        QCOMPARE(output.findings(), counts ? 1 : 0);
        QCOMPARE(output.lines.size(), 1);
        const QString begin = counts ? QString() : QString("accepted: ");
        QVERIFY2(output.lines.first().startsWith(begin + manifest::printable(name) + ": "),
                 qPrintable(output.lines.first()));
    }

    void findingAboutTheTreeIsAcceptedByItsPath()
    {
        const TestDir dir;
        files::write(dir / "file", "contents");
        CollectedOutput output;
        publisher::lint(dir.path(), "Editor", {dir.path()}, output);
        QCOMPARE(output.findings(), 0);
        QCOMPARE(output.withoutReasons(),
                 QStringList{"accepted: " + dir.path() + ": no file Contents/MacOS/Editor"});
    }

    void acceptedAndOtherFindingsAreSeparate()
    {
        const LintedRelease release;
        release.add("Contents/MacOS/updater", 0755);
        release.add("Contents/Frameworks/libeditor.so.1", 0755);
        release.add("tool", 0755);
        Tool tool;
        const QStringList accepted{"--accept", "Contents/MacOS/updater",
                                   "--accept=Contents/Frameworks/*"};
        QCOMPARE(tool.run(QStringList{"lint", "-n", "Editor", release.tree()} + accepted), 1);
        const QByteArray what = ": executable here, but not for users;";
        const QByteArray output = tool.output();
        QCOMPARE(output.count('\n'), 3);
        QVERIFY(output.startsWith("accepted: Contents/Frameworks/libeditor.so.1" + what));
        QVERIFY(output.contains("\naccepted: Contents/MacOS/updater" + what));
        QVERIFY(output.contains("\ntool" + what));

        QCOMPARE(tool.run(QStringList{"lint", "-n", "Editor", release.tree(), "--accept", "tool"} +
                          accepted),
                 0);
        QCOMPARE(tool.output().count("accepted: "), 3);
    }

    void findingsAreLinesAndAStatus()
    {
        const LintedRelease release;
        Tool tool;
        QCOMPARE(tool.run({"lint", "--name", "Editor", release.tree()}), 0);
        QCOMPARE(tool.output(), QByteArray());
        release.add("a<b");
        release.add("a\nb");
        QCOMPARE(tool.run({"lint", "-n", "Editor", release.tree()}), 1);
        QCOMPARE(tool.output().count('\n'), 2);
        QCOMPARE(tool.run({"lint", "--name=Viewer", release.tree()}), 1);
        QCOMPARE(tool.output().count(QByteArray("\n")),
                 4); // Viewer is missing, and Editor must not be executable.
        QVERIFY(!tool.output().contains('\x1b'));
    }

    void resultThatCannotBeWrittenFails()
    {
        if (!QFile::exists("/dev/full"))
            QSKIP("needs /dev/full");
        LintedRelease release;
        release.add("a<b");
        Tool tool;
        tool.writeToFullDevice();
        QCOMPARE(tool.run({"lint", release.tree()}), 1);
        QVERIFY(tool.output().contains("could not be written"));
    }

    void wrongCommandLineIsRefused_data()
    {
        QTest::addColumn<QStringList>("words");
        row("nothing", QStringList());
        row("empty command", QStringList{""});
        row("unknown command", QStringList{"publish", "x"});
        row("option first", QStringList{"--name", "Editor", "lint", "."});
        row("lint without directory", QStringList{"lint"});
        row("lint with two", QStringList{"lint", ".", "."});
        row("lint with an option of verify", QStringList{"lint", "--timeout", "1", "."});
        row("verify with an option of lint",
            QStringList{"verify", "--accept", "x", "http://127.0.0.1:1/"});
        row("pattern missing", QStringList{"lint", ".", "--accept"});
        row("unknown option", QStringList{"lint", "--colour", "."});
        row("option without value", QStringList{"lint", ".", "--name"});
        row("diff with one", QStringList{"diff", "a"});
        row("diff with three", QStringList{"diff", "a", "b", "c"});
        row("verify without URL", QStringList{"verify"});
        row("verify with a path", QStringList{"verify", "index.txt"});
        row("timeout of zero", QStringList{"verify", "-t", "0", "http://127.0.0.1:1/"});
        row("timeout of words", QStringList{"verify", "-t", "x", "http://127.0.0.1:1/"});
        row("timeout of more than a day",
            QStringList{"verify", "-t", "86401", "http://127.0.0.1:1/"});
        row("timeout without end", QStringList{"verify", "-t", "99999999", "http://127.0.0.1:1/"});
    }

    void wrongCommandLineIsRefused()
    {
        QFETCH(QStringList, words);
        Tool tool;
        QCOMPARE(tool.run(words), 2);
        const QByteArray output = tool.output();
        QVERIFY2(output.startsWith("updater-release: "), output);
        QVERIFY2(output.endsWith("Try \"updater-release --help\".\n"), output);
    }

    void helpIsGiven_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QStringList>("texts");
        row("overview", QStringList{"--help"},
            QStringList{"lint DIR", "diff OLD NEW", "verify URL", "--version", "Exit status",
                        "written"});
        row("short", QStringList{"-h"}, QStringList{"lint DIR"});
        row("lint", QStringList{"lint", "--help"},
            QStringList{"updater-release lint [OPTION...] DIR\n", "--name", "--accept <PATTERN>"});
        row("diff", QStringList{"diff", "-h"},
            QStringList{"updater-release diff [OPTION...] OLD NEW\n", "--name"});
        row("verify", QStringList{"verify", "--help"},
            QStringList{"updater-release verify [OPTION...] URL\n", "--name", "--timeout"});
    }

    void helpIsGiven()
    {
        QFETCH(QStringList, words);
        QFETCH(QStringList, texts);
        Tool tool;
        QCOMPARE(tool.run(words), 0);
        const QString output = QString::fromLocal8Bit(tool.output());
        QVERIFY2(output.startsWith("Usage: updater-release "), qPrintable(output));
        for (const QString& text : std::as_const(texts))
            QVERIFY2(output.contains(text), qPrintable(text + "\n" + output));
    }

    void optionsAreDocumented_data()
    {
        QTest::addColumn<QString>("command");
        row("lint", "lint");
        row("diff", "diff");
        row("verify", "verify");
    }

    /// The help and the man page have the same options.
    void optionsAreDocumented()
    {
        QFETCH(QString, command);
        Tool tool;
        QCOMPARE(tool.run({command, "--help"}), 0);
        QStringList options = longOptions(QString::fromLocal8Bit(tool.output()));
        QVERIFY(options.removeOne("--help"));

        const QString synopsis =
            QString::fromUtf8(files::read(DOCS_DIR "/updater-release.1")).remove('\\');
        QCOMPARE(longOptions(synopsis.section(".B updater-release " + command + '\n', 1, 1)
                                 .section(".PP\n", 0, 0)),
                 options);
        for (const QString& option : std::as_const(options)) {
            QVERIFY2(synopsis.contains(QRegularExpression("\n\\.BR (-. \", \" )?" + option + ' ')),
                     qPrintable(option));
        }
    }

    void versionIsGiven()
    {
        Tool tool;
        QCOMPARE(tool.run({"--version"}), 0);
        QVERIFY(tool.output().startsWith("updater-release 1."));
    }
};

UPDATER_TEST_MAIN(TestReleaseLint)
#include "tst_release_lint.moc"
