// What the program touches at all: every path that a run opens for writing, makes, moves, removes
// or changes the mode of, told by the system itself.

#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Release.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

const char* const exeName = "Contents/MacOS/Editor";

bool isBelow(const QString& path, const QString& directory)
{
    return path.startsWith(directory + '/') && !path.contains("/../") && !path.endsWith("/..");
}

/// A user's machine as the updater sees it, and everything it asks of the system.
struct Scene
{
    Scene()
    {
        for (const QString& directory : {baseDir, tmpDir, runtimeDir, dir / "home"})
            files::makeDirectory(directory);
        files::setMode(runtimeDir, 0700);
        files::write(tmpDir + "/keep", ""); // Else an emptied temporary directory would go, too.
        // Qt's font library keeps a cache: without fonts there is none to be written.
        files::write(dir / "fonts.conf", "<fontconfig/>");
        updater.setEnvironment("FONTCONFIG_FILE", dir / "fonts.conf");
        updater.setEnvironment("HOME", dir / "home");
        updater.setEnvironment("TMPDIR", tmpDir);
        updater.setEnvironment("XDG_RUNTIME_DIR", runtimeDir);
        // Leaks cannot be looked for in a process that is traced.
        updater.setEnvironment("ASAN_OPTIONS", "detect_leaks=0");
        updater.setWrapper(calls.command());
    }

    ~Scene()
    {
        if (!updater.isRunning())
            return;
        calls.killProgram();
        updater.waitForEnd();
    }
    Q_DISABLE_COPY(Scene)

    void publish(const Tree& tree)
    {
        release::lay(tree, dir / "release");
        files::write(dir / "CHANGES.txt", "news");
        release::describe(dir / "release", "Editor", "2.0", {"--changelog", dir / "CHANGES.txt"});
        server.serve("/index.txt", HttpReply::ok(files::read(dir / "release/index.txt")));
        for (auto file = tree.begin(); file != tree.end(); ++file)
            server.serve('/' + file.key(), HttpReply::ok(file.value()));
    }

    QStringList updateOptions() const
    {
        return {"-u", "-n", "Editor", "-d", baseDir, "-v", "1.0", "-l", server.url("/index.txt")};
    }

    /// The changes that lie elsewhere than they may, one line each. Qt makes sure that the
    /// runtime directory is there; the base directory is made if it is missing; with the download
    /// directory its parents would go, but the temporary directory is not empty.
    QString strayChanges() const
    {
        QStringList stray;
        for (const SystemCall& call : calls.changes()) {
            const bool allowed =
                !call.paths.isEmpty() &&
                std::all_of(call.paths.begin(), call.paths.end(), [&](const QString& path) {
                    return isBelow(path, baseDir) || isBelow(path, tmpDir) ||
                           (call.name == "mkdir" && (path == runtimeDir || path == baseDir)) ||
                           (call.name == "rmdir" && path == tmpDir);
                });
            if (!allowed)
                stray.append(call.name + '(' + call.arguments);
        }
        return stray.join('\n');
    }

    /// The paths below the directory @p top that were changed, without it, each once, sorted.
    QStringList changedBelow(const QString& top) const
    {
        QStringList names;
        for (const SystemCall& call : calls.changes()) {
            for (const QString& path : call.paths) {
                if (isBelow(path, top))
                    names.append(path.mid(top.size() + 1));
            }
        }
        names.removeDuplicates();
        names.sort();
        return names;
    }

    /// Where connections over the network were made to, each once. (Qt 5.15 asks the system's local
    /// services for the state of the network.)
    QStringList peers() const
    {
        static const QRegularExpression address(
            "sin_port=htons\\((\\d+)\\), sin_addr=inet_addr\\(\"([0-9.]+)\"\\)");
        QStringList found;
        for (const SystemCall& call : calls.named("connect")) {
            if (call.arguments.contains("sa_family=AF_UNIX"))
                continue;
            const QRegularExpressionMatch match = address.match(call.arguments);
            found.append(match.hasMatch() ? match.captured(2) + ':' + match.captured(1)
                                          : call.arguments);
        }
        found.removeDuplicates();
        return found;
    }

    QString serverAddress() const { return server.url("").remove("http://"); }

    const TestDir dir;
    const QString baseDir = dir / "installed";
    const QString tmpDir = dir / "tmp";
    const QString runtimeDir = dir / "run";
    const SystemCalls calls;
    HttpServer server;
    UpdaterProcess updater;
};

/// The programs that were started, the updater first.
QStringList startedPrograms(const Scene& scene)
{
    QStringList programs;
    for (const SystemCall& call : scene.calls.named("execve"))
        programs.append(call.paths.value(0));
    return programs;
}

} // namespace

class TestReach : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!SystemCalls::canBeTraced())
            QSKIP("strace is not installed, or may not trace");
    }

    // ---- The record itself

    void straysAreSeen_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("stray");
        QTest::newRow("file made") << ">new"
                                   << "new";
        QTest::newRow("file written") << "echo x >>old"
                                      << "old";
        QTest::newRow("file moved away") << "mv old \"$TMPDIR/x\""
                                         << "old";
        QTest::newRow("file moved there") << "mv \"$TMPDIR/keep\" new"
                                          << "new";
        QTest::newRow("file removed") << "rm old"
                                      << "old";
        QTest::newRow("file cut") << "truncate -s 0 old"
                                  << "old";
        QTest::newRow("mode changed") << "chmod 700 old"
                                      << "old";
        QTest::newRow("owner changed") << "chown \"$(id -u)\" old"
                                       << "old";
        QTest::newRow("time changed") << "touch -c old"
                                      << "old";
        QTest::newRow("link made") << "ln old new"
                                   << "new";
        QTest::newRow("symbolic link made") << "ln -s old new"
                                            << "new";
        QTest::newRow("pipe made") << "mkfifo new"
                                   << "new";
        QTest::newRow("directory made") << "mkdir new"
                                        << "new";
        QTest::newRow("directory removed") << "rmdir empty"
                                           << "empty";
        QTest::newRow("the temporary directory left by dots") << "mkdir \"$TMPDIR/../new\""
                                                              << "new";
        QTest::newRow("what a child does") << "(mkdir new)"
                                           << "new";
        QTest::newRow("what fails") << "mkdir missing/new"
                                    << "missing/new";
    }

    void straysAreSeen()
    {
        QFETCH(QString, script);
        QFETCH(QString, stray);
        Scene scene;
        const QString outside = scene.dir / "outside";
        files::write(outside + "/old", "old");
        files::makeDirectory(outside + "/empty");
        // Programs that the shell starts would not be followed: their calls are made under strace
        // themselves.
        QStringList command = scene.calls.command();
        command.erase(std::find(command.begin(), command.end(), "-b"),
                      std::find(command.begin(), command.end(), "execve") + 1);
        scene.updater.setWrapper(command + QStringList{"sh", "-c", script});
        scene.updater.setWorkingDirectory(outside);
        scene.updater.run({});
        QVERIFY2(scene.strayChanges().contains(stray + '"'), qPrintable(scene.strayChanges()));
    }

    void changesInsideAreNoStrays()
    {
        Scene scene;
        scene.updater.setWrapper(
            scene.calls.command() +
            QStringList{"sh", "-c", "echo a >\"$TMPDIR/a\"; read line <\"$TMPDIR/a\"; [ -e / ]"});
        scene.updater.run({});
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(scene.changedBelow(scene.tmpDir), QStringList{"a"});
    }

    // ---- The three modes

    void buildWritesTheVersionFileOnly()
    {
        Scene scene;
        release::lay({{exeName, "program"}, {"sub/data.bin", "data"}}, scene.baseDir);
        files::write(scene.dir / "CHANGES.txt", "news");
        QCOMPARE(scene.updater.run({"-b", "-n", "Editor", "-d", scene.baseDir, "-v", "2.0",
                                    "--changelog", scene.dir / "CHANGES.txt"}),
                 0);
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(scene.changedBelow(scene.baseDir), QStringList{"index.txt"});
        QCOMPARE(scene.changedBelow(scene.tmpDir), QStringList());
        QCOMPARE(scene.peers(), QStringList());
        QCOMPARE(startedPrograms(scene), QStringList{UPDATER_EXECUTABLE});
    }

    void checkWritesTheChangelogFileAndTheSegmentOnly()
    {
        Scene scene;
        scene.publish({{"a.bin", "a"}});
        std::unique_ptr<HostProcess> host;
        {
            const ScopedTmpDir tmp(scene.tmpDir);
            host = std::make_unique<HostProcess>(16);
        }
        QCOMPARE(scene.updater.run({"-c", "-n", "Editor", "-v", "1.0", "-l",
                                    scene.server.url("/index.txt"), "-s", host->key()}),
                 0);
        QCOMPARE(host->dump().left(3), QByteArray("2.0"));
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(scene.changedBelow(scene.baseDir), QStringList());
        // The lock's key file lies in the temporary directory.
        const QStringList changed = scene.changedBelow(scene.tmpDir);
        QCOMPARE(changed.filter("velmora_cl_"), QStringList{"velmora_cl_2.0.dat"});
        QCOMPARE(changed.filter("qipc_systemsem_").size(), changed.size() - 1);
        QCOMPARE(scene.peers(), QStringList{scene.serverAddress()});
        QCOMPARE(startedPrograms(scene), QStringList{UPDATER_EXECUTABLE});

        // The host's segment is looked up, not made.
        const QList<SystemCall> segments = scene.calls.named("shmget");
        QVERIFY(!segments.isEmpty());
        for (const SystemCall& call : segments)
            QVERIFY2(!call.arguments.contains("IPC_CREAT"), qPrintable(call.arguments));
    }

    void updateStaysInTheTwoDirectories()
    {
        const RelaunchedProgram program;
        Scene scene;
        scene.publish({{exeName, program.script("Editor 2.0")},
                       {"Contents/Resources/Editor.icns", "icon"},
                       {"Contents/Resources/same.bin", "same"},
                       {"old.bin", "new"},
                       {"sub/deep/new.bin", "new"}});
        release::lay({{"Contents/Resources/same.bin", "same"}, {"old.bin", "old"}}, scene.baseDir);
        QCOMPARE(scene.updater.run(scene.updateOptions()), 0);
        QTRY_COMPARE(program.starts().size(), 1);

        QCOMPARE(scene.strayChanges(), QString());
        const QStringList installed{"Contents",
                                    "Contents/MacOS",
                                    exeName,
                                    "Contents/Resources",
                                    "Contents/Resources/Editor.icns",
                                    "old.bin",
                                    "sub",
                                    "sub/deep",
                                    "sub/deep/new.bin"};
        for (const QString& name : scene.changedBelow(scene.baseDir))
            QVERIFY2(installed.contains(name), qPrintable(name));
        for (const QString& name : scene.changedBelow(scene.tmpDir))
            QVERIFY2(name == "velmora_cl_2.0.dat" || name == "wUpEditor2.0" ||
                         name.startsWith("wUpEditor2.0/"),
                     qPrintable(name));
        QCOMPARE(scene.peers(), QStringList{scene.serverAddress()});
        QCOMPARE(startedPrograms(scene),
                 QStringList({UPDATER_EXECUTABLE, scene.baseDir + '/' + exeName}));
    }

    void programOutsideIsStartedAndNotTouched()
    {
        const RelaunchedProgram program;
        Scene scene;
        const QString exe = scene.dir / "elsewhere/Editor";
        program.install(exe, "Editor");
        scene.publish({{exeName, "no program"}});
        QCOMPARE(scene.updater.run(scene.updateOptions() + QStringList{"-x", exe}), 0);
        QTRY_COMPARE(program.starts().size(), 1);
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(startedPrograms(scene), QStringList({UPDATER_EXECUTABLE, exe}));
    }

    // ---- Where it does reach further

    // Emptied parents of the download directory go, whoever made them.
    void emptyTemporaryDirectoryIsRemoved()
    {
        Scene scene;
        scene.publish({{"a.bin", "new a"}});
        scene.server.serve("/index.txt",
                           HttpReply::ok(files::read(scene.dir / "release/index.txt")
                                             .replace("<changelog>bmV3cw==</changelog>", "")));
        QVERIFY(QFile::remove(scene.tmpDir + "/keep"));
        QCOMPARE(scene.updater.run(scene.updateOptions()), 0);
        QVERIFY(!QFile::exists(scene.tmpDir));
        const QString next = "rmdir(\"" + scene.dir.path() + '"';
        QVERIFY2(scene.strayChanges().startsWith(next), qPrintable(scene.strayChanges()));
        QCOMPARE(scene.strayChanges().count('\n'), 0);
    }

    // Names are used as they stand: who writes the manifest decides how far they reach.

    void versionWithDotsLeadsOutside()
    {
        Scene scene;
        files::makeDirectory(scene.tmpDir + "/velmora_cl_");
        scene.server.serve("/index.txt", HttpReply::ok("<Editor><version>/../../x</version>"
                                                       "<changelog>bmV3cw==</changelog></Editor>"));
        QCOMPARE(scene.updater.run({"-c", "-n", "Editor", "-v", "1.0", "-l",
                                    scene.server.url("/index.txt"), "-s", "no-segment"}),
                 0);
        QVERIFY(!scene.strayChanges().isEmpty());
        QCOMPARE(files::read(scene.dir / "x.dat"), QByteArray("bmV3cw=="));
    }

    void namesWithDotsLeadOutside()
    {
        Scene scene;
        const QByteArray body = "anything";
        scene.server.serve(
            "/index.txt",
            HttpReply::ok("<Editor><version>2.0</version><file><name>../escaped.bin</name><sha1>" +
                          files::sha1(body).toLatin1() + "</sha1><size>8</size></file></Editor>"));
        scene.server.serveAllElse(HttpReply::ok(body));
        QCOMPARE(scene.updater.run(scene.updateOptions()), 0);
        QVERIFY(!scene.strayChanges().isEmpty());
        QCOMPARE(files::read(scene.dir / "escaped.bin"), body);
    }
};

UPDATER_TEST_MAIN(TestReach)
#include "tst_reach.moc"
