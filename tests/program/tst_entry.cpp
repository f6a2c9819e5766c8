// What main() does around a run. The program's own main() is called here by another name, and makes
// the application object, so the test has none.

#include "tests/support/TestMain.h"

#include <QByteArrayList>
#include <QProgressDialog>
#include <QUrl>

#include <vector>

int updater_main(int argc, char** argv);

namespace {

/// What happened, in order. Lives as long as the process.
QStringList& events()
{
    static QStringList list;
    return list;
}

/// Notes when a progress dialog is asked to close.
class CloseWatch : public QObject
{
public:
    bool eventFilter(QObject* object, QEvent* event) override
    {
        if (event->type() == QEvent::Close && qobject_cast<QProgressDialog*>(object))
            events().append("dialog closed");
        return false;
    }
};

void watchApplication()
{
    static CloseWatch watch;
    QCoreApplication::instance()->installEventFilter(&watch);
    qAddPostRoutine([] { events().append("application ended"); });
}

int runMain(const QByteArrayList& options)
{
    QByteArrayList words = QByteArrayList{"updater"} + options;
    std::vector<char*> argv;
    for (QByteArray& word : words)
        argv.push_back(word.data());
    argv.push_back(nullptr);
    events().clear();
    return updater_main(static_cast<int>(words.size()), argv.data());
}

} // namespace

Q_COREAPP_STARTUP_FUNCTION(watchApplication)

class TestEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void closingTheLastWindowDoesNotEndTheProgram()
    {
        QVERIFY2(QGuiApplication::quitOnLastWindowClosed(), "Qt's default");
        QCOMPARE(runMain({}), 1);
        QVERIFY(!QGuiApplication::quitOnLastWindowClosed());
    }

    /// The end of the Updater closes its dialog, and needs the application for that.
    void updaterIsDestroyedBeforeTheApplication()
    {
        const TestDir dir;
        files::write(dir / "server/a.txt", "a");
        files::write(dir / "server/index.txt",
                     "<App><version>2.0</version><file><name>a.txt</name><sha1>" +
                         files::sha1("a").toLatin1() + "</sha1><size>1</size></file></App>");
        const QByteArray url = QUrl::fromLocalFile(dir / "server/index.txt").toString().toLatin1();
        QCOMPARE(runMain({"-u", "-n", "App", "-v", "1.0", "-d",
                          QFile::encodeName(dir / "installed"), "-l", url}),
                 0);
        QCOMPARE(files::read(dir / "installed/a.txt"), QByteArray("a"));
        QCOMPARE(events(), QStringList({"dialog closed", "application ended"}));
    }
};

int main(int argc, char** argv)
{
    const PrivateEnvironment environment;
    TestEntry test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_entry.moc"
