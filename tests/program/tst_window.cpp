// What a person sees: the progress dialog on a real X server, and Cancel pressed on the keyboard.
// CTest runs this under xvfb-run.

#include "tests/support/Needs.h"
#include "tests/support/Row.h"
#include "tests/support/Scene.h"
#include "tests/support/TestMain.h"
#include "tests/support/X11.h"

namespace {

/// An update of two files on the X server. What becomes of the second one is up to the test.
class WindowScene : public ServedScene
{
public:
    WindowScene()
    {
        publish({{"a.txt", "first"}, {"b.txt", "second"}});
        updater.setEnvironment("QT_QPA_PLATFORM", "xcb");
    }

    /// Returns the number of the updater's visible window; a line for each when there are several.
    QString window() const
    {
        return x11("xdotool", {"search", "--onlyvisible", "--pid", QString::number(updater.pid())});
    }
};

} // namespace

Q_DECLARE_METATYPE(HttpReply)

class TestWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_X11(); }

    void boxIsClosedAndTheUpdateEndsWithOne_data()
    {
        QTest::addColumn<HttpReply>("damage");
        row("transfer error", HttpReply::error(404));
        row("wrong content", HttpReply::ok("sECOND"));
    }

    void boxIsClosedAndTheUpdateEndsWithOne()
    {
        QFETCH(HttpReply, damage);
        WindowScene scene;
        scene.server.serve("/b.txt", damage);
        scene.start();
        const QStringList requests{"/index.txt", "/a.txt", "/b.txt", "/b.txt", "/b.txt"};
        QTRY_COMPARE_WITH_TIMEOUT(scene.server.requests(), requests, 30000);
        // The dialog has gone when the box, whose title is "Error", comes.
        QTRY_COMPARE_WITH_TIMEOUT(x11("xdotool", {"getwindowname", scene.window()}),
                                  QString("Error"), 10000);
        QVERIFY(scene.updater.isRunning());

        x11("xdotool", {"windowfocus", "--sync", scene.window(), "key", "Return"});

        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 1);
        QCOMPARE(scene.tracesBesides({"a.txt"}), QString());
    }

    void dialogAppearsAndCancelEndsTheUpdate_data()
    {
        QTest::addColumn<QString>("key");
        row("space on the button", "space");
        row("escape", "Escape");
    }

    void dialogAppearsAndCancelEndsTheUpdate()
    {
        QFETCH(QString, key);
        WindowScene scene;
        scene.server.serve("/b.txt", HttpReply::hold(HttpReply::ok("second")));
        scene.start();
        QTRY_COMPARE_WITH_TIMEOUT(scene.server.requests(),
                                  QStringList({"/index.txt", "/a.txt", "/b.txt"}), 30000);
        QString window;
        QTRY_VERIFY_WITH_TIMEOUT(!(window = scene.window()).isEmpty(), 10000);
        QVERIFY2(!window.contains('\n'), "there is one window");
        QVERIFY(x11("xprop", {"-id", window, "_NET_WM_STATE"}).contains("_NET_WM_STATE_ABOVE"));
        QVERIFY(scene.updater.isRunning());

        x11("xdotool", {"windowfocus", "--sync", window, "key", key});

        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 0);
        QCOMPARE(scene.tracesBesides({"a.txt"}), QString());
    }
};

UPDATER_TEST_MAIN(TestWindow)
#include "tst_window.moc"
