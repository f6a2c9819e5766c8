// An update by the real executable on a file system that fails. The updater does not check the
// results of writing, removing, moving and making directories. These tests show the consequences.

#include "tests/support/Needs.h"
#include "tests/support/Restrictions.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"

#include <QFileInfo>

#include <sys/stat.h>

class TestFilesystemFaults : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        ::umask(022); // Permissions are compared.
    }

    // ---- The temporary directory

    void readOnlyTemporaryDirectoryMakesTheUpdateTryWithoutEnd()
    {
        UNDER_PERMISSIONS(command);
        ServedScene scene;
        scene.publish({{"a.bin", "new a"}, {"b.bin", "new b"}});
        scene.install({{"a.bin", "old"}});
        const ScopedMode locked(scene.tmpDir, 0555);
        scene.updater.setWrapper(*command);
        scene.start();

        // Far more often than failures are allowed.
        QVERIFY(scene.waitForRequests("a.bin", 25));
        QVERIFY(scene.updater.isRunning());
        QCOMPARE(scene.server.requestsFor("/b.bin"), 0);
        QCOMPARE(scene.leftBehind(), QStringList());
        QCOMPARE(release::read(scene.installDir), Tree({{"a.bin", "old"}}));
    }

    void updateGoesOnWhenTheTemporaryDirectoryBecomesWritable()
    {
        UNDER_PERMISSIONS(command);
        ServedScene scene;
        const Tree published{{"a.bin", "new a"}, {"sub/b.bin", "new b"}};
        scene.publish(published);
        scene.updater.setWrapper(*command);
        {
            const ScopedMode locked(scene.tmpDir, 0555);
            scene.start();
            QVERIFY(scene.waitForRequests("a.bin", 10));
        }
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.server.requestsFor("/sub/b.bin"), 1);
        QCOMPARE(scene.differencesFrom(published), QString());
        QCOMPARE(scene.leftBehind(), QStringList());
    }

    void missingRoomForMoreFilesMakesTheUpdateTryWithoutEnd()
    {
        ServedScene scene;
        scene.publish({{"a.bin", "new a"}, {"b.bin", "new b"}});
        // The top, the file that keeps it, the download directory, and one file.
        UNDER_TMPFS(command, scene.tmpDir, "nr_inodes=4");
        scene.updater.setWrapper(*command);
        scene.start();
        QVERIFY(scene.waitForRequests("b.bin", 25));
        QVERIFY(scene.updater.isRunning());
        QCOMPARE(scene.server.requestsFor("/a.bin"), 1);
        QCOMPARE(files::list(scene.installDir), QStringList());
    }

    void fullTemporaryDirectoryInstallsWhatCouldBeWritten()
    {
        ServedScene scene;
        const Tree published{{"a.bin", QByteArray(10000, 'a')},
                             {"b.bin", QByteArray(300000, 'b')},
                             {"c.bin", QByteArray(20000, 'c')},
                             {"d.bin", "d"}};
        scene.publish(published);
        scene.install({{"b.bin", "old b"}, {"c.bin", "old c"}});
        const QString copy = scene.dir / "copy";
        UNDER_TMPFS(command, scene.tmpDir, "size=64k", copy);
        files::makeDirectory(copy);
        scene.updater.setWrapper(*command);

        QCOMPARE(scene.update(), 0);

        // Each file is fetched once: a write that failed is not noticed.
        QCOMPARE(scene.server.requests(),
                 QStringList({"/index.txt", "/a.bin", "/b.bin", "/c.bin", "/d.bin"}));
        const Tree installed = release::read(scene.installDir);
        QCOMPARE(installed.keys(), published.keys());
        QCOMPARE(installed["a.bin"], published["a.bin"]);
        const QByteArray cut = installed["b.bin"];
        QVERIFY(!cut.isEmpty() && cut.size() <= 65536);
        QVERIFY(published["b.bin"].startsWith(cut));
        QCOMPARE(installed["c.bin"], QByteArray());
        QCOMPARE(installed["d.bin"], QByteArray());
        QCOMPARE(files::list(copy), QStringList{"keep"});

        // The next run, with room enough, replaces what is not whole.
        UpdaterProcess next;
        next.setEnvironment("TMPDIR", scene.tmpDir);
        QCOMPARE(next.run(scene.updateOptions(scene.indexUrl())), 0);
        QCOMPARE(scene.server.requests().mid(5),
                 QStringList({"/index.txt", "/b.bin", "/c.bin", "/d.bin"}));
        QCOMPARE(scene.differencesFrom(published), QString());
    }

    void temporaryDirectoryOnAnotherFileSystemIsCopiedFrom()
    {
        ServedScene scene;
        const Tree published{{Scene::exeName, scene.program.script("Editor 2.0")},
                             {"Contents/Resources/Editor.icns", "icon"},
                             {"Contents/Resources/data.bin", QByteArray(300000, 'n')},
                             {"empty", ""},
                             {"sub/new/deep.txt", "deep"}};
        scene.publish(published);
        scene.install({{Scene::exeName, "old"}, {"Contents/Resources/data.bin", "old"}});
        const QString copy = scene.dir / "copy";
        UNDER_TMPFS(command, scene.tmpDir, "size=16m", copy);
        files::makeDirectory(copy);
        scene.updater.setWrapper(*command);

        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.differencesFrom(published), QString());
        for (const QString& name : published.keys()) {
            const bool executable = name == Scene::exeName || name.endsWith(".icns");
            QCOMPARE(files::mode(scene.installedPath(name)), executable ? 0755U : 0644U);
        }
        QCOMPARE(files::list(copy), QStringList{"keep"});
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 2.0")});
    }

    // The old file is gone by the time the new one does not fit; the download stays.
    void fullInstallationDirectoryGetsTheBeginningOfAFileThatDoesNotFit()
    {
        ServedScene scene;
        const QByteArray large(300000, 'n');
        scene.publish({{"a.bin", "new a"}, {"b.bin", large}, {"c.bin", "new c"}});
        scene.install({{"a.bin", "old a"}, {"b.bin", "old b"}, {"c.bin", "old c"}});
        const QString copy = scene.dir / "copy";
        UNDER_TMPFS(command, scene.installDir, "size=64k", copy);
        files::makeDirectory(copy);
        scene.updater.setWrapper(*command);

        QCOMPARE(scene.update(), 0);
        const Tree installed = release::read(copy);
        QCOMPARE(installed.keys(), QStringList({"a.bin", "b.bin", "c.bin"}));
        QCOMPARE(installed["a.bin"], QByteArray("new a"));
        QCOMPARE(installed["c.bin"], QByteArray("new c"));
        const QByteArray cut = installed["b.bin"];
        QVERIFY(!cut.isEmpty() && cut.size() <= 65536);
        QVERIFY(large.startsWith(cut));
        QCOMPARE(scene.leftBehind(), QStringList({"wUpEditor2.0/", "wUpEditor2.0/b.bin"}));
        QCOMPARE(files::read(scene.downloadedPath("b.bin")), large);
    }

    // ---- What is installed

    void readOnlyFileIsReplaced()
    {
        UNDER_PERMISSIONS(command);
        ServedScene scene;
        scene.publish({{"a.bin", "new"}});
        scene.install({{"a.bin", "old"}});
        files::setMode(scene.installedPath("a.bin"), 0444);
        scene.updater.setWrapper(*command);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(files::read(scene.installedPath("a.bin")), QByteArray("new"));
        QCOMPARE(files::mode(scene.installedPath("a.bin")), 0644U);
        QCOMPARE(scene.leftBehind(), QStringList());
    }

    void unreadableFileIsTakenForDifferent()
    {
        UNDER_PERMISSIONS(command);
        ServedScene scene;
        scene.publish({{"a.bin", "same"}});
        scene.install({{"a.bin", "same"}});
        files::setMode(scene.installedPath("a.bin"), 0);
        scene.updater.setWrapper(*command);
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.server.requestsFor("/a.bin"), 1);
        QCOMPARE(files::mode(scene.installedPath("a.bin")), 0644U);
        QCOMPARE(files::read(scene.installedPath("a.bin")), QByteArray("same"));
    }

    void readOnlyDirectoryKeepsItsFiles()
    {
        UNDER_PERMISSIONS(command);
        ServedScene scene;
        scene.publish({{"a.bin", "new"},
                       {"locked/b.bin", "new"},
                       {"locked/c.bin", "new"},
                       {"locked/sub/d.bin", "new"},
                       {"z.bin", "new"}});
        const Tree before{{"a.bin", "old"}, {"locked/b.bin", "old"}};
        scene.install(before);
        const ScopedMode locked(scene.installedPath("locked"), 0555);
        scene.updater.setWrapper(*command);

        QCOMPARE(scene.update(), 0);
        QCOMPARE(release::read(scene.installDir),
                 Tree({{"a.bin", "new"}, {"locked/b.bin", "old"}, {"z.bin", "new"}}));
        const QStringList left{"wUpEditor2.0/",
                               "wUpEditor2.0/locked/",
                               "wUpEditor2.0/locked/b.bin",
                               "wUpEditor2.0/locked/c.bin",
                               "wUpEditor2.0/locked/sub/",
                               "wUpEditor2.0/locked/sub/d.bin"};
        QCOMPARE(scene.leftBehind(), left);
    }

    void obstaclesStay_data()
    {
        QTest::addColumn<QStringList>("directories");
        QTest::addColumn<Tree>("before");
        QTest::addColumn<QString>("name");
        row("empty directory where a file must go", QStringList{"x.bin"}, Tree(), "x.bin");
        row("directory with a file where a file must go", QStringList(),
            Tree({{"x.bin/kept", "kept"}}), "x.bin");
        row("directory where the executable must go", QStringList(),
            Tree({{"Contents/MacOS/Editor/kept", "kept"}}), Scene::exeName);
        row("file where a directory must go", QStringList(), Tree({{"sub", "kept"}}), "sub/x.bin");
        row("file where a directory of directories must go", QStringList(), Tree({{"sub", "kept"}}),
            "sub/deep/x.bin");
    }

    /// Every further run fetches the file once more, and cannot install it either.
    void obstaclesStay()
    {
        QFETCH(QStringList, directories);
        QFETCH(Tree, before);
        QFETCH(QString, name);
        ServedScene scene;
        scene.publish({{"a.bin", "new a"}, {name, "new x"}, {"z.bin", "new z"}});
        scene.install(before);
        for (const QString& directory : directories)
            files::makeDirectory(scene.installedPath(directory));

        Tree after = before;
        after["a.bin"] = "new a";
        after["z.bin"] = "new z";
        for (int run = 1; run <= 2; ++run) {
            QCOMPARE(scene.update(), 0);
            QCOMPARE(scene.server.requestsFor('/' + name), run);
            QCOMPARE(scene.server.requestsFor("/z.bin"), 1);
            QCOMPARE(release::read(scene.installDir), after);
            for (const QString& directory : directories)
                QVERIFY(QFileInfo(scene.installedPath(directory)).isDir());
            QCOMPARE(files::read(scene.downloadedPath(name)), QByteArray("new x"));
        }
    }

    void runningExecutableIsReplaced_data()
    {
        QTest::addColumn<QString>("name");
        QTest::addColumn<unsigned>("mode");
        QTest::addColumn<bool>("otherFileSystem");
        row("as the program itself", Scene::exeName, 0755U, false);
        row("beside the program, which makes it lose its permission", "Contents/MacOS/updater",
            0644U, false);
        row("from another file system", Scene::exeName, 0755U, true);
    }

    void runningExecutableIsReplaced()
    {
        QFETCH(QString, name);
        QFETCH(unsigned, mode);
        QFETCH(bool, otherFileSystem);
        ServedScene scene;
        const Tree published{{"Contents/Info.txt", "new"},
                             {name, scene.program.script("new")},
                             {"Contents/Resources/data.bin", "new"}};
        scene.publish(published);
        const QString running = scene.installedPath(name);
        files::writeExecutable(running, files::read(UPDATER_EXECUTABLE));
        QStringList command;
        if (otherFileSystem) {
            UNDER_TMPFS(withTmpfs, scene.tmpDir, "size=16m");
            command = *withTmpfs;
        }
        // The copy is run in place of the updater.
        scene.updater.setWrapper(command +
                                 QStringList{"sh", "-c", "shift && exec \"$0\" \"$@\"", running});
        scene.server.serve("/Contents/Info.txt", HttpReply::hold(HttpReply::ok("new")));
        scene.start();
        QVERIFY(scene.waitForRequests("Contents/Info.txt"));
        QCOMPARE(QFileInfo(QStringLiteral("/proc/%1/exe").arg(scene.updater.pid())).symLinkTarget(),
                 running);
        scene.server.release();

        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.differencesFrom(published), QString());
        QCOMPARE(files::mode(running), mode);
        if (name == Scene::exeName)
            QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("new")});
    }

    // ---- Links in the installation

    void linkToAFileOutsideIsReplacedByTheFile()
    {
        ServedScene scene;
        scene.publish({{"a.bin", "new"}});
        files::write(scene.dir / "outside.bin", "outside");
        files::link(scene.dir / "outside.bin", scene.installedPath("a.bin"));
        QCOMPARE(scene.update(), 0);
        QVERIFY(!QFileInfo(scene.installedPath("a.bin")).isSymLink());
        QCOMPARE(files::read(scene.installedPath("a.bin")), QByteArray("new"));
        QCOMPARE(files::read(scene.dir / "outside.bin"), QByteArray("outside"));
    }

    void linkToTheRightContentsStays()
    {
        ServedScene scene;
        scene.publish({{"a.bin", "same"}});
        files::write(scene.dir / "outside.bin", "same");
        files::link(scene.dir / "outside.bin", scene.installedPath("a.bin"));
        QCOMPARE(scene.update(), 0);
        QCOMPARE(scene.server.requestsFor("/a.bin"), 0);
        QVERIFY(QFileInfo(scene.installedPath("a.bin")).isSymLink());
    }

    void linkToADirectoryOutsideIsFollowed()
    {
        ServedScene scene;
        scene.publish({{"sub/a.bin", "new"}});
        files::write(scene.dir / "outside/a.bin", "old");
        files::link(scene.dir / "outside", scene.installedPath("sub"));
        QCOMPARE(scene.update(), 0);
        QVERIFY(QFileInfo(scene.installedPath("sub")).isSymLink());
        QCOMPARE(files::read(scene.dir / "outside/a.bin"), QByteArray("new"));
    }

    void brokenLinkIsWrittenThrough()
    {
        ServedScene scene;
        scene.publish({{"a.bin", "new"}, {"b.icns", "icon"}});
        files::makeDirectory(scene.dir / "outside");
        files::link(scene.dir / "outside/x.bin", scene.installedPath("a.bin"));
        files::link(scene.dir / "outside/x.icns", scene.installedPath("b.icns"));
        QCOMPARE(scene.update(), 0);
        QVERIFY(QFileInfo(scene.installedPath("a.bin")).isSymLink());
        QCOMPARE(files::read(scene.dir / "outside/x.bin"), QByteArray("new"));
        QCOMPARE(files::mode(scene.dir / "outside/x.bin"), 0644U);
        QCOMPARE(files::mode(scene.dir / "outside/x.icns"), 0755U);
        QCOMPARE(scene.leftBehind(), QStringList());
    }

    void brokenLinkIntoAMissingDirectoryStays()
    {
        ServedScene scene;
        scene.publish({{"a.bin", "new"}, {"b.bin", "new b"}});
        files::link(scene.dir / "missing/x.bin", scene.installedPath("a.bin"));
        QCOMPARE(scene.update(), 0);
        QVERIFY(QFileInfo(scene.installedPath("a.bin")).isSymLink());
        QVERIFY(!QFile::exists(scene.dir / "missing"));
        QCOMPARE(files::read(scene.installedPath("b.bin")), QByteArray("new b"));
        QCOMPARE(scene.leftBehind(), QStringList({"wUpEditor2.0/", "wUpEditor2.0/a.bin"}));
    }
};

UPDATER_TEST_MAIN(TestFilesystemFaults)
#include "tst_filesystemfaults.moc"
