// What the program touches at all: every path that a run opens for writing, makes, moves, removes
// or changes the mode of, as the system reports it.

#include "tests/support/ChangelogFile.h"
#include "tests/support/Needs.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/SystemCalls.h"
#include "tests/support/TestMain.h"

#include <QRegularExpression>

#include <algorithm>

namespace {

bool isBelow(const QString& path, const QString& directory)
{
    return path.startsWith(directory + '/') && !path.contains("/../") && !path.endsWith("/..");
}

/// A scene, and everything that its updater asks of the system.
class TracedScene : public ServedScene
{
public:
    TracedScene()
    {
        for (const QString& directory : {runtimeDir, dir / "home"})
            files::makeDirectory(directory);
        files::setMode(runtimeDir, 0700);
        // Qt's font library keeps a cache: without fonts there is none to be written.
        files::write(dir / "fonts.conf", "<fontconfig/>");
        updater.setEnvironment("FONTCONFIG_FILE", dir / "fonts.conf");
        updater.setEnvironment("HOME", dir / "home");
        updater.setEnvironment("XDG_RUNTIME_DIR", runtimeDir);
        // Leaks cannot be looked for in a process that is traced.
        updater.setEnvironment("ASAN_OPTIONS", "detect_leaks=0");
        updater.setWrapper(calls.command());
    }

    ~TracedScene()
    {
        if (!updater.isRunning())
            return;
        calls.killProgram();
        updater.waitForEnd();
    }
    Q_DISABLE_COPY(TracedScene)

    /// Publishes @p tree with news.
    void publish(const Tree& tree)
    {
        files::write(dir / "CHANGES.txt", "news");
        ServedScene::publish(tree, "2.0", {"--changelog", dir / "CHANGES.txt"});
    }

    /// The changes outside the places that an update may change, one line each. Qt makes the
    /// runtime directory; a missing base directory is made. The temporary directory is not empty,
    /// so it is not removed with the download directory.
    QString strayChanges() const
    {
        QStringList stray;
        for (const SystemCall& call : calls.changes()) {
            const bool allowed =
                !call.paths.isEmpty() &&
                std::all_of(call.paths.begin(), call.paths.end(), [&](const QString& path) {
                    return isBelow(path, installDir) || isBelow(path, tmpDir) ||
                           (call.name == "mkdir" && (path == runtimeDir || path == installDir)) ||
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

    const QString runtimeDir = dir / "run";
    const SystemCalls calls;
};

/// The programs that were started, the updater first. One that strace has not seen becoming itself
/// counts as @p unseen.
QStringList startedPrograms(const TracedScene& scene, const QString& unseen = QString())
{
    QStringList programs;
    for (const SystemCall& call : scene.calls.named("execve"))
        programs.append(call.paths.value(0, unseen));
    return programs;
}

} // namespace

class TestReach : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_STRACE(); }

    // ---- The record itself

    void straysAreSeen_data()
    {
        QTest::addColumn<QString>("script");
        QTest::addColumn<QString>("stray");
        row("file made", ">new", "new");
        row("file written", "echo x >>old", "old");
        row("file moved away", "mv old \"$TMPDIR/x\"", "old");
        row("file moved there", "mv \"$TMPDIR/keep\" new", "new");
        row("file removed", "rm old", "old");
        row("file cut", "truncate -s 0 old", "old");
        row("mode changed", "chmod 700 old", "old");
        row("owner changed", "chown \"$(id -u)\" old", "old");
        row("time changed", "touch -c old", "old");
        row("link made", "ln old new", "new");
        row("symbolic link made", "ln -s old new", "new");
        row("pipe made", "mkfifo new", "new");
        row("directory made", "mkdir new", "new");
        row("directory removed", "rmdir empty", "empty");
        row("the temporary directory left by dots", "mkdir \"$TMPDIR/../new\"", "new");
        row("what a child does", "(mkdir new)", "new");
        row("what fails", "mkdir missing/new", "missing/new");
    }

    void straysAreSeen()
    {
        QFETCH(QString, script);
        QFETCH(QString, stray);
        TracedScene scene;
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
        TracedScene scene;
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
        TracedScene scene;
        scene.install({{Scene::exeName, "program"}, {"sub/data.bin", "data"}});
        files::write(scene.dir / "CHANGES.txt", "news");
        QCOMPARE(scene.updater.run({"-b", "-n", "Editor", "-d", scene.installDir, "-v", "2.0",
                                    "--changelog", scene.dir / "CHANGES.txt"}),
                 0);
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(scene.changedBelow(scene.installDir), QStringList{"index.txt"});
        QCOMPARE(scene.changedBelow(scene.tmpDir), QStringList());
        QCOMPARE(scene.peers(), QStringList());
        QCOMPARE(startedPrograms(scene), QStringList{UPDATER_EXECUTABLE});
    }

    void checkWritesTheChangelogFileAndTheSegmentOnly()
    {
        TracedScene scene;
        scene.publish({{"a.bin", "a"}});
        QCOMPARE(scene.check(), HostProcess::reported("2.0"));
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(scene.changedBelow(scene.installDir), QStringList());
        // The lock's key file lies in the temporary directory.
        const QStringList changed = scene.changedBelow(scene.tmpDir);
        QCOMPARE(changed.filter("velmora_cl_"), QStringList{changelogFileName("2.0")});
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
        TracedScene scene;
        scene.publish({{Scene::exeName, scene.program.script("Editor 2.0")},
                       {"Contents/Resources/Editor.icns", "icon"},
                       {"Contents/Resources/same.bin", "same"},
                       {"old.bin", "new"},
                       {"sub/deep/new.bin", "new"}});
        scene.install({{"Contents/Resources/same.bin", "same"}, {"old.bin", "old"}});
        QCOMPARE(scene.update(), 0);
        QTRY_COMPARE(scene.program.starts().size(), 1);

        QCOMPARE(scene.strayChanges(), QString());
        const QStringList installed{"Contents",
                                    "Contents/MacOS",
                                    Scene::exeName,
                                    "Contents/Resources",
                                    "Contents/Resources/Editor.icns",
                                    "old.bin",
                                    "sub",
                                    "sub/deep",
                                    "sub/deep/new.bin"};
        for (const QString& name : scene.changedBelow(scene.installDir))
            QVERIFY2(installed.contains(name), qPrintable(name));
        for (const QString& name : scene.changedBelow(scene.tmpDir))
            QVERIFY2(name == changelogFileName("2.0") || name == "wUpEditor2.0" ||
                         name.startsWith("wUpEditor2.0/"),
                     qPrintable(name));
        QCOMPARE(scene.peers(), QStringList{scene.serverAddress()});
        const QString exe = scene.installedPath(Scene::exeName);
        QCOMPARE(startedPrograms(scene, exe), QStringList({UPDATER_EXECUTABLE, exe}));
    }

    void programOutsideIsStartedAndNotTouched()
    {
        TracedScene scene;
        scene.exe = scene.dir / "elsewhere/Editor";
        scene.program.install(scene.exe, "Editor");
        scene.publish({{Scene::exeName, "no program"}});
        QCOMPARE(scene.update(), 0);
        QTRY_COMPARE(scene.program.starts().size(), 1);
        QCOMPARE(scene.strayChanges(), QString());
        QCOMPARE(startedPrograms(scene, scene.exe), QStringList({UPDATER_EXECUTABLE, scene.exe}));
    }

    // ---- Where it does reach further

    // Empty parents of the download directory are removed, whoever made them.
    void emptyTemporaryDirectoryIsRemoved()
    {
        TracedScene scene;
        scene.publish({{"a.bin", "new a"}});
        scene.server.serve("/index.txt",
                           HttpReply::ok(files::read(scene.releaseDir + "/index.txt")
                                             .replace("<changelog>bmV3cw==</changelog>", "")));
        QVERIFY(QFile::remove(scene.tmpDir + "/keep"));
        QCOMPARE(scene.update(), 0);
        QVERIFY(!QFile::exists(scene.tmpDir));
        const QString next = "rmdir(\"" + scene.dir.path() + '"';
        QVERIFY2(scene.strayChanges().startsWith(next), qPrintable(scene.strayChanges()));
        QCOMPARE(scene.strayChanges().count('\n'), 0);
    }

    // Names are used unchanged: the author of the manifest decides where they lead.

    void versionWithDotsLeadsOutside()
    {
        TracedScene scene;
        files::makeDirectory(scene.tmpDir + "/velmora_cl_");
        scene.server.serve("/index.txt", HttpReply::ok("<Editor><version>/../../x</version>"
                                                       "<changelog>bmV3cw==</changelog></Editor>"));
        QCOMPARE(scene.check(), HostProcess::reported("/../../x"));
        QVERIFY(!scene.strayChanges().isEmpty());
        QCOMPARE(files::read(scene.dir / "x.dat"), QByteArray("bmV3cw=="));
    }

    void namesWithDotsLeadOutside()
    {
        TracedScene scene;
        const QByteArray body = "anything";
        scene.server.serve(
            "/index.txt",
            HttpReply::ok("<Editor><version>2.0</version><file><name>../escaped.bin</name><sha1>" +
                          files::sha1(body).toLatin1() + "</sha1><size>8</size></file></Editor>"));
        scene.server.serveAllElse(HttpReply::ok(body));
        QCOMPARE(scene.update(), 0);
        QVERIFY(!scene.strayChanges().isEmpty());
        QCOMPARE(files::read(scene.dir / "installed/escaped.bin"), body);
    }
};

UPDATER_TEST_MAIN(TestReach)
#include "tst_reach.moc"
