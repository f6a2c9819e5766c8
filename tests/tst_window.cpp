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

} // namespace

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

    void dialogAppearsAndCancelEndsTheUpdate_data()
    {
        QTest::addColumn<QString>("key");
        QTest::newRow("space on the button") << "space";
        QTest::newRow("escape") << "Escape";
    }

    void dialogAppearsAndCancelEndsTheUpdate()
    {
        QFETCH(QString, key);
        const TestDir dir;
        release::lay({{"a.txt", "first"}, {"b.txt", "second"}}, dir / "release");
        release::describe(dir / "release", "Editor", "2.0");
        HttpServer server;
        server.serve("/index.txt", HttpReply::ok(files::read(dir / "release/index.txt")));
        server.serve("/a.txt", HttpReply::ok("first"));
        server.serve("/b.txt", HttpReply::hold(HttpReply::ok("second")));
        files::makeDirectory(dir / "installed");
        files::makeDirectory(dir / "tmp");

        UpdaterProcess updater;
        updater.setEnvironment("QT_QPA_PLATFORM", "xcb");
        updater.setEnvironment("TMPDIR", dir / "tmp");
        updater.start({"-u", "-n", "Editor", "-d", dir / "installed", "-v", "1.0", "-l",
                       server.url("/index.txt")});
        QTRY_COMPARE_WITH_TIMEOUT(server.requests(),
                                  QStringList({"/index.txt", "/a.txt", "/b.txt"}), 30000);

        QString window;
        const QStringList search{"search", "--onlyvisible", "--pid",
                                 QString::number(updater.pid())};
        QTRY_VERIFY_WITH_TIMEOUT(!(window = x11("xdotool", search)).isEmpty(), 10000);
        QVERIFY2(!window.contains('\n'), "there is one window");
        QVERIFY(x11("xprop", {"-id", window, "_NET_WM_STATE"}).contains("_NET_WM_STATE_ABOVE"));
        QVERIFY(updater.isRunning());

        x11("xdotool", {"windowfocus", "--sync", window, "key", key});

        QVERIFY(updater.waitForEnd());
        QCOMPARE(updater.exitStatus(), 0);
        QCOMPARE(files::read(dir / "tmp/wUpEditor2.0/a.txt"), QByteArray("first"));
        QCOMPARE(files::list(dir / "tmp"), QStringList({"wUpEditor2.0/", "wUpEditor2.0/a.txt"}));
        QCOMPARE(files::list(dir / "installed"), QStringList());
    }
};

UPDATER_TEST_MAIN(TestWindow)
#include "tst_window.moc"
