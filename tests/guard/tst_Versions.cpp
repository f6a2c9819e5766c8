// Which of two versions is lower.

#include "host/guard/Versions.h"

#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

class TestVersions : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void versionsAreCompared_data()
    {
        QTest::addColumn<QString>("one");
        QTest::addColumn<QString>("order"); // "<", "=" (neither is lower)
        QTest::addColumn<QString>("other");
        const QString forty = QString(40, '9');
        const QString tenToForty = '1' + QString(40, '0');

        row("by value, not as text", "1.9", "<", "1.10");
        row("first part", "1.9", "<", "2.0");
        row("first part decides", "1.99", "<", "2.1");
        row("last of several", "1.2.3.4", "<", "1.2.3.5");
        row("equal", "2.1", "=", "2.1");
        row("missing part is 0", "2", "=", "2.0");
        row("missing parts are 0", "2", "=", "2.0.0.0");
        row("missing part against a number", "2", "<", "2.0.1");
        row("date", "2024.09.30", "<", "2024.10.01");

        row("text after the numbers", "2.0rc1", "=", "2.0");
        row("number in that text", "2.0rc1", "=", "2.0rc2");
        row("text after the numbers, higher numbers", "2.0rc1", "<", "2.0.1");
        row("text after a dot", "2.0.beta", "=", "2.0");
        row("text after a number, then a dot", "2.0b.1", "=", "2.0");
        row("build number after a plus", "2.0+7", "=", "2.0+8");
        row("hyphen is no part", "2.0-1", "=", "2.0-2");
        row("comma is no dot", "2,0", "=", "2,1");
        row("dot at the end", "2.", "=", "2");
        row("dot at the end, higher numbers", "2.", "<", "2.0.1");
        row("two dots end the numbers", "2..1", "=", "2");
        row("numbers after two dots", "2..1", "<", "2.0.1");

        row("leading zeros", "1.02", "=", "1.2");
        row("leading zeros do not make it longer", "1.0009", "<", "1.10");
        row("zeros only", "0.00", "=", "0");
        row("zero and one", "0", "<", "0.0.1");
        row("40 digits", forty, "<", tenToForty);
        row("40 digits that differ in the last one", QString(39, '9') + '8', "<", forty);
        row("40 digits, equal", "1." + forty, "=", "1." + forty);
        row("40 digits and a small number", "7", "<", forty);
        row("beyond 64 bits, by what would be left", "5", "<", "18446744073709551617");
        row("40 digits after leading zeros", QString(40, '0') + '7', "<", "8");

        row("v", "v1.2", "=", "1.2");
        row("V", "V1.2", "=", "1.2");
        row("v compared by value", "v1.9", "<", "v1.10");
        row("v and none", "1.2", "<", "v1.3");
        row("V and none", "V1.2", "<", "1.3");
        row("v and a space", "v 1.2", "=", "9");
        row("two v", "vv1", "=", "9");
        row("v alone", "v", "=", "1");
        row("v of the second part", "1.v2", "=", "1");
        row("spaces around", " 1.9 ", "<", "\t1.10\n");
        row("spaces around, equal", " 2.0\r\n", "=", "2");
        row("space inside", "1. 9", "<", "1.1");

        row("empty", "", "=", "1");
        row("both empty", "", "=", "");
        row("spaces only", "  ", "=", "1");
        row("text only", "latest", "=", "1");
        row("text before the number", "r2", "=", "1");
        row("dot first", ".5", "=", "1");
        row("minus first", "-1", "=", "0.1");
        row("plus first", "+1", "=", "2");
        row("digits of another script", QString(QChar(0x0661)), "=", "2"); // Arabic one.
        row("digits of another script inside", QString("1.") + QChar(0x0669), "=", "1");
    }

    void versionsAreCompared()
    {
        QFETCH(QString, one);
        QFETCH(QString, order);
        QFETCH(QString, other);
        QCOMPARE(versions::isLower(one, other), order == "<");
        QVERIFY(!versions::isLower(other, one));
        QVERIFY(!versions::isLower(one, one));
        QVERIFY(!versions::isLower(other, other));
    }

    /// They come from outside. In quadratic time this would take hours.
    void longVersionsAreComparedInLinearTime()
    {
        constexpr int count = 1000000;
        QString parts = "1";
        for (int i = 0; i < count; ++i)
            parts += ".0";
        QVERIFY(versions::isLower(parts, parts + ".1"));
        QVERIFY(!versions::isLower(parts + ".1", parts));
        QVERIFY(versions::isLower(QString(count, '8'), QString(count, '9')));
    }
};

UPDATER_TEST_MAIN(TestVersions)
#include "tst_Versions.moc"
