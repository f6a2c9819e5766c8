// The writer of the manifest text, and the reading of what it has written.

#include "manifest/ManifestText.h"

#include "tests/support/Records.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/ManifestExamples.h"

#include <QLocale>

Q_DECLARE_METATYPE(ProgramData)

class TestManifestWriter : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- Writer
    void everyLineHasItsForm_data();
    void everyLineHasItsForm();
    void exampleIsWrittenToTheByte();
    void fileBlocksFollowOneAnotherInListOrder();
    void recordWithoutFilesHasNoFileBlocks_data();
    void recordWithoutFilesHasNoFileBlocks();
    void emptyNameOrVersionIsRefused_data();
    void emptyNameOrVersionIsRefused();
    void secondRecordIsSeparatedByOneLineFeed();
    void recordIsAppendedToAnyText();
    void nameVersionAndChangelogAreTrimmed();
    void fileNameAndDigestAreNotTrimmed();
    void valueIsWrittenUnchanged_data();
    void valueIsWrittenUnchanged();
    void sizeIsPlainDecimal_data();
    void sizeIsPlainDecimal();

    // ---- Writer and reader
    void writtenRecordIsReadBack_data();
    void writtenRecordIsReadBack();
    void eitherOfTwoRecordsIsFoundByItsName();
    void whitespaceAroundFileNameIsLost();
    void tagsInFileNameAreNotReadBack_data();
    void tagsInFileNameAreNotReadBack();
    void textMayBeAFieldOfTheRecord_data();
    void textMayBeAFieldOfTheRecord();
};

void TestManifestWriter::everyLineHasItsForm_data()
{
    QTest::addColumn<int>("line");
    QTest::addColumn<QString>("expected");
    row("opening root line", 0, "<Tool 2>");
    row("version", 1, "\t<version>3 beta</version>");
    row("required", 2, "\t<required>true</required>");
    row("changelog", 3, "\t<changelog>Y2w=</changelog>");
    row("block begins", 4, "\t<file>");
    row("file name", 5, "\t\t<name>dir/a.txt</name>");
    row("digest", 6, "\t\t<sha1>5A</sha1>");
    row("size", 7, "\t\t<size>1234567</size>");
    row("block ends", 8, "\t</file>");
    row("closing root line", 9, "</Tool 2>");
    row("nothing after the last line feed", 10, "");
}

void TestManifestWriter::everyLineHasItsForm()
{
    QFETCH(int, line);
    QFETCH(QString, expected);
    const QStringList lines =
        written({"Tool 2", "3 beta", true, "Y2w=", {{"dir/a.txt", "5A", 1234567}}}).split('\n');
    QCOMPARE(lines.size(), 11);
    QCOMPARE(lines.at(line), expected);
}

void TestManifestWriter::exampleIsWrittenToTheByte()
{
    QCOMPARE(written(exampleRecord()).toUtf8(), exampleText.toUtf8());
}

void TestManifestWriter::fileBlocksFollowOneAnotherInListOrder()
{
    const QString text =
        written({"T", "1", false, "", {{"b", "2", 3}, {"a", "1", 2}, {"b", "2", 3}}});
    const QString b =
        "\t<file>\n\t\t<name>b</name>\n\t\t<sha1>2</sha1>\n\t\t<size>3</size>\n\t</file>\n";
    const QString a =
        "\t<file>\n\t\t<name>a</name>\n\t\t<sha1>1</sha1>\n\t\t<size>2</size>\n\t</file>\n";
    QCOMPARE(text.mid(text.indexOf("\t<file>")), b + a + b + "</T>\n");
}

void TestManifestWriter::recordWithoutFilesHasNoFileBlocks_data()
{
    QTest::addColumn<QString>("changelog");
    QTest::addColumn<QString>("line");
    row("with a changelog", "Y2w=", "\t<changelog>Y2w=</changelog>\n");
    row("without a changelog", QString(), "\t<changelog></changelog>\n");
    row("with a changelog of whitespace", " \n", "\t<changelog></changelog>\n");
}

void TestManifestWriter::recordWithoutFilesHasNoFileBlocks()
{
    QFETCH(QString, changelog);
    QFETCH(QString, line);
    QCOMPARE(written({"Editor", "2.1", true, changelog, {}}),
             "<Editor>\n\t<version>2.1</version>\n\t<required>true</required>\n" + line +
                 "</Editor>\n");
}

void TestManifestWriter::emptyNameOrVersionIsRefused_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QString>("version");
    row("null name", QString(), "2.1");
    row("empty name", "", "2.1");
    row("name of whitespace", " \t\r\n", "2.1");
    row("name of unusual whitespace", "\u00a0\u2003", "2.1");
    row("null version", "Editor", QString());
    row("empty version", "Editor", "");
    row("version of whitespace", "Editor", " \t\r\n");
    row("name and version of whitespace", " ", " ");
}

void TestManifestWriter::emptyNameOrVersionIsRefused()
{
    QFETCH(QString, name);
    QFETCH(QString, version);
    const ProgramData data{name, version, true, "Y2w=", {{"a", "5a", 1}}};
    QString text = "as it was";
    QVERIFY(!manifest::write(data, text));
    QCOMPARE(text, QString("as it was"));
    QString empty;
    QVERIFY(!manifest::write(data, empty));
    QCOMPARE(empty, QString());
}

void TestManifestWriter::secondRecordIsSeparatedByOneLineFeed()
{
    QString text;
    QVERIFY(manifest::write(exampleRecord(), text));
    QVERIFY(manifest::write({"Tool", "3", true, "", {}}, text));
    QCOMPARE(text, exampleText + "\n<Tool>\n\t<version>3</version>\n\t<required>true</required>\n"
                                 "\t<changelog></changelog>\n</Tool>\n");
}

void TestManifestWriter::recordIsAppendedToAnyText()
{
    QString text = "no line feed";
    QVERIFY(manifest::write(exampleRecord(), text));
    QCOMPARE(text, "no line feed\n" + exampleText);
    QString space = " ";
    QVERIFY(manifest::write(exampleRecord(), space));
    QCOMPARE(space, " \n" + exampleText);
}

void TestManifestWriter::nameVersionAndChangelogAreTrimmed()
{
    QCOMPARE(written({"\t Ed it \n", "\r\n2 . 1\u2003", false, " Y2\nw= \t", {}}),
             QString("<Ed it>\n\t<version>2 . 1</version>\n\t<required>false</required>\n"
                     "\t<changelog>Y2\nw=</changelog>\n</Ed it>\n"));
}

void TestManifestWriter::fileNameAndDigestAreNotTrimmed()
{
    const QString text = written({"T", "1", false, "", {{" a \n", "\t5A ", 1}, {"", "", 2}}});
    QVERIFY(text.contains("\t\t<name> a \n</name>\n\t\t<sha1>\t5A </sha1>\n\t\t<size>1</size>\n"));
    QVERIFY(text.contains("\t\t<name></name>\n\t\t<sha1></sha1>\n\t\t<size>2</size>\n"));
}

void TestManifestWriter::valueIsWrittenUnchanged_data()
{
    QTest::addColumn<QString>("value");
    const QStringList values{"%1",  "%2",  "%L1", "%L2",       "%1%2%3", "100%",  "%",   "%%1",
                             "a<b", "a>b", "a&b", "&lt;&amp;", "\"a\"",  "'a'",   "</>", "<name>",
                             "ä€",  "\\n", "%01", "%99",       "a\nb",   "$1 \\1"};
    for (const QString& value : values)
        row(records::escaped(value), value);
}

void TestManifestWriter::valueIsWrittenUnchanged()
{
    QFETCH(QString, value);
    QCOMPARE(written({value, value, false, value, {{value, value, 7}}}),
             "<" + value + ">\n\t<version>" + value +
                 "</version>\n\t<required>false</required>\n"
                 "\t<changelog>" +
                 value + "</changelog>\n\t<file>\n\t\t<name>" + value + "</name>\n\t\t<sha1>" +
                 value + "</sha1>\n\t\t<size>7</size>\n\t</file>\n</" + value + ">\n");
}

void TestManifestWriter::sizeIsPlainDecimal_data()
{
    QTest::addColumn<quint64>("size");
    QTest::addColumn<QString>("expected");
    row("nothing", quint64(0), "0");
    row("thousands, not grouped", quint64(1234567), "1234567");
    row("more than 32 bits", quint64(4294967296), "4294967296");
    row("largest signed", quint64(9223372036854775807), "9223372036854775807");
    row("more than signed", quint64(9223372036854775808U), "9223372036854775808");
    row("largest", largestSize, "18446744073709551615");
}

void TestManifestWriter::sizeIsPlainDecimal()
{
    QFETCH(quint64, size);
    QFETCH(QString, expected);
    const QLocale previous;
    QLocale::setDefault(QLocale(QLocale::German)); // It groups digits, which must not matter.
    const QString text = written({"T", "1", false, "", {{"a", "5a", size}}});
    QLocale::setDefault(previous);
    QVERIFY2(text.contains("\t\t<size>" + expected + "</size>\n"), qPrintable(text));
}

void TestManifestWriter::writtenRecordIsReadBack_data()
{
    QTest::addColumn<ProgramData>("data");
    row("example", exampleRecord());
    row("no files", ProgramData{"T", "1", true, "Y2w=", {}});
    row("no changelog", ProgramData{"T", "1", false, "", {{"a", "5a", 1}}});
    row("smallest and largest size",
        ProgramData{"T", "1", true, "", {{"a", "5a", 0}, {"b", "5b", largestSize}}});
    row("placeholders", ProgramData{"%1", "%2", true, "%L1", {{"%1 %2", "%3", 1}}});
    row("tags of other elements",
        ProgramData{"T", "<b>&", true, "</b>", {{"<i>\"a\"&amp;", "5a<", 1}}});
    row("names with spaces inside",
        ProgramData{"My Editor", "2 beta", false, "", {{"dir one/a b.txt", "5 a", 1}}});
}

void TestManifestWriter::writtenRecordIsReadBack()
{
    QFETCH(ProgramData, data);
    ProgramData back;
    QVERIFY(read(written(data), back, data.name));
    COMPARE_RECORDS(back, data);
}

void TestManifestWriter::eitherOfTwoRecordsIsFoundByItsName()
{
    const ProgramData tool{"Tool", "3", true, "Y2w=", {{"a", "5a", 1}}};
    QString text = written(exampleRecord());
    QVERIFY(manifest::write(tool, text));
    ProgramData first;
    QVERIFY(read(text, first, "Editor"));
    COMPARE_RECORDS(first, exampleRecord());
    ProgramData second;
    QVERIFY(read(text, second, "Tool"));
    COMPARE_RECORDS(second, tool);
}

void TestManifestWriter::whitespaceAroundFileNameIsLost()
{
    QCOMPARE(filesRead(written({"Editor", "1", false, "", {{" a b ", "\t5a\n", 1}}})),
             QStringList("a b|5a|1"));
}

void TestManifestWriter::tagsInFileNameAreNotReadBack_data()
{
    QTest::addColumn<QString>("name");
    QTest::addColumn<QStringList>("files");
    row("closing tag of the name", "b</name>c", QStringList{"a|5a|1", "b|5b|2", "d|5d|4"});
    row("closing tag of the name first", "</name>c", QStringList{"a|5a|1"});
    row("opening tag of the name", "b<name>c", QStringList{"a|5a|1", "b<name>c|5b|2", "d|5d|4"});
    row("closing tag of the block", "b</file>c", QStringList{"a|5a|1"});
    row("closing tag of the record", "b</Editor>c", QStringList{"a|5a|1"});
    row("opening tag of the digest", "b<sha1>c", QStringList{"a|5a|1", "b<sha1>c|5b|2", "d|5d|4"});
}

void TestManifestWriter::tagsInFileNameAreNotReadBack()
{
    QFETCH(QString, name);
    QFETCH(QStringList, files);
    QCOMPARE(filesRead(written(
                 {"Editor", "1", false, "", {{"a", "5a", 1}, {name, "5b", 2}, {"d", "5d", 4}}})),
             files);
}

void TestManifestWriter::textMayBeAFieldOfTheRecord_data()
{
    QTest::addColumn<int>("field");
    row("name", 0);
    row("version", 1);
    row("changelog", 2);
}

void TestManifestWriter::textMayBeAFieldOfTheRecord()
{
    QFETCH(int, field);
    ProgramData data;
    QString* const fields[] = {&data.name, &data.version, &data.changelog};
    // There is no other copy of the text: overwriting the field frees it.
    *fields[field] = written(exampleRecord());
    QVERIFY(manifest::read("Editor", *fields[field], data));
    COMPARE_RECORDS(data, exampleRecord());
}

UPDATER_TEST_MAIN(TestManifestWriter)
#include "tst_ManifestWriter.moc"
