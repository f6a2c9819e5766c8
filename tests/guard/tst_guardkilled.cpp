// A guard that is killed: before any of the calls with which it changes the file system, once or
// twice in a row. The installation is then wholly the old release or wholly the new one, and the
// next run finishes the update and leaves nothing behind.

#include "tests/guard/GuardScene.h"
#include "tests/support/Needs.h"
#include "tests/support/Processes.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/TestMain.h"

#include <csignal>

#include <sys/stat.h>

namespace {

/// The calls that change the file system, by the names that they have on different machines.
const QString& changingCalls()
{
    static const QString calls =
        "?open,openat,write,?unlink,unlinkat,?mkdir,mkdirat,?rmdir,?rename,?renameat,renameat2,"
        "?link,linkat,?symlink,symlinkat,?chmod,fchmod,fchmodat,?chown,?lchown,fchown,fchownat,"
        "utimensat,fsetxattr,syncfs,fsync,ftruncate,flock";
    return calls;
}

/// One call of a run.
struct Call
{
    QString name;
    int occurrence; ///< Counted from 1, among all calls of this name.
    QString line;   ///< As strace prints it.
};

/// Lets @p scene run an update under strace, unharmed.
/// @return Its calls that change something of the scene, in their order; nothing when it failed.
QList<Call> callsOfAnUpdate(GuardScene& scene)
{
    const QString trace = scene.dir / "trace";
    scene.updater.setWrapper(
        {"strace", "-qq", "-y", "-s", "0", "-o", trace, "-e", "trace=" + changingCalls()});
    if (scene.guard({"--no-relaunch"}) != 0)
        return {};
    QHash<QString, int> occurrences;
    QList<Call> calls;
    for (const QString& line : QString::fromLocal8Bit(files::read(trace)).split('\n')) {
        const QString name = line.section('(', 0, 0);
        const Call call{name, ++occurrences[name], line};
        const bool isRead = name.startsWith("open") && !line.contains("O_CREAT");
        if (line.contains(scene.dir.path()) && !isRead)
            calls.append(call);
    }
    return calls;
}

/// Lets @p scene run an update that is killed before @p call, which is not made any more.
void killBefore(GuardScene& scene, const Call& call)
{
    scene.updater.setWrapper(
        {"strace", "-qq", "-o", "/dev/null", "-e", "trace=" + call.name, "-e",
         QString("inject=%1:signal=KILL:when=%2").arg(call.name).arg(call.occurrence)});
    scene.guard();
    scene.updater.setWrapper({});
}

/// What is wrong after a kill in @p scene; nothing when nothing is.
QString damage(const GuardScene& scene)
{
    const QString state = scene.state();
    return state == "1.0" || state == "2.0" ? QString() : state;
}

} // namespace

class TestGuardKilled : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        ::umask(022);
        NEEDS_STRACE();
        // Leaks cannot be looked for in a process that is traced.
        qputenv("ASAN_OPTIONS", qgetenv("ASAN_OPTIONS") + ":detect_leaks=0");
        GuardScene scene;
        m_calls = callsOfAnUpdate(scene);
        QCOMPARE(scene.state(), QString("2.0"));
        const auto makes = [this](const char* name) {
            return std::count_if(m_calls.begin(), m_calls.end(),
                                 [&](const Call& call) { return call.name == name; });
        };
        QCOMPARE(makes("renameat2"), 2); // A trial, and the exchange.
        QVERIFY(makes("syncfs") == 1 && makes("linkat") >= 3);
    }

    /// The calls of a run are not always the same in number, so that a kill can come too late.
    void cleanupTestCase()
    {
        if (m_runs > 0)
            QVERIFY2(m_kills > m_runs * 9 / 10,
                     qPrintable(QString("%1 of %2").arg(m_kills).arg(m_runs)));
    }

    void killedOnce_data() { addRows(); }

    void killedOnce()
    {
        QFETCH(int, number);
        GuardScene scene;
        kill(scene, number);
        finish(scene);
    }

    void killedTwice_data() { addRows(); }

    void killedTwice()
    {
        QFETCH(int, number);
        GuardScene scene;
        kill(scene, static_cast<int>(m_calls.size()) - 1 - number / 2);
        killBefore(scene, m_calls.at(number)); // If it still makes so many calls.
        QCOMPARE(damage(scene), QString());
        finish(scene);
    }

    /// On Linux the system ends the updater with the guard.
    void updaterEndsWithTheGuard()
    {
        GuardScene scene;
        scene.server.serve("/Contents/data.bin", HttpReply::hold(HttpReply()));
        scene.updater.start(scene.options());
        QVERIFY(scene.waitForRequests("Contents/data.bin"));
        const auto updaters = [] {
            return processes::mentioning("-d clone");
        };
        QTRY_COMPARE(updaters().size(), 1);
        scene.updater.kill();
        QVERIFY(scene.updater.waitForEnd());
        QTRY_COMPARE(updaters(), QStringList());
        QCOMPARE(scene.state(), QString("1.0"));
        scene.serveFrom(scene.server);
        finish(scene);
    }

    /// Only the directories of this user are taken, and no links are followed.
    void hiddenDirectoriesOfOthersAreLeftAlone()
    {
        GuardScene scene;
        kill(scene, static_cast<int>(m_calls.size()) / 2); // So that there is one, with its name.
        QStringList names = scene.left();
        QCOMPARE(names.size(), 1);
        const QString mine = scene.dir / "installed/" + names.first();
        const QString prefix = mine.left(mine.size() - 6);
        files::write(prefix + "openly/clone/file", "not private");
        files::setMode(prefix + "openly", 0755);
        files::write(scene.dir / "outside/clone/file", "outside");
        files::setMode(scene.dir / "outside", 0700);
        files::link(scene.dir / "outside", prefix + "link00");
        files::write(prefix + "file00", "a file");
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
        QStringList left = scene.left();
        left.sort();
        for (QString& name : left)
            name = name.right(6);
        QCOMPARE(left, QStringList({"file00", "link00", "openly"}));
        QCOMPARE(files::read(scene.dir / "outside/clone/file"), QByteArray("outside"));
        QCOMPARE(files::read(prefix + "openly/clone/file"), QByteArray("not private"));
    }

private:
    void addRows()
    {
        QTest::addColumn<int>("number");
        const auto count = static_cast<int>(m_calls.size());
        const int mostOfASample = 12;
        const int step = everyRowIsWanted() ? 1 : qMax(1, count / mostOfASample);
        for (int number = 0; number < count; number += step)
            row(QString("%1 of %2: %3").arg(number).arg(count).arg(m_calls[number].line.left(60)),
                number);
    }

    void kill(GuardScene& scene, int number)
    {
        killBefore(scene, m_calls.at(number));
        ++m_runs;
        m_kills += scene.updater.endedBySignal() == SIGKILL;
        QCOMPARE(damage(scene), QString());
    }

    static void finish(GuardScene& scene)
    {
        QVERIFY2(scene.guard() == 0, scene.updater.output());
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.left(), QStringList());
        QTRY_VERIFY(!scene.program.starts().isEmpty());
    }

    QList<Call> m_calls;
    int m_runs = 0;
    int m_kills = 0;
};

UPDATER_TEST_MAIN(TestGuardKilled)
#include "tst_guardkilled.moc"
