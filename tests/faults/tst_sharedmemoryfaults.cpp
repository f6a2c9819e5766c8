// Checks by the real executable for hosts that fail: a host that dies while it holds the lock of
// its segment, one that ends while the updater waits, one that keeps the lock, two checks at once.
//
// Waiting processes get the lock in the order in which they asked for it. So a test that holds it
// can stop an updater at either of two places: while it attaches, and just before it writes.

#include "tests/support/EditorRelease.h"
#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Needs.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/SystemIpc.h"
#include "tests/support/UpdaterProcess.h"

#include <QFileInfo>

#include <memory>

#include <sys/ipc.h>
#include <sys/shm.h>
#include <unistd.h>

namespace {

constexpr int segmentSize = 32;

/// A server that publishes two versions, each under its own name, and a host to be checked for.
struct HostAndServer
{
    explicit HostAndServer(const QString& hostExecutable = QString(), int size = segmentSize)
        : host(std::make_unique<HostProcess>(size, hostExecutable))
    {
        for (const char* version : {"2.1", "10.20.30-candidate"})
            server.serve(QStringLiteral("/") + version, HttpReply::ok(editorVersionFile(version)));
    }

    void start(UpdaterProcess& process, const QString& version = "2.1") const
    {
        process.start({"-c", "-n", "Editor", "-v", "1.0", "-l", server.url('/' + version), "-s",
                       host->key()});
    }

    /// A process that is attached to the host's segment and keeps it alive.
    std::unique_ptr<HostProcess> attach() const
    {
        return std::make_unique<HostProcess>(host.get());
    }

    HttpServer server;
    std::unique_ptr<HostProcess> host;
    UpdaterProcess updater; // Ends before the host does.
};

/// Waits until @p count wait for the lock of the segment of @p host.
bool waitForWaiting(HostProcess& host, int count)
{
    return QTest::qWaitFor([&] { return host.waiting() == count; }, 30000);
}

/// How many are attached to the segment of @p host.
int attachedTo(const HostProcess& host)
{
    const auto segment = systemipc::segmentMadeBy(host.pid());
    return segment ? segment->attached : 0;
}

/// Where a check is stopped by the lock.
enum class Stop { NotStarted, Attaching, Attached };

/// Lets the host take the lock, and brings the check to @p stop.
bool stopCheck(HostAndServer& scene, HostProcess& witness, Stop stop)
{
    if (stop != Stop::Attached) {
        if (!scene.host->lock())
            return false;
        if (stop == Stop::NotStarted)
            return true;
        scene.start(scene.updater);
        return waitForWaiting(*scene.host, 1) && attachedTo(*scene.host) == 2;
    }
    // The updater, as it attaches, is the first to get the lock, the host comes next.
    if (!witness.lock())
        return false;
    scene.start(scene.updater);
    if (!waitForWaiting(witness, 1))
        return false;
    scene.host->beginLock();
    return waitForWaiting(witness, 2) && witness.unlock() && scene.host->gotLock() &&
           waitForWaiting(witness, 1) && attachedTo(*scene.host) == 3;
}

QString otherHost()
{
    return qEnvironmentVariable("UPDATER_OTHER_SHM_HOST");
}

} // namespace

Q_DECLARE_METATYPE(Stop)

class TestSharedMemoryFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!QFileInfo::exists("/proc/sysvipc/shm"))
            QSKIP("the system does not list its segments");
    }

    /// Whatever has happened, nothing is left.
    void cleanup()
    {
        QCOMPARE(files::list(QDir::tempPath()), QStringList());
        if (systemipc::inOwnNamespace())
            QCOMPARE(systemipc::everything(), QStringList());
    }

    // ---- The host dies

    void killedHostGivesItsLockBack_data()
    {
        QTest::addColumn<Stop>("stop");
        row("before the check", Stop::NotStarted);
        row("while the updater attaches", Stop::Attaching);
        row("while the updater is about to write", Stop::Attached);
    }

    void killedHostGivesItsLockBack()
    {
        QFETCH(Stop, stop);
        HostAndServer scene;
        const auto witness = scene.attach();
        QVERIFY(stopCheck(scene, *witness, stop));
        QCOMPARE(witness->dump(), HostProcess::untouched(segmentSize));

        scene.host->kill();
        if (stop == Stop::NotStarted)
            scene.start(scene.updater);
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QCOMPARE(witness->dump().toHex(' '),
                 HostProcess::reported("2.1", false, segmentSize).toHex(' '));
        QVERIFY2(witness->lock() && witness->unlock(), "the lock is still taken");

        QVERIFY(witness->quit());
        QVERIFY(!HostProcess::segmentExists(scene.host->key()));
        // Only the process that made a semaphore removes it.
        const QStringList left = files::list(QDir::tempPath());
        QCOMPARE(left.size(), 1);
        QVERIFY2(left.first().startsWith("qipc_systemsem_"), qPrintable(left.first()));
        if (systemipc::inOwnNamespace())
            QCOMPARE(systemipc::everything().filter("sem").size(), 1);
    }

    void segmentOfAKilledHostGoesWithTheCheck_data()
    {
        QTest::addColumn<bool>("locked");
        row("lock free", false);
        row("lock taken", true);
    }

    void segmentOfAKilledHostGoesWithTheCheck()
    {
        QFETCH(bool, locked);
        HostAndServer scene;
        if (locked)
            QVERIFY(scene.host->lock());
        const auto segment = systemipc::segmentMadeBy(scene.host->pid());
        QVERIFY(segment);
        scene.host->kill();
        shmid_ds status;
        QCOMPARE(::shmctl(segment->id, IPC_STAT, &status), 0);
        QCOMPARE(static_cast<int>(status.shm_nattch), 0);

        scene.start(scene.updater);
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QCOMPARE(::shmctl(segment->id, IPC_STAT, &status), -1);
    }

    // ---- The segment goes

    void segmentThatVanishesDoesNotStopTheCheck_data()
    {
        QTest::addColumn<Stop>("stop");
        row("while the updater attaches", Stop::Attaching);
        row("between attaching and locking", Stop::Attached);
    }

    void segmentThatVanishesDoesNotStopTheCheck()
    {
        QFETCH(Stop, stop);
        HostAndServer scene;
        const auto witness = scene.attach();
        QVERIFY(stopCheck(scene, *witness, stop));
        witness->kill();
        QVERIFY(scene.host->quit());

        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QVERIFY(!HostProcess::segmentExists(scene.host->key()));
    }

    // ---- The segment cannot be had

    void segmentOfWhichOnlyReadingIsAllowedStaysAsItWas()
    {
        HostAndServer scene;
        const auto segment = systemipc::segmentMadeBy(scene.host->pid());
        QVERIFY(segment);
        shmid_ds status;
        QCOMPARE(::shmctl(segment->id, IPC_STAT, &status), 0);
        status.shm_perm.mode = 0400;
        QCOMPARE(::shmctl(segment->id, IPC_SET, &status), 0);

        if (::geteuid() == 0) {
            NEEDS_PROGRAM("setpriv");
            scene.updater.setWrapper(commandWithout({"ipc_owner"}));
        }
        scene.start(scene.updater);
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QCOMPARE(scene.host->dump(), HostProcess::untouched(segmentSize));
    }

    void updaterWithAnotherTemporaryDirectoryFindsNoSegment()
    {
        HostAndServer scene;
        const TestDir other;
        // Not even the lock is the same one.
        QVERIFY(scene.host->lock());
        scene.updater.setEnvironment("TMPDIR", other.path());
        scene.start(scene.updater);
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QCOMPARE(scene.host->dump(), HostProcess::untouched(segmentSize));
        QCOMPARE(files::list(other.path()), QStringList());
    }

    // ---- The host holds the lock

    void checkWaitsAsLongAsTheLockIsTaken_data()
    {
        QTest::addColumn<Stop>("stop");
        QTest::addColumn<bool>("otherQt");
        row("while it attaches", Stop::Attaching, false);
        row("when it is attached", Stop::Attached, false);
        row("host of the other Qt, while it attaches", Stop::Attaching, true);
        row("host of the other Qt, when it is attached", Stop::Attached, true);
    }

    void checkWaitsAsLongAsTheLockIsTaken()
    {
        QFETCH(Stop, stop);
        QFETCH(bool, otherQt);
        if (otherQt && otherHost().isEmpty())
            QSKIP("UPDATER_OTHER_SHM_HOST does not name the shm_host of a build with another Qt");
        HostAndServer scene(otherQt ? otherHost() : QString());
        const bool sameMajor = scene.host->qtVersion().left(2) == QByteArray(qVersion()).left(2);
        QCOMPARE(sameMajor, !otherQt);
        auto witness = scene.attach();

        QVERIFY(stopCheck(scene, *witness, stop));
        // Nothing happens while a whole check for another host runs.
        const HostAndServer other;
        UpdaterProcess check;
        other.start(check);
        QVERIFY(check.waitForEnd());
        QCOMPARE(other.host->dump().toHex(' '),
                 HostProcess::reported("2.1", false, segmentSize).toHex(' '));
        QVERIFY(scene.updater.isRunning());
        QCOMPARE(scene.host->waiting(), 1);
        QCOMPARE(scene.host->dump(), HostProcess::untouched(segmentSize));

        QVERIFY(scene.host->unlock());
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.updater.output(), QByteArray());
        QCOMPARE(scene.host->dump().toHex(' '),
                 HostProcess::reported("2.1", false, segmentSize).toHex(' '));
        QCOMPARE(attachedTo(*scene.host), 2);
        QVERIFY2(scene.host->lock() && scene.host->unlock(), "the lock is still taken");
    }

    /// As a user may do who does not want to wait.
    void killedUpdaterLeavesSegmentAndLock_data()
    {
        QTest::addColumn<Stop>("stop");
        row("while it attaches", Stop::Attaching);
        row("when it is attached", Stop::Attached);
    }

    void killedUpdaterLeavesSegmentAndLock()
    {
        QFETCH(Stop, stop);
        HostAndServer scene;
        const auto witness = scene.attach();
        QVERIFY(stopCheck(scene, *witness, stop));
        scene.updater.kill();
        QVERIFY(scene.updater.waitForEnd());

        QCOMPARE(scene.host->waiting(), 0);
        QCOMPARE(attachedTo(*scene.host), 2);
        QVERIFY(scene.host->unlock());
        QCOMPARE(scene.host->dump(), HostProcess::untouched(segmentSize));
        UpdaterProcess next;
        scene.start(next);
        QVERIFY(next.waitForEnd());
        QCOMPARE(next.exitStatus(), 0);
        QCOMPARE(scene.host->dump().toHex(' '),
                 HostProcess::reported("2.1", false, segmentSize).toHex(' '));
    }

    // ---- Two checks

    void twoChecksAtOnceLeaveOneWholeReport_data()
    {
        QTest::addColumn<int>("number");
        for (int number = 1; number <= 10; ++number)
            row(QString::number(number), number);
    }

    void twoChecksAtOnceLeaveOneWholeReport()
    {
        QFETCH(int, number);
        // Large: the two would not write at the same time by luck alone.
        constexpr int large = 4 << 20;
        QList<QByteArray> versions{"2.1", "10.20.30-candidate"};
        if (number % 2 == 0)
            versions.swapItemsAt(0, 1);
        HostAndServer scene(QString(), large);
        UpdaterProcess second;
        QVERIFY(scene.host->lock());
        scene.start(scene.updater, versions[0]);
        QVERIFY(waitForWaiting(*scene.host, 1));
        scene.start(second, versions[1]);
        QVERIFY(waitForWaiting(*scene.host, 2));
        QVERIFY(scene.host->unlock());

        for (UpdaterProcess* process : {&scene.updater, &second}) {
            QVERIFY(process->waitForEnd());
            QCOMPARE(process->exitStatus(), 0);
            QCOMPARE(process->output(), QByteArray());
        }
        const QByteArray found = scene.host->dump();
        QVERIFY2(found == HostProcess::reported(versions[0], false, large) ||
                     found == HostProcess::reported(versions[1], false, large),
                 found.left(64).toHex(' ').constData());
        QCOMPARE(scene.host->waiting(), 0);
        QCOMPARE(attachedTo(*scene.host), 1);
        QVERIFY2(scene.host->lock() && scene.host->unlock(), "the lock is still taken");
    }

    void hostThatQuitsLeavesTwoChecksNothingToWaitFor()
    {
        HostAndServer scene;
        UpdaterProcess second;
        QVERIFY(scene.host->lock());
        scene.start(scene.updater);
        scene.start(second);
        QVERIFY(waitForWaiting(*scene.host, 2));
        QVERIFY(scene.host->quit());
        for (UpdaterProcess* process : {&scene.updater, &second}) {
            QVERIFY(process->waitForEnd());
            QCOMPARE(process->exitStatus(), 0);
        }
        QVERIFY(!HostProcess::segmentExists(scene.host->key()));
    }
};

UPDATER_TEST_MAIN_IN(PrivateIpcEnvironment, TestSharedMemoryFaults)
#include "tst_sharedmemoryfaults.moc"
