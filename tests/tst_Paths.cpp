// The path rules that several subsystems share.

#include "updater/Paths.h"

#include "tests/support/TestMain.h"

class TestPaths : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void separatorIsAddedOnlyWhereNoneStands_data()
    {
        QTest::addColumn<QString>("path");
        QTest::addColumn<bool>("ends");
        QTest::addColumn<QString>("expected");
        QTest::newRow("name at the end") << "/opt/app" << false << "/opt/app/";
        QTest::newRow("slash at the end") << "/opt/app/" << true << "/opt/app/";
        QTest::newRow("backslash at the end") << "C:\\app\\" << true << "C:\\app\\";
        QTest::newRow("two slashes at the end") << "/opt//" << true << "/opt//";
        QTest::newRow("separators only inside") << "a/b\\c" << false << "a/b\\c/";
        QTest::newRow("root") << "/" << true << "/";
        QTest::newRow("empty") << "" << false << "/";
    }

    void separatorIsAddedOnlyWhereNoneStands()
    {
        QFETCH(QString, path);
        QFETCH(bool, ends);
        QFETCH(QString, expected);
        QCOMPARE(paths::endsWithSeparator(path), ends);
        QCOMPARE(paths::withSeparator(path), expected);
    }
};

UPDATER_TEST_MAIN(TestPaths)
#include "tst_Paths.moc"
