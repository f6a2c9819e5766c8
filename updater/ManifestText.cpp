// The text form of a manifest: writer, reader and the extractor of one element.
//
// The text looks like XML and is not: no escapes, no attributes, no nesting. An element is found by
// its first opening mark, whatever stands around it, and is cut out; what is left is trimmed on
// both sides of the cut and glued together, so that a mark can form across the seam. The reader's
// result is that of doing just this, element by element; its cost is linear in the text all the
// same, because it remembers how far it has looked.

#include "updater/Updater.h"

#include <algorithm>
#include <optional>
#include <utility>

namespace {

/// The opening and the closing mark of an element.
struct Marks
{
    explicit Marks(const QString& tag)
        : opening(QStringLiteral("<%1>").arg(tag)), closing(QStringLiteral("</%1>").arg(tag))
    {
    }

    QString opening;
    QString closing;
};

/// Where an element stands in a text: its value, and the whole of it with its marks.
struct Element
{
    qsizetype begin;
    qsizetype valueBegin;
    qsizetype valueEnd;
    qsizetype end;
};

/// True when @p candidate is @p mark in any case. Nearly all marks are written as they stand: that
/// is tried first.
bool isMark(QStringView candidate, const QString& mark)
{
    return candidate == mark || candidate.compare(mark, Qt::CaseInsensitive) == 0;
}

/// Looks for @p mark, ignoring case. Every mark begins with "<", which has no case and is found
/// several times faster than a text in any case.
qsizetype findMark(QStringView text, const QString& mark, qsizetype from)
{
    for (;;) {
        const qsizetype begin = text.indexOf(QLatin1Char('<'), from);
        if (begin < 0)
            return -1;
        if (isMark(text.mid(begin, mark.size()), mark))
            return begin;
        from = begin + 1;
    }
}

std::optional<Element> findElement(QStringView text, const Marks& marks)
{
    const qsizetype begin = findMark(text, marks.opening, 0);
    if (begin < 0)
        return std::nullopt;
    const qsizetype valueBegin = begin + marks.opening.size();
    const qsizetype valueEnd = findMark(text, marks.closing, valueBegin);
    if (valueEnd < 0)
        return std::nullopt;
    return Element{begin, valueBegin, valueEnd, valueEnd + marks.closing.size()};
}

void append(QString& text, QStringView piece)
{
    text.append(piece.data(), static_cast<int>(piece.size()));
}

/// What is left of @p text without @p element: the two sides of the cut, trimmed, end to end.
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

/// A text from which elements are cut. Does not own the text that it is given.
class Remainder
{
public:
    explicit Remainder(QStringView text) : m_text(text) {}

    /// Cuts out the first element with @p marks and returns its trimmed value; an empty string
    /// when there is none, or a blank one.
    QString take(const Marks& marks)
    {
        const std::optional<Element> element = findElement(m_text, marks);
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
            // The order that the writer keeps: nothing is copied.
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
/// The text left so far is kept in two pieces, before and behind the last cut. No opening mark
/// lies in the first piece, so only the seam and the second one are searched.
class FileBlocks
{
public:
    /// Does not own @p body, which must be trimmed.
    explicit FileBlocks(QStringView body) : m_behind(body) {}

    /// Cuts out the next block and returns its trimmed text: empty when there is none, or a blank
    /// one.
    QStringView next()
    {
        const std::optional<qsizetype> begin = findOpening();
        if (!begin)
            return QStringView();
        const qsizetype valueBegin = *begin + m_marks.opening.size();
        const qsizetype valueEnd = findMark(m_behind, m_marks.closing, valueBegin);
        if (valueEnd < 0)
            return QStringView();
        const QStringView block = m_behind.mid(valueBegin, valueEnd - valueBegin).trimmed();
        cut(*begin, valueEnd + m_marks.closing.size());
        return block;
    }

private:
    /// Returns where the first opening mark begins, counted from the seam: below zero when the two
    /// pieces form it together.
    std::optional<qsizetype> findOpening() const
    {
        const qsizetype most = m_marks.opening.size() - 1; // On either side of the seam.
        if (!m_before.isEmpty()) {
            QString seam = m_before.right(static_cast<int>(most));
            const qsizetype beforeSeam = seam.size();
            append(seam, m_behind.left(std::min(most, m_behind.size())));
            const qsizetype begin = findMark(seam, m_marks.opening, 0);
            if (begin >= 0)
                return begin - beforeSeam;
        }
        const qsizetype begin = findMark(m_behind, m_marks.opening, 0);
        return begin < 0 ? std::nullopt : std::optional<qsizetype>(begin);
    }

    /// Removes what lies from @p begin to @p end, both counted from the seam, and trims both sides
    /// of the new seam. (The outer ends of the body are trimmed from the start, and stay so.)
    void cut(qsizetype begin, qsizetype end)
    {
        if (begin < 0)
            m_before.chop(static_cast<int>(-begin));
        else
            append(m_before, m_behind.left(begin));
        while (!m_before.isEmpty() && m_before.back().isSpace())
            m_before.chop(1);
        m_behind = m_behind.mid(end).trimmed();
    }

    const Marks m_marks{QStringLiteral("file")};
    QString m_before;
    QStringView m_behind;
};

/// Appends the entries of @p body to @p files, up to the first incomplete one. An entry whose size
/// is not a number is left out.
void readFiles(QStringView body, QVector<ProgramFile>& files)
{
    const Marks nameMarks(QStringLiteral("name"));
    const Marks sha1Marks(QStringLiteral("sha1"));
    const Marks sizeMarks(QStringLiteral("size"));

    FileBlocks blocks(body);
    for (;;) {
        Remainder block(blocks.next());
        ProgramFile file;
        file.name = block.take(nameMarks);
        if (file.name.isEmpty())
            return;
        file.sha1 = block.take(sha1Marks);
        if (file.sha1.isEmpty())
            return;
        const QString size = block.take(sizeMarks);
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

/// The length of the lines of @p files, or a little more: making room once saves copying the text
/// as it grows.
qsizetype lengthOfLines(const QVector<ProgramFile>& files)
{
    constexpr qsizetype marksAndSize = 85; // Of one file, with the longest number there is.
    qsizetype length = 0;
    for (const ProgramFile& file : files)
        length += marksAndSize + file.name.size() + file.sha1.size();
    return length;
}

} // namespace

QString Updater::tagValue(const QString& tag, QString& source, bool remove, bool* found)
{
    const std::optional<Element> element = findElement(source, Marks(tag));
    if (found)
        *found = element.has_value();
    if (!element)
        return QString();
    QString value = valueOf(source, *element).toString();
    if (remove)
        source = withoutElement(source, *element);
    return value;
}

bool Updater::programDataToXml(const ProgramData& data, QString& text)
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

bool Updater::xmlToProgramData(const QString& rootTag, const QString& xml, ProgramData& data)
{
    // What is read may lie in the record that is filled.
    const QString text = xml; // NOLINT(performance-unnecessary-copy-initialization)
    const std::optional<Element> root = findElement(text, Marks(rootTag));
    if (!root)
        return false;
    Remainder body(valueOf(text, *root).trimmed());
    if (body.text().isEmpty())
        return false;

    data.name = rootTag.trimmed();
    const QString version = body.take(Marks(QStringLiteral("version")));
    if (version.isEmpty())
        return false;
    data.version = version;
    const QString required = body.take(Marks(QStringLiteral("required")));
    data.required = required.compare(QLatin1String("true"), Qt::CaseInsensitive) == 0;
    const QString changelog = body.take(Marks(QStringLiteral("changelog")));
    if (!changelog.isEmpty())
        data.changelog = changelog;
    readFiles(body.text(), data.files);
    return true;
}
