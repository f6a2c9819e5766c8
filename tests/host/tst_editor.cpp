// The example application: the results of its checks, its question to the user, and the whole
// update from Editor 1.0 to Editor 2.0.

#include "examples/editor/EditorWindow.h"

#include "tests/host/EditorHost.h"
#include "tests/host/Installed.h"
#include "tests/support/Command.h"
#include "tests/support/FakeProgram.h"
#include "tests/support/HttpServer.h"
#include "tests/support/Needs.h"
#include "tests/support/Nginx.h"
#include "tests/support/Release.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <QAbstractButton>
#include <QMessageBox>
#include <QProcess>
#include <QRegularExpression>
#include <QTimer>

#include <memory>

namespace {

/// Makes an installed Editor of @p version in @p dir, with or without a guard. Each version has a
/// different updater and guard, so that an update replaces them.
void makeBundle(const QString& dir, const QByteArray& version, const QString& url,
                bool hasGuard = false)
{
    const QString macOs = dir + "/Contents/MacOS";
    files::writeExecutable(macOs + "/Editor", files::read(EDITOR_EXECUTABLE) + version);
    files::writeExecutable(macOs + "/updater", files::read(UPDATER_EXECUTABLE) + version);
    if (hasGuard)
        files::writeExecutable(macOs + "/updater-guard", files::read(GUARD_EXECUTABLE) + version);
    files::write(dir + "/Contents/Resources/about.ini",
                 "name=Editor\nversion=" + version + "\nurl=" + url.toUtf8() + "\n");
}

QMessageBox* openBox()
{
    return qobject_cast<QMessageBox*>(QApplication::activeModalWidget());
}

} // namespace

class TestEditor : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void init() { m_server = std::make_unique<HttpServer>(); }

    void checkReportsWhatIsPublished_data()
    {
        QTest::addColumn<QString>("installed");
        QTest::addColumn<QByteArray>("published"); // The version file.
        QTest::addColumn<QString>("expected");
        const QByteArray changelog = "News: \xC3\xA4";
        row("another version", "1.0", versionFile("2.0", false, changelog),
            QString::fromUtf8("found 2.0 optional News: \xC3\xA4"));
        row("required version", "1.0", versionFile("2.0", true, changelog),
            QString::fromUtf8("found 2.0 required News: \xC3\xA4"));
        row("no changelog", "1.0", versionFile("2.0"), "found 2.0 optional ");
        row("older version", "3.0", versionFile("2.0"), "found 2.0 optional ");
        row("same version", "2.0", versionFile("2.0", true, changelog), "up to date");
        row("same version in another case", "2.0A", versionFile("2.0a"), "up to date");
        row("unreadable version file", "1.0", QByteArray("<html>not found</html>"), unreadable);
        row("longest version that fits", "1.0", versionFile(QByteArray(253, 'v')),
            "found " + QString(253, 'v') + " optional ");
        row("version that does not fit", "1.0", versionFile(QByteArray(254, 'v')), unreadable);
    }

    void checkReportsWhatIsPublished()
    {
        QFETCH(QString, installed);
        QFETCH(QByteArray, published);
        QFETCH(QString, expected);
        m_server->serve("/index.txt", HttpReply::ok(published));
        QCOMPARE(outcome(editorInfo(UPDATER_EXECUTABLE, installed, m_server->url("/index.txt"))),
                 QStringList{expected});
        QCOMPARE(files::list(QDir::tempPath()).filter("velmora"), QStringList());
    }

    void checkWithoutUpdaterFails()
    {
        QCOMPARE(outcome(editorInfo("/nowhere/updater")),
                 QStringList{"failed: The updater does not start."});
    }

    void checkThatIsRejectedFails()
    {
        QCOMPARE(outcome(editorInfo(UPDATER_EXECUTABLE, "", m_server->url("/index.txt"))),
                 QStringList{"failed: The check did not finish."});
    }

    void hostForgetsAnEarlierReport()
    {
        m_server->serveInTurn("/index.txt", {HttpReply::ok(versionFile("2.0", true)),
                                             HttpReply::ok(versionFile(QByteArray(254, 'v')))});
        UpdateCheck check(editorInfo(UPDATER_EXECUTABLE, "1.0", m_server->url("/index.txt")));
        QCOMPARE(outcome(check), QStringList{"found 2.0 required "});
        QCOMPARE(outcome(check), QStringList{unreadable});
    }

    void userDecides_data()
    {
        QTest::addColumn<bool>("required");
        QTest::addColumn<QString>("choice");
        QTest::addColumn<bool>("updaterVanishes");
        QTest::addColumn<bool>("updates");
        QTest::addColumn<int>("exitCode");
        row("optional, later", false, "Later", false, false, int(StillRuns));
        row("optional, now", false, "Update now", false, true, 0);
        row("required, quit", true, "Quit", false, false, 0);
        row("required, now", true, "Update now", false, true, 0);
        row("now, but the updater has gone", false, "Update now", true, false, int(StillRuns));
    }

    void userDecides()
    {
        QFETCH(bool, required);
        QFETCH(QString, choice);
        QFETCH(bool, updaterVanishes);
        QFETCH(bool, updates);
        QFETCH(int, exitCode);
        // Checks as the real updater does, but only records how an update is started.
        const FakeProgram updater("[ \"$1\" = -u ] || exec '" UPDATER_EXECUTABLE "' \"$@\"\n" +
                                  QByteArray(recordingArguments));
        m_server->serve("/index.txt", HttpReply::ok(versionFile("2.0", required, "What is new")));
        const HostInfo info = editorInfo(updater.path(), "1.0", m_server->url("/index.txt"));

        EditorWindow window(info, false);
        window.show();
        QString text;
        QString changelog;
        QStringList choices;
        // The box runs an event loop of its own, so it is answered from a timer.
        QTimer whenAsked;
        connect(&whenAsked, &QTimer::timeout, &window, [&] {
            const QMessageBox* box = openBox();
            if (!box)
                return;
            whenAsked.stop();
            text = box->text();
            changelog = box->informativeText();
            if (updaterVanishes)
                QFile::remove(info.updater);
            // An Editor that quits does so well within this time.
            QTimer::singleShot(500, &window, [] { QCoreApplication::exit(StillRuns); });
            QAbstractButton* chosen = nullptr;
            const auto buttons = box->buttons();
            for (QAbstractButton* button : buttons) {
                choices.append(button->text());
                if (button->text() == choice)
                    chosen = button;
            }
            if (chosen)
                chosen->click();
        });
        whenAsked.start(10);
        QTimer::singleShot(30000, &window, [] { QCoreApplication::exit(TookTooLong); });
        const int code = QCoreApplication::exec();

        choices.sort();
        QCOMPARE(choices, QStringList({required ? "Quit" : "Later", "Update now"}));
        QCOMPARE(text, QString("Editor 2.0 is available."));
        QCOMPARE(changelog, QString("What is new"));
        QCOMPARE(window.isUpdateStarted(), updates);
        QCOMPARE(code, exitCode);
        if (!updates)
            return;
        QCOMPARE(updater.arguments(), updateArguments(info));
    }

    void automaticEditorEndsWithOneWhenTheCheckFails()
    {
        const TestDir dir;
        makeBundle(dir / "Editor.app", "1.0", m_server->url("/missing"));
        const CommandResult result =
            runCommand({dir / "Editor.app/Contents/MacOS/Editor", "--auto"});
        QCOMPARE(result.status, 1);
        QCOMPARE(reported(result.output),
                 QStringList({"Editor 1.0: started",
                              "Editor 1.0: no check: The published version could not be read."}));
    }

    void editorUpdatesItself_data()
    {
        QTest::addColumn<QStringList>("buildOptions");
        QTest::addColumn<QString>("announcement");
        QTest::addColumn<bool>("hasGuard");
        const QString optional = "version 2.0 is published";
        row("optional update", QStringList(), optional, false);
        row("required update", QStringList{"-r"}, optional + " and required", false);
        if (!QString(GUARD_EXECUTABLE).isEmpty())
            row("guarded update", QStringList(), optional, true);
    }

    void editorUpdatesItself()
    {
        QFETCH(QStringList, buildOptions);
        QFETCH(QString, announcement);
        QFETCH(bool, hasGuard);
        NEEDS_NGINX();
        const TestDir dir;
        const Nginx nginx(dir / "www");
        const QString url = nginx.url("/editor/index.txt");
        makeBundle(dir / "www/editor", "2.0", url, hasGuard);
        makeBundle(dir / "Editor.app", "1.0", url, hasGuard);
        files::write(dir / "CHANGES.txt", "Faster start-up\n");
        release::describe(dir / "www/editor", "Editor", "2.0",
                          buildOptions + QStringList{"--changelog", dir / "CHANGES.txt"});

        runEditor(dir);
        QTRY_COMPARE_WITH_TIMEOUT(reportedInLog(dir),
                                  QStringList({"Editor 1.0: started", "Editor 1.0: " + announcement,
                                               "Editor 1.0: its changelog:", "Faster start-up",
                                               "Editor 1.0: starts the update and quits",
                                               "Editor 2.0: started", "Editor 2.0: up to date"}),
                                  30000);
        QCOMPARE(differencesFromRelease(dir / "Editor.app", dir / "www/editor"), QStringList());
    }

    void editorUpdatesItselfTwice_data()
    {
        QTest::addColumn<bool>("bringsGuard");
        row("without a guard", false);
        if (!QString(GUARD_EXECUTABLE).isEmpty())
            row("the first update brings a guard", true);
    }

    /// The updater that the first update installs does the second one, and the guard as well.
    void editorUpdatesItselfTwice()
    {
        QFETCH(bool, bringsGuard);
        NEEDS_NGINX();
        const TestDir dir;
        const Nginx nginx(dir / "www");
        const QString url = nginx.url("/editor/index.txt");
        makeBundle(dir / "Editor.app", "1.0", url);
        for (const QByteArray version : {"2.0", "3.0"}) {
            const QString name = "Editor " + version;
            QDir(dir / "www/editor").removeRecursively();
            makeBundle(dir / "www/editor", version, url, bringsGuard);
            release::describe(dir / "www/editor", "Editor", version);
            runEditor(dir);
            QTRY_COMPARE_WITH_TIMEOUT(reportedInLog(dir).mid(3),
                                      QStringList({name + ": started", name + ": up to date"}),
                                      30000);
            QCOMPARE(differencesFromRelease(dir / "Editor.app", dir / "www/editor"), QStringList());
        }
    }

private:
    enum ExitCode { StillRuns = 7, TookTooLong };

    /// Runs the installed Editor until it quits. It writes to a new log, as do the Editors that the
    /// update starts after it.
    static void runEditor(const TestDir& dir)
    {
        const CommandResult editor =
            runCommand({"sh", "-c", "exec \"$1\" --auto >\"$2\" 2>&1", "sh",
                        dir / "Editor.app/Contents/MacOS/Editor", dir / "log"});
        QCOMPARE(editor.status, 0);
    }

    /// The lines of @p output, without those of Qt.
    static QStringList reported(const QString& output)
    {
        return output.split('\n', Qt::SkipEmptyParts)
            .filter(QRegularExpression("^(Editor|Faster)"));
    }

    static QStringList reportedInLog(const TestDir& dir)
    {
        return reported(QString::fromUtf8(files::read(dir / "log")));
    }

    std::unique_ptr<HttpServer> m_server;
};

UPDATER_TEST_MAIN(TestEditor)
#include "tst_editor.moc"
