// The whole road, with real parts only: a release described by the build mode and served by nginx,
// the updater as a process, a program that is started again.

#include "tests/support/HostProcess.h"
#include "tests/support/Nginx.h"
#include "tests/support/Processes.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Release.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <algorithm>
#include <memory>
#include <sys/stat.h>

namespace {

const char* const exeName = "Contents/MacOS/Editor";

/// One publisher, one user: what a row of a test starts from, and what it looks at afterwards.
struct Scene
{
    explicit Scene(const QString& serverRoot)
        : id(QStringLiteral("row%1").arg(++rows)), releaseDir(serverRoot + '/' + id)
    {
        files::makeDirectory(installDir);
        files::write(tmpDir + "/keep", ""); // Else an emptied temporary directory would go, too.
    }

    /// Publishes @p tree as @p version.
    void publish(const Tree& tree, const QString& version, const QStringList& options = {})
    {
        release::lay(tree, releaseDir);
        files::write(dir / "CHANGES.txt", "News of " + version.toUtf8());
        release::describe(releaseDir, "Editor", version,
                          options + QStringList{"--changelog", dir / "CHANGES.txt"});
    }

    /// Installs @p tree; a program in it can be run.
    void install(const Tree& tree)
    {
        release::lay(tree, installDir);
        if (tree.contains(exeName))
            files::setMode(installDir + '/' + exeName, 0755);
    }

    /// Runs the updater with @p options and a temporary directory of this scene's own.
    int run(const QStringList& options)
    {
        updater.setEnvironment("TMPDIR", tmpDir);
        return updater.run(options, 120000);
    }

    int update(const Nginx& server, const QString& installedVersion,
               const QStringList& furtherOptions = {})
    {
        const QStringList options{
            "-u", "-n", "Editor", "-d", installDir, "-v", installedVersion, "-l", indexUrl(server)};
        return run(options + furtherOptions);
    }

    QString indexUrl(const Nginx& server) const { return server.url('/' + id + "/index.txt"); }

    /// A host whose updater sees the same temporary directory, as it must.
    std::unique_ptr<HostProcess> startHost() const
    {
        const ScopedTmpDir tmp(tmpDir);
        return std::make_unique<HostProcess>(16);
    }

    /// What is in the temporary directory, besides Qt's key files of the host.
    QStringList leftBehind() const
    {
        QStringList names = files::list(tmpDir);
        names.erase(std::remove_if(names.begin(), names.end(),
                                   [](const QString& name) { return name.startsWith("qipc_"); }),
                    names.end());
        return names;
    }

    /// What this scene's updater has asked the server for.
    QStringList requests(const Nginx& server) const
    {
        return server.requests().filter('/' + id + '/').replaceInStrings('/' + id + '/', "");
    }

    static inline int rows = 0;
    const QString id;
    const TestDir dir;
    const QString releaseDir;
    const QString installDir = dir / "installed/Editor.app";
    const QString tmpDir = dir / "tmp";
    const RelaunchedProgram program;
    UpdaterProcess updater;
};

/// What is installed when an update begins.
enum class State { Old, Complete, Empty, Damaged };

/// What "-x" names.
enum class Exe { None, Bundle, Other, Missing };

Tree publishedTree(const RelaunchedProgram& program)
{
    return {{"Contents/Info.txt", "about the bundle"},
            {exeName, program.script("Editor 2.0a")},
            {"Contents/Resources/data.bin", QByteArray(300000, 'n')},
            {"Contents/Resources/Editor.icns", "icon"},
            {"readme.txt", ""}};
}

Tree installedTree(State state, const RelaunchedProgram& program)
{
    Tree tree = publishedTree(program);
    switch (state) {
    case State::Old:
        tree[exeName] = program.script("Editor 1.0");
        tree["Contents/Resources/data.bin"].fill('o');
        tree.remove("readme.txt");
        tree["Contents/dropped.txt"] = "no longer part of a release";
        break;
    case State::Complete:
        break;
    case State::Empty:
        tree.clear();
        break;
    case State::Damaged:
        tree["Contents/Resources/data.bin"].chop(1);
        break;
    }
    return tree;
}

/// What an update downloads, in the order of the version file.
QStringList neededFiles(State state)
{
    switch (state) {
    case State::Old:
        return {exeName, "Contents/Resources/data.bin", "readme.txt"};
    case State::Complete:
        return {};
    case State::Empty:
        return {"Contents/Info.txt", exeName, "Contents/Resources/data.bin",
                "Contents/Resources/Editor.icns", "readme.txt"};
    case State::Damaged:
        return {"Contents/Resources/data.bin"};
    }
    return {};
}

} // namespace

Q_DECLARE_METATYPE(State)
Q_DECLARE_METATYPE(Exe)

class TestUpdate : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (!Nginx::isInstalled())
            QSKIP("nginx is not installed");
        ::umask(022); // Permissions are compared.
        m_root = std::make_unique<TestDir>();
        m_nginx = std::make_unique<Nginx>(m_root->path());
    }

    void updateTakesTheWholeRoad_data()
    {
        QTest::addColumn<QString>("installedVersion");
        QTest::addColumn<bool>("differs");
        QTest::addColumn<State>("state");
        QTest::addColumn<Exe>("exe");

        QTest::addColumn<bool>("withHost");

        const QList<std::pair<const char*, bool>> versions{
            {"1.0", true}, {"3.0", true}, {"2.0A", false}};
        const QList<std::pair<const char*, State>> states{{"old files", State::Old},
                                                          {"complete files", State::Complete},
                                                          {"no files", State::Empty},
                                                          {"a damaged file", State::Damaged}};
        const QList<std::pair<const char*, Exe>> exes{{"no -x", Exe::None},
                                                      {"-x the bundle's", Exe::Bundle},
                                                      {"-x another", Exe::Other},
                                                      {"-x a missing one", Exe::Missing}};
        for (const auto& [version, differs] : versions) {
            for (const auto& [stateName, state] : states) {
                for (const auto& [exeText, exe] : exes) {
                    QTest::addRow("%s, %s, %s", version, stateName, exeText)
                        << version << differs << state << exe << false;
                    QTest::addRow("%s, %s, %s, -s", version, stateName, exeText)
                        << version << differs << state << exe << true;
                }
            }
        }
    }

    void updateTakesTheWholeRoad()
    {
        QFETCH(QString, installedVersion);
        QFETCH(bool, differs);
        QFETCH(State, state);
        QFETCH(Exe, exe);
        QFETCH(bool, withHost);
        Scene scene(m_root->path());
        const Tree published = publishedTree(scene.program);
        const Tree installed = installedTree(state, scene.program);
        scene.publish(published, "2.0a");
        scene.install(installed);
        scene.program.install(scene.dir / "other/Other", "Other");

        QStringList options = exeOption(scene, exe);
        std::unique_ptr<HostProcess> host;
        if (withHost) {
            host = scene.startHost();
            options += QStringList{"-s", host->key()};
        }

        QCOMPARE(scene.update(*m_nginx, installedVersion, options), 0);

        if (host)
            QCOMPARE(host->dump(), QByteArray("2.0a\0"
                                              "0\0",
                                              7)
                                       .leftJustified(16, '\0'));

        const QStringList needed = differs ? neededFiles(state) : QStringList();
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"} + needed);

        Tree expected = installed;
        for (const QString& name : needed)
            expected[name] = published[name];
        QCOMPARE(release::differences(release::read(scene.installDir), expected), QStringList());
        for (const QString& name : needed) {
            const bool executable = name == exeName || name.endsWith(".icns");
            QCOMPARE(files::mode(scene.installDir + '/' + name), executable ? 0755u : 0644u);
        }

        // The directory stays when there was nothing to move out of it.
        QStringList left{"keep", "velmora_cl_2.0a.dat"};
        if (differs && needed.isEmpty())
            left.append("wUpEditor2.0a/");
        QCOMPARE(scene.leftBehind(), left);
        QCOMPARE(files::read(scene.tmpDir + "/velmora_cl_2.0a.dat"),
                 QByteArray("News of 2.0a").toBase64());

        const QStringList started =
            differs ? expectedStart(scene, exe, needed.contains(exeName)) : QStringList();
        QTRY_COMPARE(scene.program.starts(), started);
        // A program that was started waits for leave, so that one too many would be seen.
        QCOMPARE(processes::mentioning(scene.dir.path()).size(), started.size());
        scene.program.letEnd();
        QTRY_COMPARE(scene.program.ends().size(), started.size());
    }

    void checkReportsAndEnds_data()
    {
        QTest::addColumn<QString>("installedVersion");
        QTest::addColumn<QStringList>("buildOptions");
        QTest::addColumn<QByteArray>("report");
        const QByteArray optional("2.0a\0"
                                  "0\0",
                                  7);
        const QByteArray required("2.0a\0"
                                  "1\0",
                                  7);
        QTest::newRow("older installed") << "1.0" << QStringList() << optional;
        QTest::newRow("same installed") << "2.0a" << QStringList() << optional;
        QTest::newRow("same in another case") << "2.0A" << QStringList() << optional;
        QTest::newRow("newer installed") << "3.0" << QStringList() << optional;
        QTest::newRow("required") << "1.0" << QStringList{"-r"} << required;
    }

    void checkReportsAndEnds()
    {
        QFETCH(QString, installedVersion);
        QFETCH(QStringList, buildOptions);
        QFETCH(QByteArray, report);
        Scene scene(m_root->path());
        scene.publish(publishedTree(scene.program), "2.0a", buildOptions);
        const auto host = scene.startHost();

        // With everything an update would need, too: the check ends all the same.
        scene.program.install(scene.dir / "bin/Editor", "Editor");
        QCOMPARE(scene.run({"-c", "-u", "-n", "Editor", "-v", installedVersion, "-l",
                            scene.indexUrl(*m_nginx), "-s", host->key(), "-d", scene.installDir,
                            "-x", scene.dir / "bin/Editor"}),
                 0);

        QCOMPARE(host->dump(), report.leftJustified(16, '\0'));
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"});
        QCOMPARE(scene.leftBehind(), QStringList({"keep", "velmora_cl_2.0a.dat"}));
        QCOMPARE(files::read(scene.tmpDir + "/velmora_cl_2.0a.dat"),
                 QByteArray("News of 2.0a").toBase64());
        QCOMPARE(files::list(scene.installDir), QStringList());
        QCOMPARE(processes::mentioning(scene.dir / "bin"), QStringList());
    }

    void checkOfAMissingVersionFileReportsAnEmptyVersion()
    {
        Scene scene(m_root->path());
        const auto host = scene.startHost();
        QCOMPARE(scene.run({"-c", "-n", "Editor", "-v", "1.0", "-l", scene.indexUrl(*m_nginx), "-s",
                            host->key()}),
                 0);
        QCOMPARE(host->dump(), QByteArray("\0"
                                          "0\0",
                                          3)
                                   .leftJustified(16, '\0'));
        QCOMPARE(scene.leftBehind(), QStringList{"keep"});
    }

    void unreadableVersionFileStartsTheProgramAgain()
    {
        Scene scene(m_root->path());
        scene.program.install(scene.dir / "bin/Editor", "Editor");
        QCOMPARE(scene.update(*m_nginx, "1.0", {"-x", scene.dir / "bin/Editor"}), 0);
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"});
        QCOMPARE(files::list(scene.installDir), QStringList());
        QCOMPARE(scene.leftBehind(), QStringList({"keep", "wUp/"}));
        QTRY_COMPARE(scene.program.starts(), QStringList{"Editor|" + (scene.dir / "bin") + "|"});
    }

    void secondUpdateFindsNothingToDo()
    {
        Scene scene(m_root->path());
        scene.publish(publishedTree(scene.program), "2.0a");
        QCOMPARE(scene.update(*m_nginx, "1.0"), 0);
        QTRY_COMPARE(scene.program.starts().size(), 1);
        QCOMPARE(scene.update(*m_nginx, "1.0"), 0);
        QCOMPARE(scene.requests(*m_nginx),
                 QStringList{"index.txt"} + neededFiles(State::Empty) + QStringList{"index.txt"});
    }

    void largeOldInstallationBecomesTheRelease()
    {
        Scene scene(m_root->path());
        Tree published = largeTree();
        published[exeName] = scene.program.script("Editor 2.0");
        scene.publish(published, "2.0");
        files::setMode(scene.releaseDir + '/' + exeName, 0755);
        for (const QString& name :
             files::list(scene.releaseDir).filter(".icns", Qt::CaseInsensitive))
            files::setMode(scene.releaseDir + '/' + name, 0755);

        int changed = 0;
        int missing = 0;
        int number = 0;
        Tree installed = published;
        Tree dropped;
        for (auto file = published.begin(); file != published.end(); ++file, ++number) {
            if (file.key() == exeName) {
                installed[exeName] = scene.program.script("Editor 1.0");
                ++changed;
            } else if (number % 4 == 1) {
                installed[file.key()] += "older";
                ++changed;
            } else if (number % 8 == 2) {
                installed.remove(file.key());
                ++missing;
            } else if (number % 8 == 6) {
                dropped.insert(file.key() + ".dropped", "of an older release");
            }
        }
        QVERIFY(published.size() >= 2000 && changed > 400 && missing > 200 && dropped.size() > 200);
        scene.install(installed);
        for (const QString& name :
             files::list(scene.installDir).filter(".icns", Qt::CaseInsensitive))
            files::setMode(scene.installDir + '/' + name, 0755);
        release::lay(dropped, scene.installDir);

        QCOMPARE(scene.update(*m_nginx, "1.0"), 0);

        QCOMPARE(scene.requests(*m_nginx).size(), 1 + changed + missing);
        Tree expected = published;
        for (auto file = dropped.begin(); file != dropped.end(); ++file)
            expected[file.key()] = file.value();
        QCOMPARE(release::differences(release::read(scene.installDir), expected), QStringList());
        for (const QString& name : published.keys())
            QVERIFY2(files::mode(scene.installDir + '/' + name) ==
                         files::mode(scene.releaseDir + '/' + name),
                     qPrintable(name));
        QCOMPARE(scene.leftBehind(), QStringList({"keep", "velmora_cl_2.0.dat"}));
        QTRY_COMPARE_WITH_TIMEOUT(
            scene.program.starts(),
            QStringList{"Editor 2.0|" + scene.installDir + "/Contents/MacOS|"}, 30000);
    }

private:
    static QStringList exeOption(const Scene& scene, Exe exe)
    {
        switch (exe) {
        case Exe::None:
            return {};
        case Exe::Bundle:
            return {"-x", scene.installDir + '/' + exeName};
        case Exe::Other:
            return {"-x", scene.dir / "other/Other"};
        case Exe::Missing:
            return {"-x", scene.dir / "nowhere/Editor"};
        }
        return {};
    }

    /// The one program that is started after an installation, if any.
    static QStringList expectedStart(const Scene& scene, Exe exe, bool bundleExeArrived)
    {
        if (exe == Exe::Other)
            return {"Other|" + (scene.dir / "other") + "|"};
        if (exe != Exe::Bundle && !bundleExeArrived)
            return {};
        return {"Editor 2.0a|" + scene.installDir + "/Contents/MacOS|"};
    }

    /// 2,001 files of many sizes in 50 directories, with names that sort in unusual ways.
    static Tree largeTree()
    {
        Tree tree;
        for (int i = 0; i < 2000; ++i) {
            const QString dir =
                QStringLiteral("Contents/Resources/%1%2.lproj").arg(i % 2 ? 'x' : 'X').arg(i % 25);
            const QString name = i % 100 == 7 ? QStringLiteral("Icon%1.ICNS").arg(i)
                                              : QStringLiteral(".File %1.strings").arg(i);
            tree.insert(dir + '/' + name,
                        QByteArray::number(i).repeated(i % 10 == 0 ? 0 : i % 977));
        }
        return tree;
    }

    std::unique_ptr<TestDir> m_root;
    std::unique_ptr<Nginx> m_nginx;
};

UPDATER_TEST_MAIN(TestUpdate)
#include "tst_update.moc"
