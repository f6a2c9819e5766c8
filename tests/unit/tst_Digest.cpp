// SHA-1 of bytes and of files, against values from FIPS 180 and from sha1sum. Built twice: with the
// library that the build has found, and with Qt's SHA-1.

#include "manifest/Digest.h"

#include "tests/support/Command.h"
#include "tests/support/Row.h"
#include "tests/support/Sample.h"
#include "tests/support/TestMain.h"
#include "tests/unit/EveryByte.h"

namespace {

/// Longer than two blocks that are read at once, and no multiple of one.
const QByteArray& longContents()
{
    static const QByteArray contents = everyByte().repeated(2100) + "end";
    return contents;
}

/// The most memory that this process has had, in KiB; 0 where the system does not tell.
int peakOfMemory()
{
    for (const QByteArray& line : files::read("/proc/self/status").split('\n')) {
        if (line.startsWith("VmHWM:"))
            return line.mid(6).trimmed().split(' ').first().toInt();
    }
    return 0;
}

/// A file to which something happens while it is read.
class UnsteadyFile : public QFile
{
public:
    enum Event { None, Grows, Shrinks, BreaksAtOnce, Breaks, HidesItsSize, ClaimsToBeHuge };

    UnsteadyFile(const QString& path, Event event) : QFile(path), m_event(event) {}

    qint64 size() const override
    {
        switch (m_event) {
        case HidesItsSize:
            return 0;
        case ClaimsToBeHuge: // More than 31 bits can count, and in 32 bits negative.
            return (Q_INT64_C(1) << 31) + 1;
        default:
            return QFile::size();
        }
    }

protected:
    qint64 readData(char* data, qint64 most) override
    {
        const bool isFirst = m_reads++ == 0;
        if (m_event == BreaksAtOnce || (m_event == Breaks && !isFirst))
            return -1;
        const qint64 count = QFile::readData(data, most);
        if (isFirst && m_event == Grows)
            files::write(fileName(), longContents() + longContents());
        if (isFirst && m_event == Shrinks)
            QFile::resize(fileName(), 1000);
        return count;
    }

private:
    const Event m_event;
    int m_reads = 0;
};

} // namespace

Q_DECLARE_METATYPE(UnsteadyFile::Event)

class TestDigest : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void libraryIsTheOneOfThisBuild()
    {
        if (!QFile::exists("/proc/self/maps") || QByteArray(HASHED_BY).isEmpty())
            QSKIP("it cannot be told from the libraries that are loaded");
        QCOMPARE(files::read("/proc/self/maps").contains("libnettle"),
                 qstrcmp(HASHED_BY, "libnettle") == 0);
    }

    void digestOfBytesIsLowerCaseHexadecimal_data()
    {
        QTest::addColumn<QByteArray>("contents");
        QTest::addColumn<QString>("expected");
        row("nothing", QByteArray(), "da39a3ee5e6b4b0d3255bfef95601890afd80709");
        row("abc", QByteArray("abc"), "a9993e364706816aba3e25717850c26c9cd0d89d");
        row("448 bits", QByteArray("abcdbcdecdefdefgefghfghighijhijkijkljklmklmnlmnomnopnopq"),
            "84983e441c3bd26ebaae4aa1f95129e5e54670f1");
        row("896 bits",
            QByteArray("abcdefghbcdefghicdefghijdefghijkefghijklfghijklmghijklmn"
                       "hijklmnoijklmnopjklmnopqklmnopqrlmnopqrsmnopqrstnopqrstu"),
            "a49b2446a02c645bf419f995b67091253a04a259");
        row("a million letters", QByteArray(1000000, 'a'),
            "34aa973cd4c4daa4f61eeb2bdbad27316534016f");
    }

    void digestOfBytesIsLowerCaseHexadecimal()
    {
        QFETCH(QByteArray, contents);
        QFETCH(QString, expected);
        QCOMPARE(digest::sha1(contents), expected);
    }

    void blocksGiveTheDigestOfTheWhole_data()
    {
        QTest::addColumn<int>("size");
        for (const int size : {1, 63, 64, 65, 1000, 262143, 262144, 262145, 1000000})
            row(QString::number(size), size);
    }

    void blocksGiveTheDigestOfTheWhole()
    {
        QFETCH(int, size);
        const QByteArray& whole = longContents();
        digest::Sha1 sha1;
        for (int done = 0; done < whole.size(); done += size) {
            sha1.add("", 0);
            sha1.add(whole.constData() + done, qMin<qint64>(size, whole.size() - done));
        }
        QCOMPARE(sha1.result(), QString("5903d79e8bd0952b406a81d96743e3bb415993d3"));
    }

    void digestOfFileIsWhatSha1sumPrints_data()
    {
        QTest::addColumn<QByteArray>("contents");
        for (const int size : {63, 64, 65, 262143, 262144, 262145, 524287, 524288, 524289})
            row(QString("%1 bytes").arg(size), longContents().left(size));
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

    void largeFileIsReadWhole_data()
    {
        QTest::addColumn<qint64>("size");
        QTest::addColumn<QString>("expected");
        row("64 MiB", (Q_INT64_C(64) << 20) + 1, "e86b0f6894957e6491651921c60fe783069885c2");
        // Larger than a QByteArray of Qt 5 can be, and than 32 bits can count.
        if (everyRowIsWanted())
            row("4 GiB", (Q_INT64_C(4) << 30) + 1, "e7d747b75f76e0e41e83b75bce4642816136304f");
    }

    void largeFileIsReadWhole()
    {
        QFETCH(qint64, size);
        QFETCH(QString, expected);
        const TestDir dir;
        QFile file(dir / "file");
        QVERIFY(file.open(QIODevice::WriteOnly));
        QVERIFY(file.resize(size));
        file.close();
        const int before = peakOfMemory();
        QCOMPARE(digest::sha1OfFile(dir / "file").value_or(QString()), expected);
        // Whatever the size, it takes the memory of a block.
        QVERIFY2(peakOfMemory() - before < 16384, qPrintable(QString::number(before)));
    }

    void unsteadyFileCountsAsFarAsItCame_data()
    {
        QTest::addColumn<UnsteadyFile::Event>("event");
        QTest::addColumn<QByteArray>("expected");
        const QByteArray& all = longContents();
        row("steady", UnsteadyFile::None, all);
        row("grows: up to its size at first", UnsteadyFile::Grows, all);
        row("shrinks: what was there", UnsteadyFile::Shrinks, all.left(262144));
        row("breaks at once: nothing", UnsteadyFile::BreaksAtOnce, QByteArray());
        row("breaks: what came before", UnsteadyFile::Breaks, all.left(262144));
        row("says that it is empty: to its end", UnsteadyFile::HidesItsSize, all);
        row("says that it is huge: to its end", UnsteadyFile::ClaimsToBeHuge, all);
    }

    void unsteadyFileCountsAsFarAsItCame()
    {
        QFETCH(UnsteadyFile::Event, event);
        QFETCH(QByteArray, expected);
        const TestDir dir;
        files::write(dir / "file", longContents());
        UnsteadyFile file(dir / "file", event);
        QVERIFY(file.open(QIODevice::ReadOnly | QIODevice::Unbuffered));
        QCOMPARE(digest::sha1OfOpenFile(file), files::sha1(expected));
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
