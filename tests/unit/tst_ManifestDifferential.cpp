// The manifest reader against the literal one, on generated texts.
//
//   UPDATER_DIFFERENTIAL_TEXTS=5000000   how many texts; 200,000 if unset
//   UPDATER_DIFFERENTIAL_SEED=7          another series of texts

#include "manifest/ManifestText.h"

#include "tests/support/LiteralReader.h"
#include "tests/support/ManifestTexts.h"
#include "tests/support/Records.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"

#include <functional>

namespace {

struct Reading
{
    bool result = false;
    ProgramData data;
};

bool operator==(const Reading& one, const Reading& other)
{
    return one.result == other.result && records::same(one.data, other.data);
}

using Reader = std::function<bool(const QString&, const QString&, ProgramData&)>;

Reading readingOf(const ManifestText& text, const Reader& reader)
{
    Reading reading;
    reading.data = text.start;
    reading.result = reader(text.rootTag, text.xml, reading.data);
    return reading;
}

QString described(const Reading& reading)
{
    return QString(reading.result ? "true" : "false") + '\n' + records::described(reading.data);
}

/// The mistakes that a reader can make.
struct Faults
{
    Qt::CaseSensitivity cases = Qt::CaseInsensitive;
    bool trimsBeforeJoining = true;
    bool seesTagsAcrossSeams = true;
    int looksBack = -1; ///< Characters before the last cut that are searched again; -1 for all.
};

/// The literal reader with faults. The generated texts must show the difference.
class FaultyReader
{
public:
    explicit FaultyReader(const Faults& faults) : m_faults(faults) {}

    bool operator()(const QString& rootTag, const QString& xml, ProgramData& data) const
    {
        QString copy = xml;
        QString body = take(rootTag, copy);
        if (body.isEmpty())
            return false;
        data.name = rootTag.trimmed();
        const QString version = take("version", body);
        if (version.isEmpty())
            return false;
        data.version = version;
        data.required = take("required", body).compare("true", Qt::CaseInsensitive) == 0;
        const QString changelog = take("changelog", body);
        if (!changelog.isEmpty())
            data.changelog = changelog;
        readFiles(body, data.files);
        return true;
    }

private:
    void readFiles(QString body, QVector<ProgramFile>& files) const
    {
        int seam = 0;
        for (;;) {
            const int from = m_faults.looksBack < 0 ? 0 : qMax(0, seam - m_faults.looksBack);
            QString block = take("file", body, from, &seam);
            const QString name = take("name", block);
            const QString sha1 = take("sha1", block);
            const QString size = take("size", block);
            if (name.isEmpty() || sha1.isEmpty() || size.isEmpty())
                return;
            bool converted = false;
            const quint64 bytes = size.toULongLong(&converted);
            if (converted)
                files.append({name, sha1, bytes});
        }
    }

    QString take(const QString& tag, QString& source, int from = 0, int* seam = nullptr) const
    {
        const QString opening = '<' + tag + '>';
        const QString closing = "</" + tag + '>';
        const auto begin = source.indexOf(opening, from, m_faults.cases);
        const auto value = begin + opening.size();
        const auto end = begin < 0 ? -1 : source.indexOf(closing, value, m_faults.cases);
        if (end < 0)
            return QString();
        const QString result = source.mid(value, end - value).remove(separator).trimmed();
        const QString left = trimmed(source.left(begin));
        if (seam)
            *seam = static_cast<int>(left.size());
        source = left + (m_faults.seesTagsAcrossSeams ? QString() : QString(separator)) +
                 trimmed(source.mid(end + closing.size()));
        return result;
    }

    QString trimmed(const QString& piece) const
    {
        return m_faults.trimsBeforeJoining ? piece.trimmed() : piece;
    }

    static constexpr QChar separator{0xe000}; ///< Occurs in no text.

    Faults m_faults;
};

quint64 fromEnvironment(const char* name, quint64 otherwise)
{
    bool converted = false;
    const quint64 value = qgetenv(name).toULongLong(&converted);
    return converted ? value : otherwise;
}

} // namespace

class TestManifestDifferential : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    void generatedTextsAreWorthReading();
    void faultyReaderIsDetected_data();
    void faultyReaderIsDetected();
    void readerAgreesWithLiteralReader_data();
    void readerAgreesWithLiteralReader();

private:
    /// How many of the first texts have the property, in percent.
    template <typename Property> double share(Property property) const
    {
        int having = 0;
        for (int number = 0; number < sampled; ++number) {
            if (property(manifestText(m_seed, static_cast<quint64>(number))))
                ++having;
        }
        return 100.0 * having / sampled;
    }

    static constexpr int sampled = 4000;
    const quint64 m_seed = fromEnvironment("UPDATER_DIFFERENTIAL_SEED", 1);
    const Reader m_product = manifest::read;
};

void TestManifestDifferential::generatedTextsAreWorthReading()
{
    int isTrue = 0;
    int hasFile = 0;
    int hasThreeFiles = 0;
    int isLong = 0;
    for (quint64 number = 0; number < sampled; ++number) {
        const ManifestText text = manifestText(m_seed, number);
        const Reading reading = readingOf(text, literal::read);
        const auto files = reading.data.files.size() - text.start.files.size();
        isTrue += reading.result;
        hasFile += files >= 1;
        hasThreeFiles += files >= 3;
        isLong += text.xml.size() > 500; // Qt searches those in another way.
    }
    qInfo("of %d texts: true %d, with a file %d, with three %d, long %d", sampled, isTrue, hasFile,
          hasThreeFiles, isLong);
    QVERIFY(isTrue > sampled * 60 / 100);
    QVERIFY(isTrue < sampled * 95 / 100);
    QVERIFY(hasFile > sampled * 40 / 100);
    QVERIFY(hasThreeFiles > sampled * 15 / 100);
    QVERIFY(isLong > sampled * 10 / 100);
}

void TestManifestDifferential::faultyReaderIsDetected_data()
{
    QTest::addColumn<int>("cases");
    QTest::addColumn<bool>("trims");
    QTest::addColumn<bool>("seams");
    QTest::addColumn<int>("looksBack");
    QTest::addColumn<double>("least");
    constexpr int ignored = Qt::CaseInsensitive;
    row("no fault", ignored, true, true, -1, 0.0);
    row("letter case counts", int(Qt::CaseSensitive), true, true, -1, 20.0);
    row("no trimming before joining", ignored, false, true, -1, 5.0);
    row("blind to tags across a seam", ignored, true, false, -1, 5.0);
    row("continues after the cut", ignored, true, true, 0, 5.0);
    row("looks back one character too few", ignored, true, true, 4, 1.0);
}

void TestManifestDifferential::faultyReaderIsDetected()
{
    QFETCH(int, cases);
    QFETCH(bool, trims);
    QFETCH(bool, seams);
    QFETCH(int, looksBack);
    QFETCH(double, least);
    const FaultyReader faulty(
        Faults{static_cast<Qt::CaseSensitivity>(cases), trims, seams, looksBack});

    const double detected = share([&faulty](const ManifestText& text) {
        return !(readingOf(text, faulty) == readingOf(text, literal::read));
    });
    qInfo("detected by %.2f%% of the texts", detected);
    QVERIFY(detected >= least);
    QVERIFY2(detected == 0 || least > 0, "a reader without faults differs");
}

void TestManifestDifferential::readerAgreesWithLiteralReader_data()
{
    // A row has its own time limit, so a long run is many rows.
    constexpr quint64 inRow = 50000;
    const quint64 texts = fromEnvironment("UPDATER_DIFFERENTIAL_TEXTS", 200000);
    QTest::addColumn<quint64>("first");
    QTest::addColumn<quint64>("last");
    for (quint64 first = 0; first < texts; first += inRow) {
        const quint64 last = qMin(first + inRow, texts) - 1;
        QTest::addRow("texts %llu to %llu", first, last) << first << last;
    }
}

void TestManifestDifferential::readerAgreesWithLiteralReader()
{
    QFETCH(quint64, first);
    QFETCH(quint64, last);
    for (quint64 number = first; number <= last; ++number) {
        const ManifestText text = manifestText(m_seed, number);
        const Reading expected = readingOf(text, literal::read);
        const Reading actual = readingOf(text, m_product);
        if (actual == expected)
            continue;
        qInfo("seed %llu, text %llu\nroot \"%s\"\ntext \"%s\"\nread into\n%s\nliteral reader: "
              "%s\nthis reader: %s",
              m_seed, number, qPrintable(records::escaped(text.rootTag)),
              qPrintable(records::escaped(text.xml)), qPrintable(records::described(text.start)),
              qPrintable(described(expected)), qPrintable(described(actual)));
        QFAIL("the readers disagree");
    }
}

UPDATER_TEST_MAIN(TestManifestDifferential)
#include "tst_ManifestDifferential.moc"
