// Whole runs of the updater, from the version check to the first download, against a web server.
#ifndef TESTS_UNIT_RUN_H
#define TESTS_UNIT_RUN_H

#include "updater/Updater.h"

#include "tests/support/EventLoop.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/UpdaterProbe.h"

#include <QApplication>
#include <QDir>
#include <QTest>
#include <QTimer>

#include <memory>
#include <utility>

inline QByteArray entry(const QString& name, const QString& sha1, quint64 size)
{
    return "\t<file>\n\t\t<name>" + name.toLatin1() + "</name>\n\t\t<sha1>" + sha1.toLatin1() +
           "</sha1>\n\t\t<size>" + QByteArray::number(size) + "</size>\n\t</file>\n";
}

/// The entry of a file with @p contents.
inline QByteArray entry(const QString& name, const QByteArray& contents)
{
    return entry(name, files::sha1(contents), static_cast<quint64>(contents.size()));
}

inline QByteArray record(const QByteArray& root, const QByteArray& inside)
{
    return '<' + root + ">\n" + inside + "</" + root + ">\n";
}

/// The record of @p version of Editor, with @p rest after the version: no more than a test needs.
inline QByteArray editorRecord(const QByteArray& version, const QByteArray& rest = QByteArray())
{
    return record("Editor", "\t<version>" + version + "</version>\n" + rest);
}

/// A release that is not installed, with one file that is not installed.
inline QByteArray anUpdate()
{
    return editorRecord("2.1", entry("missing.dat", "contents"));
}

/// The names of the download directories that exist.
inline QStringList downloadDirectories()
{
    return QDir::temp().entryList({"wUp*"}, QDir::Dirs);
}

/// Makes a directory of its own the temporary directory until the end of the scope.
class OwnTmpDir
{
public:
    OwnTmpDir() : m_path(made(m_dir / "tmp")), m_scope(m_path) {}

    const QString& path() const { return m_path; }

private:
    static QString made(const QString& path)
    {
        files::makeDirectory(path);
        return QDir(path).canonicalPath();
    }

    const TestDir m_dir;
    const QString m_path;
    const ScopedTmpDir m_scope;
};

/// The base of tests with runs: each row has a temporary directory of its own, and leaves no
/// window. The source of the test includes "moc_Run.cpp".
class RunTest : public QObject
{
    Q_OBJECT

protected:
    const QString& tmpPath() const { return m_tmp->path(); }

private Q_SLOTS:
    // As in the program: a box that closes ends nothing.
    void initTestCase() { QApplication::setQuitOnLastWindowClosed(false); }

    void init() { m_tmp = std::make_unique<OwnTmpDir>(); }

    void cleanup()
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        QVERIFY(QApplication::topLevelWidgets().isEmpty());
        m_tmp.reset();
    }

private:
    std::unique_ptr<OwnTmpDir> m_tmp;
};

/// One run of the updater in this process, against a web server of its own. The server answers
/// requests for files only after server.release().
class Run
{
public:
    /// The state of a run that has not asked for an exit status: it has requested a file.
    enum State { Downloading = 200 };

    Run()
    {
        files::makeDirectory(baseDir);
        server.serveAllElse(HttpReply::hold(HttpReply::ok("")));
    }

    /// Makes @p text the version file on the server.
    void publish(const QByteArray& text) { publish(HttpReply::ok(text)); }
    void publish(const HttpReply& reply) { server.serve("/releases/index.txt", reply); }

    void install(const QString& name, const QByteArray& contents) const
    {
        files::write(baseDir + '/' + name, contents);
    }

    /// Makes the object, with the options that are set now.
    Updater& updater()
    {
        if (!m_updater)
            m_updater =
                std::make_unique<Updater>(programName, baseDir, version, url, key, programExe);
        return *m_updater;
    }

    UpdaterProbe state() { return UpdaterProbe(updater()); }

    /// Each runs until the updater asks for an exit status, or requests a file.
    /// @return The exit status, or Downloading.
    int check() { return run(true); }
    int update() { return run(false); }

    /// The names of the files to download.
    QStringList selected()
    {
        QStringList names;
        for (const ProgramFile& file : std::as_const(state().programData.files))
            names.append(file.name);
        return names;
    }

    QProgressDialog* dialog() { return state().progressDialog; }

    /// The requests for anything but the version file.
    QStringList fileRequests() const
    {
        QStringList requests = server.requests();
        requests.removeAll("/releases/index.txt");
        return requests;
    }

    TestDir dir;
    HttpServer server;
    QString programName = "Editor";
    QString baseDir = dir / "installed";
    QString version = "1.0";
    QString url = server.url("/releases/index.txt");
    QString key;
    QString programExe;

private:
    int run(bool checkOnly)
    {
        QTimer watch;
        const auto earlier = fileRequests().size();
        QObject::connect(&watch, &QTimer::timeout, &watch, [this, earlier] {
            if (fileRequests().size() > earlier)
                QCoreApplication::exit(Downloading);
        });
        watch.start(1);
        updater().start(checkOnly);
        return runEventLoop();
    }

    std::unique_ptr<Updater> m_updater;
};

#endif // TESTS_UNIT_RUN_H
