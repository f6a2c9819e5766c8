// Names on a terminal.

#include "manifest/Printable.h"

#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

class TestPrintable : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void whatCannotBePrintedIsEscaped_data()
    {
        QTest::addColumn<QString>("text");
        QTest::addColumn<QString>("shown");
        const QString umlaut = QString::fromUtf8("\xc3\xa4");
        const QString rocket = QString::fromUtf8("\xf0\x9f\x9a\x80"); // Beyond 16 bits.
        row("ASCII", "a b\\", "a b\\");
        row("Latin-1", umlaut, umlaut);
        row("beyond 16 bits", rocket, rocket);
        row("line end", "a\nb", "a\\x0ab");
        row("Latin-1 control", QString(QChar(0x9b)), "\\x9b");
        row("turns text around", QString(QChar(0x202e)), "\\u202e");
    }

    void whatCannotBePrintedIsEscaped()
    {
        QFETCH(QString, text);
        QTEST(manifest::printable(text), "shown");
    }
};

UPDATER_TEST_MAIN(TestPrintable)
#include "tst_Printable.moc"
