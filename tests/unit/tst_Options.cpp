// The command line: every option, what is ignored, what is rejected, and the files it deletes.

#include "app/Options.h"

#include "tests/support/Messages.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <cerrno>
#include <fcntl.h>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace {

/// A file that cannot be removed at once. The unlink() below replaces that of the system.
struct
{
    std::string path;
    int refusals = 0;
    int attempts = 0;
    bool disappears = false; ///< At the first refusal.
} stubborn;

} // namespace

extern "C" int unlink(const char* path) noexcept
{
    if (!stubborn.path.empty() && stubborn.path == path) {
        ++stubborn.attempts;
        if (stubborn.attempts <= stubborn.refusals) {
            if (stubborn.disappears)
                ::unlinkat(AT_FDCWD, path, 0);
            errno = EBUSY;
            return -1;
        }
    }
    return ::unlinkat(AT_FDCWD, path, 0);
}

namespace {

/// The values of all options.
struct Options
{
    QString name, baseDir, version, url, key, exe, changelog;
    bool build = false, check = false, update = false, required = false;

    static Options current()
    {
        return {fProgramName,  fProgramBaseDir, fProgramVersion, fUpdateUrl,
                fSharedMemKey, fProgramExe,     fChangelogFile,  fBuildVerFile,
                fCheckVerOnly, fDoUpdate,       fRequiredUpd};
    }

    QString text() const
    {
        return QStringLiteral("n=%1 d=%2 v=%3 l=%4 s=%5 x=%6 changelog=%7%8%9")
                   .arg(name, baseDir, version, url, key, exe, changelog)
                   .arg(build ? " b" : "", check ? " c" : "") +
               (update ? " u" : "") + (required ? " r" : "");
    }
};

using Words = QList<QByteArray>;

/// Parses a command line made of the program's name and @p words.
bool parse(const Words& words)
{
    std::vector<QByteArray> storage{QByteArray("updater")};
    storage.insert(storage.end(), words.begin(), words.end());
    std::vector<char*> argv;
    for (QByteArray& word : storage)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    return processArgs(static_cast<int>(storage.size()), argv.data());
}

Options with(void (*change)(Options&))
{
    Options options;
    change(options);
    return options;
}

} // namespace

Q_DECLARE_METATYPE(Options)
Q_DECLARE_METATYPE(Words)

class TestOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        // The values before anything is parsed.
        QVERIFY(fProgramName.isNull() && fProgramBaseDir.isNull() && fProgramVersion.isNull());
        QVERIFY(fUpdateUrl.isNull() && fSharedMemKey.isNull() && fProgramExe.isNull());
        QVERIFY(fChangelogFile.isNull());
        QVERIFY(!fBuildVerFile && !fCheckVerOnly && !fDoUpdate && !fRequiredUpd);
    }

    void init()
    {
        for (QString* option : {&fProgramName, &fProgramBaseDir, &fProgramVersion, &fUpdateUrl,
                                &fSharedMemKey, &fProgramExe, &fChangelogFile})
            *option = QString();
        for (bool* flag : {&fBuildVerFile, &fCheckVerOnly, &fDoUpdate, &fRequiredUpd})
            *flag = false;
        stubborn = {};
    }

    void acceptedCommandLineSetsOptions_data()
    {
        QTest::addColumn<Words>("words");
        QTest::addColumn<Options>("expected");
        const auto add = [](const char* name, const Words& words, void (*change)(Options&)) {
            row(name, words, with(change));
        };

        add("no arguments", {}, [](Options&) {});
        add("-b", {"-b"}, [](Options& o) { o.build = true; });
        add("-c", {"-c"}, [](Options& o) { o.check = true; });
        add("-r", {"-r"}, [](Options& o) { o.required = true; });
        add("-u", {"-u"}, [](Options& o) { o.update = true; });
        add("-d", {"-d", "/opt"}, [](Options& o) { o.baseDir = "/opt"; });
        add("-l", {"-l", "http://h/i"}, [](Options& o) { o.url = "http://h/i"; });
        add("-n", {"-n", "Editor"}, [](Options& o) { o.name = "Editor"; });
        add("-s", {"-s", "key"}, [](Options& o) { o.key = "key"; });
        add("-v", {"-v", "1.2"}, [](Options& o) { o.version = "1.2"; });
        add("-x", {"-x", "/opt/e"}, [](Options& o) { o.exe = "/opt/e"; });
        add("all together",
            {"-b", "-c", "-u", "-r", "-n", "N", "-d", "D", "-v", "V", "-l", "L", "-s", "S", "-x",
             "X"},
            [](Options& o) { o = {"N", "D", "V", "L", "S", "X", "", true, true, true, true}; });

        add("plain words are ignored", {"word", "-b", "another"},
            [](Options& o) { o.build = true; });
        add("empty word is ignored", {"", "-b"}, [](Options& o) { o.build = true; });
        add("flag twice", {"-b", "-b"}, [](Options& o) { o.build = true; });
        add("only the second character counts for a flag", {"-cu"},
            [](Options& o) { o.check = true; });
        add("only the second character counts for a value", {"-name", "Editor"},
            [](Options& o) { o.name = "Editor"; });
        add("value without a space before it is ignored", {"-nEditor", "Real"},
            [](Options& o) { o.name = "Real"; });
        add("value that looks like an option is taken", {"-n", "-u"},
            [](Options& o) { o.name = "-u"; });
        add("value that looks like a long option is taken", {"-n", "--cleanup", "-b"},
            [](Options& o) {
                o.name = "--cleanup";
                o.build = true;
            });
        add("empty value", {"-n", ""}, [](Options&) {});
        add("quotes around a value are removed", {"-v", "\"1.2\""},
            [](Options& o) { o.version = "1.2"; });
        add("two quotes are an empty value", {"-n", "\"\""}, [](Options&) {});
        add("last value wins", {"-n", "a", "-n", "b"}, [](Options& o) { o.name = "b"; });
        add("values are Latin-1", {"-n", "\xE4\xC3\xA4"},
            [](Options& o) { o.name = QString::fromLatin1("\xE4\xC3\xA4"); });

        add("unknown long option is ignored", {"--unknown"}, [](Options&) {});
        add("unknown long option takes no value", {"--unknown", "-b"},
            [](Options& o) { o.build = true; });
        add("two dashes alone are ignored", {"--", "-b"}, [](Options& o) { o.build = true; });
        add("changelog at the end is ignored", {"-b", "--changelog"},
            [](Options& o) { o.build = true; });
        add("cleanup at the end is ignored", {"-b", "--cleanup"},
            [](Options& o) { o.build = true; });
        add("long option with an equals sign is unknown", {"--changelog=/dev/null", "-b"},
            [](Options& o) { o.build = true; });
        add("long option cut short is unknown", {"--change", "/dev/null"}, [](Options&) {});
        add("changelog", {"--changelog", "/dev/null", "-b"}, [](Options& o) {
            o.changelog = "/dev/null";
            o.build = true;
        });
        add("changelog in upper case", {"--CHANGELOG", "/dev/null"},
            [](Options& o) { o.changelog = "/dev/null"; });
        add("changelog in quotes", {"--changelog", "\"/dev/null\""},
            [](Options& o) { o.changelog = "/dev/null"; });
        add("changelog takes what looks like an option", {"--changelog", "-b", "-c"},
            [](Options& o) { o.check = true; });
        add("last changelog wins", {"--changelog", "/dev/null", "--changelog", "/dev/zero"},
            [](Options& o) { o.changelog = "/dev/zero"; });
    }

    void acceptedCommandLineSetsOptions()
    {
        QFETCH(Words, words);
        QFETCH(Options, expected);
        const Messages messages; // Keeps the log quiet. The messages have tests of their own.
        QVERIFY(parse(words));
        QCOMPARE(Options::current().text(), expected.text());
    }

    void rejectedCommandLineKeepsWhatWasSetBefore_data()
    {
        QTest::addColumn<Words>("words");
        for (char letter = 'a'; letter <= 'z'; ++letter) {
            if (!strchr("bcdlnrsuvx", letter))
                QTest::addRow("-%c", letter) << Words{QByteArray("-") + letter};
        }
        for (char letter = 'A'; letter <= 'Z'; ++letter)
            QTest::addRow("-%c", letter) << Words{QByteArray("-") + letter};
        for (char digit = '0'; digit <= '9'; ++digit)
            QTest::addRow("-%c", digit) << Words{QByteArray("-") + digit};
        for (const char* letter : {"d", "l", "n", "s", "v", "x"})
            QTest::addRow("-%s without its value", letter) << Words{QByteArray("-") + letter};
        row("bare dash", Words{"-"});
        row("dash and space", Words{"- b"});
        row("question mark", Words{"-?"});
        row("unknown letter before a known one", Words{"-zb"});
    }

    void rejectedCommandLineKeepsWhatWasSetBefore()
    {
        QFETCH(Words, words);
        const Messages messages;
        QVERIFY(!parse(Words{"-r", "-n", "before"} + words));
        QCOMPARE(Options::current().text(), with([](Options& o) {
                                                o.name = "before";
                                                o.required = true;
                                            }).text());
        QVERIFY2(messages.all().isEmpty(), "a rejected command line prints something");
    }

    void nothingAfterTheRejectedArgumentIsRead()
    {
        QVERIFY(!parse({"-z", "-b", "-n", "after"}));
        QCOMPARE(Options::current().text(), Options().text());
    }

    void emptyArgumentVectorIsAccepted()
    {
        char* none[] = {nullptr};
        QVERIFY(processArgs(0, none));
        QCOMPARE(Options::current().text(), Options().text());
    }

    void changelogThatExistsIsKeptWithoutAMessage()
    {
        const TestDir dir;
        files::write(dir / "notes.txt", "notes");
        const Messages messages;
        QVERIFY(parse({"--changelog", QFile::encodeName(dir / "notes.txt")}));
        QCOMPARE(fChangelogFile, dir / "notes.txt");
        QVERIFY(messages.all().isEmpty());
    }

    void changelogNameIsInTheLocalEncoding()
    {
        const TestDir dir;
        const QString path = dir / QString::fromUtf8("Änderungen.txt");
        files::write(path, "notes");
        QVERIFY(parse({"--changelog", path.toLocal8Bit()}));
        QCOMPARE(fChangelogFile, path);
    }

    void missingChangelogIsAnnouncedAndDropped_data()
    {
        QTest::addColumn<QByteArray>("argument");
        QTest::addColumn<QString>("name");
        row("plain name", QByteArray("/nowhere/notes.txt"), "/nowhere/notes.txt");
        row("quotes inside", QByteArray("/no\"where"), "/no\"where");
        row("backslash", QByteArray("C:\\notes.txt"), "C:\\notes.txt");
        row("quotes around", QByteArray("\"/nowhere\""), "/nowhere");
        row("placeholder", QByteArray("/no/%1"), "/no/%1");
        row("empty", QByteArray(""), "");
    }

    void missingChangelogIsAnnouncedAndDropped()
    {
        QFETCH(QByteArray, argument);
        QFETCH(QString, name);
        const Messages messages;
        QVERIFY(parse({"--changelog", argument, "-b"}));
        QVERIFY(fChangelogFile.isEmpty());
        QVERIFY(fBuildVerFile);
        QCOMPARE(messages.all().size(), 1);
        QCOMPARE(messages.all().first().first, QtDebugMsg);
        QCOMPARE(messages.all().first().second,
                 "The changelog file \" \"" + name + "\" \" doesn't exist! ");
    }

    void cleanupDeletesTheListedFiles_data()
    {
        QTest::addColumn<QByteArray>("option");
        QTest::addColumn<QString>("list"); // "@" stands for the directory.
        QTest::addColumn<QStringList>("left");
        const QStringList all{"a", "b", "c d", "dir/", "dir/e", QString::fromUtf8("ö")};
        const auto without = [all](const QStringList& removed) {
            QStringList left = all;
            for (const QString& name : removed)
                left.removeAll(name);
            return left;
        };
        row("one file", QByteArray("--cleanup"), "@/a", without({"a"}));
        row("several files, with an empty name between", QByteArray("--cleanup"), "@/a;;@/b",
            without({"a", "b"}));
        row("upper case", QByteArray("--CleanUP"), "@/a", without({"a"}));
        row("space in a name", QByteArray("--cleanup"), "@/c d", without({"c d"}));
        row("missing files do no harm", QByteArray("--cleanup"), "@/x;@/b;@/y", without({"b"}));
        row("a directory stays, the next file is deleted", QByteArray("--cleanup"), "@/dir;@/a",
            without({"a"}));
        row("file in a directory", QByteArray("--cleanup"), "@/dir/e", without({"dir/e"}));
        row("local encoding", QByteArray("--cleanup"), QString::fromUtf8("@/ö"),
            without({QString::fromUtf8("ö")}));
        row("quotes are part of the name", QByteArray("--cleanup"), "\"@/a\"", all);
        row("only separators", QByteArray("--cleanup"), ";;;", all);
        row("empty list", QByteArray("--cleanup"), "", all);
        row("equals sign", QByteArray("--cleanup=@/a"), "@/b", all);
    }

    void cleanupDeletesTheListedFiles()
    {
        QFETCH(QByteArray, option);
        QFETCH(QString, list);
        QFETCH(QStringList, left);
        const TestDir dir;
        for (const char* name : {"a", "b", "c d", "dir/e", "\xC3\xB6"})
            files::write(dir / QString::fromUtf8(name), "x");

        const Messages messages;
        QVERIFY(parse({option.replace("@", dir.path().toUtf8()),
                       list.replace("@", dir.path()).toLocal8Bit(), "-b"}));
        QCOMPARE(files::list(dir.path()), left);
        QCOMPARE(Options::current().text(), with([](Options& o) { o.build = true; }).text());
        QVERIFY2(messages.all().isEmpty(), "the cleanup prints something");
    }

    void cleanupTakesWhatLooksLikeAnOption()
    {
        QVERIFY(parse({"--cleanup", "-u", "-b"}));
        QCOMPARE(Options::current().text(), with([](Options& o) { o.build = true; }).text());
    }

    void cleanupTriesAFileFiftyTimes_data()
    {
        QTest::addColumn<int>("refusals");
        QTest::addColumn<int>("attempts");
        QTest::addColumn<bool>("deleted");
        row("deleted at the first attempt", 0, 1, true);
        row("deleted at the second attempt", 1, 2, true);
        row("deleted at the fiftieth attempt", 49, 50, true);
        row("could be deleted at the next attempt", 50, 50, false);
        row("can never be deleted", 1000000, 50, false);
    }

    void cleanupTriesAFileFiftyTimes()
    {
        QFETCH(int, refusals);
        QFETCH(int, attempts);
        QFETCH(bool, deleted);
        const TestDir dir;
        files::write(dir / "stubborn", "x");
        files::write(dir / "next", "x");
        stubborn = {QFile::encodeName(dir / "stubborn").toStdString(), refusals, 0, false};

        QVERIFY(parse({"--cleanup", QFile::encodeName((dir / "stubborn") + ";" + (dir / "next"))}));
        QCOMPARE(stubborn.attempts, attempts);
        QCOMPARE(!QFile::exists(dir / "stubborn"), deleted);
        QVERIFY2(!QFile::exists(dir / "next"), "the files after one that stays are not deleted");
    }

    void cleanupTriesOnlyWhatExists_data()
    {
        QTest::addColumn<bool>("brokenLink");
        row("missing file", false);
        row("broken link", true);
    }

    void cleanupTriesOnlyWhatExists()
    {
        QFETCH(bool, brokenLink);
        const TestDir dir;
        if (brokenLink)
            files::link("nowhere", dir / "stubborn");
        const QStringList before = files::list(dir.path());
        stubborn = {QFile::encodeName(dir / "stubborn").toStdString(), 0, 0, false};
        QVERIFY(parse({"--cleanup", QFile::encodeName(dir / "stubborn")}));
        QCOMPARE(stubborn.attempts, 0);
        QCOMPARE(files::list(dir.path()), before);
    }

    void cleanupStopsWhenTheFileDisappears()
    {
        const TestDir dir;
        files::write(dir / "stubborn", "x");
        stubborn = {QFile::encodeName(dir / "stubborn").toStdString(), 1000000, 0, true};
        QVERIFY(parse({"--cleanup", QFile::encodeName(dir / "stubborn")}));
        QCOMPARE(stubborn.attempts, 1);
    }

    void trimQuotesTakesOnePair_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("expected");
        row("pair", "\"x\"", "x");
        row("two pairs", "\"\"x\"\"", "\"x\"");
        row("nothing inside", "\"\"", "");
        row("single quote character", "\"", "\"");
        row("only at the start", "\"x", "\"x");
        row("only at the end", "x\"", "x\"");
        row("inside", "a\"\"b", "a\"\"b");
        row("apostrophes", "'x'", "'x'");
        row("spaces inside the pair stay", "\" x \"", " x ");
        row("space after the pair", "\"x\" ", "\"x\" ");
        row("no quotes", "x", "x");
        row("empty", "", "");
        row("three quotes", "\"\"\"", "\"");
    }

    void trimQuotesTakesOnePair()
    {
        QFETCH(QString, text);
        QFETCH(QString, expected);
        trimQuotes(text);
        QCOMPARE(text, expected);
    }
};

UPDATER_TEST_MAIN(TestOptions)
#include "tst_Options.moc"
