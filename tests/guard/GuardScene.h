// A scene in which the host starts the guard instead of the updater.
//
//   GuardScene scene;
//   QCOMPARE(scene.guard(), 0);
//   QCOMPARE(scene.state(), QString("2.0"));
#ifndef TESTS_GUARD_GUARDSCENE_H
#define TESTS_GUARD_GUARDSCENE_H

#include "tests/support/Scene.h"

#include <QJsonDocument>
#include <QJsonObject>

#include <sys/stat.h>

class GuardScene : public ServedScene
{
public:
    /// Publishes 2.0, and installs 1.0 with some files that no release lists.
    GuardScene()
    {
        updater.setProgram(GUARD_EXECUTABLE);
        exe = installedPath(exeName);
        program.letEnd(); // A program that was started need not wait for anything.
        install({{exeName, program.script("Editor 1.0")},
                 {"Contents/same.txt", "same in both"},
                 {"Contents/data.bin", QByteArray(100000, 'o')},
                 {"Contents/dropped.txt", "of 1.0 alone"},
                 {"Contents/.hidden/user.cfg", "not of a release"}});
        files::setMode(installedPath("Contents/data.bin"), 0640);
        publish({{exeName, program.script("Editor 2.0")},
                 {"Contents/same.txt", "same in both"},
                 {"Contents/data.bin", QByteArray(100000, 'n')},
                 {"Contents/new/more.txt", "new"}});
        m_old = entries();
    }

    /// The guard's command line.
    QStringList options(const QStringList& further = {}) const
    {
        return QStringList{
                   "--name",         "Editor", "--dir",    installDir, "--version-installed",
                   installedVersion, "--url",  indexUrl(), "--exe",    exe,
                   "--state-dir",    stateDir} +
               further;
    }

    /// Runs the guard. @return Its exit status.
    int guard(const QStringList& further = {}) { return updater.run(options(further), 120000); }

    /// Path, mode and digest of everything that is installed.
    QStringList entries() const
    {
        QStringList lines;
        for (const QString& name : files::list(installDir)) {
            const QString path = installDir + '/' + name;
            lines.append(QString("%1 %2 %3")
                             .arg(name, QString::number(files::mode(path), 8),
                                  name.endsWith('/') ? QString() : files::sha1(files::read(path))));
        }
        return lines;
    }

    /// "1.0" when everything is as it was, "2.0" when the update is installed, else what differs
    /// from that.
    QString state() const
    {
        if (entries() == m_old)
            return "1.0";
        Tree expected = installed;
        for (auto file = published.begin(); file != published.end(); ++file)
            expected[file.key()] = file.value();
        QStringList lines = release::differences(release::read(installDir), expected);
        const QMap<QString, unsigned> modes{{exeName, 0755},
                                            {"Contents/data.bin", 0640},
                                            {"Contents/new/more.txt", 0644},
                                            {"Contents/new", 0755},
                                            {"Contents/same.txt", 0644}};
        for (auto mode = modes.begin(); mode != modes.end(); ++mode) {
            const QString path = installedPath(mode.key());
            if (files::mode(path) != mode.value())
                lines += mode.key() + " has the mode " + QString::number(files::mode(path), 8);
        }
        return lines.isEmpty() ? QString("2.0") : lines.join('\n');
    }

    /// What is beside the installation, and in the user's temporary directory.
    QStringList left() const
    {
        QStringList names = QDir(dir / "installed")
                                .entryList(QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot);
        names.removeOne("Editor.app");
        return names + leftBehind();
    }

    /// "last-update.json".
    QJsonObject report() const
    {
        return QJsonDocument::fromJson(files::read(stateDir + "/last-update.json")).object();
    }
    QString outcome() const { return report().value("outcome").toString(); }
    QString reason() const { return report().value("reason").toString(); }

    /// What the server was asked for since @p first, sorted: several transfers run at once.
    QStringList requests(int first = 0) const
    {
        QStringList paths = server.requests().mid(first);
        paths.sort();
        return paths;
    }

    const QString stateDir = dir / "state";

private:
    QStringList m_old;
};

#endif // TESTS_GUARD_GUARDSCENE_H
