#include "tests/support/Scene.h"

#include "updater/Updater.h"

#include "tests/support/ReleaseTree.h"

#include <QTest>

#include <algorithm>

Scene::Scene(const QString& release) : releaseDir(release.isEmpty() ? dir / "release" : release)
{
    files::makeDirectory(installDir);
    moveTmpDir(dir / "tmp");
}

void Scene::publish(const Tree& tree, const QString& version, const QStringList& furtherOptions)
{
    published = tree;
    release::lay(tree, releaseDir);
    release::describe(releaseDir, "Editor", version, furtherOptions);
}

void Scene::serveFrom(HttpServer& server, const QString& path) const
{
    release::serve(releaseDir, server, path);
}

void Scene::install(const Tree& tree)
{
    installed = tree;
    release::lay(tree, installDir);
    if (tree.contains(exeName))
        files::setMode(installedPath(exeName), 0755);
}

QStringList Scene::updateOptions(const QString& url) const
{
    QStringList options{"-u", "-n", "Editor", "-d", installDir, "-v", installedVersion, "-l", url};
    if (!exe.isEmpty())
        options << "-x" << exe;
    return options;
}

int Scene::update(const QString& url, const QStringList& furtherOptions)
{
    return updater.run(updateOptions(url) + furtherOptions, 120000);
}

int Scene::updateHere(const QString& url, const std::function<void(Updater&)>& prepare) const
{
    const ScopedTmpDir tmp(tmpDir);
    Updater updaterHere("Editor", installDir, installedVersion, url, QString(), exe);
    if (prepare)
        prepare(updaterHere);
    return exitStatusOf([&updaterHere] { updaterHere.start(false); });
}

QByteArray Scene::check(const QString& url, int size)
{
    const auto host = startHost(size);
    const QStringList options{"-c", "-n", "Editor", "-v",       installedVersion,
                              "-l", url,  "-s",     host->key()};
    return updater.run(options, 120000) == 0 ? host->dump() : QByteArray();
}

void Scene::moveTmpDir(const QString& path)
{
    tmpDir = path;
    files::write(tmpDir + "/keep", ""); // Else an emptied temporary directory would go, too.
    updater.setEnvironment("TMPDIR", tmpDir);
}

std::unique_ptr<HostProcess> Scene::startHost(int size) const
{
    const ScopedTmpDir tmp(tmpDir);
    return std::make_unique<HostProcess>(size);
}

QStringList Scene::wantedNames() const
{
    QStringList names{"index.txt"};
    const QString index = QString::fromLatin1(files::read(releaseDir + "/index.txt"));
    const QVector<ProgramFile> entries = tree::entriesOf(index);
    for (const ProgramFile& entry : entries) {
        if (!installed.contains(entry.name) || installed[entry.name] != published[entry.name])
            names.append(entry.name);
    }
    return names;
}

QStringList Scene::wantedPaths(const QString& path) const
{
    QStringList paths = wantedNames();
    for (QString& name : paths)
        name.prepend(path + '/');
    return paths;
}

QString Scene::differencesFrom(const Tree& expected) const
{
    return release::differences(release::read(installDir), expected).join('\n');
}

QStringList Scene::leftBehind() const
{
    QStringList names = files::list(tmpDir);
    names.erase(std::remove_if(names.begin(), names.end(),
                               [](const QString& name) { return name.startsWith("qipc_"); }),
                names.end());
    if (!names.removeOne("keep"))
        names.append("(keep is gone)");
    return names;
}

QString Scene::missingOfTheUpdate(bool starts) const
{
    Tree expected = installed;
    for (auto file = published.begin(); file != published.end(); ++file)
        expected[file.key()] = file.value();
    QStringList lines = release::differences(release::read(installDir), expected);
    for (const QString& name : leftBehind())
        lines += "in the temporary directory: " + name;
    if (starts && !QTest::qWaitFor([this] { return !program.starts().isEmpty(); }, 30000))
        lines += "the program was not started";
    return lines.join('\n');
}

QString Scene::tracesBesides(const QStringList& names) const
{
    Tree saved{{"keep", ""}};
    for (const QString& name : names)
        saved["wUpEditor2.0/" + name] = published[name];
    QStringList lines = release::differences(release::read(installDir), installed);
    lines += release::differences(release::read(tmpDir), saved);
    if (!program.starts().isEmpty())
        lines += "the program was started";
    return lines.join('\n');
}

QString Scene::startOf(const QString& name) const
{
    return name + '|' + installDir + "/Contents/MacOS|";
}

bool ServedScene::waitForRequests(const QString& name, int times) const
{
    return QTest::qWaitFor([&] { return server.requestsFor('/' + name) >= times; }, 30000);
}
