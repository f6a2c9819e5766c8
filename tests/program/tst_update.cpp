// A whole update, with real parts only: a release described by the build mode and served by nginx,
// the updater as a process, a program that is started again.

#include "tests/support/ChangelogFile.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Processes.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"

#include <memory>
#include <sys/stat.h>

namespace {

/// A release below the root of the server, under a name of its own.
class SiteScene : public Scene
{
public:
    explicit SiteScene(const TestDir& root) : Scene(root / QString("row%1").arg(++rows)) {}

    /// Publishes @p tree with the news of @p version.
    void publish(const Tree& tree, const QString& version, const QStringList& furtherOptions = {})
    {
        files::write(dir / "CHANGES.txt", "News of " + version.toUtf8());
        Scene::publish(tree, version,
                       furtherOptions + QStringList{"--changelog", dir / "CHANGES.txt"});
    }

    QString indexUrl(const Nginx& server) const { return server.url(path() + "index.txt"); }

    /// What this scene's updater has asked the server for.
    QStringList requests(const Nginx& server) const
    {
        return server.requests().filter(path()).replaceInStrings(path(), "");
    }

private:
    QString path() const { return '/' + releaseDir.section('/', -1) + '/'; }

    static inline int rows = 0;
};

/// What is installed when an update begins.
enum class State { Old, Complete, Empty, Damaged };

/// What "-x" names.
enum class Exe { None, Bundle, Other, Missing };

Tree publishedTree(const RelaunchedProgram& program)
{
    return {{"Contents/Info.txt", "about the bundle"},
            {Scene::exeName, program.script("Editor 2.0a")},
            {"Contents/Resources/data.bin", QByteArray(300000, 'n')},
            {"Contents/Resources/Editor.icns", "icon"},
            {"readme.txt", ""}};
}

Tree installedTree(State state, const RelaunchedProgram& program)
{
    Tree tree = publishedTree(program);
    switch (state) {
    case State::Old:
        tree[Scene::exeName] = program.script("Editor 1.0");
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
        return {Scene::exeName, "Contents/Resources/data.bin", "readme.txt"};
    case State::Complete:
        return {};
    case State::Empty:
        return {"Contents/Info.txt", Scene::exeName, "Contents/Resources/data.bin",
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
        NEEDS_NGINX();
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
                    const QString name = QString("%1, %2, %3").arg(version, stateName, exeText);
                    // Every second combination has a host.
                    const bool hostsTurn =
                        (static_cast<int>(state) + static_cast<int>(exe)) % 2 == 0;
                    if (!hostsTurn || everyRowIsWanted())
                        row(name, QString(version), differs, state, exe, false);
                    if (hostsTurn || everyRowIsWanted())
                        row(name + ", -s", QString(version), differs, state, exe, true);
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
        SiteScene scene(*m_root);
        const Tree published = publishedTree(scene.program);
        const Tree installed = installedTree(state, scene.program);
        scene.publish(published, "2.0a");
        scene.install(installed);
        scene.program.install(scene.dir / "other/Other", "Other");

        scene.installedVersion = installedVersion;
        scene.exe = exeOf(scene, exe);
        QStringList hostOption;
        std::unique_ptr<HostProcess> host;
        if (withHost) {
            host = scene.startHost();
            hostOption << "-s" << host->key();
        }

        QCOMPARE(scene.update(scene.indexUrl(*m_nginx), hostOption), 0);

        if (host)
            QCOMPARE(host->dump(), HostProcess::reported("2.0a"));

        const QStringList needed = differs ? neededFiles(state) : QStringList();
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"} + needed);

        Tree expected = installed;
        for (const QString& name : needed)
            expected[name] = published[name];
        QCOMPARE(scene.differencesFrom(expected), QString());
        for (const QString& name : needed) {
            const bool executable = name == Scene::exeName || name.endsWith(".icns");
            QCOMPARE(files::mode(scene.installedPath(name)), executable ? 0755u : 0644u);
        }

        // The directory stays when there was nothing to move out of it.
        QStringList left{changelogFileName("2.0a")};
        if (differs && needed.isEmpty())
            left.append("wUpEditor2.0a/");
        QCOMPARE(scene.leftBehind(), left);
        QCOMPARE(files::read(scene.tmpDir + '/' + changelogFileName("2.0a")),
                 QByteArray("News of 2.0a").toBase64());

        const QStringList started =
            differs ? expectedStart(scene, exe, needed.contains(Scene::exeName)) : QStringList();
        QTRY_COMPARE(scene.program.starts(), started);
        // The started programs run until letEnd(), so one too many would be seen.
        QCOMPARE(processes::mentioning(scene.dir.path()).size(), started.size());
        scene.program.letEnd();
        QTRY_COMPARE(scene.program.ends().size(), started.size());
    }

    void checkReportsAndEnds_data()
    {
        QTest::addColumn<QString>("installedVersion");
        QTest::addColumn<QStringList>("buildOptions");
        QTest::addColumn<bool>("required");
        row("older installed", QString("1.0"), QStringList(), false);
        row("same installed", QString("2.0a"), QStringList(), false);
        row("same in another case", QString("2.0A"), QStringList(), false);
        row("newer installed", QString("3.0"), QStringList(), false);
        row("required", QString("1.0"), QStringList{"-r"}, true);
    }

    void checkReportsAndEnds()
    {
        QFETCH(QString, installedVersion);
        QFETCH(QStringList, buildOptions);
        QFETCH(bool, required);
        SiteScene scene(*m_root);
        scene.publish(publishedTree(scene.program), "2.0a", buildOptions);
        const auto host = scene.startHost();

        // Even with everything that an update needs, a check only checks.
        scene.program.install(scene.dir / "bin/Editor", "Editor");
        scene.installedVersion = installedVersion;
        scene.exe = scene.dir / "bin/Editor";
        QCOMPARE(scene.update(scene.indexUrl(*m_nginx), {"-c", "-s", host->key()}), 0);

        QCOMPARE(host->dump(), HostProcess::reported("2.0a", required));
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"});
        QCOMPARE(scene.leftBehind(), QStringList{changelogFileName("2.0a")});
        QCOMPARE(files::read(scene.tmpDir + '/' + changelogFileName("2.0a")),
                 QByteArray("News of 2.0a").toBase64());
        QCOMPARE(files::list(scene.installDir), QStringList());
        QCOMPARE(processes::mentioning(scene.dir / "bin"), QStringList());
    }

    void checkOfAMissingVersionFileReportsAnEmptyVersion()
    {
        SiteScene scene(*m_root);
        QCOMPARE(scene.check(scene.indexUrl(*m_nginx)), HostProcess::reported(""));
        QCOMPARE(scene.leftBehind(), QStringList());
    }

    void unreadableVersionFileStartsTheProgramAgain()
    {
        SiteScene scene(*m_root);
        scene.exe = scene.dir / "bin/Editor";
        scene.program.install(scene.exe, "Editor");
        QCOMPARE(scene.update(scene.indexUrl(*m_nginx)), 0);
        QCOMPARE(scene.requests(*m_nginx), QStringList{"index.txt"});
        QCOMPARE(files::list(scene.installDir), QStringList());
        QCOMPARE(scene.leftBehind(), QStringList{"wUp/"});
        QTRY_COMPARE(scene.program.starts(), QStringList{"Editor|" + (scene.dir / "bin") + "|"});
    }

    void secondUpdateFindsNothingToDo()
    {
        SiteScene scene(*m_root);
        scene.publish(publishedTree(scene.program), "2.0a");
        QCOMPARE(scene.update(scene.indexUrl(*m_nginx)), 0);
        QTRY_COMPARE(scene.program.starts().size(), 1);
        QCOMPARE(scene.update(scene.indexUrl(*m_nginx)), 0);
        QCOMPARE(scene.requests(*m_nginx), scene.wantedNames() + QStringList{"index.txt"});
    }

    void largeOldInstallationBecomesTheRelease()
    {
        SiteScene scene(*m_root);
        Tree published = largeTree();
        published[Scene::exeName] = scene.program.script("Editor 2.0");
        scene.publish(published, "2.0");
        files::setMode(scene.releaseDir + '/' + Scene::exeName, 0755);
        for (const QString& name :
             files::list(scene.releaseDir).filter(".icns", Qt::CaseInsensitive))
            files::setMode(scene.releaseDir + '/' + name, 0755);

        int changed = 0;
        int missing = 0;
        int number = 0;
        Tree installed = published;
        Tree dropped;
        for (auto file = published.begin(); file != published.end(); ++file, ++number) {
            if (file.key() == Scene::exeName) {
                installed[Scene::exeName] = scene.program.script("Editor 1.0");
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
            files::setMode(scene.installedPath(name), 0755);
        release::lay(dropped, scene.installDir);

        QCOMPARE(scene.update(scene.indexUrl(*m_nginx)), 0);

        QCOMPARE(scene.requests(*m_nginx).size(), 1 + changed + missing);
        Tree expected = published;
        for (auto file = dropped.begin(); file != dropped.end(); ++file)
            expected[file.key()] = file.value();
        QCOMPARE(scene.differencesFrom(expected), QString());
        for (const QString& name : published.keys())
            QVERIFY2(files::mode(scene.installedPath(name)) ==
                         files::mode(scene.releaseDir + '/' + name),
                     qPrintable(name));
        QCOMPARE(scene.leftBehind(), QStringList{changelogFileName("2.0")});
        QTRY_COMPARE_WITH_TIMEOUT(scene.program.starts(), QStringList{scene.startOf("Editor 2.0")},
                                  30000);
    }

private:
    static QString exeOf(const Scene& scene, Exe exe)
    {
        switch (exe) {
        case Exe::None:
            return QString();
        case Exe::Bundle:
            return scene.installedPath(Scene::exeName);
        case Exe::Other:
            return scene.dir / "other/Other";
        case Exe::Missing:
            return scene.dir / "nowhere/Editor";
        }
        return QString();
    }

    /// The one program that is started after an installation, if any.
    static QStringList expectedStart(const Scene& scene, Exe exe, bool bundleExeArrived)
    {
        if (exe == Exe::Other)
            return {"Other|" + (scene.dir / "other") + "|"};
        if (exe != Exe::Bundle && !bundleExeArrived)
            return {};
        return {scene.startOf("Editor 2.0a")};
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
