// The downloads of an update, against a web server of their own.
#ifndef TESTS_UNIT_DOWNLOAD_H
#define TESTS_UNIT_DOWNLOAD_H

#include "updater/Updater.h"

#include "manifest/ManifestText.h"

#include "tests/support/EventLoop.h"
#include "tests/support/Files.h"
#include "tests/support/HttpServer.h"
#include "tests/support/MessageBoxes.h"
#include "tests/support/ReleaseTree.h"
#include "tests/support/UpdaterProbe.h"

#include <QNetworkReply>
#include <QProgressDialog>
#include <QTest>

#include <functional>

constexpr quint64 mebibyte = 1048576;

/// What a progress dialog shows, in one line.
inline QString looksOf(const QProgressDialog& dialog)
{
    return QStringLiteral("%1 | %2 | %3")
        .arg(QString::number(dialog.value()), dialog.labelText(),
             QString(dialog.isVisible() ? "shown" : "hidden"));
}

/// The files of an update, a server that offers them, and the run that downloads them. The base
/// directory is a link to nowhere, so that the installation fails and the saved files stay.
class Download
{
public:
    Download()
        : updater("Editor", dir / "nowhere", "1.0", server.url("/r/index.txt"), QString(),
                  QString())
        , state(updater)
    {
        files::link("missing/directory", dir / "nowhere");
        state.tempDir = dir / "downloads";
    }

    void list(const ProgramFile& file) { state.programData.files.append(file); }

    /// Answers the requests for the file @p name with @p replies in turn, and then always with the
    /// last.
    void answer(const QString& name, const QList<HttpReply>& replies)
    {
        server.serveInTurn(pathOf(name), replies);
    }

    void offer(const QString& name, const QByteArray& contents)
    {
        list(tree::entry(name, contents));
        answer(name, {HttpReply::ok(contents)});
    }

    /// The path that the server is asked for when the file @p name is fetched.
    QString pathOf(const QString& name) const
    {
        return QUrl(server.url("/r/") + name)
            .toString(QUrl::FullyEncoded | QUrl::RemoveScheme | QUrl::RemoveAuthority |
                      QUrl::RemoveFragment);
    }

    /// Gives the run a dialog, as the version check does.
    QProgressDialog* openDialog()
    {
        state.progressDialog = new QProgressDialog(
            "An update", "Cancel", 0, static_cast<int>(state.programData.files.size()));
        state.progressDialog->show();
        return state.progressDialog;
    }

    /// Publishes the files listed so far as a release. run() then begins with the version check.
    void publish()
    {
        ProgramData release = state.programData;
        release.name = "Editor";
        release.version = "2.0";
        QString text;
        manifest::write(release, text);
        server.serve("/r/index.txt", HttpReply::ok(text.toUtf8()));
        state.programData = ProgramData();
        m_begin = [this] {
            updater.start(false);
        };
    }

    /// Runs to the end and returns the exit status.
    int run() { return exitStatusOf(m_begin); }

    /// Downloads the files listed so far. The installation does not begin: one more file is never
    /// sent.
    bool saveAll()
    {
        list(tree::entry("after-all", "x"));
        answer("after-all", {HttpReply::hold(HttpReply::ok("x"))});
        updater.downloadNewProgramData();
        return waitForRequest("after-all");
    }

    bool waitForRequest(const QString& name)
    {
        return QTest::qWaitFor([&] { return server.requestsFor(pathOf(name)) > 0; }, 30000);
    }

    /// Calls @p action before the run handles a reply.
    void beforeEachReply(const std::function<void()>& action)
    {
        QObject::connect(&state.netManager, &QNetworkAccessManager::finished, &updater, action);
    }

    int transfersRunning() const
    {
        int running = 0;
        const auto replies = state.netManager.findChildren<QNetworkReply*>();
        for (const QNetworkReply* reply : replies)
            running += reply->isRunning();
        return running;
    }

    int repliesLeft() const
    {
        QCoreApplication::sendPostedEvents(nullptr, QEvent::DeferredDelete);
        return static_cast<int>(state.netManager.findChildren<QNetworkReply*>().size());
    }

    QStringList saved() const { return files::list(dir / "downloads"); }

    HttpServer server;
    TestDir dir;
    Updater updater;
    UpdaterProbe state;
    MessageBoxes boxes;

private:
    std::function<void()> m_begin = [this] {
        updater.downloadNewProgramData();
    };
};

/// What the server does with @p contents when it is asked for them:
///   ok  sends them
///   T   fails the transfer, with the right contents as the error page
///   S   sends one byte less
///   L   sends one byte more
///   H   sends as many bytes, the last one changed
inline HttpReply replyWith(const QString& outcome, const QByteArray& contents)
{
    if (outcome == "T")
        return HttpReply::error(404, contents);
    if (outcome == "S")
        return HttpReply::ok(contents.left(contents.size() - 1));
    if (outcome == "L")
        return HttpReply::ok(contents + '+');
    if (outcome == "H")
        return HttpReply::ok(contents.left(contents.size() - 1) + '!');
    return HttpReply::ok(contents);
}

inline QList<HttpReply> repliesWith(const QString& outcomes, const QByteArray& contents)
{
    QList<HttpReply> replies;
    const QStringList each = outcomes.split(' ', Qt::SkipEmptyParts);
    for (const QString& outcome : each)
        replies.append(replyWith(outcome, contents));
    return replies;
}

/// Lists the files "1", "2", ... and has the server answer for each as @p script says: "T ok | ok"
/// is a failure and then a success for the first file, and a success for the second.
inline void follow(Download& download, const QString& script)
{
    const QStringList outcomes = script.split('|');
    for (int i = 0; i < outcomes.size(); ++i) {
        const QString name = QString::number(i + 1);
        const QByteArray contents = "contents of " + name.toUtf8();
        download.list(tree::entry(name, contents));
        download.answer(name, repliesWith(outcomes.at(i), contents));
    }
}

/// The files asked for, in order, such as "1 1 2".
inline QString requestsOf(const Download& download)
{
    return download.server.requests().join(' ').remove("/r/");
}

#endif // TESTS_UNIT_DOWNLOAD_H
