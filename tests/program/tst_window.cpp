// What a person sees: the progress dialog on a real X server, and Cancel pressed on the keyboard.
// CTest runs this under xvfb-run.

#include "tests/support/HttpServer.h"
#include "tests/support/Release.h"
#include "tests/support/TestMain.h"
#include "tests/support/UpdaterProcess.h"

#include <QStandardPaths>

namespace {

/// Runs @p command on the X server and returns what it prints.
QString x11(const QString& command, const QStringList& arguments)
{
    QProcess process;
    process.start(command, arguments);
    process.waitForFinished();
    return QString::fromUtf8(process.readAllStandardOutput()).trimmed();
}

/// An update of two files on the X server. What becomes of the second one is up to the test.
struct Update
{
    Update()
    {
        release::lay({{"a.txt", "first"}, {"b.txt", "second"}}, dir / "release");
        release::describe(dir / "release", "Editor", "2.0");
        server.serve("/index.txt", HttpReply::ok(files::read(dir / "release/index.txt")));
        server.serve("/a.txt", HttpReply::ok("first"));
        files::makeDirectory(dir / "installed");
        files::makeDirectory(dir / "tmp");
    }

    void start()
    {
        process.setEnvironment("QT_QPA_PLATFORM", "xcb");
        process.setEnvironment("TMPDIR", dir / "tmp");
        process.start({"-u", "-n", "Editor", "-d", dir / "installed", "-v", "1.0", "-l",
                       server.url("/index.txt")});
    }

    /// Returns the number of the updater's visible window; a line for each when there are several.
    QString window() const
    {
        return x11("xdotool", {"search", "--onlyvisible", "--pid", QString::number(process.pid())});
    }

    void verifyOnlyTheFirstFileWasSaved() const
    {
        QCOMPARE(files::list(dir / "tmp"), QStringList({"wUpEditor2.0/", "wUpEditor2.0/a.txt"}));
        QCOMPARE(files::read(dir / "tmp/wUpEditor2.0/a.txt"), QByteArray("first"));
        QCOMPARE(files::list(dir / "installed"), QStringList());
    }

    const TestDir dir;
    HttpServer server;
    UpdaterProcess process;
};

} // namespace

Q_DECLARE_METATYPE(HttpReply)

class TestWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase()
    {
        if (qEnvironmentVariableIsEmpty("DISPLAY"))
            QSKIP("there is no X server (DISPLAY is not set); run this under xvfb-run");
        for (const char* tool : {"xdotool", "xprop"}) {
            if (QStandardPaths::findExecutable(tool).isEmpty())
                QSKIP(qPrintable(QString("%1 is not installed").arg(tool)));
        }
    }

    void boxIsClosedAndTheUpdateEndsWithOne_data()
    {
        QTest::addColumn<HttpReply>("damage");
        QTest::newRow("transfer error") << HttpReply::error(404);
        QTest::newRow("wrong content") << HttpReply::ok("sECOND");
    }

    void boxIsClosedAndTheUpdateEndsWithOne()
    {
        QFETCH(HttpReply, damage);
        Update update;
        update.server.serve("/b.txt", damage);
        update.start();
        const QStringList requests{"/index.txt", "/a.txt", "/b.txt", "/b.txt", "/b.txt"};
        QTRY_COMPARE_WITH_TIMEOUT(update.server.requests(), requests, 30000);
        // The dialog has gone when the box, whose title is "Error", comes.
        QTRY_COMPARE_WITH_TIMEOUT(x11("xdotool", {"getwindowname", update.window()}),
                                  QString("Error"), 10000);
        QVERIFY(update.process.isRunning());

        x11("xdotool", {"windowfocus", "--sync", update.window(), "key", "Return"});

        QVERIFY(update.process.waitForEnd());
        QCOMPARE(update.process.exitStatus(), 1);
        update.verifyOnlyTheFirstFileWasSaved();
    }

    void dialogAppearsAndCancelEndsTheUpdate_data()
    {
        QTest::addColumn<QString>("key");
        QTest::newRow("space on the button") << "space";
        QTest::newRow("escape") << "Escape";
    }

    void dialogAppearsAndCancelEndsTheUpdate()
    {
        QFETCH(QString, key);
        Update update;
        update.server.serve("/b.txt", HttpReply::hold(HttpReply::ok("second")));
        update.start();
        QTRY_COMPARE_WITH_TIMEOUT(update.server.requests(),
                                  QStringList({"/index.txt", "/a.txt", "/b.txt"}), 30000);
        QString window;
        QTRY_VERIFY_WITH_TIMEOUT(!(window = update.window()).isEmpty(), 10000);
        QVERIFY2(!window.contains('\n'), "there is one window");
        QVERIFY(x11("xprop", {"-id", window, "_NET_WM_STATE"}).contains("_NET_WM_STATE_ABOVE"));
        QVERIFY(update.process.isRunning());

        x11("xdotool", {"windowfocus", "--sync", window, "key", key});

        QVERIFY(update.process.waitForEnd());
        QCOMPARE(update.process.exitStatus(), 0);
        update.verifyOnlyTheFirstFileWasSaved();
    }
};

UPDATER_TEST_MAIN(TestWindow)
#include "tst_window.moc"
