// What is written must be read back: records of any values that the format can carry, several of
// them in one text.
//
// A line of the input is a value. A record is the name, the version, "true" for a required update,
// the changelog, and then the name, the SHA-1 and the size of one file after the other; an empty
// line in place of a file ends it. ASCII bytes and the upper half of Latin-1 are those characters;
// the bytes between are pieces that can confuse a reader.

#include "manifest/ManifestText.h"

#include "fuzz/Disagreement.h"
#include "fuzz/Harness.h"
#include "tests/support/Records.h"

#include <cstdint>
#include <vector>

namespace {

constexpr std::uint8_t firstPiece = 0x80;
constexpr std::uint8_t firstLatin = 0xA0;

const QStringList pieces = QStringList{"\n", "\t", "<", "</"} + fuzz::tags() +
                           QStringList{
                               "<Editor>",
                               "</Editor>",
                               "</FILE>",
                               "</na",
                               "%1%2",
                               "\u2003",
                               "\u200b",
                               "\u017f", // Is an "s" when case is ignored.
                               "\u212a", // A "k".
                               "\u0130",
                               QString::fromUcs4(U"\U00010400"), // Has a lower case beyond 16 bits.
                               QString(QChar(0xd801)),           // Halves of a character.
                               QString(QChar(0xdc00)),
                               QString(QChar(0xfeff)),
                           };

QString valueFrom(const QByteArray& line)
{
    QString value;
    for (const char c : line) {
        const auto byte = static_cast<std::uint8_t>(c);
        if (byte >= firstPiece && byte < firstLatin)
            value += pieces[byte - firstPiece];
        else
            value += QChar(byte);
    }
    return value;
}

class Lines
{
public:
    Lines(const std::uint8_t* bytes, std::size_t size) : m_lines(fuzz::linesOf(bytes, size)) {}

    bool atEnd() const { return m_next >= m_lines.size(); }
    QByteArray next() { return atEnd() ? QByteArray() : m_lines.at(m_next++); }

private:
    QList<QByteArray> m_lines;
    int m_next = 0;
};

ProgramData recordFrom(Lines& lines)
{
    ProgramData record;
    record.name = valueFrom(lines.next());
    record.version = valueFrom(lines.next());
    record.required = lines.next() == "true";
    record.changelog = valueFrom(lines.next());
    for (QByteArray name = lines.next(); !name.isEmpty(); name = lines.next()) {
        const QString sha1 = valueFrom(lines.next());
        record.files.append({valueFrom(name), sha1, fuzz::numberFrom(lines.next())});
    }
    return record;
}

QString trimmed(const QString& text)
{
    auto begin = text.begin();
    auto end = text.end();
    while (begin != end && begin->isSpace())
        ++begin;
    while (end != begin && (end - 1)->isSpace())
        --end;
    QString inner;
    for (; begin != end; ++begin)
        inner += *begin;
    return inner;
}

/// What the reader has to make of @p record: its values trimmed, and its files up to the first
/// that has an empty one.
ProgramData asRead(const ProgramData& record)
{
    ProgramData read;
    read.name = trimmed(record.name);
    read.version = trimmed(record.version);
    read.required = record.required;
    read.changelog = trimmed(record.changelog);
    for (const ProgramFile& file : record.files) {
        const ProgramFile entry{trimmed(file.name), trimmed(file.sha1), file.size};
        if (entry.name.isEmpty() || entry.sha1.isEmpty())
            break;
        read.files.append(entry);
    }
    return read;
}

/// @p text with every character in its simple case folding, in as many units as before.
std::u16string folded(const QString& text)
{
    std::u16string result;
    for (const uint c : text.toUcs4()) {
        const uint lower = QChar::toCaseFolded(c);
        if (QChar::requiresSurrogates(lower))
            result += static_cast<char16_t>(QChar::highSurrogate(lower));
        result +=
            static_cast<char16_t>(QChar::requiresSurrogates(lower) ? QChar::lowSurrogate(lower)
                                                                   : static_cast<char16_t>(lower));
    }
    return result;
}

bool holds(const QString& value, const char* tag)
{
    return folded(value).find(folded(tag)) != std::u16string::npos;
}

/// True when the values of @p record can be distinguished from the tags around them.
bool valuesAreClear(const ProgramData& record)
{
    if (holds(record.version, "</version>") || holds(record.changelog, "</changelog>"))
        return false;
    for (const ProgramFile& file : record.files) {
        if (holds(file.name, "</name>") || holds(file.name, "</file>") ||
            holds(file.sha1, "</sha1>") || holds(file.sha1, "</file>"))
            return false;
    }
    return true;
}

/// A record as it was written, and where it is in the text.
struct Written
{
    ProgramData data;
    std::size_t begin;
    std::size_t end;
};

/// True when the first opening tag with the record's name is the record's own, and so is the first
/// closing tag after it.
bool rootIsClear(const Written& record, const std::u16string& foldedText)
{
    const QString name = trimmed(record.data.name);
    const std::u16string opening = folded('<' + name + '>');
    const std::u16string closing = folded("</" + name + ">");
    return foldedText.find(opening) == record.begin &&
           foldedText.find(closing, record.begin + opening.size()) + closing.size() + 1 ==
               record.end;
}

/// Appends @p data to @p text. A record that cannot be written must leave the text alone.
void write(const ProgramData& data, QString& text, std::vector<Written>& records)
{
    const QString before = text;
    const bool writable = !trimmed(data.name).isEmpty() && !trimmed(data.version).isEmpty();
    if (manifest::write(data, text) != writable)
        fuzz::disagree("a record is writable or not", records::described(data));
    if (!writable)
        return fuzz::compare("the text was touched", text, before, data.name);
    const auto begin = before.isEmpty() ? 0 : before.size() + 1;
    records.push_back(
        {data, static_cast<std::size_t>(begin), static_cast<std::size_t>(text.size())});
}

void readBack(const Written& record, const QString& text)
{
    const ProgramData expected = asRead(record.data);
    ProgramData actual;
    const bool found = manifest::read(expected.name, text, actual);
    if (!found || !records::same(actual, expected))
        fuzz::disagree("not read back", "written\n" + records::described(expected) + "read\n" +
                                            records::described(actual) + "text \"" +
                                            records::escaped(text) + '"');
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size)
{
    Lines lines(bytes, size);
    QString text;
    std::vector<Written> records;
    while (!lines.atEnd())
        write(recordFrom(lines), text, records);

    const std::u16string foldedText = folded(text);
    for (const Written& record : records) {
        if (valuesAreClear(record.data) && rootIsClear(record, foldedText))
            readBack(record, text);
    }
    return 0;
}
