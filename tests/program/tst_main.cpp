// The program as a process: which mode runs, which options it insists on, its exit status.

#include "tests/support/FakeProgram.h"
#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

namespace {

/// Replaces "@dir" and "@url" in @p options.
QStringList filledIn(QStringList options, const QString& dir, const QString& url)
{
    return options.replaceInStrings("@dir", dir).replaceInStrings("@url", url);
}

/// The words of a command line.
QStringList words(const char* commandLine)
{
    return QString(commandLine).split(' ', Qt::SkipEmptyParts);
}

/// Gives @p updater a temporary directory and @p variables, "NAME=value", and nothing else.
void setOnly(UpdaterProcess& updater, const QString& variables)
{
    updater.clearEnvironment();
    updater.setEnvironment("TMPDIR", qEnvironmentVariable("TMPDIR"));
    for (const QString& variable : variables.split(' ', Qt::SkipEmptyParts))
        updater.setEnvironment(variable.section('=', 0, 0), variable.section('=', 1));
}

} // namespace

class TestMain : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void incompleteCommandLineEndsWithOne_data()
    {
        QTest::addColumn<QStringList>("options");
        row("no arguments", words(""));
        row("only words", words("build please"));
        row("flag that selects no mode", words("-r"));
        row("no mode, all values", words("-n App -d @dir -v 1.0 -l @url -s key -x /exe"));
        row("unknown option in a complete line", words("-b -n App -d @dir -v 1.0 -z"));
        row("value missing in a complete line", words("-b -n App -d @dir -v 1.0 -x"));

        row("build without a name", words("-b -d @dir -v 1.0"));
        row("build without a base directory", words("-b -n App -v 1.0"));
        row("build without a version", words("-b -n App -d @dir"));
        row("check without a name", words("-c -v 1.0 -l @url -s key"));
        row("check without a version", words("-c -n App -l @url -s key"));
        row("check without a URL", words("-c -n App -v 1.0 -s key"));
        row("check without a key", words("-c -n App -v 1.0 -l @url"));
        row("update without a name", words("-u -d @dir -v 1.0 -l @url"));
        row("update without a base directory", words("-u -n App -v 1.0 -l @url"));
        row("update without a version", words("-u -n App -d @dir -l @url"));
        row("update without a URL", words("-u -n App -d @dir -v 1.0"));

        row("quotes around nothing count as missing", words("-b -n \"\" -d @dir -v 1.0"));
        row("empty value counts as missing",
            QStringList{"-b", "-n", "", "-d", "@dir", "-v", "1.0"});
        row("build does not fall back to update", words("-b -u -n App -v 1.0 -l @url"));
        row("build does not fall back to check", words("-b -c -n App -v 1.0 -l @url -s key"));
        row("check does not fall back to update", words("-c -u -n App -d @dir -v 1.0 -l @url"));
        // Qt's own option is gone before ours are read: else "-style" were "-s".
        row("Qt's options are not ours", words("-style fusion -c -n App -v 1.0 -l @url"));
    }

    void incompleteCommandLineEndsWithOne()
    {
        QFETCH(QStringList, options);
        const TestDir dir;
        HttpServer server;
        UpdaterProcess updater;
        QCOMPARE(updater.run(filledIn(options, dir.path(), server.url("/index.txt"))), 1);
        QCOMPARE(updater.output(), QByteArray());
        QCOMPARE(files::list(dir.path()), QStringList());
        QCOMPARE(server.requests(), QStringList());
    }

    void buildModeWritesTheVersionFile_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QByteArray>("required");
        row("required options only", words("-b -n App -d @dir -v 1.0"), QByteArray("false"));
        row("required update", words("-r -b -n App -d @dir -v 1.0"), QByteArray("true"));
        row("build wins over check", words("-c -b -n App -d @dir -v 1.0 -l @url -s key"),
            QByteArray("false"));
        row("build wins over update", words("-u -b -n App -d @dir -v 1.0 -l @url"),
            QByteArray("false"));
        row("quoted values", words("-b -n \"App\" -d \"@dir\" -v \"1.0\""), QByteArray("false"));
        row("Qt's options are taken out", words("-platform offscreen -b -n App -d @dir -v 1.0"),
            QByteArray("false"));
    }

    void buildModeWritesTheVersionFile()
    {
        QFETCH(QStringList, options);
        QFETCH(QByteArray, required);
        const TestDir dir;
        HttpServer server;
        UpdaterProcess updater;
        QCOMPARE(updater.run(filledIn(options, dir.path(), server.url("/index.txt"))), 0);
        QCOMPARE(updater.output(), QByteArray());
        QCOMPARE(files::read(dir / "index.txt"),
                 "<App>\n\t<version>1.0</version>\n\t<required>" + required +
                     "</required>\n\t<changelog></changelog>\n</App>\n");
        QCOMPARE(server.requests(), QStringList());
    }

    void changelogReachesTheVersionFile()
    {
        const TestDir dir;
        files::makeDirectory(dir / "tree");
        files::write(dir / "notes.txt", "News");
        UpdaterProcess updater;
        QCOMPARE(updater.run({"-b", "-n", "App", "-d", dir / "tree", "-v", "1.0", "--changelog",
                              dir / "notes.txt"}),
                 0);
        QVERIFY(files::read(dir / "tree/index.txt")
                    .contains("\t<changelog>" + QByteArray("News").toBase64() + "</changelog>\n"));
        QCOMPARE(updater.output(), QByteArray());
    }

    void missingChangelogIsAnnouncedAndTheBuildGoesOn()
    {
        const TestDir dir;
        UpdaterProcess updater;
        QCOMPARE(updater.run({"-b", "-n", "App", "-d", dir.path(), "-v", "1.0", "--changelog",
                              "/nowhere/notes.txt"}),
                 0);
        QCOMPARE(updater.output(),
                 QByteArray("The changelog file \" \"/nowhere/notes.txt\" \" doesn't exist! \n"));
        QVERIFY(files::read(dir / "index.txt").contains("\t<changelog></changelog>\n"));
    }

    void missingChangelogIsAnnouncedWhateverTheLoggingRules_data()
    {
        QTest::addColumn<QString>("variable");
        QTest::addColumn<QString>("value");
        row("rules in the environment", "QT_LOGGING_RULES", "*.debug=false");
        row("rule for the default category", "QT_LOGGING_RULES", "default.debug=false");
        row("rules in a file", "QT_LOGGING_CONF", "@dir/QtProject/qtlogging.ini");
        row("rules in the user's configuration", "XDG_CONFIG_HOME", "@dir");
    }

    void missingChangelogIsAnnouncedWhateverTheLoggingRules()
    {
        QFETCH(QString, variable);
        QFETCH(QString, value);
        const TestDir config;
        files::write(config / "QtProject/qtlogging.ini", "[Rules]\n*.debug=false\n");
        UpdaterProcess updater;
        updater.setEnvironment(variable, value.replace("@dir", config.path()));
        QCOMPARE(updater.run({"-b", "--changelog", "notes.txt"}), 1);
        QCOMPARE(updater.output(),
                 QByteArray("The changelog file \" \"notes.txt\" \" doesn't exist! \n"));
    }

    void failedBuildEndsWithOne()
    {
        UpdaterProcess updater;
        QCOMPARE(updater.run({"-b", "-n", "App", "-d", "/nowhere/at/all", "-v", "1.0"}), 1);
        QCOMPARE(updater.output(), QByteArray());
    }

    void clientModeAsksForTheVersionFileAndWaits_data()
    {
        QTest::addColumn<QStringList>("options");
        row("check without a base directory", words("-c -n App -v 1.0 -l @url -s key"));
        row("update without a key and an executable", words("-u -n App -d @dir -v 1.0 -l @url"));
    }

    void clientModeAsksForTheVersionFileAndWaits()
    {
        QFETCH(QStringList, options);
        const TestDir dir;
        HttpServer server;
        server.serve("/index.txt", HttpReply::hold(HttpReply::ok("")));
        UpdaterProcess updater;
        updater.start(filledIn(options, dir.path(), server.url("/index.txt")));
        QTRY_COMPARE_WITH_TIMEOUT(server.requests(), QStringList{"/index.txt"}, 30000);
        QVERIFY(updater.isRunning());
        QCOMPARE(files::list(dir.path()), QStringList());
    }

    void checkEndsWhereAnUpdateGoesOn_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QStringList>("requests");
        const QStringList all{"-n", "App", "-d", "@dir", "-v", "1.0", "-l", "@url", "-s", "key"};
        row("check", QStringList{"-c"} + all, QStringList{"/index.txt"});
        row("check and update", QStringList{"-c", "-u"} + all, QStringList{"/index.txt"});
        row("update and check", QStringList{"-u", "-c"} + all, QStringList{"/index.txt"});
        row("update", QStringList{"-u"} + all, QStringList{"/index.txt", "/a.txt"});
    }

    void checkEndsWhereAnUpdateGoesOn()
    {
        QFETCH(QStringList, options);
        QFETCH(QStringList, requests);
        const TestDir dir;
        HttpServer server;
        server.serve("/index.txt",
                     HttpReply::ok("<App><version>2.0</version><file><name>a.txt</name><sha1>" +
                                   files::sha1("a").toLatin1() +
                                   "</sha1><size>1</size></file></App>"));
        server.serve("/a.txt", HttpReply::ok("a"));
        UpdaterProcess updater;
        QCOMPARE(updater.run(filledIn(options, dir.path(), server.url("/index.txt"))), 0);
        QCOMPARE(server.requests(), requests);
        QCOMPARE(QFile::exists(dir / "a.txt"), requests.contains("/a.txt"));
    }

    // ---- A machine without a display

    void buildNeedsNoDisplay_data()
    {
        QTest::addColumn<QStringList>("options");
        QTest::addColumn<QString>("variable");
        const QStringList build{"-b", "-n", "App", "-d", "@dir", "-v", "1.0"};
        row("no environment", build, "");
        row("empty names of displays", build, "DISPLAY= WAYLAND_DISPLAY=");
        row("empty choice of a platform", build, "QT_QPA_PLATFORM=");
        row("platform chosen by variable", build, "QT_QPA_PLATFORM=minimal");
        row("platform chosen by option", QStringList{"-platform", "minimal"} + build, "");
    }

    void buildNeedsNoDisplay()
    {
        QFETCH(QStringList, options);
        QFETCH(QString, variable);
        const TestDir dir;
        UpdaterProcess updater;
        setOnly(updater, variable);
        QCOMPARE(updater.run(filledIn(options, dir.path(), "")), 0);
        QVERIFY(files::read(dir / "index.txt").startsWith("<App>\n"));
    }

    void displayThatIsNamedIsInsistedOn_data()
    {
        QTest::addColumn<QString>("variable");
        row("X", "DISPLAY=127.0.0.1:59999");
        row("Wayland", "WAYLAND_DISPLAY=nowhere");
        row("platform", "QT_QPA_PLATFORM=nowhere");
    }

    void displayThatIsNamedIsInsistedOn()
    {
        QFETCH(QString, variable);
        const TestDir dir;
        UpdaterProcess updater;
        setOnly(updater, variable);
        QCOMPARE(updater.run({"-b", "-n", "App", "-d", dir.path(), "-v", "1.0"}), -1);
        QCOMPARE(files::list(dir.path()), QStringList());
    }

    void programStartedWithoutDisplayMakesItsOwnChoice()
    {
        const TestDir dir;
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok("<App><version>2.0</version></App>"));
        writeScript(dir / "App", "echo \"platform: $QT_QPA_PLATFORM\" >App.tmp\n"
                                 "mv App.tmp App.out\n");
        UpdaterProcess updater;
        setOnly(updater, "PATH=" + qEnvironmentVariable("PATH"));
        QCOMPARE(updater.run({"-u", "-n", "App", "-d", dir.path(), "-v", "1.0", "-l",
                              server.url("/index.txt"), "-x", dir / "App"}),
                 0);
        QTRY_VERIFY(QFile::exists(dir / "App.out"));
        QCOMPARE(files::read(dir / "App.out"), QByteArray("platform: \n"));
    }

    // ---- What the options are for

    void optionsReachTheRun()
    {
        // The key, the base directory and the executable, which the other tests leave out.
        const TestDir dir;
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok("<App><version>2.0</version></App>"));
        HostProcess host(16);
        const RelaunchedProgram program;
        program.install(dir / "App", "App");
        UpdaterProcess updater;
        QCOMPARE(updater.run({"-u", "-n", "App", "-d", dir.path(), "-v", "1.0", "-l",
                              server.url("/index.txt"), "-s", host.key(), "-x", dir / "App"}),
                 0);
        QVERIFY(host.dump().startsWith(QByteArray("2.0\0"
                                                  "0\0",
                                                  6)));
        QTRY_COMPARE(program.starts(), QStringList{"App|" + dir.path() + "|"});
    }
};

UPDATER_TEST_MAIN(TestMain)
#include "tst_main.moc"
