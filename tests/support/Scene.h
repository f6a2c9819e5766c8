// One publisher, one user, one updater: where a test of the whole program begins, and what it looks
// at afterwards.
//
//   ServedScene scene;
//   scene.publish({{"a.txt", "new"}});
//   scene.install({{"a.txt", "old"}});
//   QCOMPARE(scene.update(), 0);
//   QCOMPARE(scene.missingOfTheUpdate(), QString());
#ifndef TESTS_SUPPORT_SCENE_H
#define TESTS_SUPPORT_SCENE_H

#include "tests/support/EventLoop.h"
#include "tests/support/HostProcess.h"
#include "tests/support/HttpServer.h"
#include "tests/support/RelaunchedProgram.h"
#include "tests/support/Release.h"
#include "tests/support/UpdaterProcess.h"

#include <functional>
#include <memory>

class Updater;

/// A published release, an installation, and an updater whose temporary directory nobody else uses.
/// All of it is in one private directory. The program is called "Editor".
class Scene
{
public:
    /// The release is in the directory @p release, or in one of the scene's own.
    explicit Scene(const QString& release = QString());

    /// Makes @p tree the release of @p version, described with @p furtherOptions.
    void publish(const Tree& tree, const QString& version = QStringLiteral("2.0"),
                 const QStringList& furtherOptions = {});

    /// Puts the release onto @p server, below @p path.
    void serveFrom(HttpServer& server, const QString& path = QString()) const;

    /// Installs @p tree. The program in it, if there is one, can be run.
    void install(const Tree& tree);

    /// The options of an update from the version file at @p url.
    QStringList updateOptions(const QString& url) const;

    /// Updates with the real executable.
    /// @return Its exit status; -1 when it has not ended in time.
    int update(const QString& url, const QStringList& furtherOptions = {});

    /// Updates inside the test's process, where message boxes and transfers can be seen. @p prepare
    /// is given the updater before it starts.
    /// @return The exit status; endless when it has not ended within a minute.
    int updateHere(const QString& url, const std::function<void(Updater&)>& prepare = {}) const;

    /// Checks with the real executable.
    /// @return The host's segment afterwards, of @p size bytes; nothing when the exit status is
    /// not 0.
    QByteArray check(const QString& url, int size = 16);

    /// Gives the updater the temporary directory @p path from now on, which is there and empty.
    void moveTmpDir(const QString& path);

    /// Starts a host that has the updater's temporary directory, as it must.
    std::unique_ptr<HostProcess> startHost(int size = 16) const;

    /// The path of the installed file @p name.
    QString installedPath(const QString& name) const { return installDir + '/' + name; }

    /// Where an update to 2.0 saves the file @p name.
    QString downloadedPath(const QString& name) const { return tmpDir + "/wUpEditor2.0/" + name; }

    /// The names that an update asks for, in this order: the version file, and what it lists and
    /// what is not installed.
    QStringList wantedNames() const;

    /// The same as paths on a server, below @p path.
    QStringList wantedPaths(const QString& path = QString()) const;

    /// The files of the installation that differ from @p expected, a line for each.
    QString differencesFrom(const Tree& expected) const;

    /// Everything in the temporary directory, without what the scene and the host have put there.
    QStringList leftBehind() const;

    /// What differs from a finished update, a line for each; nothing when nothing does. Waits for
    /// the start of the program, unless @p starts is false.
    QString missingOfTheUpdate(bool starts = true) const;

    /// What differs from an update to 2.0 that was given up after it had saved @p names.
    QString tracesBesides(const QStringList& names) const;

    /// "name|directory|": what program.starts() has of the installed program under @p name.
    QString startOf(const QString& name) const;

    const TestDir dir;
    const QString releaseDir;
    const QString installDir = dir / "installed/Editor.app";
    QString tmpDir;                                   ///< See moveTmpDir().
    QString installedVersion = QStringLiteral("1.0"); ///< What "-v" says.
    QString exe; ///< What "-x" names; no such option when empty.
    const RelaunchedProgram program;
    Tree published; ///< Of publish().
    Tree installed; ///< Of install().
    UpdaterProcess updater;

    /// The program in a bundle.
    static constexpr const char* exeName = "Contents/MacOS/Editor";
};

/// A scene whose release is served by a server in the test's own process.
class ServedScene : public Scene
{
public:
    using Scene::Scene;

    /// Makes @p tree the release of @p version and puts it onto the server.
    void publish(const Tree& tree, const QString& version = QStringLiteral("2.0"),
                 const QStringList& furtherOptions = {})
    {
        Scene::publish(tree, version, furtherOptions);
        serveFrom(server);
    }

    QString indexUrl() const { return server.url("/index.txt"); }

    /// Starts an update and returns at once.
    void start() { updater.start(updateOptions(indexUrl())); }

    int update() { return Scene::update(indexUrl()); }
    QByteArray check(int size = 16) { return Scene::check(indexUrl(), size); }

    /// Waits until the server has been asked @p times for the file @p name.
    /// @return False when that does not happen in time.
    bool waitForRequests(const QString& name, int times = 1) const;

    HttpServer server;
};

#endif // TESTS_SUPPORT_SCENE_H
