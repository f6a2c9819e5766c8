// The text form of a manifest: writer, reader and the extraction of one element.
//
// An element is found by its first opening tag, whatever is around it, and is cut out. The text on
// both sides of the cut is trimmed and joined, so that a tag can form across the seam. The reader
// gives the result of doing just this, element by element, but in linear time, because it remembers
// how far it has looked.

#include "manifest/ManifestText.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace manifest {

namespace {

/// The opening and the closing tag of an element.
struct Tags
{
    explicit Tags(const QString& tag)
        : opening(QStringLiteral("<%1>").arg(tag)), closing(QStringLiteral("</%1>").arg(tag))
    {
    }

    QString opening;
    QString closing;
};

/// Where an element is in a text: its value, and the whole of it with its tags.
struct Element
{
    qsizetype begin;
    qsizetype valueBegin;
    qsizetype valueEnd;
    qsizetype end;
};

/// True when @p candidate is @p tag in any letter case. Nearly all tags are written in lower case,
/// so the exact comparison comes first.
bool isTag(QStringView candidate, const QString& tag)
{
    return candidate == tag || candidate.compare(tag, Qt::CaseInsensitive) == 0;
}

/// Returns where @p tag begins in @p text, ignoring letter case; -1 when it is not there. Looks for
/// "<" first, which is several times faster than looking for a text in any letter case.
qsizetype findTag(QStringView text, const QString& tag, qsizetype from)
{
    for (;;) {
        const qsizetype begin = text.indexOf(QLatin1Char('<'), from);
        if (begin < 0)
            return -1;
        if (isTag(text.mid(begin, tag.size()), tag))
            return begin;
        from = begin + 1;
    }
}

std::optional<Element> findElement(QStringView text, const Tags& tags)
{
    const qsizetype begin = findTag(text, tags.opening, 0);
    if (begin < 0)
        return std::nullopt;
    const qsizetype valueBegin = begin + tags.opening.size();
    const qsizetype valueEnd = findTag(text, tags.closing, valueBegin);
    if (valueEnd < 0)
        return std::nullopt;
    return Element{begin, valueBegin, valueEnd, valueEnd + tags.closing.size()};
}

void append(QString& text, QStringView piece)
{
    text.append(piece.data(), static_cast<int>(piece.size()));
}

/// Returns @p text without @p element: the text on both sides of the cut, trimmed and joined.
QString withoutElement(QStringView text, const Element& element)
{
    QString left = text.left(element.begin).trimmed().toString();
    append(left, text.mid(element.end).trimmed());
    return left;
}

QStringView valueOf(QStringView text, const Element& element)
{
    return text.mid(element.valueBegin, element.valueEnd - element.valueBegin);
}

/// A text from which elements are cut. Refers to the text that it is given and does not own it.
class Remainder
{
public:
    explicit Remainder(QStringView text) : m_text(text) {}

    /// Cuts out the first element with @p tags and returns its trimmed value; an empty string when
    /// there is none.
    QString take(const Tags& tags)
    {
        const std::optional<Element> element = findElement(m_text, tags);
        if (!element)
            return QString();
        QString value = valueOf(m_text, *element).trimmed().toString();
        cut(*element);
        return value;
    }

    QStringView text() const { return m_text; }

private:
    void cut(const Element& element)
    {
        if (element.begin == 0) {
            // Always so in the writer's order, and then nothing is copied.
            m_text = m_text.mid(element.end).trimmed();
            return;
        }
        m_glued = withoutElement(m_text, element);
        m_text = m_glued;
    }

    QStringView m_text;
    QString m_glued; ///< Holds the text once it is no longer one piece of the original.
};

/// Cuts the file blocks out of the body of a record, one by one, in linear time altogether.
///
/// The text that is left is kept in two pieces, before and after the last cut. The first piece has
/// no opening tag, so only the seam and the second piece are searched.
class FileBlocks
{
public:
    /// Does not own @p body, which must be trimmed.
    explicit FileBlocks(QStringView body) : m_after(body) {}

    /// Cuts out the next block and returns its trimmed text; empty when there is none.
    QStringView next()
    {
        const std::optional<qsizetype> begin = findOpening();
        if (!begin)
            return QStringView();
        const qsizetype valueBegin = *begin + m_tags.opening.size();
        const qsizetype valueEnd = findTag(m_after, m_tags.closing, valueBegin);
        if (valueEnd < 0)
            return QStringView();
        const QStringView block = m_after.mid(valueBegin, valueEnd - valueBegin).trimmed();
        cut(*begin, valueEnd + m_tags.closing.size());
        return block;
    }

private:
    /// Returns where the first opening tag begins, counted from the seam: below zero when the two
    /// pieces form it together.
    std::optional<qsizetype> findOpening() const
    {
        const qsizetype most = m_tags.opening.size() - 1; // On either side of the seam.
        if (!m_before.isEmpty()) {
            QString seam = m_before.right(static_cast<int>(most));
            const qsizetype beforeSeam = seam.size();
            append(seam, m_after.left(std::min(most, m_after.size())));
            const qsizetype begin = findTag(seam, m_tags.opening, 0);
            if (begin >= 0)
                return begin - beforeSeam;
        }
        const qsizetype begin = findTag(m_after, m_tags.opening, 0);
        return begin < 0 ? std::nullopt : std::optional<qsizetype>(begin);
    }

    /// Removes the text from @p begin to @p end, both counted from the seam, and trims both sides
    /// of the new seam. (The outer ends of the body were trimmed at the start.)
    void cut(qsizetype begin, qsizetype end)
    {
        if (begin < 0)
            m_before.chop(static_cast<int>(-begin));
        else
            append(m_before, m_after.left(begin));
        while (!m_before.isEmpty() && m_before.back().isSpace())
            m_before.chop(1);
        m_after = m_after.mid(end).trimmed();
    }

    const Tags m_tags{QStringLiteral("file")};
    QString m_before;
    QStringView m_after;
};

/// Appends the entries of @p body to @p files, up to the first incomplete one. An entry whose size
/// is not a number is left out.
void readFiles(QStringView body, QVector<ProgramFile>& files)
{
    const Tags nameTags(QStringLiteral("name"));
    const Tags sha1Tags(QStringLiteral("sha1"));
    const Tags sizeTags(QStringLiteral("size"));

    FileBlocks blocks(body);
    for (;;) {
        Remainder block(blocks.next());
        ProgramFile file;
        file.name = block.take(nameTags);
        if (file.name.isEmpty())
            return;
        file.sha1 = block.take(sha1Tags);
        if (file.sha1.isEmpty())
            return;
        const QString size = block.take(sizeTags);
        if (size.isEmpty())
            return;
        bool isNumber = false;
        file.size = size.toULongLong(&isNumber, 10);
        if (isNumber)
            files.append(std::move(file));
    }
}

/// Appends a line with one element to @p text.
void writeElement(QString& text, QLatin1String indent, QLatin1String tag, const QString& value)
{
    text += indent + QLatin1Char('<') + tag + QLatin1Char('>') + value + QLatin1String("</") + tag +
            QLatin1String(">\n");
}

/// Returns the length of the lines of @p files, or a little more. Reserving it at once saves
/// copying the text as it grows.
qsizetype lengthOfLines(const QVector<ProgramFile>& files)
{
    constexpr qsizetype tagsAndSize = 85; // Of one file, with the longest number there is.
    qsizetype length = 0;
    for (const ProgramFile& file : files)
        length += tagsAndSize + file.name.size() + file.sha1.size();
    return length;
}

} // namespace

QString textFromBytes(const QByteArray& bytes)
{
    // Given the QByteArray itself, Qt 6 would not stop at a zero byte.
    return QString::fromLatin1(bytes.constData());
}

bool write(const ProgramData& data, QString& text)
{
    const QString name = data.name.trimmed();
    const QString version = data.version.trimmed();
    if (name.isEmpty() || version.isEmpty())
        return false;

    const QLatin1String inRoot("\t");
    const QLatin1String inFile("\t\t");
    QString record = QLatin1Char('<') + name + QLatin1String(">\n");
    writeElement(record, inRoot, QLatin1String("version"), version);
    writeElement(record, inRoot, QLatin1String("required"),
                 data.required ? QStringLiteral("true") : QStringLiteral("false"));
    writeElement(record, inRoot, QLatin1String("changelog"), data.changelog.trimmed());
    record.reserve(static_cast<int>(record.size() + lengthOfLines(data.files) + name.size() + 4));
    for (const ProgramFile& file : data.files) {
        record += QLatin1String("\t<file>\n");
        writeElement(record, inFile, QLatin1String("name"), file.name);
        writeElement(record, inFile, QLatin1String("sha1"), file.sha1);
        writeElement(record, inFile, QLatin1String("size"), QString::number(file.size));
        record += QLatin1String("\t</file>\n");
    }
    record += QLatin1String("</") + name + QLatin1String(">\n");

    if (!text.isEmpty())
        text += QLatin1Char('\n');
    text += record;
    return true;
}

bool read(const QString& rootTag, const QString& xml, ProgramData& data)
{
    // xml may be a field of data, so keep a copy while data is overwritten.
    const QString text = xml; // NOLINT(performance-unnecessary-copy-initialization)
    const std::optional<Element> root = findElement(text, Tags(rootTag));
    if (!root)
        return false;
    Remainder body(valueOf(text, *root).trimmed());
    if (body.text().isEmpty())
        return false;

    data.name = rootTag.trimmed();
    const QString version = body.take(Tags(QStringLiteral("version")));
    if (version.isEmpty())
        return false;
    data.version = version;
    const QString required = body.take(Tags(QStringLiteral("required")));
    data.required = required.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
    const QString changelog = body.take(Tags(QStringLiteral("changelog")));
    if (!changelog.isEmpty())
        data.changelog = changelog;
    readFiles(body.text(), data.files);
    return true;
}

QString tagValue(const QString& tag, QString& source, bool remove, bool* found)
{
    const std::optional<Element> element = findElement(source, Tags(tag));
    if (found)
        *found = element.has_value();
    if (!element)
        return QString();
    QString value = valueOf(source, *element).toString();
    if (remove)
        source = withoutElement(source, *element);
    return value;
}

} // namespace manifest
