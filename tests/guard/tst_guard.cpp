// The guard as the host starts it: the real guard, the real updater, a server, a program that is
// started again.

#include "tests/guard/GuardScene.h"
#include "tests/support/Command.h"
#include "tests/support/EditorRelease.h"
#include "tests/support/FakeProgram.h"
#include "tests/support/Needs.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <csignal>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// A process that runs until the end of the scope.
class Sleeper
{
public:
    Sleeper() { m_process.start("sleep", {"1000"}); }
    ~Sleeper() { end(); }
    Q_DISABLE_COPY(Sleeper)

    QString pid() const { return QString::number(m_process.processId()); }
    void end()
    {
        m_process.kill();
        m_process.waitForFinished();
    }

private:
    QProcess m_process;
};

} // namespace

Q_DECLARE_METATYPE(HttpReply)

class TestGuard : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { ::umask(022); }

    // ---- An update

    void updateIsInstalledAndTheProgramStarts()
    {
        GuardScene scene;
        QVERIFY2(scene.guard() == 0, scene.updater.output());
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.left(), QStringList());
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 2.0")});
        QCOMPARE(scene.requests(), QStringList({"/Contents/MacOS/Editor", "/Contents/data.bin",
                                                "/Contents/new/more.txt", "/index.txt"}));
        const QJsonObject report = scene.report();
        QCOMPARE(report.value("outcome").toString(), QString("installed"));
        QCOMPARE(report.value("installedVersion").toString(), QString("1.0"));
        QCOMPARE(report.value("publishedVersion").toString(), QString("2.0"));
        QCOMPARE(report.value("reason").toString(), QString());
        QCOMPARE(report.value("bytesDownloaded").toInt(),
                 100003 + static_cast<int>(scene.published[Scene::exeName].size()));
        QCOMPARE(report.value("bytesReused").toInt(), 0);
        QVERIFY(report.value("seconds").toDouble() > 0);
    }

    void nothingToDoIsDone()
    {
        GuardScene scene;
        QCOMPARE(scene.guard(), 0);
        QTRY_COMPARE(scene.program.starts().size(), 1);
        const QStringList before = scene.entries();
        const struct stat inode = statusOf(scene.installDir);
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.outcome(), QString("up to date"));
        QCOMPARE(scene.entries(), before);
        QCOMPARE(statusOf(scene.installDir).st_ino, inode.st_ino);
        QCOMPARE(scene.requests(4), QStringList{"/index.txt"});
        QTRY_COMPARE(scene.program.starts().size(), 2);
        QCOMPARE(scene.left(), QStringList());
    }

    void programIsNotStartedWithoutRelaunch()
    {
        GuardScene scene;
        QCOMPARE(scene.guard({"--no-relaunch"}), 0);
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.program.starts(), QStringList());
    }

    void wrongUsageStartsNothing()
    {
        GuardScene scene;
        files::write(scene.dir / "bad.pub", "no key");
        QCOMPARE(scene.guard({"--public-key", scene.dir / "bad.pub"}), 2);
        QCOMPARE(scene.guard({"--jobs", "0"}), 2);
        QCOMPARE(scene.requests(), QStringList());
        QCOMPARE(scene.program.starts(), QStringList());
        QCOMPARE(scene.state(), QString("1.0"));
    }

    // ---- One at a time, and after the host

    void secondUpdateIsTurnedAway()
    {
        GuardScene scene;
        const int descriptor =
            ::open(QFile::encodeName(scene.installDir).constData(), O_RDONLY | O_CLOEXEC);
        QVERIFY(descriptor >= 0 && ::flock(descriptor, LOCK_EX) == 0);
        QCOMPARE(scene.guard(), 3);
        QCOMPARE(scene.requests(), QStringList());
        QCOMPARE(scene.program.starts(), QStringList());
        ::close(descriptor);
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
    }

    void pairInstallsOnce()
    {
        GuardScene scene;
        UpdaterProcess other;
        other.setProgram(GUARD_EXECUTABLE);
        scene.updater.start(scene.options());
        other.start(scene.options());
        QVERIFY(scene.updater.waitForEnd());
        QVERIFY(other.waitForEnd());
        QList<int> statuses{scene.updater.exitStatus(), other.exitStatus()};
        std::sort(statuses.begin(), statuses.end());
        // The second may also come after the end of the first.
        if (statuses != QList<int>{0, 0})
            QCOMPARE(statuses, QList<int>({0, 3}));
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.left(), QStringList());
        QTRY_COMPARE(scene.program.starts().size(), statuses.count(0));
    }

    void guardWaitsForTheHost()
    {
        GuardScene scene;
        Sleeper host;
        scene.updater.start(scene.options({"--wait-for", host.pid()}));
        // It has the lock, and waits.
        const int descriptor =
            ::open(QFile::encodeName(scene.installDir).constData(), O_RDONLY | O_CLOEXEC);
        QTRY_VERIFY(::flock(descriptor, LOCK_EX | LOCK_NB) != 0 ||
                    ::flock(descriptor, LOCK_UN) != 0);
        ::close(descriptor);
        QCOMPARE(scene.requests(), QStringList());
        host.end();
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
    }

    void hostThatDoesNotEndStopsTheUpdate()
    {
        GuardScene scene;
        const Sleeper host;
        QCOMPARE(scene.guard({"--wait-for", host.pid(), "--wait-seconds", "0"}), 1);
        QCOMPARE(scene.requests(), QStringList());
        QCOMPARE(scene.state(), QString("1.0"));
        QCOMPARE(scene.program.starts(), QStringList());
        QCOMPARE(scene.outcome(), QString("failed"));
        QCOMPARE(scene.reason(), QString("the application still runs"));
    }

    void hostThatHasEndedIsNotWaitedFor()
    {
        GuardScene scene;
        // A zombie: nobody asks for its exit status.
        const pid_t child = ::fork();
        if (child == 0)
            ::_exit(0);
        QVERIFY(child > 0);
        const int status = scene.guard({"--wait-for", QString::number(child)});
        ::waitpid(child, nullptr, 0);
        QCOMPARE(status, 0);
        // Now there is no such process.
        QCOMPARE(scene.guard({"--wait-for", QString::number(child)}), 0);
    }

    void elevatedRightsAreRefused_data()
    {
        QTest::addColumn<QString>("variable");
        row("sudo", "SUDO_UID");
        row("pkexec", "PKEXEC_UID");
    }

    void elevatedRightsAreRefused()
    {
        QFETCH(QString, variable);
        GuardScene scene;
        scene.updater.setEnvironment(variable, "1000");
        QCOMPARE(scene.guard(), 4);
        QCOMPARE(scene.requests(), QStringList());
        QCOMPARE(scene.program.starts(), QStringList());
    }

    // ---- Refusals

    void releaseIsRefused_data()
    {
        QTest::addColumn<QByteArray>("versionFile");
        QTest::addColumn<QString>("reason");
        const auto file = [](const QString& name, const QString& version = "2.0") {
            return tree::versionFile(editorRelease(version, {tree::entry(name, "evil")})).toUtf8();
        };
        row("unreadable", QByteArray("<html>"), "the version file has no release of this program");
        row("of another program", file("a").replace("Editor", "Other"),
            "the version file has no release of this program");
        row("lower version", file("a", "0.9"), "the published version is lower");
        row("name leads out", file("../../../evil.txt"), QString());
        row("absolute name", file("/tmp/evil.txt"), QString());
        row("version leads out", file("a", "2/../../evil"), QString());
    }

    void releaseIsRefused()
    {
        QFETCH(QByteArray, versionFile);
        QFETCH(QString, reason);
        GuardScene scene;
        scene.server.serve("/index.txt", HttpReply::ok(versionFile));
        QCOMPARE(scene.guard(), 4);
        QCOMPARE(scene.outcome(), QString("refused"));
        if (!reason.isEmpty())
            QCOMPARE(scene.reason(), reason);
        QVERIFY(!scene.reason().isEmpty());
        QCOMPARE(scene.state(), QString("1.0"));
        QCOMPARE(scene.requests(), QStringList{"/index.txt"});
        QCOMPARE(scene.left(), QStringList());
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});
    }

    void downgradeCanBeAllowed()
    {
        GuardScene scene;
        scene.installedVersion = "3.0";
        QCOMPARE(scene.guard(), 4);
        QCOMPARE(scene.guard({"--allow-downgrade"}), 0);
        QCOMPARE(scene.state(), QString("2.0"));
    }

    void installationThatCannotBeExchangedIsRefused_data()
    {
        QTest::addColumn<QString>("locked"); // Below the scene's directory.
        row("parent not writable", "installed");
        row("installation not writable", "installed/Editor.app");
    }

    void installationThatCannotBeExchangedIsRefused()
    {
        QFETCH(QString, locked);
        UNDER_PERMISSIONS(command);
        GuardScene scene;
        scene.updater.setWrapper(*command);
        const QStringList before = scene.entries();
        {
            const ScopedMode mode(scene.dir / locked, 0555);
            QCOMPARE(scene.guard(), 4);
        }
        QCOMPARE(scene.outcome(), QString("refused"));
        QCOMPARE(scene.entries(), before);
        QCOMPARE(scene.left(), QStringList());
        QCOMPARE(scene.requests(), QStringList{"/index.txt"});
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});
    }

    void missingInstallationIsRefused()
    {
        GuardScene scene;
        QVERIFY(QDir(scene.installDir).removeRecursively());
        QCOMPARE(scene.guard(), 4);
        QCOMPARE(scene.requests(), QStringList());
        QCOMPARE(scene.left(), QStringList());
    }

    // ---- Downloads that fail

    void failedDownloadLeavesTheOldRelease_data()
    {
        QTest::addColumn<HttpReply>("reply");
        row("missing", HttpReply::error(404));
        row("wrong contents", HttpReply::ok("evil"));
        row("cut", HttpReply::cutShort("new", 2));
        row("reset", HttpReply::reset());
    }

    void failedDownloadLeavesTheOldRelease()
    {
        QFETCH(HttpReply, reply);
        GuardScene scene;
        scene.server.serve("/Contents/new/more.txt", reply);
        QCOMPARE(scene.guard(), 1);
        QCOMPARE(scene.outcome(), QString("failed"));
        QCOMPARE(scene.state(), QString("1.0"));
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});

        // What has come need not come again.
        const int asked = static_cast<int>(scene.server.requests().size());
        scene.serveFrom(scene.server);
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.requests(asked), QStringList({"/Contents/new/more.txt", "/index.txt"}));
        QVERIFY(scene.report().value("bytesReused").toInt() >= 100000);
        QCOMPARE(scene.left(), QStringList());
    }

    void updaterThatCannotBeStartedLeavesTheOldRelease()
    {
        GuardScene scene;
        QCOMPARE(scene.guard({"--updater", scene.dir / "none"}), 1);
        QCOMPARE(scene.reason(), QString("the updater does not start"));
        QCOMPARE(scene.state(), QString("1.0"));
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});
    }

    /// Such as one that was cancelled: its exit status is 0, and it has installed nothing.
    void updaterThatGivesUpLeavesTheOldRelease()
    {
        GuardScene scene;
        writeScript(scene.dir / "updater", "exit 0\n");
        QCOMPARE(scene.guard({"--updater", scene.dir / "updater"}), 1);
        QCOMPARE(scene.outcome(), QString("cancelled"));
        QCOMPARE(scene.state(), QString("1.0"));
    }

    void updaterThatDoesSomethingElseIsFoundOut()
    {
        GuardScene scene;
        writeScript(scene.dir / "updater",
                    "'" UPDATER_EXECUTABLE "' \"$@\"; status=$?; echo evil >clone/evil; "
                    "exit $status\n");
        QCOMPARE(scene.guard({"--updater", scene.dir / "updater"}), 1);
        QCOMPARE(scene.reason(), QString("evil was added"));
        QCOMPARE(scene.state(), QString("1.0"));
        QCOMPARE(scene.left(), QStringList());
    }

    // ---- Signatures

    void onlyWhatAKnownKeyHasSignedIsInstalled_data()
    {
        QTest::addColumn<QString>("keys");     // Of the guard, by name.
        QTest::addColumn<QString>("signedBy"); // Empty: nothing is there.
        QTest::addColumn<QString>("what");     // The version file that was signed.
        QTest::addColumn<int>("status");
        row("signed", "ours", "ours", "2.0", 0);
        row("one of two keys", "other ours", "ours", "2.0", 0);
        row("no signature", "ours", "", "2.0", 4);
        row("another key", "ours", "other", "2.0", 4);
        row("the signature of an earlier version file", "ours", "ours", "1.0", 4);
    }

    void onlyWhatAKnownKeyHasSignedIsInstalled()
    {
        QFETCH(QString, keys);
        QFETCH(QString, signedBy);
        QFETCH(QString, what);
        QFETCH(int, status);
        NEEDS_PROGRAM("signify-openbsd");
        GuardScene scene;
        QStringList options;
        for (const QString& key : keys.split(' ')) {
            makeKey(scene.dir / key);
            options << "--public-key" << scene.dir / (key + ".pub");
        }
        if (!signedBy.isEmpty()) {
            if (!keys.contains(signedBy))
                makeKey(scene.dir / signedBy);
            const QByteArray versionFile = files::read(scene.releaseDir + "/index.txt");
            files::write(scene.dir / "signed",
                         what == "2.0" ? versionFile : editorVersionFile("1.0"));
            mustRun({"signify-openbsd", "-S", "-s", scene.dir / (signedBy + ".sec"), "-m",
                     scene.dir / "signed", "-x", scene.dir / "signature"});
            scene.server.serve("/index.txt.sig",
                               HttpReply::ok(files::read(scene.dir / "signature")));
        }
        QCOMPARE(scene.guard(options), status);
        QCOMPARE(scene.state(), status == 0 ? QString("2.0") : QString("1.0"));
        // They are two requests: when they do not match, both are made once more.
        QCOMPARE(scene.server.requestsFor("/index.txt"), status == 0 ? 1 : 2);
        QTRY_COMPARE(scene.program.starts().size(), 1);
    }

    /// The version file is fetched once: what it was when it was checked counts.
    void versionFileThatChangesIsNotLookedAtAgain()
    {
        GuardScene scene;
        const QByteArray evil = editorVersionFile("2.0", {tree::entry("../../../evil.txt", "evil"),
                                                          tree::entry("Contents/plug-in", "evil")});
        scene.server.serveInTurn(
            "/index.txt",
            {HttpReply::ok(files::read(scene.releaseDir + "/index.txt")), HttpReply::ok(evil)});
        scene.server.serveAllElse(HttpReply::ok("evil"));
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.server.requestsFor("/index.txt"), 1);
    }

    // ---- A disk that is full

    void fullDiskLeavesTheOldRelease_data()
    {
        QTest::addColumn<int>("kibibytes");
        QTest::addColumn<int>("status");
        // The old release has 100 KiB, the download as much, and the updater saves it once more.
        row("no room for the clone", 128, -1);
        row("no room for the downloads", 190, 1);
        row("no room for what the updater saves", 280, 1);
        row("room enough", 600, 0);
    }

    void fullDiskLeavesTheOldRelease()
    {
        QFETCH(int, kibibytes);
        QFETCH(int, status);
        GuardScene scene;
        const QString parent = scene.dir / "installed";
        const QString after = scene.dir / "after";
        files::makeDirectory(after);
        UNDER_TMPFS(command, parent, QString("size=%1k").arg(kibibytes), after);
        scene.updater.setWrapper(*command);
        const int ended = scene.guard({"--no-relaunch"});
        if (status >= 0)
            QCOMPARE(ended, status);
        else
            QVERIFY(ended == 1 || ended == 4);
        QVERIFY(QDir(scene.installDir).removeRecursively());
        mustRun({"cp", "-a", after + "/Editor.app", scene.installDir});
        QCOMPARE(scene.state(), status == 0 ? QString("2.0") : QString("1.0"));
        // The space is free again.
        QCOMPARE(QDir(after).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList{"Editor.app"});
    }

    // ---- Other programs

    void whatOthersWriteDuringTheUpdateIsKept()
    {
        GuardScene scene;
        scene.server.serve("/Contents/data.bin",
                           HttpReply::hold(HttpReply::ok(scene.published["Contents/data.bin"])));
        scene.updater.start(scene.options({"--no-relaunch"}));
        QVERIFY(scene.waitForRequests("Contents/data.bin"));
        files::write(scene.installedPath("Contents/.hidden/user.cfg"), "changed");
        files::write(scene.installedPath("Contents/cache/new.txt"), "made");
        QFile::remove(scene.installedPath("Contents/dropped.txt"));
        scene.server.release();
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(files::read(scene.installedPath("Contents/.hidden/user.cfg")),
                 QByteArray("changed"));
        QCOMPARE(files::read(scene.installedPath("Contents/cache/new.txt")), QByteArray("made"));
        QVERIFY(!QFile::exists(scene.installedPath("Contents/dropped.txt")));
        QCOMPARE(files::read(scene.installedPath("Contents/new/more.txt")), QByteArray("new"));
    }

    void listedFileThatOthersChangeStopsTheUpdate()
    {
        GuardScene scene;
        scene.server.serve("/Contents/data.bin",
                           HttpReply::hold(HttpReply::ok(scene.published["Contents/data.bin"])));
        scene.updater.start(scene.options({"--no-relaunch"}));
        QVERIFY(scene.waitForRequests("Contents/data.bin"));
        files::write(scene.installedPath("Contents/data.bin"), "of somebody else");
        scene.server.release();
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 1);
        QCOMPARE(files::read(scene.installedPath("Contents/data.bin")),
                 QByteArray("of somebody else"));
        QVERIFY(!QFile::exists(scene.installedPath("Contents/new")));
        QCOMPARE(scene.left(), QStringList());
    }

    /// While an update runs, no one else can read or replace what it works with.
    void othersCannotLookIntoTheHiddenDirectory()
    {
        GuardScene scene;
        scene.server.serve("/Contents/data.bin", HttpReply::hold(HttpReply()));
        scene.updater.start(scene.options({"--no-relaunch"}));
        QVERIFY(scene.waitForRequests("Contents/data.bin"));
        const QStringList hidden = scene.left();
        QCOMPARE(hidden.size(), 1);
        QCOMPARE(files::mode(scene.dir / "installed/" + hidden.first()), 0700U);
        scene.updater.kill();
    }

    // ---- Kinds of installations

    void directoriesWithoutWritePermissionAreUpdated()
    {
        UNDER_PERMISSIONS(command);
        GuardScene scene;
        scene.updater.setWrapper(*command);
        const ScopedMode mode(scene.installedPath("Contents/MacOS"), 0555);
        QVERIFY2(scene.guard() == 0, scene.updater.output());
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(files::mode(scene.installedPath("Contents/MacOS")), 0555U);
        QCOMPARE(scene.left(), QStringList());
    }

    void umaskDoesNotMatter()
    {
        GuardScene scene;
        scene.updater.setWrapper({"sh", "-c", "umask 077; exec \"$@\"", "sh"});
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
    }

    void pathBeyondAsciiIsUpdated_data()
    {
        QTest::addColumn<bool>("byLink");
        row("itself", false);
        row("by a link", true);
    }

    void pathBeyondAsciiIsUpdated()
    {
        QFETCH(bool, byLink);
        GuardScene scene;
        const QString parent = scene.dir / QString::fromUtf8("\xC3\x9C"
                                                             "bung");
        files::makeDirectory(parent);
        QVERIFY(QFile::rename(scene.installDir, parent + "/Editor.app"));
        files::link(parent + "/Editor.app", scene.dir / "link");
        const QString given = byLink ? scene.dir / "link" : parent + "/Editor.app";
        QStringList options = scene.options({"--no-relaunch"});
        options[options.indexOf("--dir") + 1] = given;
        options[options.indexOf("--exe") + 1] = given + '/' + Scene::exeName;
        QVERIFY2(scene.updater.run(options) == 0, scene.updater.output());
        QVERIFY(QFile::rename(parent + "/Editor.app", scene.installDir));
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(QDir(parent).entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot),
                 QStringList());
    }

    void patternsMakeFilesExecutable()
    {
        GuardScene scene;
        QCOMPARE(scene.guard({"--executable", "Contents/new/*", "--executable", "*/same.txt"}), 0);
        QCOMPARE(files::mode(scene.installedPath("Contents/new/more.txt")), 0755U);
        QCOMPARE(files::mode(scene.installedPath("Contents/same.txt")), 0755U);
        QCOMPARE(files::mode(scene.installedPath("Contents/data.bin")), 0640U);
    }

    void obsoleteFilesAreRemovedOnRequest_data()
    {
        QTest::addColumn<bool>("asked");
        QTest::addColumn<bool>("recorded");
        row("asked", true, true);
        row("not asked", false, true);
        row("no record of the installed release", true, false);
    }

    void obsoleteFilesAreRemovedOnRequest()
    {
        QFETCH(bool, asked);
        QFETCH(bool, recorded);
        GuardScene scene;
        const Tree next = scene.published;
        Tree earlier = scene.installed;
        earlier.remove("Contents/.hidden/user.cfg");
        QDir(scene.releaseDir).removeRecursively();
        scene.publish(earlier, "1.0");
        if (recorded) {
            QCOMPARE(scene.guard({"--no-relaunch"}), 0);
            QCOMPARE(scene.outcome(), QString("up to date"));
        }
        QDir(scene.releaseDir).removeRecursively();
        scene.publish(next, "2.0");
        QCOMPARE(scene.guard(asked ? QStringList{"--remove-obsolete"} : QStringList()), 0);
        QCOMPARE(QFile::exists(scene.installedPath("Contents/dropped.txt")), !(asked && recorded));
        QVERIFY(QFile::exists(scene.installedPath("Contents/.hidden/user.cfg")));
    }

    void proxyOfTheUserIsNotForTheRelay()
    {
        GuardScene scene;
        // Nothing listens there. The server itself is not to be reached by it.
        scene.updater.setEnvironment("no_proxy", "127.0.0.1");
        scene.updater.setEnvironment("http_proxy", "http://127.0.0.1:1");
        scene.updater.setEnvironment("all_proxy", "http://127.0.0.1:1");
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
    }

private:
    /// Makes the files PATH.pub and PATH.sec.
    static void makeKey(const QString& path)
    {
        mustRun({"signify-openbsd", "-G", "-n", "-p", path + ".pub", "-s", path + ".sec"});
    }

    static struct stat statusOf(const QString& path)
    {
        struct stat status{};
        ::stat(QFile::encodeName(path).constData(), &status);
        return status;
    }
};

UPDATER_TEST_MAIN(TestGuard)
#include "tst_guard.moc"
