// The command line of updater-guard: every option, what is refused, and what is printed.

#include "host/guard/GuardOptions.h"

#include "tests/support/Files.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <cstdio>
#include <functional>
#include <unistd.h>

namespace {

const QStringList required{"--name",
                           "Editor",
                           "--dir",
                           "/opt/editor",
                           "--version-installed",
                           "2.0",
                           "--url",
                           "https://updates.example/editor/index.txt",
                           "--exe",
                           "/opt/editor/bin/editor"};

const QByteArray keyFile = "untrusted comment: Editor releases public key\n"
                           "RWRGyDPde/UNyP0mmbkr4IRH7qkn+mn10o7IdnXBbLoZPKWg6byIdzFZ\n";
const QByteArray signatureFile =
    "untrusted comment: verify with s.pub\n"
    "RWRGyDPde/"
    "UNyNY1FGuGsgO4bgQ+NYE4Ew3kr3FqLWuEu0qS0mbtwdx76y4UCQBGsBioPIZ7UoeYX0fo5iIU37muhUkajESw"
    "lws=\n";
const QByteArray signedMessage = "<Editor>\n\t<version>2.0</version>\n</Editor>\n";

/// What is printed to @p stream while @p run runs.
QString printedTo(FILE* stream, const std::function<void()>& run)
{
    const TestDir dir;
    std::fflush(stream);
    const int saved = ::dup(::fileno(stream));
    FILE* file = std::fopen(QFile::encodeName(dir / "printed").constData(), "w");
    if (saved < 0 || !file)
        qFatal("test fixture: no file for what is printed");
    ::dup2(::fileno(file), ::fileno(stream));
    run();
    std::fflush(stream);
    ::dup2(saved, ::fileno(stream));
    ::close(saved);
    std::fclose(file);
    return QString::fromUtf8(files::read(dir / "printed"));
}

/// What comes of a command line.
struct Reading
{
    std::optional<int> status;
    GuardOptions options;
    QString output;
    QString errors;
};

Reading readingOf(const QStringList& words)
{
    Reading reading;
    reading.errors = printedTo(stderr, [&] {
        reading.output = printedTo(stdout, [&] {
            reading.status = readOptions(QStringList{"updater-guard"} + words, reading.options);
        });
    });
    return reading;
}

/// The command line with @p value for the required option @p option.
QStringList requiredBut(const QString& option, const QString& value)
{
    QStringList words = required;
    words[words.indexOf(option) + 1] = value;
    return words;
}

/// All values, to compare and to print.
QStringList valuesOf(const GuardOptions& options)
{
    const auto flag = [](bool on) {
        return QString(on ? "yes" : "no");
    };
    return {"name " + options.name,
            "dir " + options.dir,
            "installed " + options.installedVersion,
            "url " + options.url,
            "exe " + options.exe,
            "updater " + options.updater,
            QString("wait-for %1").arg(options.waitFor),
            QString("wait-seconds %1").arg(options.waitSeconds),
            QString("keys %1").arg(options.publicKeys.size()),
            "downgrade " + flag(options.allowDowngrade),
            "executable " + options.executable.join('|'),
            "remove " + flag(options.removeObsolete),
            QString("jobs %1").arg(options.jobs),
            QString("stall-seconds %1").arg(options.stallSeconds),
            "relaunch " + flag(options.relaunch),
            "state " + options.stateDir};
}

/// The values after the required options, without those that @p changes begins to say.
QStringList defaultsBut(const QStringList& changes)
{
    QStringList values{"name Editor",
                       "dir /opt/editor",
                       "installed 2.0",
                       "url https://updates.example/editor/index.txt",
                       "exe /opt/editor/bin/editor",
                       "updater " + QCoreApplication::applicationDirPath() + "/updater",
                       "wait-for 0",
                       "wait-seconds 60",
                       "keys 0",
                       "downgrade no",
                       "executable ",
                       "remove no",
                       "jobs 6",
                       "stall-seconds 60",
                       "relaunch yes",
                       "state "};
    for (const QString& change : changes)
        for (QString& value : values)
            if (value.section(' ', 0, 0) == change.section(' ', 0, 0))
                value = change;
    return values;
}

} // namespace

class TestGuardOptions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void optionsAreRead_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QStringList>("changes");
        const auto add = [](const char* name, const QStringList& words,
                            const QStringList& changes) {
            row(name, words, changes);
        };
        add("required ones only", {}, {});
        add("equals signs", {"--jobs=3", "--state-dir=/s"}, {"jobs 3", "state /s"});
        add("--updater", {"--updater", "/usr/bin/updater"}, {"updater /usr/bin/updater"});
        add("--updater, relative", {"--updater", "bin/updater"},
            {"updater " + QDir::currentPath() + "/bin/updater"});
        add("--updater, a name alone", {"--updater", "u"},
            {"updater " + QDir::currentPath() + "/u"});
        add("--wait-for", {"--wait-for", "4711"}, {"wait-for 4711"});
        add("--wait-for, lowest", {"--wait-for", "1"}, {"wait-for 1"});
        add("--wait-for, highest", {"--wait-for", "2147483647"}, {"wait-for 2147483647"});
        add("--wait-seconds", {"--wait-seconds", "5"}, {"wait-seconds 5"});
        add("--wait-seconds, lowest", {"--wait-seconds", "0"}, {"wait-seconds 0"});
        add("--wait-seconds, highest", {"--wait-seconds", "86400"}, {"wait-seconds 86400"});
        add("--allow-downgrade", {"--allow-downgrade"}, {"downgrade yes"});
        add("--executable", {"--executable", "bin/*"}, {"executable bin/*"});
        add("--executable, repeated", {"--executable", "bin/*", "--executable", "x"},
            {"executable bin/*|x"});
        add("--remove-obsolete", {"--remove-obsolete"}, {"remove yes"});
        add("--jobs", {"--jobs", "12"}, {"jobs 12"});
        add("--jobs, lowest", {"--jobs", "1"}, {"jobs 1"});
        add("--jobs, highest", {"--jobs", "32"}, {"jobs 32"});
        add("--stall-seconds", {"--stall-seconds", "7"}, {"stall-seconds 7"});
        add("--stall-seconds, lowest", {"--stall-seconds", "1"}, {"stall-seconds 1"});
        add("--stall-seconds, highest", {"--stall-seconds", "86400"}, {"stall-seconds 86400"});
        add("--no-relaunch", {"--no-relaunch"}, {"relaunch no"});
        add("--state-dir", {"--state-dir", "/var/lib/x"}, {"state /var/lib/x"});
        add("all together",
            {"--wait-for", "9", "--wait-seconds", "8", "--allow-downgrade", "--executable", "e",
             "--remove-obsolete", "--jobs", "7", "--stall-seconds", "6", "--no-relaunch",
             "--state-dir", "s", "--updater", "/u"},
            {"wait-for 9", "wait-seconds 8", "downgrade yes", "executable e", "remove yes",
             "jobs 7", "stall-seconds 6", "relaunch no", "state s", "updater /u"});
        add("the last value counts", {"--jobs", "2", "--name", "Other", "--jobs", "3"},
            {"jobs 3", "name Other"});
        add("values that look like options", {"--dir", "--help", "--exe", "-x"},
            {"dir --help", "exe -x"});
        add("http", {"--url", "http://127.0.0.1:8080/index.txt"},
            {"url http://127.0.0.1:8080/index.txt"});
        add("scheme in capitals", {"--url", "HTTPS://updates.example/i"},
            {"url HTTPS://updates.example/i"});
        add("spaces in the URL, as given", {"--url", "http://host/a b/index.txt"},
            {"url http://host/a b/index.txt"});
        add("spaces and dots in the name", {"--name", " My..Editor "}, {"name  My..Editor "});
    }

    void optionsAreRead()
    {
        QFETCH(QStringList, words);
        QFETCH(QStringList, changes);
        const Reading reading = readingOf(required + words);
        QCOMPARE(reading.errors, QString());
        QCOMPARE(reading.output, QString());
        QVERIFY(!reading.status);
        QCOMPARE(valuesOf(reading.options), defaultsBut(changes));
    }

    void wrongUsageIsExplained_data()
    {
        QTest::addColumn<QStringList>("words");
        QTest::addColumn<QString>("why");
        const auto add = [](const char* name, const QStringList& words, const QString& why) {
            row(name, words, why);
        };
        add("nothing", {}, "--name is missing or empty");
        for (int i = 0; i < required.size(); i += 2) {
            QStringList words = required;
            words.removeAt(i);
            words.removeAt(i);
            const QString why = required.at(i) + " is missing or empty";
            row("without " + required.at(i), words, why);
            row("empty " + required.at(i), requiredBut(required.at(i), ""), why);
        }
        add("unknown option", required + QStringList{"--fast"}, "Unknown option 'fast'.");
        add("beginning of an option", required + QStringList{"--job", "1"},
            "Unknown option 'job'.");
        add("option of the updater", required + QStringList{"-n", "Editor"}, "Unknown option 'n'.");
        add("value missing", required + QStringList{"--jobs"}, "Missing value after '--jobs'.");
        add("value too many", required + QStringList{"--no-relaunch=1"},
            "Unexpected value after '--no-relaunch'.");
        add("word", required + QStringList{"index.txt"}, "unexpected argument: index.txt");
        add("word after dashes", required + QStringList{"--", "--jobs"},
            "unexpected argument: --jobs");
        add("word in between", QStringList{"update"} + required, "unexpected argument: update");

        for (const char* name : {"a/b", "a\\b", "/", "Editor/"})
            row(QString("name ") + name, requiredBut("--name", name),
                QString("--name takes no path: ") + name);
        for (const char* url :
             {"index.txt", "/index.txt", "//host/index.txt", "updates.example/index.txt",
              "ftp://host/index.txt", "file:///index.txt", "qrc:/index.txt", "data:,x",
              "http:index.txt", "http:///index.txt", "https://", "http://ho st/x",
              "http://host:port/x", "http://host:99999/x", "httpx://host/x"})
            row(QString("URL ") + url, requiredBut("--url", url),
                QString("not a URL such as https://updates.example/index.txt: ") + url);

        const auto addNumbers = [](const QString& option, const QString& range,
                                   const QStringList& wrong) {
            for (const QString& number : wrong)
                row(option + " \"" + number + '"', required + QStringList{option, number},
                    option + " takes a number from " + range);
        };
        const QStringList noNumbers{"", "x", "-1", "1.5", "1s", "0x10", "99999999999999999999"};
        addNumbers("--wait-for", "1 to 2147483647", noNumbers + QStringList{"0", "2147483648"});
        addNumbers("--wait-seconds", "0 to 86400", noNumbers + QStringList{"86401"});
        addNumbers("--jobs", "1 to 32", noNumbers + QStringList{"0", "33"});
        addNumbers("--stall-seconds", "1 to 86400", noNumbers + QStringList{"0", "86401"});

        add("empty --updater", required + QStringList{"--updater", ""}, "--updater is empty");
        add("key that is not there", required + QStringList{"--public-key", "/none.pub"},
            "the key file /none.pub cannot be read: No such file or directory");
        add("no key", required + QStringList{"--public-key", "/dev/null"},
            "the file /dev/null is not a public key of signify-openbsd or minisign");
        add("empty --public-key", required + QStringList{"--public-key", ""},
            "--public-key is empty");
        add("escapes", required + QStringList{"\x1b[2J\n"}, "unexpected argument: \\x1b[2J\\x0a");
    }

    void wrongUsageIsExplained()
    {
        QFETCH(QStringList, words);
        QFETCH(QString, why);
        const Reading reading = readingOf(words);
        QCOMPARE(reading.errors, "updater-guard: " + why + "\nTry \"updater-guard --help\".\n");
        QCOMPARE(reading.output, QString());
        QVERIFY(reading.status == 2);
    }

    void keysAreRead()
    {
        const TestDir dir;
        QByteArray otherKey = keyFile;
        otherKey.replace("RWRGy", "RWRGz");
        files::write(dir / "a.pub", keyFile);
        files::write(dir / "b.pub", otherKey);
        const Reading reading = readingOf(
            required + QStringList{"--public-key", dir / "a.pub", "--public-key", dir / "b.pub"});
        QVERIFY(!reading.status);
        QCOMPARE(reading.options.publicKeys.size(), 2);
        QVERIFY(reading.options.publicKeys.at(0).hasSigned(signedMessage, signatureFile));
        QVERIFY(!reading.options.publicKeys.at(1).hasSigned(signedMessage, signatureFile));
    }

    void oneBadKeyIsWrongUsage()
    {
        const TestDir dir;
        files::write(dir / "a.pub", keyFile);
        files::write(dir / "b.pub", "");
        const Reading reading = readingOf(
            required + QStringList{"--public-key", dir / "a.pub", "--public-key", dir / "b.pub"});
        QVERIFY(reading.status == 2);
    }

    void helpIsPrinted_data()
    {
        QTest::addColumn<QStringList>("words");
        row("alone", QStringList{"--help"});
        row("with the required options", required + QStringList{"--help"});
        row("with words", QStringList{"x", "--help"});
        row("with wrong values", QStringList{"--jobs", "x", "--help"});
        row("with the version", QStringList{"--version", "--help"});
    }

    void helpIsPrinted()
    {
        QFETCH(QStringList, words);
        const Reading reading = readingOf(words);
        QVERIFY(reading.status == 0);
        QCOMPARE(reading.errors, QString());
        QVERIFY2(reading.output.startsWith("Usage: updater-guard --name NAME --dir DIR "),
                 qPrintable(reading.output));
        for (const char* option :
             {"name <NAME>", "dir <DIR>", "version-installed <VERSION>", "url <URL>", "exe <EXE>",
              "updater <PATH>", "wait-for <PID>", "wait-seconds <SECONDS>", "public-key <FILE>",
              "allow-downgrade ", "executable <PATTERN>", "remove-obsolete ", "jobs <N>",
              "stall-seconds <SECONDS>", "no-relaunch ", "state-dir <DIR>", "help ", "version "})
            QVERIFY2(reading.output.contains(QString("\n  --") + option), option);
        QVERIFY(reading.output.endsWith("refused.\n"));
        // It is for terminals.
        const QStringList lines = reading.output.split('\n');
        for (const QString& line : lines)
            QVERIFY2(line.size() <= 100, qPrintable(line));
    }

    void helpNeedsARightCommandLine() { QVERIFY(readingOf({"--help", "--fast"}).status == 2); }

    void versionIsPrinted()
    {
        const Reading reading = readingOf({"--version"});
        QVERIFY(reading.status == 0);
        QCOMPARE(reading.errors, QString());
        QCOMPARE(reading.output, QString("updater-guard " PROJECT_VERSION "\n"));
    }
};

UPDATER_TEST_MAIN(TestGuardOptions)
#include "tst_GuardOptions.moc"
