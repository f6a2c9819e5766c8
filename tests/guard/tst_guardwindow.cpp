// What a person sees of a guarded update, and does to it: the updater's dialog and its message box
// on a real X server. CTest runs this under xvfb-run.

#include "tests/guard/GuardScene.h"
#include "tests/support/Needs.h"
#include "tests/support/TestMain.h"
#include "tests/support/X11.h"

namespace {

/// An update on the X server.
class WindowScene : public GuardScene
{
public:
    WindowScene() { updater.setEnvironment("QT_QPA_PLATFORM", "xcb"); }

    /// The number of the updater's visible window.
    static QString window()
    {
        return x11("xdotool", {"search", "--onlyvisible", "--class", "^updater$"});
    }

    /// The name of that window; empty when there is none.
    static QString title()
    {
        const QString number = window();
        return number.isEmpty() ? QString() : x11("xdotool", {"getwindowname", number});
    }

    static void press(const QString& key)
    {
        x11("xdotool", {"windowfocus", "--sync", window(), "key", key});
    }
};

} // namespace

class TestGuardWindow : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void initTestCase() { NEEDS_X11(); }

    void cancelLeavesTheOldRelease()
    {
        WindowScene scene;
        const HttpReply data = HttpReply::ok(scene.published["Contents/data.bin"]);
        scene.server.serve("/Contents/data.bin", HttpReply::hold(data));
        scene.updater.start(scene.options());
        QVERIFY(scene.waitForRequests("Contents/new/more.txt"));
        QTRY_VERIFY_WITH_TIMEOUT(!WindowScene::window().isEmpty(), 30000);
        WindowScene::press("Escape");
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 1);
        QCOMPARE(scene.outcome(), QString("cancelled"));
        QCOMPARE(scene.state(), QString("1.0"));
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});

        // The next run asks for what is still missing.
        const int asked = static_cast<int>(scene.server.requests().size());
        scene.server.serve("/Contents/data.bin", data);
        QCOMPARE(scene.guard(), 0);
        QCOMPARE(scene.state(), QString("2.0"));
        QCOMPARE(scene.requests(asked), QStringList({"/Contents/data.bin", "/index.txt"}));
        QCOMPARE(scene.left(), QStringList());
    }

    /// As without the guard, the user learns that a download has failed.
    void failedDownloadShowsTheBoxOfTheUpdater()
    {
        WindowScene scene;
        scene.server.serve("/Contents/data.bin", HttpReply::error(404));
        scene.updater.start(scene.options());
        QTRY_COMPARE_WITH_TIMEOUT(WindowScene::title(), QString("Error"), 30000);
        QVERIFY(scene.updater.isRunning());
        WindowScene::press("Return");
        QVERIFY(scene.updater.waitForEnd());
        QCOMPARE(scene.updater.exitStatus(), 1);
        QCOMPARE(scene.outcome(), QString("failed"));
        QCOMPARE(scene.state(), QString("1.0"));
        QTRY_COMPARE(scene.program.starts(), QStringList{scene.startOf("Editor 1.0")});
    }
};

UPDATER_TEST_MAIN(TestGuardWindow)
#include "tst_guardwindow.moc"
