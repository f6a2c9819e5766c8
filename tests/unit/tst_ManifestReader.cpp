// The reader of the manifest text, and the extraction of one element.
//
// The literal reader reads every text as well, so that the rows check both.

#include "manifest/ManifestText.h"

#include "tests/support/LiteralReader.h"
#include "tests/support/Records.h"
#include "tests/support/Row.h"
#include "tests/support/TestMain.h"
#include "tests/unit/ManifestExamples.h"

Q_DECLARE_METATYPE(ProgramData)

namespace {

/// A record whose values all differ from those of a new one.
ProgramData oldRecord()
{
    return {"Old", "1.0", true, "b2xk", {{"old.txt", "0d", 1}}};
}

/// The three elements of a file block.
QString fields(const QString& name, const QString& sha1 = "5a", const QString& size = "1")
{
    return "<name>" + name + "</name><sha1>" + sha1 + "</sha1><size>" + size + "</size>";
}

QString block(const QString& name, const QString& sha1 = "5a", const QString& size = "1")
{
    return "<file>" + fields(name, sha1, size) + "</file>";
}

/// A record of Editor 2.1 with @p rest after the version.
QString editor(const QString& rest)
{
    return "<Editor><version>2.1</version>" + rest + "</Editor>";
}

/// A record of Editor 2.1 with two files, the first of which has @p size for its size.
QString editorWithSize(const QString& size)
{
    return editor(block("a", "5a", size) + block("b", "5b", "2"));
}

} // namespace

class TestManifestReader : public QObject
{
    Q_OBJECT

private Q_SLOTS:
    // ---- Extraction of one element
    void elementIsExtracted_data();
    void elementIsExtracted();
    void elementIsRemovedOnlyOnRequest_data() { elementIsExtracted_data(); }
    void elementIsRemovedOnlyOnRequest();
    void missingElementGivesNullStringAndLeavesSource_data();
    void missingElementGivesNullStringAndLeavesSource();
    void emptyValueIsNotNull();
    void repeatedExtractionTakesElementsInTurn();

    // ---- Reader
    void recordIsRead_data();
    void recordIsRead();
    void textWithoutRecordLeavesDataUntouched_data();
    void textWithoutRecordLeavesDataUntouched();
    void recordWithoutVersionSetsNameOnly_data();
    void recordWithoutVersionSetsNameOnly();
    void requiredIsTrueInAnyCaseAndNothingElse_data();
    void requiredIsTrueInAnyCaseAndNothingElse();
    void changelogIsReplacedOnlyByAnother_data();
    void changelogIsReplacedOnlyByAnother();
    void filesAreAppended();
    void filesAreRead_data();
    void filesAreRead();
    void sizeIsReadAsUnsignedNumber_data();
    void sizeIsReadAsUnsignedNumber();
    void tagsFormAcrossSeams_data();
    void tagsFormAcrossSeams();
    void textThatIsReadIsNotChanged();
};

void TestManifestReader::elementIsExtracted_data()
{
    QTest::addColumn<QString>("tag");
    QTest::addColumn<QString>("source");
    QTest::addColumn<QString>("value");
    QTest::addColumn<QString>("rest");
    const auto add = [](const char* name, const QString& source, const QString& value,
                        const QString& rest) {
        row(name, "x", source, value, rest);
    };
    add("whole text", "<x>1</x>", "1", "");
    add("at the start", "<x>1</x>b", "1", "b");
    add("at the end", "a<x>1</x>", "1", "a");
    add("in the middle", "a<x>1</x>b", "1", "ab");
    add("whitespace at the cut is lost", "a\n\t<x>1</x>\n\tb", "1", "ab");
    add("whitespace at the outer ends is lost", "\n a<x>1</x>b \n", "1", "ab");
    add("whitespace inside the pieces stays", "a \n a<x>1</x>b\t b", "1", "a \n ab\t b");
    add("only whitespace before", " \n<x>1</x>b", "1", "b");
    add("only whitespace after", "a<x>1</x> \n", "1", "a");
    add("only whitespace before and after", "\t<x>1</x>\t", "1", "");
    add("unusual whitespace at the cut", "a\u2003\u00a0<x>1</x>\u0085\u2028b", "1", "ab");
    add("zero-width space is no whitespace", "a\u200b<x>1</x>b", "1", "a\u200bb");
    add("value is not trimmed", "<x>\n\t 1 \t</x>", "\n\t 1 \t", "");
    add("value of spaces", "<x>  </x>", "  ", "");
    add("empty value", "a<x></x>b", "", "ab");
    add("first of two", "<x>1</x>,<x>2</x>", "1", ",<x>2</x>");
    add("ends at the first closing tag", "<x>1</x>2</x>", "1", "2</x>");
    add("begins at the first opening tag", "<x>1<x>2</x>3</x>", "1<x>2", "3</x>");
    add("closing tag before does not count", "</x>a<x>1</x>", "1", "</x>a");
    add("closing tag before, nothing between", "</x><x>1</x>b", "1", "</x>b");
    add("case of the tags is ignored", "a<X>Aa</X>b", "Aa", "ab");
    add("tags in different case", "<X>1</x>", "1", "");
    add("longer name does not match", "<xx>0</xx><x>1</x>", "1", "<xx>0</xx>");
    add("tags with spaces do not match", "< x>0</x><x >0</x><x>1</x>", "1", "< x>0</x><x >0</x>");
    add("attribute does not match", "<x a='0'>0</x><x>1</x>", "1", "<x a='0'>0</x>");
    add("closing tag with a space does not match", "<x>1</x >2</x>", "1</x >2", "");
    add("seam forms the tag again", "<<x>1</x>x>2</x>", "1", "<x>2</x>");
    add("value with other tags", "<x><y>1</y></x>", "<y>1</y>", "");
    row("name in upper case", "VERSION", "<version>1</version>", "1", "");
    row("name with a placeholder", "a%1b", "<a%1b>1</a%1b>", "1", "");
    row("name that is a placeholder", "%1", "<%1>1</%1>", "1", "");
    row("name with spaces", " x ", "<x>0</x>< x >1</ x >", "1", "<x>0</x>");
    row("empty name", "", "a<>1</>b", "1", "ab");
    row("long s is an s", "size", "<\u017fize>1</\u017fIZE>", "1", "");
    row("Kelvin sign is a k", "kind", "<\u212aind>1</kind>", "1", "");
    row("umlaut", "ä", "<Ä>1</ä>", "1", "");
}

void TestManifestReader::elementIsExtracted()
{
    QFETCH(QString, tag);
    QFETCH(QString, source);
    QFETCH(QString, value);
    QFETCH(QString, rest);
    QString literalSource = source;
    QCOMPARE(literal::tagValue(tag, literalSource, true, nullptr), value);
    QCOMPARE(literalSource, rest);

    QString withoutFlag = source;
    bool found = false;
    QCOMPARE(manifest::tagValue(tag, source, true, &found), value);
    QVERIFY(found);
    QCOMPARE(source, rest);
    QCOMPARE(manifest::tagValue(tag, withoutFlag, true, nullptr), value);
    QCOMPARE(withoutFlag, rest);
}

void TestManifestReader::elementIsRemovedOnlyOnRequest()
{
    QFETCH(QString, tag);
    QFETCH(QString, source);
    QFETCH(QString, value);
    const QString before = source;
    bool found = false;
    QCOMPARE(manifest::tagValue(tag, source, false, &found), value);
    QVERIFY(found);
    QCOMPARE(source, before);
    QCOMPARE(manifest::tagValue(tag, source, false, nullptr), value);
    QCOMPARE(source, before);
}

void TestManifestReader::missingElementGivesNullStringAndLeavesSource_data()
{
    QTest::addColumn<QString>("source");
    row("empty text", "");
    row("text without tags", " a x b ");
    row("other element", " <y>1</y> ");
    row("opening tag alone", " <x>1 ");
    row("closing tag alone", " 1</x> ");
    row("closing tag before opening tag", " </x>1<x> ");
    row("broken closing tag", " <x>1</x ");
    row("tags that overlap", " <x</x> ");
    row("opening tag twice", " <x>1<x> ");
}

void TestManifestReader::missingElementGivesNullStringAndLeavesSource()
{
    QFETCH(QString, source);
    const QString before = source;
    for (const bool remove : {true, false}) {
        bool found = true;
        QVERIFY(manifest::tagValue("x", source, remove, &found).isNull());
        QVERIFY(!found);
        QCOMPARE(source, before);
        QVERIFY(manifest::tagValue("x", source, remove, nullptr).isNull());
        QCOMPARE(source, before);
    }
}

void TestManifestReader::emptyValueIsNotNull()
{
    QString source = "<x></x>";
    bool found = false;
    const QString value = manifest::tagValue("x", source, true, &found);
    QVERIFY(found);
    QVERIFY(value.isEmpty());
    QVERIFY(!value.isNull());
    QVERIFY(source.isEmpty());
}

void TestManifestReader::repeatedExtractionTakesElementsInTurn()
{
    QString source = "<x>1</x>\n<x>2</x>\n<y/>\n<x>3</x>";
    bool found = false;
    for (const char* expected : {"1", "2", "3"}) {
        QCOMPARE(manifest::tagValue("x", source, true, &found), QString(expected));
        QVERIFY(found);
    }
    QVERIFY(manifest::tagValue("x", source, true, &found).isNull());
    QVERIFY(!found);
    QCOMPARE(source, QString("<y/>"));
}

void TestManifestReader::recordIsRead_data()
{
    QTest::addColumn<QString>("rootTag");
    QTest::addColumn<QString>("text");
    QTest::addColumn<ProgramData>("expected");
    const auto add = [](const char* name, const QString& text, const ProgramData& expected,
                        const QString& rootTag = "Editor") {
        row(name, rootTag, text, expected);
    };
    const ProgramData plain{"Editor", "2.1", false, "", {}};
    const ProgramData full{"Editor", "2.1", true, "Y2w=", {{"a", "5a", 1}}};
    const QString version = "<version>2.1</version>";
    const QString required = "<required>true</required>";
    const QString changelog = "<changelog>Y2w=</changelog>";

    add("example", exampleText, exampleRecord());
    add("version alone", "<Editor><version>2.1</version></Editor>", plain);
    add("text around the record", "\ufeff<?xml?> 1 <Editor>" + version + "</Editor> 2 ", plain);
    add("line ends with carriage returns", QString(exampleText).replace("\n", "\r\n"),
        exampleRecord());
    add("in the writer's order", editor(required + changelog + block("a")), full);
    add("in the opposite order",
        "<Editor>" + block("a") + changelog + required + version + "</Editor>", full);
    add("files between the others",
        "<Editor>" + changelog + block("a") + version + required + "</Editor>", full);
    add("with other elements and text",
        "<Editor>x<date>1</date>" + version + "<y/>" + required + " - " + changelog + "<z>" +
            block("a") + "</z></Editor>",
        full);
    add("with attributes, which hide an element",
        editor("<required a='b'>true</required><changelog >Y2w=</changelog>"), plain);
    add("all names in upper case", exampleText.toUpper(),
        {"Editor",
         "2.1",
         false,
         exampleRecord().changelog.toUpper(),
         {{".HIDDEN", "A9993E364706816ABA3E25717850C26C9CD0D89D", 3},
          {"CONTENTS/RESOURCES/EMPTY.DAT", "DA39A3EE5E6B4B0D3255BFEF95601890AFD80709", 0},
          {"CONTENTS/RESOURCES/README.TXT", "F572D396FAE9206628714FB2CE00F72E94F2258F", 6}}});
    add("root in upper case", "<EDITOR>" + version + "</EDITOR>", plain);
    add("root in two cases", "<eDITOR>" + version + "</EdItOr>", plain);
    add("root asked for in lower case", "<Editor>" + version + "</Editor>",
        {"editor", "2.1", false, "", {}}, "editor");
    add("values are trimmed",
        "<Editor>\n<version>\n\t2 . 1 \n</version><required>\u2003true\t</required>"
        "<changelog>\u00a0Y2w= \n</changelog><file> <name>\ta b\n</name><sha1> 5a </sha1>"
        "<size>\n 1\t</size> </file></Editor>",
        {"Editor", "2 . 1", true, "Y2w=", {{"a b", "5a", 1}}});
    add("spaces around the root name are part of the tag and not of the program's name",
        "<Editor><version>0</version></Editor>< Editor ><version>2.1</version></ Editor >", plain,
        " Editor ");
    add("root with a placeholder", "<%1 %2>" + version + "</%1 %2>",
        {"%1 %2", "2.1", false, "", {}}, "%1 %2");
    add("empty root", "<>" + version + "</>", {"", "2.1", false, "", {}}, "");
    add("root named like an element", "<file>" + version + "</file>",
        {"file", "2.1", false, "", {}}, "file");
    add("first of two roots", editor("") + "<Editor><version>3</version></Editor>", plain);
    add("root ends at its first closing tag", editor("") + block("a") + "</Editor>", plain);
    add("root within a root", "<Editor><version>2.1</version><Editor></Editor>" + required, plain);
    add("first of two versions", editor("<version>3</version>"), plain);
    add("second record", "<Tool><version>1</version></Tool>\n" + editor(""), plain);
    add("record inside another", "<Tool><version>1</version>" + editor("") + "</Tool>", plain);
    add("only one of two flags", editor("<required>no</required><required>true</required>"), plain);
    add("version with tags", "<Editor><version><b>2</b></version></Editor>",
        {"Editor", "<b>2</b>", false, "", {}});
    add("version inside the changelog",
        "<Editor><changelog>Y2<version>2.1</version>w=</changelog></Editor>",
        {"Editor", "2.1", false, "Y2w=", {}});
    add("version that is all of the changelog",
        "<Editor><changelog><version>2.1</version></changelog></Editor>", plain);
    add("version inside a file",
        "<Editor><file><version>2.1</version>" + fields("a") + "</file></Editor>",
        {"Editor", "2.1", false, "", {{"a", "5a", 1}}});
    add("version inside the flag",
        "<Editor><required>tr <version>2.1</version> ue</required></Editor>",
        {"Editor", "2.1", true, "", {}});
    add("flag split by the version",
        "<Editor><requ <version>2.1</version> ired>true</required></Editor>",
        {"Editor", "2.1", true, "", {}});
    add("file split by the version",
        "<Editor><file" + version + ">" + fields("a") + "</file></Editor>",
        {"Editor", "2.1", false, "", {{"a", "5a", 1}}});
    add("flag inside the version is part of it",
        "<Editor><version>2<required>true</required></version></Editor>",
        {"Editor", "2<required>true</required>", false, "", {}});
    add("file inside the changelog is part of it",
        editor("<changelog>" + block("a") + "</changelog>" + block("b")),
        {"Editor", "2.1", false, block("a"), {{"b", "5a", 1}}});
    add("changelog inside a file is cut out of it",
        editor(
            "<file><name>a<changelog>Y2w=</changelog>b</name><sha1>5a</sha1><size>1</size></file>"),
        {"Editor", "2.1", false, "Y2w=", {{"ab", "5a", 1}}});
    add("flag without its closing tag", editor("<required>true"), plain);
    add("changelog without its closing tag", editor("<changelog>Y2w=" + block("a")),
        {"Editor", "2.1", false, "", {{"a", "5a", 1}}});
    add("values with placeholders",
        "<Editor><version>%1</version><changelog>%2</changelog>" + block("%L1", "%3") + "</Editor>",
        {"Editor", "%1", false, "%2", {{"%L1", "%3", 1}}});
    add("entities stay", "<Editor><version>&lt;2&amp;</version></Editor>",
        {"Editor", "&lt;2&amp;", false, "", {}});
    add("long s in the names of elements",
        "<Editor><ver\u017fion>2.1</VER\u017fION><file><name>a</name><\u017fha1>5a</\u017fHA1>"
        "<\u017fize>1</size></file></Editor>",
        {"Editor", "2.1", false, "", {{"a", "5a", 1}}});
    add("Kelvin sign in the root", "<\u212aiosk>" + version + "</KIOS\u212a>",
        {"kiosk", "2.1", false, "", {}}, "kiosk");
}

void TestManifestReader::recordIsRead()
{
    QFETCH(QString, rootTag);
    QFETCH(QString, text);
    QFETCH(ProgramData, expected);
    ProgramData data;
    QVERIFY(read(text, data, rootTag));
    COMPARE_RECORDS(data, expected);
}

void TestManifestReader::textWithoutRecordLeavesDataUntouched_data()
{
    QTest::addColumn<QString>("text");
    row("null text", QString());
    row("empty text", "");
    row("page of a web server", "<html><body>Not Found</body></html>");
    row("record of another program", "<Tool><version>2.1</version></Tool>");
    row("program with a longer name", "<Editor2><version>2.1</version></Editor2>");
    row("no root", "<version>2.1</version>");
    row("opening tag alone", "<Editor><version>2.1</version>");
    row("closing tag alone", "<version>2.1</version></Editor>");
    row("closing tag first", "</Editor><version>2.1</version><Editor>");
    row("cut off inside the closing tag", exampleText.left(exampleText.size() - 2));
    row("empty record", "<Editor></Editor>");
    row("record of whitespace", "<Editor> \r\n\t</Editor>");
    row("record of unusual whitespace", "<Editor>\u00a0\u2003</Editor>");
    row("empty record before a full one", "<Editor></Editor>" + exampleText);
}

void TestManifestReader::textWithoutRecordLeavesDataUntouched()
{
    QFETCH(QString, text);
    ProgramData data = oldRecord();
    QVERIFY(!read(text, data));
    COMPARE_RECORDS(data, oldRecord());
}

void TestManifestReader::recordWithoutVersionSetsNameOnly_data()
{
    QTest::addColumn<QString>("rootTag");
    QTest::addColumn<QString>("text");
    QTest::addColumn<QString>("name");
    const QString rest = "<required>false</required><changelog>Y2w=</changelog>" + block("a");
    const auto add = [&rest](const char* name, const QString& version) {
        row(name, "Editor", "<Editor>" + version + rest + "</Editor>", "Editor");
    };
    add("no version", "");
    add("empty version", "<version></version>");
    add("version of whitespace", "<version> \r\n\t</version>");
    add("version of unusual whitespace", "<version>\u00a0\u2003</version>");
    add("version without closing tag", "<version>2.1");
    add("version without opening tag", "2.1</version>");
    add("version of whitespace before another", "<version> </version><version>2.1</version>");
    add("version across the seam of a later cut",
        "<ver<required>true</required>sion>2.1</version>");
    row("version after the record", "Editor", "<Editor>" + rest + "</Editor><version>2.1</version>",
        "Editor");
    row("text alone", "Editor", "<Editor>2.1</Editor>", "Editor");
    row("root with whitespace", "\tEditor ", "<\tEditor >" + rest + "</\tEditor >", "Editor");
    row("root of whitespace", " ", "< >" + rest + "</ >", "");
    row("root named version ends with its version", "version",
        "<version><version>2.1</version></version>", "version");
}

void TestManifestReader::recordWithoutVersionSetsNameOnly()
{
    QFETCH(QString, rootTag);
    QFETCH(QString, text);
    QFETCH(QString, name);
    ProgramData data = oldRecord();
    ProgramData expected = oldRecord();
    expected.name = name;
    QVERIFY(!read(text, data, rootTag));
    COMPARE_RECORDS(data, expected);
}

void TestManifestReader::requiredIsTrueInAnyCaseAndNothingElse_data()
{
    QTest::addColumn<QString>("element");
    QTest::addColumn<bool>("required");
    row("true", "<required>true</required>", true);
    row("TRUE in a tag of mixed case", "<Required>TRUE</Required>", true);
    row("mixed case", "<required>tRuE</required>", true);
    row("trimmed", "<required>\n true\t</required>", true);
    row("false", "<required>false</required>", false);
    row("1", "<required>1</required>", false);
    row("yes", "<required>yes</required>", false);
    row("t", "<required>t</required>", false);
    row("true and more", "<required>true.</required>", false);
    row("with a space inside", "<required>tr ue</required>", false);
    row("empty", "<required></required>", false);
    row("space", "<required> </required>", false);
    row("missing", "", false);
    row("closing tag missing", "<required>true", false);
}

void TestManifestReader::requiredIsTrueInAnyCaseAndNothingElse()
{
    QFETCH(QString, element);
    QFETCH(bool, required);
    for (const bool before : {false, true}) {
        ProgramData data;
        data.required = before;
        QVERIFY(read(editor(element), data));
        QCOMPARE(data.required, required);
    }
}

void TestManifestReader::changelogIsReplacedOnlyByAnother_data()
{
    QTest::addColumn<QString>("element");
    QTest::addColumn<QString>("changelog");
    row("another", "<changelog>Y2w=</changelog>", "Y2w=");
    row("another with whitespace", "<changelog>\n Y2 w= </changelog>", "Y2 w=");
    row("missing", "", "b2xk");
    row("empty", "<changelog></changelog>", "b2xk");
    row("whitespace", "<changelog> \n\u2003</changelog>", "b2xk");
    row("not closed", "<changelog>Y2w=", "b2xk");
    row("empty before another", "<changelog></changelog><changelog>Y2w=</changelog>", "b2xk");
}

void TestManifestReader::changelogIsReplacedOnlyByAnother()
{
    QFETCH(QString, element);
    QFETCH(QString, changelog);
    ProgramData data = oldRecord();
    QVERIFY(read(editor(element), data));
    QCOMPARE(data.changelog, changelog);
}

void TestManifestReader::filesAreAppended()
{
    ProgramData data = oldRecord();
    QVERIFY(read(editor(block("a") + block("b")), data));
    QVERIFY(read(editor(block("a")), data));
    QVERIFY(read(editor(""), data));
    QCOMPARE(records::files(data), QStringList({"old.txt|0d|1", "a|5a|1", "b|5a|1", "a|5a|1"}));
}

void TestManifestReader::filesAreRead_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<QStringList>("files");
    const QString name = "<name>a</name>";
    const QString sha1 = "<sha1>5a</sha1>";
    const QString size = "<size>1</size>";
    const QStringList one{"a|5a|1"};
    const QStringList two{"a|5a|1", "c|5a|1"};
    const auto add = [](const char* rowName, const QString& rest, const QStringList& files) {
        row(rowName, editor(rest), files);
    };
    const auto between = [&add](const char* rowName, const QString& block2,
                                const QStringList& files) {
        add(rowName, block("a") + block2 + block("c"), files);
    };

    add("none", "", {});
    add("name, digest, size", "<file>" + name + sha1 + size + "</file>", one);
    add("name, size, digest", "<file>" + name + size + sha1 + "</file>", one);
    add("digest, name, size", "<file>" + sha1 + name + size + "</file>", one);
    add("digest, size, name", "<file>" + sha1 + size + name + "</file>", one);
    add("size, name, digest", "<file>" + size + name + sha1 + "</file>", one);
    add("size, digest, name", "<file>" + size + sha1 + name + "</file>", one);
    add("with another element", "<file><mode>1</mode>" + name + "x" + sha1 + size + "</file>", one);
    add("in any case", "<FILE><Name>a</NAME><sHA1>5a</Sha1><siZE>1</SIze></filE>", one);
    add("in document order, one of them twice", block("c") + block("a") + block("b") + block("a"),
        {"c|5a|1", "a|5a|1", "b|5a|1", "a|5a|1"});
    add("with text between", "1" + block("a") + "2" + block("c") + "3", two);
    add("digest in upper case stays", block("a", "5A"), {"a|5A|1"});
    add("values are not checked", block("../a b", "no digest"), {"../a b|no digest|1"});
    add("first of two names", "<file><name>a</name><name>b</name>" + sha1 + size + "</file>", one);

    between("empty block ends the list", "<file></file>", one);
    between("block of whitespace ends the list", "<file> \n\u00a0</file>", one);
    between("block of text ends the list", "<file>text</file>", one);
    between("missing name ends the list", "<file>" + sha1 + size + "</file>", one);
    between("empty name ends the list", block("", "5b", "2"), one);
    between("name of whitespace ends the list", block(" \t", "5b", "2"), one);
    between("name not closed ends the list", "<file>" + sha1 + size + "<name>b</file>", one);
    between("missing digest ends the list", "<file><name>b</name>" + size + "</file>", one);
    between("empty digest ends the list", block("b", "", "2"), one);
    between("digest of whitespace ends the list", block("b", "\n", "2"), one);
    between("digest not closed ends the list", "<file>" + name + size + "<sha1>5b</file>", one);
    between("missing size ends the list", "<file><name>b</name>" + sha1 + "</file>", one);
    between("empty size ends the list", block("b", "5b", ""), one);
    between("size of whitespace ends the list", block("b", "5b", " \u2003"), one);
    between("size not closed ends the list", "<file>" + name + sha1 + "<size>1</file>", one);
    between("missing name ends the list before a bad size is noticed",
            "<file>" + sha1 + "<size>x</size></file>", one);
    between("bad size drops its own entry only", block("b", "5b", "12a"), two);
    between("two bad sizes", block("b", "5b", "x") + block("b", "5b", "-"), two);

    add("incomplete first block ends the list", "<file></file>" + block("a"), {});
    add("bad size first", block("b", "5b", "?") + block("a"), one);
    add("last block not closed", block("a") + "<file>" + fields("b"), one);
    add("block not closed ends with the next one", "<file>" + name + block("b", "5b", "2"),
        {"a|5b|2"});
    add("opening tag cut short", block("a") + "<file" + block("c"), two);
    add("one closing tag too many", block("a") + "</file>" + block("c"), two);
    add("block within a block ends with the inner one",
        "<file>" + block("a") + fields("b") + "</file>" + block("c"), two);
    add("elements outside the blocks do not count",
        name + sha1 + size + "<file>" + name + sha1 + "</file>" + size, {});
    add("digest inside the name stays in the name",
        "<file><name>a<sha1>5b</sha1></name>" + sha1 + size + "</file>", {"a<sha1>5b</sha1>|5a|1"});
    add("name inside the digest is cut out of it",
        "<file><sha1>5<name>a</name>a</sha1>" + size + "</file>", one);
    add("name and digest inside the size are cut out of it",
        "<file><size>1<name>a</name>2<sha1>5a</sha1>3</size></file>", {"a|5a|123"});
}

void TestManifestReader::filesAreRead()
{
    QFETCH(QString, text);
    QFETCH(QStringList, files);
    QCOMPARE(filesRead(text), files);
}

void TestManifestReader::sizeIsReadAsUnsignedNumber_data()
{
    QTest::addColumn<QString>("size");
    QTest::addColumn<QString>("value");
    row("0", "0", "0");
    row("6", "6", "6");
    row("leading zeros", "0010", "10");
    row("plus sign", "+5", "5");
    row("spaces around", " 7 ", "7");
    row("unusual whitespace around", "\u00a0\n8\u2003", "8");
    row("more than signed", "9223372036854775808", "9223372036854775808");
    row("largest", "18446744073709551615", "18446744073709551615");
    const QString dropped = "dropped";
    row("one more than the largest", "18446744073709551616", dropped);
    row("thirty digits", QString(30, '9'), dropped);
    row("letter after the digits", "12a", dropped);
    row("letter before the digits", "a12", dropped);
    row("minus one", "-1", dropped);
    row("sign alone", "+", dropped);
    row("two signs", "++5", dropped);
    row("hexadecimal", "0x10", dropped);
    row("exponent", "1e3", dropped);
    row("decimal point", "1.0", dropped);
    row("grouped by commas", "1,000", dropped);
    row("grouped by spaces", "1 000", dropped);
    row("unit", "12 MB", dropped);
    row("letter O", "1O", dropped);
    row("tags", "<b>1</b>", dropped);
    row("Arabic digits", "\u0661\u0662", dropped);
    row("full-width digits", "\uff11", dropped);
    const QString ended = "ended";
    row("empty", "", ended);
    row("space", " ", ended);
}

void TestManifestReader::sizeIsReadAsUnsignedNumber()
{
    QFETCH(QString, size);
    QFETCH(QString, value);
    QStringList expected;
    if (value != "dropped" && value != "ended")
        expected << "a|5a|" + value;
    if (value != "ended")
        expected << "b|5b|2";
    QCOMPARE(filesRead(editorWithSize(size)), expected);
}

void TestManifestReader::tagsFormAcrossSeams_data()
{
    QTest::addColumn<QString>("text");
    QTest::addColumn<ProgramData>("expected");
    const auto add = [](const QString& name, const QString& rest, const QStringList& fileNames,
                        bool required = false, const QString& changelog = QString()) {
        ProgramData expected{"Editor", "2.1", required, changelog, {}};
        for (const QString& fileName : fileNames)
            expected.files.append({fileName, "5a", 1});
        row(name, editor(rest), expected);
    };
    const QString a = block("a");
    const QString b = block("b");
    const QString c = block("c");
    const QString endB = fields("b") + "</file>";
    const QString endC = fields("c") + "</file>";

    const QString opening = "<file>";
    for (int at = 1; at < opening.size(); ++at) {
        const QString left = opening.left(at);
        const QString right = opening.mid(at);
        const QString split = left + '|' + right;
        add("opening tag " + split, left + a + right + endB, {"a", "b"});
        add("opening tag with whitespace " + split, left + " \n" + a + "\t\u2003" + right + endB,
            {"a", "b"});
        add("opening tag with text before " + split, "text " + left + a + right + endB, {"a", "b"});
        add("opening tag around two blocks " + split, left + a + ' ' + b + right + endC,
            {"a", "b", "c"});
    }
    add("opening tag in another case", "<FI" + a + "Le>" + endB, {"a", "b"});
    add("opening tag in three pieces", "<f" + a + "i" + b + "le>" + endC, {"a", "b", "c"});
    add("opening tag in single characters",
        "<" + a + "f" + b + "i" + a + "l" + b + "e" + a + ">" + endC,
        {"a", "b", "a", "b", "a", "c"});
    add("opening tag twice over", "<fi<fi" + a + "le>" + endB + "le>" + endC, {"a", "b", "c"});
    add("opening tag twice over, with spaces", "<fi <fi " + a + " le>" + endB + " le>" + endC,
        {"a", "b", "c"});
    add("opening tag three times over, after text",
        "x <f\n<fi <file" + a + ">" + endB + "le>" + endC + "\tile>" + endB, {"a", "b", "c", "b"});
    add("second cut leaves whitespace that is removed",
        "<fi \t\u00a0<" + a + "file>" + endB + "le>" + endC, {"a", "b", "c"});
    add("opening tag split twice in turn", "<file" + a + ">" + endB + "<file" + c + ">",
        {"a", "b", "c"});
    add("seam without a tag, then a block", "<fi" + a + "x" + b + c, {"a", "b", "c"});
    add("half a tag is no tag", "<fi" + a + "l" + b, {"a", "b"});
    add("zero-width space keeps the halves apart", "<fi\u200b" + a + "le>" + endB, {"a"});
    add("formed tag comes before a later block", "<fi" + a + "le>" + endB + c, {"a", "b", "c"});
    add("formed tag takes up to the next closing tag",
        "<fi" + a + "le>" + "<name>b</name>" + "<file><sha1>5a</sha1><size>1</size></file>" + c,
        {"a", "b", "c"});
    add("formed tag of an empty block ends the list", "<fi" + a + "le></file>" + c, {"a"});
    add("formed tag that is never closed ends the list", "<fi" + a + "le>" + fields("b"), {"a"});
    add("block dropped for its size forms a tag", "<fi" + block("a", "5a", "x") + "le>" + endB,
        {"b"});
    add("closing tag split by a block ends at that block's",
        "<file>" + fields("a") + "</fi" + b + "le>" + c, {"a", "c"});
    add("closing tag does not form after an opening tag that did",
        "<fi" + a + "le>" + fields("b") + "</fi" + c + "le>", {"a", "b"});
    add("slash at the seam", "<" + a + "/file>" + b, {"a", "b"});

    add("flag split by the changelog is taken before it can form",
        "<requ<changelog>Y2w=</changelog>ired>true</required>", {}, false, "Y2w=");
    add("changelog split by the flag", "<change <required>true</required> log>Y2w=</changelog>", {},
        true, "Y2w=");
    add("file split by the flag", "<fi<required>true</required>le>" + endB, {"b"}, true);
    add("both tags of a file split",
        "<fi\n<changelog>Y2w=</changelog>\nle>" + fields("a") + "</fi" + b + "le>", {"a"}, false,
        "Y2w=");
    add("file split by flag and changelog",
        "<f<required>true</required>il<changelog>Y2w=</changelog>e>" + endB, {"b"}, true, "Y2w=");
    add("digest split by the name", "<file><sh<name>a</name>a1>5a</sha1><size>1</size></file>",
        {"a"});
    add("size split by the digest", "<file><name>a</name><size>1</si <sha1>5a</sha1> ze></file>",
        {"a"});
    add("size split by name and digest", "<file><s<name>a</name>iz<sha1>5a</sha1>e>1</size></file>",
        {"a"});
    add("name split by the digest is taken before it can form",
        "<file><na<sha1>5a</sha1>me>a</name><size>1</size></file>" + b, {});
    add("long s across a seam", "<file><\u017f<name>a</name>ha1>5a</sha1><size>1</size></file>",
        {"a"});
}

void TestManifestReader::tagsFormAcrossSeams()
{
    QFETCH(QString, text);
    QFETCH(ProgramData, expected);
    ProgramData data;
    QVERIFY(read(text, data));
    COMPARE_RECORDS(data, expected);
}

void TestManifestReader::textThatIsReadIsNotChanged()
{
    const QString text = exampleText + '\n' + editor(block("a"));
    const QString before(text.constData(), text.size());
    ProgramData data;
    QVERIFY(manifest::read("Editor", text, data));
    QCOMPARE(text, before);
}

UPDATER_TEST_MAIN(TestManifestReader)
#include "tst_ManifestReader.moc"
