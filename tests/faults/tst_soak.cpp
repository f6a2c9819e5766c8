// Two hundred checks and updates by the real executable, two at a time: each ends as it must, and
// nothing accumulates in the system, the temporary directory or the server.

#include "tests/support/ChangelogFile.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Processes.h"
#include "tests/support/Scene.h"
#include "tests/support/SystemIpc.h"

#include <algorithm>
#include <memory>
#include <vector>

#include <sys/stat.h>
#include <sys/wait.h>

#ifdef __linux__
#include <sys/prctl.h>
#endif

namespace {

constexpr int runCount = 200;
constexpr int atATime = 2;
const char* const dataName = "Contents/Resources/data.bin";

/// What a run is for, and what is installed when it begins.
enum Kind { Check, UpdateOfNothing, UpdateOfOldFiles, UpdateOfCompleteFiles, UpToDate, KindCount };

/// What all runs have in common.
struct Publisher
{
    Publisher() : nginx(root.path())
    {
        program.letEnd();
        release::lay(tree, dir / "release");
        files::write(dir / "CHANGES.txt", "News");
        release::describe(dir / "release", "Editor", "2.0", {"--changelog", dir / "CHANGES.txt"});
    }

    const TestDir dir;
    const TestDir root; ///< Every run has a path of its own there, so that its requests are known.
    const RelaunchedProgram program;
    const Tree tree{{"Contents/Info.txt", "about the bundle"},
                    {Scene::exeName, program.script("Editor 2.0")},
                    {"Contents/Resources/Editor.icns", "icon"},
                    {dataName, QByteArray(50000, 'n')},
                    {"readme.txt", ""}};
    const Nginx nginx;
};

/// One run, with a temporary directory and an installation of its own.
class SoakRun : public Scene
{
public:
    SoakRun(const Publisher& publisher, int number)
        : Scene(publisher.dir / "release")
        , m_publisher(publisher)
        , m_kind(static_cast<Kind>(number % KindCount))
        , m_id(QStringLiteral("run%1").arg(number))
    {
        files::link(publisher.dir / "release", publisher.root / m_id);
        published = publisher.tree;
        install(treeToInstall());
        if (m_kind == UpToDate)
            installedVersion = "2.0";
        if (m_kind != UpdateOfNothing)
            exe = installedPath(exeName);
        // An update need not have a host that wants to know.
        if (m_kind == Check || number / KindCount % 2 == 1)
            m_host = startHost();
    }

    void start()
    {
        QStringList options = updateOptions(m_publisher.nginx.url('/' + m_id + "/index.txt"));
        if (m_kind == Check)
            options.replace(options.indexOf("-u"), "-c");
        if (m_host)
            options << "-s" << m_host->key();
        updater.start(options);
    }

    bool isRunning() const { return updater.isRunning(); }

    /// Looks at the report and lets the processes go.
    void finish()
    {
        expect(updater.exitStatus() == 0, "exit status");
        expect(updater.output().isEmpty(), "output");
        if (m_host) {
            expect(m_host->dump() == HostProcess::reported("2.0"), "report");
            expect(m_host->quit(), "end of the host");
        }
        m_host.reset();
    }

    /// What was not as it must be, after finish().
    QStringList problems()
    {
        QStringList left{"keep", changelogFileName("2.0")};
        if (m_kind == UpdateOfCompleteFiles)
            left.append("wUpEditor2.0/"); // It stays when there was nothing to move out of it.
        expect(files::list(tmpDir) == left, files::list(tmpDir).join(' '));
        Tree expected = installed;
        if (updates()) {
            for (auto file = published.begin(); file != published.end(); ++file)
                expected[file.key()] = file.value();
        }
        expect(differencesFrom(expected).isEmpty(), differencesFrom(expected));
        return m_problems;
    }

    /// The requests that it must have made.
    QStringList requests() const
    {
        const QStringList paths = wantedPaths('/' + m_id);
        return updates() ? paths : QStringList{paths.first()};
    }

    /// The starts of a program that it must have made.
    QStringList starts() const
    {
        return updates() ? QStringList{startOf("Editor 2.0")} : QStringList();
    }

private:
    /// Whether it downloads and starts anything.
    bool updates() const { return m_kind != Check && m_kind != UpToDate; }

    Tree treeToInstall() const
    {
        if (m_kind == Check || m_kind == UpdateOfNothing)
            return {};
        Tree tree = published;
        if (m_kind != UpdateOfCompleteFiles) {
            tree[exeName] = m_publisher.program.script("Editor 1.0");
            tree[dataName].chop(1);
            tree["dropped.txt"] = "no longer part of a release";
        }
        return tree;
    }

    void expect(bool condition, const QString& what)
    {
        if (!condition)
            m_problems.append(QStringLiteral("%1, of kind %2: %3").arg(m_id).arg(m_kind).arg(what));
    }

    const Publisher& m_publisher;
    const Kind m_kind;
    const QString m_id;
    std::unique_ptr<HostProcess> m_host;
    QStringList m_problems;
};

/// Makes this process the parent of all those below it that lose theirs.
bool adoptOrphans()
{
#ifdef __linux__
    return ::prctl(PR_SET_CHILD_SUBREAPER, 1) == 0;
#else
    return false;
#endif
}

/// Sorted, because runs that go on at the same time mix their lines.
QStringList sorted(QStringList lines)
{
    lines.sort();
    return lines;
}

} // namespace

class TestSoak : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    /// All the runs.
    void initTestCase()
    {
        NEEDS_NGINX();
        ::umask(022);
        m_orphansAreOurs = adoptOrphans();
        m_publisher = std::make_unique<Publisher>();
        std::vector<SoakRun*> running;
        while (m_runs.size() < runCount || !running.empty()) {
            while (m_runs.size() < runCount && running.size() < atATime) {
                m_runs.push_back(
                    std::make_unique<SoakRun>(*m_publisher, static_cast<int>(m_runs.size())));
                running.push_back(m_runs.back().get());
                running.back()->start();
            }
            std::vector<SoakRun*>::iterator ended;
            QVERIFY(QTest::qWaitFor(
                [&] {
                    ended = std::find_if(running.begin(), running.end(),
                                         [](const SoakRun* run) { return !run->isRunning(); });
                    return ended != running.end();
                },
                60000));
            (*ended)->finish();
            running.erase(ended);
        }
    }

    void everyProgramIsStartedOnce()
    {
        QStringList expected;
        for (const auto& run : m_runs)
            expected += run->starts();
        QCOMPARE(expected.size(), runCount / KindCount * 3);
        QTRY_COMPARE_WITH_TIMEOUT(m_publisher->program.ends().size(), expected.size(), 30000);
        QCOMPARE(sorted(m_publisher->program.starts()), sorted(expected));
    }

    void noProcessIsLeft()
    {
        if (!m_orphansAreOurs)
            QSKIP("orphans go elsewhere");
        // Only the started programs: as orphans they became children of this process.
        int ended = 0;
        const auto onlyNginxIsLeft = [&] {
            QList<qint64> children = processes::children();
            children.removeOne(m_publisher->nginx.pid());
            for (const qint64 child : children)
                ended += ::waitpid(static_cast<pid_t>(child), nullptr, WNOHANG) > 0 ? 1 : 0;
            return children.isEmpty();
        };
        QVERIFY2(QTest::qWaitFor(onlyNginxIsLeft, 30000),
                 qPrintable(processes::mentioning(QDir::tempPath()).join('\n')));
        QCOMPARE(ended, runCount / KindCount * 3);
    }

    void everyRunDoesItsWork()
    {
        QStringList problems;
        for (const auto& run : m_runs)
            problems += run->problems();
        QCOMPARE(problems, QStringList());
    }

    void serverIsAskedForWhatIsNeeded()
    {
        QStringList expected;
        for (const auto& run : m_runs)
            expected += run->requests();
        const QStringList requests = m_publisher->nginx.requests();
        QCOMPARE(requests.size(), runCount + runCount / KindCount * 7);
        QCOMPARE(sorted(requests), sorted(expected));
    }

    void noSegmentAndNoSemaphoreIsLeft()
    {
        if (!systemipc::inOwnNamespace())
            QSKIP("cannot distinguish segments and semaphores of others from ours here");
        QCOMPARE(systemipc::everything(), QStringList());
    }

    void noTemporaryFileIsLeft()
    {
        m_runs.clear();
        m_publisher.reset();
        QCOMPARE(files::list(QDir::tempPath()), QStringList());
    }

private:
    bool m_orphansAreOurs = false;
    std::unique_ptr<Publisher> m_publisher;
    std::vector<std::unique_ptr<SoakRun>> m_runs;
};

UPDATER_TEST_MAIN_IN(PrivateIpcEnvironment, TestSoak)
#include "tst_soak.moc"
