// What main() sets for the whole application. The program's own main() is called here by another
// name, and makes the application object, so the test has none.

#include <QGuiApplication>
#include <QTest>

int updater_main(int argc, char** argv);

class TestEntry : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void closingTheLastWindowDoesNotEndTheProgram()
    {
        QVERIFY2(QGuiApplication::quitOnLastWindowClosed(), "the toolkit's default");
        QByteArray name = "updater";
        char* argv[] = {name.data(), nullptr};
        QCOMPARE(updater_main(1, argv), 1);
        QVERIFY(!QGuiApplication::quitOnLastWindowClosed());
    }
};

int main(int argc, char** argv)
{
    qputenv("QT_QPA_PLATFORM", "offscreen");
    TestEntry test;
    return QTest::qExec(&test, argc, argv);
}

#include "tst_entry.moc"
