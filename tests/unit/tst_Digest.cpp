// SHA-1 of bytes and of files, against values from FIPS 180 and from sha1sum.

#include "manifest/Digest.h"

#include "tests/support/Command.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/EveryByte.h"

class TestDigest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void digestOfBytesIsLowerCaseHexadecimal_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("expected");
        row("nothing", QByteArray(), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
        row("abc", QByteArray("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
        row("a million letters", QByteArray(1000000, 'a'),
            "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    }

    void digestOfBytesIsLowerCaseHexadecimal()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, expected);
        QCOMPARE(digest::sha1(contents), expected);
    }

    void digestOfFileIsWhatSha1sumPrints_data()
    {
        QTest::addColumn<QByteArray>("contents");
        row("empty", QByteArray());
        row("one byte", QByteArray(1, '\0'));
        row("line feeds and carriage returns", QByteArray("a\r\nb\n\r"));
        row("every byte", everyByte());
        row("longer than one read", everyByte().repeated(20000));
    }

    void digestOfFileIsWhatSha1sumPrints()
    {
        QFETCH(QByteArray, contents);
        const TestDir dir;
        files::write(dir / "file", contents);
        const QString expected = QString::fromLatin1(outputOf({"sha1sum", dir / "file"}).left(40));
        QCOMPARE(expected.size(), 40);
        const std::optional<QString> sha1 = digest::sha1OfFile(dir / "file");
        QVERIFY(sha1.has_value());
        QCOMPARE(*sha1, expected);
    }

    void fileThatCannotBeOpenedHasNone_data()
    {
        QTest::addColumn<QString>("name");
        row("missing", "missing");
        row("directory", "directory");
        row("broken link", "broken");
    }

    void fileThatCannotBeOpenedHasNone()
    {
        QFETCH(QString, name);
        const TestDir dir;
        files::makeDirectory(dir / "directory");
        files::link("nowhere", dir / "broken");
        QVERIFY(!digest::sha1OfFile(dir / name).has_value());
    }
};

UPDATER_TEST_MAIN(TestDigest)
#include "tst_Digest.moc"
