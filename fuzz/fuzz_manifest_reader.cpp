// The manifest reader against the literal one, on the texts that libFuzzer thinks of.
//
// An ASCII byte of the input is that character; every other byte is a piece of a manifest, so that
// few mutations lead from one record to another.

#include "manifest/ManifestText.h"

#include "fuzz/Disagreement.h"
#include "fuzz/Harness.h"
#include "tests/support/LiteralReader.h"
#include "tests/support/Records.h"

#include <cstdint>

namespace {

const QStringList pieces = QStringList{"<Editor>", "</Editor>"} + fuzz::tags() +
                           QStringList{
                               "<Editor><version>2.1</version>",
                               "<file><name>a</name><sha1>5a</sha1><size>1</size></file>",
                               "<name>b</name><sha1>5b</sha1><size>2</size>",
                               "<name>c</name>",
                               "<sha1>5c</sha1>",
                               "<size>3</size>",
                               "<required>true</required>",
                               "<changelog>Y2w=</changelog>",
                               "<fi",
                               "le>",
                               "</fi",
                               "</",
                               "<na",
                               "me>",
                               "<sh",
                               "a1>",
                               "<si",
                               "ze>",
                               "<FILE>",
                               "</File>",
                               "\n\t",
                               "\n\t\t",
                               "\u00a0",
                               "\u2003",
                               "\u0085",
                               "\u200b",
                               "\u017f",
                               "\u212a",
                               "18446744073709551615",
                               "18446744073709551616",
                               "%1",
                               QString(QChar(0xd801)),
                           };

QString textFrom(const std::uint8_t* bytes, std::size_t size)
{
    QString text;
    for (std::size_t i = 0; i < size; ++i) {
        if (bytes[i] < 0x80)
            text += QChar(bytes[i]);
        else
            text += pieces.at((bytes[i] - 0x80) % static_cast<int>(pieces.size()));
    }
    return text;
}

QString quoted(const QString& text)
{
    return "text \"" + records::escaped(text) + '"';
}

void compareReaders(const QString& text, const ProgramData& start)
{
    ProgramData expected = start;
    ProgramData actual = start;
    const bool expectedResult = literal::read("Editor", text, expected);
    const bool result = manifest::read("Editor", text, actual);
    if (result == expectedResult && records::same(actual, expected))
        return;
    fuzz::disagree("the readers disagree",
                   QStringLiteral("literal reader: %1\n%2\nthis reader: %3\n%4\n%5")
                       .arg(QString::number(expectedResult), records::described(expected),
                            QString::number(result), records::described(actual), quoted(text)));
}

void compareExtractors(const QString& text, bool remove)
{
    QString expectedSource = text;
    QString source = text;
    bool expectedFound = false;
    bool found = true;
    const QString expected = literal::tagValue("file", expectedSource, remove, &expectedFound);
    const QString value = manifest::tagValue("file", source, remove, &found);
    if (value != expected || value.isNull() != expected.isNull() || source != expectedSource ||
        found != expectedFound)
        fuzz::disagree("the extractors disagree", quoted(text));
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    const QString text = textFrom(bytes, size);
    compareReaders(text, {"Old", "1.0", true, "b2xk", {{"old.txt", "0d", 1}}});
    compareReaders("<Editor><version>2.1</version>" + text + "</Editor>", {});
    compareExtractors(text, false);
    compareExtractors(text, true);
    return 0;
}
