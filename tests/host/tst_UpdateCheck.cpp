// The host kit: every way a check can end. Most updaters here are scripts; some tests need the real
// one.

#include <UpdaterHost/UpdateCheck.h>

#include "tests/host/EditorHost.h"
#include "tests/support/ChangelogFile.h"
#include "tests/support/FakeProgram.h"
#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Messages.h"
#include "tests/support/Needs.h"
#include "tests/support/Processes.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/SystemIpc.h"

#include <QFileInfo>
#include <QThread>

#include <sys/ipc.h>
#include <sys/sem.h>
#include <sys/shm.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <memory>
#include <utility>

#ifdef __GLIBC__
#include <dlfcn.h>
#endif

// System functions that Qt calls for a segment. They replace those of the GNU C library and call
// them, unless a test wants them to fail.

namespace {

/// How often a segment gets a wrong number, and which one; -1 is an error.
int wrongNumbers = 0;
key_t wrongNumber = -1;

/// How often a lock is refused.
int refusedLocks = 0;

#ifdef __GLIBC__
constexpr bool failuresCanBeMade = true;
#else
constexpr bool failuresCanBeMade = false;
#endif
const char* const noFailures = "the system's functions are called directly here";

} // namespace

#ifdef __GLIBC__

extern "C" key_t ftok(const char* path, int id) noexcept
{
    static const auto original = reinterpret_cast<decltype(&::ftok)>(::dlsym(RTLD_NEXT, "ftok"));
    if (wrongNumbers == 0 || std::strstr(path, "/qipc_sharedmemory_") == nullptr)
        return original(path, id);
    --wrongNumbers;
    return wrongNumber;
}

extern "C" int semop(int semaphore, sembuf* operations, size_t count) noexcept
{
    static const auto original = reinterpret_cast<decltype(&::semop)>(::dlsym(RTLD_NEXT, "semop"));
    if (refusedLocks == 0)
        return original(semaphore, operations, count);
    --refusedLocks;
    errno = ENOSPC;
    return -1;
}

#endif

namespace {

constexpr int patience = 30000;
constexpr int segmentSize = 256;

/// A shell script in place of the updater.
class FakeUpdater : public FakeProgram
{
public:
    using FakeProgram::FakeProgram;

    HostInfo host(const QString& version = "1.0") const { return editorInfo(path(), version); }
};

/// The key of the segment, for the commands of a FakeUpdater: the last argument of a check.
const QByteArray key = "\"$9\"";

/// Commands that attach a host to the segment and give it the command lines @p lines.
QByteArray withSegment(const QByteArray& lines)
{
    return "printf '" + lines + "quit\\n' | '" SHM_HOST_EXECUTABLE "' " + key;
}

/// Commands that write @p bytes to the start of the segment.
QByteArray reporting(const QByteArray& bytes)
{
    return withSegment("write " + bytes.toHex() + "\\n") + " >/dev/null\n";
}

QByteArray report(const QByteArray& version, bool required = false)
{
    return HostProcess::reported(version, required, segmentSize);
}

/// Commands that write the key to the file "key", in one step.
const QByteArray writingKey = "echo " + key + " >\"$dir/part\"; mv \"$dir/part\" \"$dir/key\"\n";

/// Commands that wait until there is a file "go". They give up when the test has ended.
const QByteArray waiting = "while [ ! -e \"$dir/go\" ] && [ -d \"$dir\" ]; do sleep 0.02; done\n";

const QByteArray hanging = "exec sleep 600\n";

/// Starts an update of @p baseDir.
/// @return What @p updater gets as the base directory: the link to it.
QString linkTo(const QString& baseDir, const FakeUpdater& updater)
{
    HostInfo info = updater.host();
    info.baseDir = baseDir;
    return UpdateCheck(info).startUpdate() ? updater.arguments().value(4) : QString();
}

/// A segment of another program, which is attached to it.
class OtherSegment
{
public:
    /// Makes it under the number that the system derives from @p file.
    explicit OtherSegment(const QString& file)
        : number(::ftok(QFile::encodeName(file).constData(), 'Q'))
        , m_segment(::shmget(number, segmentSize, IPC_CREAT | IPC_EXCL | 0600))
        , m_address(::shmat(m_segment, nullptr, 0))
    {
    }

    ~OtherSegment()
    {
        ::shmdt(m_address);
        ::shmctl(m_segment, IPC_RMID, nullptr);
    }
    Q_DISABLE_COPY(OtherSegment)

    bool exists() const { return m_segment >= 0 && ::shmget(number, 0, 0) == m_segment; }

    const key_t number;

private:
    const int m_segment;
    const void* const m_address;
};

/// A check in a thread of its own, which may wait for a lock.
class CheckInThread
{
public:
    explicit CheckInThread(const HostInfo& info) : m_check(info), m_reported(m_check)
    {
        m_check.moveToThread(&m_thread);
        QObject::connect(&m_thread, &QThread::started, &m_check, [this] { m_check.start(); });
        m_thread.start();
    }

    ~CheckInThread()
    {
        m_thread.quit();
        m_thread.wait();
    }
    Q_DISABLE_COPY(CheckInThread)

    const QStringList& reported() const { return m_reported.lines; }

private:
    QThread m_thread;
    UpdateCheck m_check;
    Reported m_reported;
};

} // namespace

class TestUpdateCheck : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// No test leaves files or segments.
    void cleanup()
    {
        QCOMPARE(files::list(QDir::tempPath()), QStringList());
        if (systemipc::inOwnNamespace())
            QCOMPARE(systemipc::everything(), QStringList());
    }

    // ---- The report

    void reportIsRead_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QByteArray>("bytes"); // Of the segment; zeros follow.
        QTest::addColumn<QString>("expected");
        row("another version", "1.0", report("2.0"), "found 2.0 optional ");
        row("required", "1.0", report("2.0", true), "found 2.0 required ");
        row("another flag", "1.0", QByteArray("2.0\0x", 5), "found 2.0 optional ");
        row("older version", "3.0", report("2.0"), "found 2.0 optional ");
        row("same version", "2.0", report("2.0", true), "up to date");
        row("same version in another case", "2.0-BETA", report("2.0-beta"), "up to date");
        row("longer by a space", "2.0", report("2.0 "), "found 2.0  optional ");
        row("not ASCII", "1.0", report("2.0\xE4"),
            QString::fromUtf8("found 2.0\xC3\xA4 optional "));
        row("not ASCII, same version in another case", QString::fromUtf8("2.0\xC3\x84"),
            report("2.0\xE4"), "up to date");
        row("same version, published as UTF-8", QString::fromUtf8("2.0\xC3\xA4"),
            report("2.0\xC3\xA4"), QString::fromUtf8("found 2.0\xC3\x83\xC2\xA4 optional "));
        row("nothing written", "1.0", QByteArray(), unreadable);
        row("empty version", "1.0", report(""), unreadable);
        row("empty version, required", "1.0", report("", true), unreadable);
        row("longest version", "1.0", report(QByteArray(253, 'v'), true),
            "found " + QString(253, 'v') + " required ");
        row("no room for the flag", "1.0", QByteArray(255, 'v') + '\0', unreadable);
        row("without an end", "1.0", QByteArray(256, 'v'), unreadable);
    }

    void reportIsRead()
    {
        QFETCH(QString, installed);
        QFETCH(QByteArray, bytes);
        QFETCH(QString, expected);
        const FakeUpdater updater(reporting(bytes));
        const Messages messages;
        QCOMPARE(outcome(updater.host(installed)), QStringList{expected});
        // Qt warns when a lock is not released.
        QCOMPARE(messages.all().size(), 0);
    }

    void segmentIsZeroedBeforeTheCheck()
    {
        const FakeUpdater updater(withSegment("dump\\n") + " >\"$dir/dump\"\n");
        QCOMPARE(outcome(updater.host()), QStringList{unreadable});
        QCOMPARE(files::read(updater / "dump").split('\n').value(1),
                 QByteArray(2 * segmentSize, '0'));
    }

    void reportIsReadUnderTheLock()
    {
        const FakeUpdater updater(writingKey + waiting);
        const CheckInThread check(updater.host());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(updater / "key"), patience);
        HostProcess other(
            HostProcess::Key{QString::fromUtf8(files::read(updater / "key")).trimmed()});
        QVERIFY(other.lock());
        files::write(updater / "go", "");
        // The updater has ended, without a report; the host waits to read one.
        QTRY_COMPARE_WITH_TIMEOUT(other.waiting(), 1, patience);
        QCOMPARE(check.reported(), QStringList());

        QVERIFY(other.write(report("2.0", true)));
        QVERIFY(other.unlock());
        QTRY_COMPARE_WITH_TIMEOUT(check.reported(), QStringList{"found 2.0 required "}, patience);
        QVERIFY2(other.lock() && other.unlock(), "the lock is still taken");
    }

    void reportWithoutTheLockIsNotRead()
    {
        if (!failuresCanBeMade)
            QSKIP(noFailures);
        const FakeUpdater updater(reporting(report("2.0")));
        UpdateCheck check(updater.host());
        const Reported reported(check);
        QVERIFY(check.start());
        refusedLocks = 1; // The segment is made: the next lock is for the report.
        QTRY_COMPARE_WITH_TIMEOUT(reported.lines, QStringList{unreadable}, patience);
        QCOMPARE(refusedLocks, 0);
    }

    void updaterIsGivenWhatToCheck()
    {
        const FakeUpdater updater(recordingArguments);
        HostInfo info = updater.host("1.0 beta");
        info.name = "Text Editor";
        QCOMPARE(outcome(info), QStringList{unreadable});
        QStringList arguments = updater.arguments();
        QVERIFY(!arguments.takeLast().isEmpty());
        QCOMPARE(arguments,
                 QStringList({"-c", "-n", "Text Editor", "-v", "1.0 beta", "-l", info.url, "-s"}));
    }

    // ---- The changelog

    void changelogIsTaken_data()
    {
        QTest::addColumn<QByteArray>("version"); // As published.
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("expected");
        row("text", QByteArray("2.0"), QByteArray("News\nMore\n").toBase64(),
            "found 2.0 optional News\nMore\n");
        row("not ASCII", QByteArray("2.0"),
            QByteArray("\xC3\xA4 \xE6\x97\xA5 \xF0\x9F\x9A\x80").toBase64(),
            QString::fromUtf8("found 2.0 optional \xC3\xA4 \xE6\x97\xA5 \xF0\x9F\x9A\x80"));
        row("empty file", QByteArray("2.0"), QByteArray(""), "found 2.0 optional ");
        row("version with spaces around", QByteArray(" 2.0 "), QByteArray("News").toBase64(),
            "found  2.0  optional News");
        row("up to date", QByteArray("1.0"), QByteArray("News").toBase64(), "up to date");
    }

    void changelogIsTaken()
    {
        QFETCH(QByteArray, version);
        QFETCH(QByteArray, contents);
        QFETCH(QString, expected);
        const FakeUpdater updater(reporting(report(version)));
        files::write(changelogFile(version.trimmed()), contents);
        QCOMPARE(outcome(updater.host()), QStringList{expected});
        QVERIFY(!QFile::exists(changelogFile(version.trimmed())));
    }

    void withoutAChangelogThereIsNone()
    {
        const FakeUpdater updater(reporting(report("2.0")));
        QCOMPARE(outcome(updater.host()), QStringList{"found 2.0 optional "});
    }

    /// The published version must not decide which file is read and removed.
    void versionNamesNoFileInAnotherDirectory()
    {
        const FakeUpdater updater(reporting(report("a/../2.0")));
        const QString dir = QDir(QDir::tempPath()).filePath("velmora_cl_a");
        files::makeDirectory(dir);
        const QString file = QDir(QDir::tempPath()).filePath("2.0.dat");
        files::write(file, QByteArray("private").toBase64());
        const QStringList reported = outcome(updater.host());
        const bool stays = QFile::remove(file);
        QDir().rmdir(dir);
        QCOMPARE(reported, QStringList{"found a/../2.0 optional "});
        QVERIFY(stays);
    }

    void changelogComesFromTheRealUpdater()
    {
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok(versionFile("2.0", true, "\xC3\xA4\n")));
        QCOMPARE(outcome(editorInfo(UPDATER_EXECUTABLE, "1.0", server.url("/index.txt"))),
                 QStringList{QString::fromUtf8("found 2.0 required \xC3\xA4\n")});
    }

    // ---- Updaters that fail

    void updaterThatFails_data()
    {
        QTest::addColumn<QByteArray>("commands");
        QTest::addColumn<QString>("expected");
        const QByteArray found = reporting(report("2.0"));
        row("exit status 1", found + "exit 1", "failed: The check did not finish.");
        row("crash", found + "kill -KILL $$", "failed: The check did not finish.");
    }

    void updaterThatFails()
    {
        QFETCH(QByteArray, commands);
        QFETCH(QString, expected);
        const FakeUpdater updater(commands);
        QCOMPARE(outcome(updater.host()), QStringList{expected});
    }

    void updaterThatDoesNotStart_data()
    {
        QTest::addColumn<QString>("path");
        row("missing", "/nowhere/updater");
        row("directory", "/");
        row("no path", "");
    }

    void updaterThatDoesNotStart()
    {
        QFETCH(QString, path);
        HostInfo info;
        info.updater = path;
        UpdateCheck check(info);
        QCOMPARE(outcome(check), QStringList{"failed: The updater does not start."});
        QVERIFY(!check.isRunning());
        QCOMPARE(outcome(check), QStringList{"failed: The updater does not start."});
        QVERIFY(!check.startUpdate());
    }

    void updaterGetsThePermissionToRun_data()
    {
        QTest::addColumn<uint>("before");
        QTest::addColumn<uint>("after");
        row("as an update leaves it", 0644U, 0755U);
        row("private", 0600U, 0711U);
        row("has it", 0700U, 0700U);
    }

    void updaterGetsThePermissionToRun()
    {
        QFETCH(uint, before);
        QFETCH(uint, after);
        const FakeUpdater updater(reporting(report("2.0")));
        files::setMode(updater.path(), before);
        QCOMPARE(outcome(updater.host()), QStringList{"found 2.0 optional "});
        QCOMPARE(files::mode(updater.path()), after);
    }

    void whatIsNoFileKeepsItsPermissions()
    {
        const TestDir dir;
        const HostInfo info = editorInfo(dir / "pipe");
        QCOMPARE(mkfifo(QFile::encodeName(info.updater).constData(), 0644), 0);
        files::setMode(info.updater, 0644);
        QCOMPARE(outcome(info), QStringList{"failed: The updater does not start."});
        QCOMPARE(files::mode(info.updater), 0644U);
    }

    void segmentThatCannotBeMadeIsReported()
    {
        const FakeUpdater updater(writingKey);
        QStringList reported;
        {
            const TestDir locked;
            const ScopedMode mode(locked.path(), 0500);
            ENFORCE_PERMISSIONS();
            const ScopedTmpDir tmp(locked.path());
            reported = outcome(updater.host());
        }
        QCOMPARE(reported.size(), 1);
        QVERIFY2(reported.first().startsWith("failed: QSharedMemory"),
                 qPrintable(reported.first()));
        QVERIFY(!QFile::exists(updater / "key"));
    }

    void nextKeyWillDoWhenOneIsTaken_data()
    {
        QTest::addColumn<int>("failures");
        QTest::addColumn<bool>("taken");       // Else the system has no number for the key.
        QTest::addColumn<QString>("expected"); // Its start.
        const QString found = "found 2.0 optional ";
        const QString failed = "failed: QSharedMemory::";
        row("one is taken", 1, true, found);
        row("four are taken", 4, true, found);
        row("five are taken", 5, true, failed + "create: already exists");
        row("another error", 1, false, failed + "handle:");
    }

    void nextKeyWillDoWhenOneIsTaken()
    {
        if (!failuresCanBeMade)
            QSKIP(noFailures);
        QFETCH(int, failures);
        QFETCH(bool, taken);
        QFETCH(QString, expected);
        const FakeUpdater updater(reporting(report("2.0")));
        const OtherSegment other(updater.path());
        QVERIFY(other.exists());
        wrongNumber = taken ? other.number : -1;
        wrongNumbers = failures;
        const QStringList reported = outcome(updater.host());
        const int left = std::exchange(wrongNumbers, 0);
        // Qt does not remove the file of a key that is taken.
        const QStringList keyFiles = QDir::temp().entryList({"qipc_sharedmemory_*"}, QDir::Files);
        for (const QString& file : keyFiles)
            QFile::remove(QDir::temp().filePath(file));
        QCOMPARE(reported.size(), 1);
        QVERIFY2(reported.first().startsWith(expected), qPrintable(reported.first()));
        QVERIFY(other.exists());
        QCOMPARE(left, 0);
    }

    // ---- The time limit

    void updaterThatHangsIsEnded()
    {
        const FakeUpdater updater(hanging);
        UpdateCheck check(updater.host());
        check.setTimeLimit(100);
        QCOMPARE(outcome(check), QStringList{"failed: The check took too long."});
        if (QFileInfo::exists("/proc/self"))
            QCOMPARE(processes::children(), QList<qint64>());

        // The next check starts from the beginning.
        check.setTimeLimit(patience);
        updater.become("exit 1");
        QCOMPARE(outcome(check), QStringList{"failed: The check did not finish."});
        updater.become(reporting(report("2.0")));
        QCOMPARE(outcome(check), QStringList{"found 2.0 optional "});
    }

    void updaterThatWaitsForASilentServerIsEnded()
    {
        HttpServer server;
        server.serve("/index.txt", HttpReply::hold(HttpReply::ok("")));
        UpdateCheck check(editorInfo(UPDATER_EXECUTABLE, "1.0", server.url("/index.txt")));
        const Reported reported(check);
        QVERIFY(check.start());
        QTRY_COMPARE_WITH_TIMEOUT(server.requestsFor("/index.txt"), 1, patience);
        check.setTimeLimit(1);
        QTRY_COMPARE_WITH_TIMEOUT(reported.lines, QStringList{"failed: The check took too long."},
                                  patience);
        if (QFileInfo::exists("/proc/self"))
            QCOMPARE(processes::children(), QList<qint64>());
    }

    void timeLimitIsHalfAMinuteUnlessSet()
    {
        UpdateCheck check(HostInfo{});
        QCOMPARE(check.timeLimit(), 30000);
        check.setTimeLimit(5000);
        QCOMPARE(check.timeLimit(), 5000);
    }

    // ---- What the host accepts

    void hostRefusesVersions_data()
    {
        QTest::addColumn<QByteArray>("published");
        QTest::addColumn<bool>("accepts");
        QTest::addColumn<QStringList>("asked");
        QTest::addColumn<QString>("expected");
        row("accepted", QByteArray("2.0"), true, QStringList{"2.0"}, "found 2.0 required News");
        row("refused", QByteArray("0.9"), false, QStringList{"0.9"},
            "failed: Version 0.9 is not accepted.");
        row("installed", QByteArray("1.0"), false, QStringList(), "up to date");
        row("unreadable", QByteArray(), true, QStringList(), unreadable);
    }

    void hostRefusesVersions()
    {
        QFETCH(QByteArray, published);
        QFETCH(bool, accepts);
        QFETCH(QStringList, asked);
        QFETCH(QString, expected);
        const FakeUpdater updater(reporting(report(published, true)));
        if (!published.isEmpty())
            files::write(changelogFile(published), QByteArray("News").toBase64());
        QStringList askedFor;
        UpdateCheck check(updater.host());
        check.setAccepts([&](const QString& version) {
            askedFor.append(version);
            return accepts;
        });
        QCOMPARE(outcome(check), QStringList{expected});
        QCOMPARE(askedFor, asked);
    }

    // ---- One check after the other, and several at once

    void secondStartDoesNotDisturbTheFirst()
    {
        const FakeUpdater updater("echo >>\"$dir/starts\"\n" + writingKey + waiting +
                                  reporting(report("2.0")));
        UpdateCheck check(updater.host());
        const Reported reported(check);
        QVERIFY(!check.isRunning());
        QVERIFY(check.start());
        QVERIFY(check.isRunning());
        QVERIFY(!check.start());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(updater / "key"), patience);
        QVERIFY(!check.start());
        files::write(updater / "go", "");
        QTRY_COMPARE_WITH_TIMEOUT(reported.lines, QStringList{"found 2.0 optional "}, patience);
        QVERIFY(!check.isRunning());
        QCOMPARE(files::read(updater / "starts"), QByteArray("\n"));
    }

    void checkIsOverWhenItsResultIsReported_data()
    {
        QTest::addColumn<QByteArray>("published");
        row("found", QByteArray("2.0"));
        row("up to date", QByteArray("1.0"));
        row("failed", QByteArray());
    }

    void checkIsOverWhenItsResultIsReported()
    {
        QFETCH(QByteArray, published);
        const FakeUpdater updater(reporting(report(published)));
        UpdateCheck check(updater.host());
        QList<bool> startedAgain;
        const auto again = [&] {
            if (startedAgain.isEmpty())
                startedAgain.append(check.start());
        };
        connect(&check, &UpdateCheck::versionFound, &check, again);
        connect(&check, &UpdateCheck::upToDate, &check, again);
        connect(&check, &UpdateCheck::failed, &check, again);
        const Reported reported(check);
        QVERIFY(check.start());
        QTRY_COMPARE_WITH_TIMEOUT(reported.lines.size(), 2, patience);
        QCOMPARE(startedAgain, QList<bool>{true});
        QCOMPARE(reported.lines.first(), reported.lines.last());
    }

    void checkMayBeDeletedByWhoHearsTheResult_data()
    {
        QTest::addColumn<QByteArray>("commands");
        row("found", reporting(report("2.0")));
        row("up to date", reporting(report("1.0")));
        row("failed", QByteArray("exit 1"));
    }

    void checkMayBeDeletedByWhoHearsTheResult()
    {
        QFETCH(QByteArray, commands);
        const FakeUpdater updater(commands);
        auto check = std::make_unique<UpdateCheck>(updater.host());
        const auto remove = [&] {
            check.reset();
        };
        connect(check.get(), &UpdateCheck::versionFound, this, remove);
        connect(check.get(), &UpdateCheck::upToDate, this, remove);
        connect(check.get(), &UpdateCheck::failed, this, remove);
        QVERIFY(check->start());
        QTRY_VERIFY_WITH_TIMEOUT(!check, patience);
    }

    void checksHaveKeysOfTheirOwn()
    {
        const FakeUpdater one(writingKey + waiting + reporting(report("2.0")));
        const FakeUpdater two(writingKey + waiting + reporting(report("3.0")));
        UpdateCheck checkOne(one.host());
        UpdateCheck checkTwo(two.host());
        const Reported reportedOne(checkOne);
        const Reported reportedTwo(checkTwo);
        QVERIFY(checkOne.start());
        QVERIFY(checkTwo.start());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(one / "key") && QFile::exists(two / "key"),
                                 patience);
        const QByteArray firstKey = files::read(one / "key");
        QVERIFY(firstKey != files::read(two / "key"));
        files::write(one / "go", "");
        files::write(two / "go", "");
        QTRY_COMPARE_WITH_TIMEOUT(reportedOne.lines, QStringList{"found 2.0 optional "}, patience);
        QTRY_COMPARE_WITH_TIMEOUT(reportedTwo.lines, QStringList{"found 3.0 optional "}, patience);

        // A late report of the first must not be taken for one of the next.
        QCOMPARE(outcome(checkOne), QStringList{"found 2.0 optional "});
        QVERIFY(firstKey != files::read(one / "key"));
    }

    void segmentGoesWithTheCheck()
    {
        const FakeUpdater updater(writingKey + reporting(report("2.0")));
        UpdateCheck check(updater.host());
        QCOMPARE(outcome(check), QStringList{"found 2.0 optional "});
        QVERIFY(
            !HostProcess::segmentExists(QString::fromUtf8(files::read(updater / "key")).trimmed()));
    }

    void checkThatIsDeletedEndsItsUpdater()
    {
        const FakeUpdater updater(writingKey + hanging);
        auto check = std::make_unique<UpdateCheck>(updater.host());
        const Reported reported(*check);
        QVERIFY(check->start());
        QTRY_VERIFY_WITH_TIMEOUT(QFile::exists(updater / "key"), patience);
        const Messages messages;
        check.reset();
        // Qt warns when the process still runs.
        QCOMPARE(messages.all().size(), 0);
        if (QFileInfo::exists("/proc/self"))
            QCOMPARE(processes::children(), QList<qint64>());
        QCoreApplication::processEvents();
        QCOMPARE(reported.lines, QStringList());
    }

    // ---- The update

    void updateIsStartedAsAProcessOfItsOwn()
    {
        const FakeUpdater updater(waiting + recordingArguments);
        HostInfo info = updater.host();
        info.baseDir = "/nowhere/Text Editor.app";
        {
            const UpdateCheck check(info);
            QVERIFY(check.startUpdate());
        }
        if (QFileInfo::exists("/proc/self"))
            QCOMPARE(processes::children(), QList<qint64>());
        files::write(updater / "go", "");
        QCOMPARE(updater.arguments(), updateArguments(info));
    }

    /// It waits for the host, and takes any path as it is.
    void guardIsStartedWhereThereIsOne()
    {
        const FakeUpdater updater("exit 1\n");
        HostInfo info = updater.host();
        info.baseDir = QString::fromUtf8("/nowhere/j\xC3\xBCrgen/Editor.app");
        const QString guard = updater / "updater-guard";
        files::write(guard, shellScript("dir=${0%/*}\n" + QByteArray(recordingArguments)));
        files::setMode(guard, 0644); // As an update installs it.
        files::setMode(info.updater, 0644);
        QVERIFY(UpdateCheck(info).startUpdate());
        QCOMPARE(updater.arguments(),
                 QStringList({"--name", info.name, "--dir", info.baseDir, "--version-installed",
                              info.version, "--url", info.url, "--exe", info.exe, "--updater",
                              info.updater, "--wait-for",
                              QString::number(QCoreApplication::applicationPid())}));
        QCOMPARE(files::mode(guard), 0755U);
        QCOMPARE(files::mode(info.updater), 0755U);
    }

    void pathsArePassedInAscii_data()
    {
        QTest::addColumn<QString>("baseDir");
        QTest::addColumn<QString>("exe");
        QTest::addColumn<QString>("exePassed");
        const QString app = QString::fromUtf8("/nowhere/j\xC3\xBCrgen/Editor.app");
        row("program in the directory", app, app + "/Contents/MacOS/Editor",
            "@link/Contents/MacOS/Editor");
        row("slash at the end", app + '/', app + "/Contents/MacOS/Editor",
            "@link/Contents/MacOS/Editor");
        row("program written with two slashes", app, app + "//Contents/MacOS/../MacOS/Editor",
            "@link/Contents/MacOS/Editor");
        row("program elsewhere", app, "/nowhere/Editor", "/nowhere/Editor");
        row("program in a directory of a longer name", QString::fromUtf8("/nowhere/\xE6\x97\xA5"),
            QString::fromUtf8("/nowhere/\xE6\x97\xA5-2/Editor"),
            QString::fromUtf8("/nowhere/\xE6\x97\xA5-2/Editor"));
    }

    void pathsArePassedInAscii()
    {
        QFETCH(QString, baseDir);
        QFETCH(QString, exe);
        QFETCH(QString, exePassed);
        const FakeUpdater updater(recordingArguments);
        HostInfo info = updater.host();
        info.baseDir = baseDir;
        info.exe = exe;
        QVERIFY(UpdateCheck(info).startUpdate());
        const QStringList arguments = updater.arguments();
        const QString link = arguments.value(4);
        const QString target = QFile::symLinkTarget(link);
        QFile::remove(link);
        QCOMPARE(target, QDir::cleanPath(baseDir));
        QVERIFY2(link.toUtf8().size() == link.size(), qPrintable(link));
        info.baseDir = link;
        info.exe = exePassed.replace("@link", link);
        QCOMPARE(arguments, updateArguments(info));
    }

    /// Two installations have two links. Another update of the same installation has the same link.
    void linkBelongsToTheDirectory()
    {
        const FakeUpdater updater(recordingArguments);
        const QString one = QString::fromUtf8("/nowhere/\xC3\xA4/Editor.app");
        const QString two = QString::fromUtf8("/nowhere/\xC3\xB6/Editor.app");
        const QString linkOne = linkTo(one, updater);
        const QString linkTwo = linkTo(two, updater);
        const QStringList targets{QFile::symLinkTarget(linkOne), QFile::symLinkTarget(linkTwo)};
        QFile::remove(linkOne);
        files::link("/nowhere/else", linkOne);
        const QString linkAgain = linkTo(one, updater);
        const QString targetAgain = QFile::symLinkTarget(linkAgain);
        QFile::remove(linkOne);
        QFile::remove(linkTwo);
        QCOMPARE(targets, QStringList({one, two}));
        QCOMPARE(linkAgain, linkOne);
        QCOMPARE(targetAgain, one);
    }

    /// Users share the temporary directory. The link of one must not be in the way of another.
    void linkBelongsToTheUser()
    {
        const FakeUpdater updater(recordingArguments);
        const QString baseDir = QString::fromUtf8("/nowhere/\xC3\xA4/Editor.app");
        const QByteArray home = QFile::encodeName(QDir::homePath());
        const QString link = linkTo(baseDir, updater);
        qputenv("HOME", home + "-of-another");
        const QString linkOfAnother = linkTo(baseDir, updater);
        qputenv("HOME", home);
        const QStringList targets{QFile::symLinkTarget(link), QFile::symLinkTarget(linkOfAnother)};
        QFile::remove(link);
        QFile::remove(linkOfAnother);
        QCOMPARE(targets, QStringList({baseDir, baseDir}));
        QVERIFY(link != linkOfAnother);
    }

    void updateWithoutItsLinkIsNotStarted_data()
    {
        QTest::addColumn<QString>("tmp"); // Name of the temporary directory.
        QTest::addColumn<bool>("obstacle");
        row("something is in the way", "tmp", true);
        row("temporary directory is not ASCII", QString::fromUtf8("\xC3\xA4"), false);
    }

    void updateWithoutItsLinkIsNotStarted()
    {
        QFETCH(QString, tmp);
        QFETCH(bool, obstacle);
        const FakeUpdater updater(recordingArguments);
        HostInfo info = updater.host();
        info.baseDir = QString::fromUtf8("/nowhere/\xC3\xA4/Editor.app");
        const TestDir dir;
        files::makeDirectory(dir / tmp);
        const ScopedTmpDir scoped(dir / tmp);
        if (obstacle) {
            QVERIFY(UpdateCheck(info).startUpdate());
            const QString link = updater.arguments().value(4);
            QVERIFY(QFile::remove(link));
            files::makeDirectory(link);
        }
        QVERIFY(!UpdateCheck(info).startUpdate());
    }
};

UPDATER_TEST_MAIN_IN(PrivateIpcEnvironment, TestUpdateCheck)
#include "tst_UpdateCheck.moc"
