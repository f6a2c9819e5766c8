// The host kit as other projects use it: installed, found by such a project (tests/host/consumer),
// which checks for a release and has the real updater install it.

#include "tests/host/Installed.h"
#include "tests/support/Command.h"
#include "tests/support/HttpServer.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Release.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QRegularExpression>

#include <utility>

namespace {

constexpr int patience = 30000;
const QString sourceDir = QStringLiteral(SOURCE_DIR);
const QString kitSource = QStringLiteral("/host/UpdateCheck.cpp");
const QString exeName = QStringLiteral("Contents/MacOS/Viewer");
const QString updaterName = QStringLiteral("Contents/MacOS/updater");

/// Runs cmake with @p arguments.
/// @return What it has printed when it fails, else nothing.
QString cmakeFailure(const QStringList& arguments)
{
    const QStringList command = QStringList{CMAKE_EXECUTABLE} + arguments;
    const CommandResult result = runCommand(command);
    return result.status == 0 ? QString() : command.join(' ') + '\n' + result.output;
}

/// Returns the part of a document that shows the file @p path.
QByteArray block(const char* language, const QString& path)
{
    return QByteArray("```") + language + '\n' + files::read(path) + "```\n";
}

} // namespace

class TestHostKit : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        qunsetenv("DESTDIR");
        QString failure = cmakeFailure(
            {"--install", BUILD_DIR, "--component", "host-kit", "--prefix", m_dir / "prefix"});
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        failure =
            cmakeFailure({"-S", sourceDir + "/tests/host/consumer", "-B", m_dir / "build", "-G",
                          GENERATOR, "-DQT_MAJOR=" + QString::number(QT_VERSION_MAJOR),
                          "-DCMAKE_PREFIX_PATH=" + (m_dir / "prefix"),
                          "-DCMAKE_CXX_COMPILER=" CXX_COMPILER, "-DCMAKE_BUILD_TYPE=" BUILD_TYPE,
                          "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror " CXX_FLAGS});
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
        failure = cmakeFailure({"--build", m_dir / "build"});
        QVERIFY2(failure.isEmpty(), qPrintable(failure));
    }

    void init()
    {
        m_server = std::make_unique<HttpServer>();
        m_program = std::make_unique<RelaunchedProgram>();
        m_program->letEnd();
    }

    /// Of the component "host-kit" alone. The test "install" looks at an installation without it.
    void installedFiles()
    {
        const QString name = QStringLiteral("UpdaterHost-Qt%1").arg(QT_VERSION_MAJOR);
        const QString dir = QStringLiteral(LIBRARY_DIR "/cmake/") + name + '/' + name;
        QStringList installed;
        const QStringList all = files::list(m_dir / "prefix");
        for (const QString& file : all) {
            // The names of the others depend on the build type.
            if (!file.endsWith('/') && !file.contains("Targets-"))
                installed.append(file);
        }
        QStringList expected{"include/UpdaterHost/UpdateCheck.h",
                             dir + "Config.cmake",
                             dir + "ConfigVersion.cmake",
                             dir + "Targets.cmake",
                             QStringLiteral(LIBRARY_DIR "/lib") + name + ".a",
                             "share/doc/" + name + "/copyright"};
        expected.sort();
        QCOMPARE(installed, expected);
    }

    void needsOnlyQtCore()
    {
        const QString name = QStringLiteral("UpdaterHost-Qt%1").arg(QT_VERSION_MAJOR);
        const QByteArray targets =
            files::read(m_dir / (QStringLiteral("prefix/" LIBRARY_DIR "/cmake/") + name + '/' +
                                 name + "Targets.cmake"));
        QVERIFY(targets.contains(QStringLiteral("INTERFACE_LINK_LIBRARIES \"Qt%1::Core\"\n")
                                     .arg(QT_VERSION_MAJOR)
                                     .toLatin1()));
        QVERIFY(!targets.contains(BUILD_DIR));
        QVERIFY(!targets.contains(SOURCE_DIR));
    }

    void documentShowsTheProjectThatIsTested()
    {
        const QByteArray document = files::read(sourceDir + "/docs/integrating.md");
        const QString project = sourceDir + "/tests/host/consumer";
        QVERIFY(document.contains(block("cmake", project + "/CMakeLists.txt")));
        QVERIFY(document.contains(block("cpp", project + "/main.cpp")));
    }

    void documentNamesEveryReason()
    {
        const QString source = QString::fromUtf8(files::read(sourceDir + kitSource));
        static const QRegularExpression sentence("QStringLiteral\\(\"([A-Z][^\"]*\\.)\"\\)");
        QStringList reasons;
        for (auto match = sentence.globalMatch(source); match.hasNext();)
            reasons.append(match.next().captured(1).replace("%1", "..."));
        QVERIFY2(reasons.size() >= 5, qPrintable(reasons.join('\n')));
        const QString page = QString::fromUtf8(files::read(sourceDir + "/docs/troubleshooting.md"));
        for (const QString& reason : std::as_const(reasons))
            QVERIFY2(page.contains("\n| " + reason + " |"), qPrintable(reason));
    }

    void viewerReportsWhatItFinds_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QString>("path");
        QTest::addColumn<int>("exitCode");
        QTest::addColumn<QString>("output");
        row("up to date", "2.0", "/viewer/index.txt", 0, "up to date\n");
        row("lower version", "10.0", "/viewer/index.txt", 1,
            "no check: Version 2.0 is not accepted.\n");
        row("no version file", "1.0", "/missing", 1,
            "no check: The published version could not be read.\n");
    }

    void viewerReportsWhatItFinds()
    {
        QFETCH(QString, installed);
        QFETCH(QString, path);
        QFETCH(int, exitCode);
        QFETCH(QString, output);
        const TestDir dir;
        publish(dir);
        layViewer(dir / "Viewer.app");
        const Tree before = release::read(dir / "Viewer.app");
        const CommandResult viewer =
            runCommand({dir / ("Viewer.app/" + exeName), installed, m_server->url(path)});
        QCOMPARE(viewer.output, output);
        QCOMPARE(viewer.status, exitCode);
        QCOMPARE(release::differences(release::read(dir / "Viewer.app"), before), QStringList());
    }

    void viewerUpdatesItself_data()
    {
        QTest::addColumn<QString>("home"); // Where the bundle is.
        row("ASCII", "apps");
        row("beyond ASCII", QString::fromUtf8("j\xC3\xBCrgen"));
        row("beyond Latin-1", QString::fromUtf8("\xE6\x97\xA5\xE6\x9C\xAC"));
    }

    void viewerUpdatesItself()
    {
        QFETCH(QString, home);
        const TestDir dir;
        const QString app = dir / (home + "/Viewer.app");
        publish(dir);
        layViewer(app);
        const QStringList before = QDir(dir.path()).entryList(QDir::AllEntries);
        const CommandResult viewer =
            runCommand({app + '/' + exeName, "1.0", m_server->url("/viewer/index.txt")});
        QCOMPARE(viewer.output, QString("found 2.0, required\nNews\n"));
        QCOMPARE(viewer.status, 0);

        const QString record = QStringLiteral("Viewer 2.0|%1|").arg(app + "/Contents/MacOS");
        QTRY_COMPARE_WITH_TIMEOUT(m_program->starts(), QStringList{record}, patience);
        QCOMPARE(differencesFromRelease(app, dir / "release"), QStringList());
        QCOMPARE(QDir(dir.path()).entryList(QDir::AllEntries), before);
        QTRY_COMPARE_WITH_TIMEOUT(m_program->ends(), QStringList{"Viewer 2.0"}, patience);
    }

private:
    /// Describes Viewer 2.0 and serves it.
    void publish(const TestDir& dir) const
    {
        release::lay({{exeName, m_program->script("Viewer 2.0")},
                      {updaterName, files::read(UPDATER_EXECUTABLE)},
                      {"Contents/Resources/about.txt", "Viewer 2.0\n"}},
                     dir / "release");
        files::write(dir / "CHANGES.txt", "News\n");
        release::describe(dir / "release", "Viewer", "2.0",
                          {"-r", "--changelog", dir / "CHANGES.txt"});
        release::serve(dir / "release", *m_server, "/viewer");
    }

    /// Installs Viewer 1.0, which was built with the kit, in @p app.
    void layViewer(const QString& app) const
    {
        release::lay({{exeName, files::read(m_dir / "build/viewer")},
                      {updaterName, files::read(UPDATER_EXECUTABLE)},
                      {"Contents/Resources/about.txt", "Viewer 1.0\n"}},
                     app);
        files::setMode(app + '/' + exeName, 0755);
        files::setMode(app + '/' + updaterName, 0755);
    }

    const TestDir m_dir;
    std::unique_ptr<HttpServer> m_server;
    std::unique_ptr<RelaunchedProgram> m_program;
};

UPDATER_TEST_MAIN(TestHostKit)
#include "tst_hostkit.moc"
