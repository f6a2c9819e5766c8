// An update whose process is killed: while it waits for the server, and before each call with which
// it changes a file or a directory. What is then there, and what the next update makes of it.

#include "tests/support/ChangelogFile.h"
#include "tests/support/Needs.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"

#include <QRegularExpression>

#include <csignal>
#include <memory>
#include <sys/stat.h>

namespace {

const QString exeName = "Contents/MacOS/Editor";
const QString iconName = "Contents/Resources/Editor.icns";
const QString newName = "Contents/Resources/new/a.txt";
const QString dataName = "data.bin";

const QString installed = "installed/Editor.app/";
const QString saved = "tmp/wUpEditor2.0/";
const QString changelog = "tmp/" + changelogFileName("2.0");

/// The calls that change files, by the names that they have on different machines.
QString systemCalls(const QString& name)
{
    static const QHash<QString, QString> calls{{"unlink", "?unlink,unlinkat"},
                                               {"mkdir", "?mkdir,mkdirat"},
                                               {"rmdir", "?rmdir,unlinkat"},
                                               {"open", "?open,openat"},
                                               {"write", "write"},
                                               {"rename", "?rename,?renameat,?renameat2"},
                                               {"chmod", "?chmod,fchmodat,fchmod"},
                                               {"semop", "?semop,?semtimedop"},
                                               {"shmdt", "shmdt"}};
    return calls.value(name);
}

/// A call that an update makes. Also what the next update can no longer repair when the process is
/// killed before this call.
struct Step
{
    QString call;
    QString path;
    QString target{};
    QStringList neverRemoved{}; ///< Directories that stay in the temporary directory.
    QString notExecutable{};    ///< An installed file that does not get its permission.
};

/// An update from the installation to the release below, call by call, also those that fail.
const QList<Step>& stepsOfTheUpdate()
{
    static const QString tmp = "tmp/";
    static const QString top = "wUpEditor2.0/";
    static const QStringList macOs{top, top + "Contents/", top + "Contents/MacOS/"};
    static const QStringList resources{top, top + "Contents/", top + "Contents/Resources/"};
    static const QList<Step> steps{
        {"unlink", changelog},
        {"open", changelog},
        {"write", changelog},
        {"mkdir", saved},
        // The downloads.
        {"mkdir", saved + "Contents/MacOS/"},
        {"mkdir", saved + "Contents/"},
        {"mkdir", saved + "Contents/MacOS/"},
        {"open", saved + exeName},
        {"write", saved + exeName},
        {"mkdir", saved + "Contents/Resources/"},
        {"open", saved + iconName},
        {"write", saved + iconName},
        {"mkdir", saved + "Contents/Resources/new/"},
        {"open", saved + newName},
        {"write", saved + newName},
        {"mkdir", saved},
        {"open", saved + dataName},
        {"write", saved + dataName},
        // The installation.
        {"unlink", installed + exeName},
        {"rename", saved + exeName, installed + exeName},
        {"rmdir", saved + "Contents/MacOS/", "", macOs, exeName},
        {"rmdir", saved + "Contents/", "", {}, exeName},
        {"chmod", installed + exeName, "", {}, exeName},
        {"mkdir", installed + "Contents/Resources/"},
        {"rename", saved + iconName, installed + iconName},
        {"chmod", installed + iconName, "", {}, iconName},
        {"rmdir", saved + "Contents/Resources/"},
        {"mkdir", installed + "Contents/Resources/new/"},
        {"rename", saved + newName, installed + newName},
        {"rmdir", saved + "Contents/Resources/new/", "",
         resources + QStringList{top + "Contents/Resources/new/"}},
        {"rmdir", saved + "Contents/Resources/", "", resources},
        {"rmdir", saved + "Contents/", "", {top, top + "Contents/"}},
        {"rmdir", saved},
        {"unlink", installed + dataName},
        {"rename", saved + dataName, installed + dataName},
        {"rmdir", saved, "", {top}},
        {"rmdir", tmp, "", {top}}, // The next update makes it again, and does not need it.
    };
    return steps;
}

/// The step @p call on @p path, the @p occurrence-th of its kind.
int stepNumber(const QString& call, const QString& path, int occurrence = 1)
{
    const QList<Step>& steps = stepsOfTheUpdate();
    for (int number = 0; number < steps.size(); ++number) {
        if (steps.at(number).call == call && steps.at(number).path == path && --occurrence == 0)
            return number;
    }
    qFatal("no such step: %s %s", qPrintable(call), qPrintable(path));
}

/// What a directory holds: permissions and contents by path. The paths of directories end with "/".
struct Node
{
    unsigned mode;
    QByteArray contents;
};
using Nodes = QMap<QString, Node>;

QStringList described(const Nodes& nodes)
{
    QStringList lines;
    for (auto node = nodes.begin(); node != nodes.end(); ++node) {
        const bool isDirectory = node.key().endsWith('/');
        lines.append(isDirectory ? node.key()
                                 : QStringLiteral("%1 %2 %3")
                                       .arg(node.key())
                                       .arg(node->mode, 0, 8)
                                       .arg(files::sha1(node->contents)));
    }
    return lines;
}

Nodes readNodes(const QString& dir)
{
    Nodes nodes;
    for (const QString& name : files::list(dir)) {
        const bool isDirectory = name.endsWith('/');
        nodes.insert(
            name, isDirectory ? Node{0, ""}
                              : Node{files::mode(dir + '/' + name), files::read(dir + '/' + name)});
    }
    return nodes;
}

QString withoutSlash(QString path)
{
    if (path.endsWith('/'))
        path.chop(1);
    return path;
}

QString parentOf(const QString& path)
{
    return path.left(path.lastIndexOf('/', -2) + 1);
}

/// Does to @p nodes what @p step does to a file system. @p written is what a write writes.
void apply(const Step& step, Nodes& nodes, const QByteArray& written)
{
    const bool exists = nodes.contains(step.path);
    if (step.call == "unlink") {
        nodes.remove(step.path);
    } else if (step.call == "mkdir") {
        if (!exists && nodes.contains(parentOf(step.path)))
            nodes.insert(step.path, {0, ""});
    } else if (step.call == "rmdir") {
        const auto next = nodes.upperBound(step.path);
        if (next == nodes.end() || !next.key().startsWith(step.path))
            nodes.remove(step.path);
    } else if (step.call == "open") {
        nodes.insert(step.path, {exists ? nodes[step.path].mode : 0644, ""});
    } else if (step.call == "write") {
        nodes[step.path].contents = written;
    } else if (step.call == "rename") {
        nodes.insert(step.target, nodes.take(step.path));
    } else if (step.call == "chmod") {
        nodes[step.path].mode = 0755;
    }
}

dev_t deviceOf(const QString& path)
{
    struct stat status;
    return ::stat(QFile::encodeName(path).constData(), &status) == 0 ? status.st_dev : 0;
}

/// The command under which a program is traced, or killed.
QStringList straceCommand(const QStringList& options)
{
    return QStringList{"strace", "-qq"} + options;
}

/// The options to kill a program when it makes one of @p calls for the @p occurrence-th time. The
/// call itself is not made any more.
QStringList killAt(const QString& calls, int occurrence)
{
    return {"-o", "/dev/null",
            "-e", "trace=" + calls,
            "-e", QStringLiteral("inject=%1:signal=KILL:when=%2").arg(calls).arg(occurrence)};
}

/// True where strace is there, may trace, and kills before the call.
bool canKillAtCalls()
{
    const TestDir dir;
    UpdaterProcess mkdir;
    mkdir.setProgram("mkdir");
    mkdir.setWrapper(straceCommand(killAt(systemCalls("mkdir"), 1)));
    mkdir.run({dir / "made"});
    return mkdir.endedBySignal() == SIGKILL && !QFile::exists(dir / "made");
}

#define NEEDS_KILLS_AT_CALLS()                                                                     \
    do {                                                                                           \
        static const bool can = canKillAtCalls();                                                  \
        SKIP_UNLESS(can, "strace is missing, or cannot kill here");                                \
    } while (false)

/// The release that all tests update to, served by each test's own server.
class Release
{
public:
    Release()
    {
        program.letEnd(); // A program that was started need not wait for anything.
        describe({{"Contents/Info.txt", "same in both"},
                  {exeName, program.script("Editor 2.0")},
                  {iconName, "icon"},
                  {newName, "new"},
                  {dataName, QByteArray(100000, 'n')}},
                 "2.0");
    }

    void describe(const Tree& newTree, const QString& version)
    {
        tree = newTree;
        QDir(path()).removeRecursively();
        release::lay(tree, path());
        files::write(m_dir / "CHANGES.txt", changes);
        release::describe(path(), "Editor", version, {"--changelog", m_dir / "CHANGES.txt"});
    }

    QString path() const { return m_dir / "release"; }

    static QStringList downloads() { return {exeName, iconName, newName, dataName}; }

    RelaunchedProgram program;
    Tree tree;
    const QByteArray changes = "News";

private:
    const TestDir m_dir;
};

/// An installation of the previous release, and a server that has the one above.
class KilledScene : public ServedScene
{
public:
    explicit KilledScene(const Release& published)
        : ServedScene(published.path()), release(published)
    {
        install({{"Contents/Info.txt", "same in both"},
                 {exeName, release.program.script("Editor 1.0")},
                 {dataName, "old"}});
        exe = installedPath(exeName);
        files::write(dir / changelog, "of an earlier check");
        serve();
    }

    /// Puts the release onto the server as it is now.
    void serve()
    {
        published = release.tree;
        serveFrom(server);
    }

    QStringList options() const { return updateOptions(indexUrl()); }

    /// Runs an update of @p version that nobody kills.
    int update(const QString& version = "1.0")
    {
        installedVersion = version;
        return ServedScene::update();
    }

    /// Runs the updater with @p updaterOptions under strace with @p straceOptions.
    /// @return The signal that has ended it; 0 when none did.
    int runUnderStrace(const QStringList& straceOptions, const QStringList& updaterOptions)
    {
        UpdaterProcess updater;
        updater.setEnvironment("TMPDIR", tmpDir);
        // Leaks cannot be looked for in a process that is traced.
        updater.setEnvironment("ASAN_OPTIONS",
                               QString::fromLocal8Bit(qgetenv("ASAN_OPTIONS")) + ":detect_leaks=0");
        updater.setWrapper(straceCommand(straceOptions));
        updater.run(updaterOptions, 60000);
        return updater.endedBySignal();
    }

    /// Runs an update that is killed before its step @p number.
    int killBefore(int number)
    {
        const QList<Step>& steps = stepsOfTheUpdate();
        const Step& step = steps.at(number);
        int occurrence = 0;
        for (int i = 0; i <= number; ++i)
            occurrence += steps.at(i).call == step.call && steps.at(i).path == step.path;
        return runUnderStrace(QStringList{"-P", withoutSlash(dir / step.path)} +
                                  killAt(systemCalls(step.call), occurrence),
                              options());
    }

    /// What there is before any update, with the first @p steps of one done.
    Nodes expectedAfter(const Nodes& before, int steps) const
    {
        Nodes nodes = before;
        for (int i = 0; i < steps; ++i) {
            const Step& step = stepsOfTheUpdate().at(i);
            apply(step, nodes,
                  step.path == changelog ? release.changes.toBase64()
                                         : release.tree.value(step.path.mid(saved.size())));
        }
        return nodes;
    }

    Nodes nodes() const { return readNodes(dir.path()); }

    /// The files of the installation that are not those of the release.
    QString differences() const { return differencesFrom(release.tree); }

    unsigned mode(const QString& name) const { return files::mode(installedPath(name)); }

    /// The programs started from this installation.
    QStringList starts() const { return release.program.starts().filter(installDir + '/'); }

    /// The requests from number @p first on.
    QStringList requests(int first) const { return server.requests().mid(first); }

    const Release& release;
};

/// The calls of the trace @p text that change something in @p dir, each "call path" or "call path
/// target".
QStringList changesIn(const QString& dir, const QString& text)
{
    static const QRegularExpression callPattern("^(\\w+)\\((.*)$");
    static const QRegularExpression pathPattern("\"([^\"]*)\"");
    static const QRegularExpression filePattern("^\\d+<([^>]*)>");
    QStringList changes;
    for (const QString& line : text.split('\n')) {
        const auto call = callPattern.match(line);
        QString name = call.captured(1);
        const QString arguments = call.captured(2);
        if (!call.hasMatch() || (name.startsWith("open") && !arguments.contains("O_CREAT")))
            continue;
        if (name == "unlinkat")
            name = arguments.contains("AT_REMOVEDIR") ? "rmdir" : "unlink";
        name.remove(QRegularExpression("^f(?=chmod)|at2?$|2$"));
        QStringList words{name};
        if (name == "write") {
            words += filePattern.match(arguments).captured(1);
        } else {
            for (auto paths = pathPattern.globalMatch(arguments); paths.hasNext();)
                words += paths.next().captured(1);
        }
        if (words.value(1).startsWith(dir + '/'))
            changes.append(words.join(' ').remove(dir + '/'));
    }
    return changes;
}

} // namespace

class TestKilled : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        ::umask(022); // Permissions are compared.
        m_release = std::make_unique<Release>();
    }

    // ---- While the server is asked

    void killedWhileItWaitsForTheServer_data()
    {
        QTest::addColumn<QString>("held");
        QTest::addColumn<int>("bytes"); // Of the body, that are sent; -1 for no reply at all.
        QTest::addColumn<QStringList>("left");
        const QString top = "wUpEditor2.0/";
        const QString news = changelogFileName("2.0");
        const QStringList one{news, top, top + "Contents/", top + "Contents/MacOS/", top + exeName};
        const QStringList three = one + QStringList{top + "Contents/Resources/", top + iconName,
                                                    top + "Contents/Resources/new/", top + newName};
        row("version file", "index.txt", -1, QStringList{news});
        row("beginning of the version file", "index.txt", 200, QStringList{news});
        row("first file", exeName, -1, QStringList{news, top});
        row("second file", iconName, -1, one);
        row("beginning of the second file", iconName, 2, one);
        row("last file", dataName, -1, three);
        row("beginning of the last file", dataName, 50000, three);
    }

    /// Nothing is installed. What was downloaded stays, and is downloaded once more.
    void killedWhileItWaitsForTheServer()
    {
        QFETCH(QString, held);
        QFETCH(int, bytes);
        QFETCH(QStringList, left);
        KilledScene scene(*m_release);
        const Tree before = release::read(scene.installDir);
        const QByteArray body = files::read(m_release->path() + '/' + held);
        HttpReply reply = HttpReply::ok(body.left(bytes));
        reply.declaredLength = body.size();
        scene.server.serve('/' + held, bytes < 0 ? HttpReply::hold(reply) : reply);

        scene.start();
        QVERIFY(scene.waitForRequests(held));
        QCOMPARE(scene.server.requestsFor('/' + held), 1);
        QCOMPARE(::kill(static_cast<pid_t>(scene.updater.pid()), SIGKILL), 0);
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.endedBySignal(), SIGKILL);

        QCOMPARE(release::read(scene.installDir), before);
        left.sort();
        QCOMPARE(scene.leftBehind(), left);
        for (const QString& name : left) {
            if (name.startsWith("wUp") && !name.endsWith('/'))
                QCOMPARE(files::read(scene.tmpDir + '/' + name),
                         m_release->tree.value(name.mid(13)));
        }

        scene.serve();
        const int asked = static_cast<int>(scene.server.requests().size());
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.requests(asked), requestsFor(Release::downloads()));
        QCOMPARE(scene.differences(), QString());
        QCOMPARE(scene.mode(exeName), 0755U);
        QCOMPARE(scene.mode(iconName), 0755U);
        QCOMPARE(scene.leftBehind(), QStringList{changelogFileName("2.0")});
        QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    // ---- Before each step

    /// The rows of the next test are these and no others.
    void updateTakesTheseSteps()
    {
        NEEDS_KILLS_AT_CALLS();
        KilledScene scene(*m_release);
        const QString trace = scene.dir / "trace";
        const QStringList calls{"unlink", "mkdir", "rmdir", "open", "write", "rename", "chmod"};
        QStringList traced;
        for (const QString& call : calls)
            traced.append(systemCalls(call));
        QCOMPARE(
            scene.runUnderStrace({"-y", "-s", "0", "-o", trace, "-e", "trace=" + traced.join(',')},
                                 scene.options()),
            0);
        QStringList expected;
        for (const Step& step : stepsOfTheUpdate()) {
            const QString line = step.call + ' ' + withoutSlash(step.path);
            expected.append(step.target.isEmpty() ? line : line + ' ' + step.target);
        }
        const QStringList changes =
            changesIn(scene.dir.path(), QString::fromLocal8Bit(files::read(trace)));
        QCOMPARE(changes.join('\n'), expected.join('\n'));
        QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    void killedBeforeAStep_data()
    {
        QTest::addColumn<int>("number");
        int number = 0;
        for (const Step& step : stepsOfTheUpdate()) {
            row(QString("%1: %2 %3").arg(number + 1).arg(step.call, step.path), number);
            ++number;
        }
    }

    void killedBeforeAStep()
    {
        NEEDS_KILLS_AT_CALLS();
        QFETCH(int, number);
        const Step& step = stepsOfTheUpdate().at(number);
        KilledScene scene(*m_release);
        const Nodes before = scene.nodes();

        QCOMPARE(scene.killBefore(number), SIGKILL);
        const Nodes expected = scene.expectedAfter(before, number);
        QCOMPARE(described(scene.nodes()).join('\n'), described(expected).join('\n'));
        QCOMPARE(scene.starts(), QStringList());

        QStringList missing;
        for (const QString& name : Release::downloads()) {
            if (expected.value(installed + name).contents != m_release->tree.value(name))
                missing.append(name);
        }
        const int asked = static_cast<int>(scene.server.requests().size());
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.requests(asked), requestsFor(missing));
        QCOMPARE(scene.differences(), QString());
        QStringList left = step.neverRemoved;
        left.prepend(changelogFileName("2.0"));
        QCOMPARE(scene.leftBehind(), left);
        QCOMPARE(files::read(scene.dir / changelog), m_release->changes.toBase64());
        for (const QString& name : m_release->tree.keys()) {
            const bool executable = name == exeName || name == iconName;
            QCOMPARE(scene.mode(name), executable && name != step.notExecutable ? 0755U : 0644U);
        }
        if (step.notExecutable != exeName)
            QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    // ---- What the next updates cannot repair, and what can

    void executableWithoutPermissionIsNotStarted_data()
    {
        QTest::addColumn<bool>("byHost");
        row("the host sets the permission", true);
        row("a release brings another executable", false);
    }

    void executableWithoutPermissionIsNotStarted()
    {
        NEEDS_KILLS_AT_CALLS();
        QFETCH(bool, byHost);
        Release published;
        KilledScene scene(published);
        QCOMPARE(scene.killBefore(stepNumber("chmod", installed + exeName)), SIGKILL);
        for (int run = 1; run <= 2; ++run) {
            QCOMPARE(scene.update(), 0);
            QCOMPARE(scene.differences(), QString());
            QCOMPARE(scene.mode(exeName), 0644U);
            QCOMPARE(scene.starts(), QStringList());
        }
        if (byHost) {
            files::setMode(scene.installedPath(exeName), 0755);
            QCOMPARE(scene.update(), 0);
            QCOMPARE(scene.server.requestsFor('/' + exeName), 1);
            QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
        } else {
            Tree next = published.tree;
            next[exeName] = published.program.script("Editor 2.1");
            published.describe(next, "2.1");
            scene.serve();
            QCOMPARE(scene.update("2.0"), 0);
            QCOMPARE(scene.mode(exeName), 0755U);
            QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.1")});
        }
    }

    /// With the old file removed and the new one not there yet.
    void updateOfTheVersionPublishedInstallsNothing()
    {
        NEEDS_KILLS_AT_CALLS();
        KilledScene scene(*m_release);
        QCOMPARE(scene.killBefore(stepNumber("rename", saved + dataName)), SIGKILL);
        const QStringList before = described(scene.nodes());
        const int asked = static_cast<int>(scene.server.requests().size());

        QCOMPARE(scene.update("2.0"), 0);
        QCOMPARE(scene.requests(asked), QStringList{"/index.txt"});
        QCOMPARE(described(scene.nodes()), before);
        QCOMPARE(scene.differences(), QString("missing: data.bin"));
        QCOMPARE(scene.starts(), QStringList());

        QCOMPARE(scene.update("1.0"), 0);
        QCOMPARE(scene.differences(), QString());
        QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    void killedThreeTimesOver()
    {
        NEEDS_KILLS_AT_CALLS();
        KilledScene scene(*m_release);
        QCOMPARE(scene.killBefore(stepNumber("write", saved + newName)), SIGKILL);
        QCOMPARE(scene.killBefore(stepNumber("rename", saved + iconName)), SIGKILL);
        QCOMPARE(scene.differences().count('\n') + 1, 3);
        QCOMPARE(scene.killBefore(stepNumber("unlink", installed + dataName)), SIGKILL);
        QCOMPARE(scene.differences(), QString("different: data.bin"));
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.differences(), QString());
        QCOMPARE(scene.mode(exeName), 0755U);
        QCOMPARE(scene.mode(iconName), 0755U);
        QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    // ---- With the temporary directory on another file system

    /// There moving means copying, and the next update replaces an incomplete copy.
    void killedWhileItCopies()
    {
        NEEDS_KILLS_AT_CALLS();
        const QTemporaryDir elsewhere("/dev/shm/tst_killed-XXXXXX");
        KilledScene scene(*m_release);
        if (!elsewhere.isValid() || deviceOf(elsewhere.path()) == deviceOf(scene.dir.path()))
            QSKIP("/dev/shm is no other file system");
        scene.moveTmpDir(elsewhere.path());
        QCOMPARE(scene.runUnderStrace(QStringList{"-P", scene.dir / (installed + dataName)} +
                                          killAt(systemCalls("write"), 2),
                                      scene.options()),
                 SIGKILL);
        const QByteArray whole = m_release->tree.value(dataName);
        const QByteArray part = files::read(scene.dir / (installed + dataName));
        QVERIFY(!part.isEmpty() && part.size() < whole.size() && whole.startsWith(part));
        QCOMPARE(files::read(scene.downloadedPath(dataName)), whole);

        const int asked = static_cast<int>(scene.server.requests().size());
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.requests(asked), requestsFor({dataName}));
        QCOMPARE(scene.differences(), QString());
        QCOMPARE(scene.leftBehind(), QStringList{changelogFileName("2.0")});
        QTRY_COMPARE(scene.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    // ---- While it reports

    void killedWhileItReports_data()
    {
        QTest::addColumn<QString>("call");
        QTest::addColumn<int>("occurrence");
        QTest::addColumn<bool>("reported");
        row("before it attaches", "semop", 1, false);
        row("while it attaches", "semop", 2, false);
        row("before it takes the lock", "semop", 3, false);
        row("while it holds the lock", "shmdt", 1, true);
        row("before it returns the lock", "semop", 4, true);
    }

    /// The host gets the lock all the same, and the next check reports.
    void killedWhileItReports()
    {
        NEEDS_KILLS_AT_CALLS();
        QFETCH(QString, call);
        QFETCH(int, occurrence);
        QFETCH(bool, reported);
        KilledScene scene(*m_release);
        const auto host = scene.startHost();
        const QStringList check{"-c", "-n",       "Editor", "-v", "1.0", "-l", scene.indexUrl(),
                                "-s", host->key()};

        QCOMPARE(scene.runUnderStrace(killAt(systemCalls(call), occurrence), check), SIGKILL);
        QCOMPARE(host->dump(),
                 reported ? HostProcess::reported("2.0") : HostProcess::untouched(16));
        QCOMPARE(files::read(scene.dir / changelog), QByteArray("of an earlier check"));
        QVERIFY(host->lock());
        QVERIFY(host->unlock());

        QCOMPARE(scene.updater.run(check), 0);
        QCOMPARE(host->dump(), HostProcess::reported("2.0"));
        QCOMPARE(files::read(scene.dir / changelog), m_release->changes.toBase64());
    }

private:
    /// The requests of an update that needs the files @p names.
    static QStringList requestsFor(const QStringList& names)
    {
        QStringList requests{"/index.txt"};
        for (const QString& name : names)
            requests.append('/' + name);
        return requests;
    }

    std::unique_ptr<Release> m_release;
};

UPDATER_TEST_MAIN(TestKilled)
#include "tst_killed.moc"
