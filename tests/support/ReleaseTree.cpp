#include "tests/support/ReleaseTree.h"

#include "tests/support/Command.h"
#include "tests/support/Files.h"

#include <QDir>
#include <QFile>
#include <QFileInfo>

#include <sys/stat.h>

namespace {

void makeNode(const QString& path, mode_t type)
{
    files::makeDirectory(QFileInfo(path).path());
    if (::mknod(QFile::encodeName(path).constData(), type | 0600, 0) != 0)
        qFatal("test fixture: cannot make the node %s", qPrintable(path));
}

/// Runs @p tool once on all regular files in @p top and below. Returns the records that it prints,
/// each ended by a zero byte.
QList<QByteArray> onEveryFile(const QString& tool, const QString& top)
{
    const QString command = "find -L . -type f -print0 2>/dev/null | xargs -0 -r " + tool;
    QList<QByteArray> records = outputOf({"sh", "-c", command}, {}, top).split('\0');
    records.removeLast(); // The empty text after the last zero byte.
    return records;
}

/// Returns the relative path in a record in which it follows "./" at @p position.
QString pathIn(const QByteArray& record, qsizetype position)
{
    return QFile::decodeName(record.mid(static_cast<int>(position) + 2));
}

void appendListing(QStringList& names, const QString& dir, const QString& prefix)
{
    const QFileInfoList entries = QDir(dir).entryInfoList(
        QDir::AllEntries | QDir::Hidden | QDir::NoDotAndDotDot, QDir::Name | QDir::IgnoreCase);
    for (const QFileInfo& entry : entries) {
        if (entry.isDir())
            appendListing(names, entry.filePath(), prefix + entry.fileName() + "/");
        else if (entry.isFile())
            names.append(prefix + entry.fileName());
    }
}

/// Returns what is between @p before and @p after in @p line.
QString between(const QString& line, const QString& before, const QString& after)
{
    if (!line.startsWith(before) || !line.endsWith(after))
        qFatal("the version file has the line \"%s\"", qPrintable(line));
    return line.mid(before.size(), line.size() - before.size() - after.size());
}

} // namespace

namespace tree {

void makeFifo(const QString& path)
{
    makeNode(path, S_IFIFO);
}

void makeSocket(const QString& path)
{
    makeNode(path, S_IFSOCK);
}

void copy(const QString& source, const QString& destination)
{
    mustRun({"cp", "-a", source + "/.", destination});
}

ProgramFile entry(const QString& name, const QByteArray& contents)
{
    ProgramFile file;
    file.name = name;
    file.sha1 = files::sha1(contents);
    file.size = static_cast<quint64>(contents.size());
    return file;
}

QStringList lines(const QVector<ProgramFile>& files)
{
    QStringList lines;
    for (const ProgramFile& file : files)
        lines.append(file.sha1 + " " + QString::number(file.size) + " " + file.name);
    return lines;
}

QMap<QString, ProgramFile> seenByTools(const QString& top)
{
    QMap<QString, ProgramFile> files;
    const QList<QByteArray> digests = onEveryFile("sha1sum -z", top);
    for (const QByteArray& record : digests) { // "<40 digits>  ./<path>"
        ProgramFile file;
        file.name = pathIn(record, 42);
        file.sha1 = QString::fromLatin1(record.left(40));
        files.insert(file.name, file);
    }
    const QList<QByteArray> sizes = onEveryFile("stat -L --printf='%s %n\\0'", top);
    for (const QByteArray& record : sizes) { // "<size> ./<path>"
        const auto space = record.indexOf(' ');
        files[pathIn(record, space + 1)].size = record.left(space).toULongLong();
    }
    return files;
}

QStringList listingOrder(const QString& top)
{
    QStringList names;
    appendListing(names, top, QString());
    return names;
}

QString versionFile(const ProgramData& data)
{
    QString text;
    text += "<" + data.name + ">\n";
    text += "\t<version>" + data.version + "</version>\n";
    text += QString("\t<required>") + (data.required ? "true" : "false") + "</required>\n";
    text += "\t<changelog>" + data.changelog + "</changelog>\n";
    for (const ProgramFile& file : data.files) {
        text += "\t<file>\n";
        text += "\t\t<name>" + file.name + "</name>\n";
        text += "\t\t<sha1>" + file.sha1 + "</sha1>\n";
        text += "\t\t<size>" + QString::number(file.size) + "</size>\n";
        text += "\t</file>\n";
    }
    text += "</" + data.name + ">\n";
    return text;
}

QVector<ProgramFile> entriesOf(const QString& text)
{
    constexpr int headLines = 4;
    constexpr int endLines = 2; // The closing root element, and nothing after its line end.
    constexpr int blockLines = 5;
    const QStringList lines = text.split('\n');
    if ((lines.size() - headLines - endLines) % blockLines != 0)
        qFatal("the version file has %d lines", static_cast<int>(lines.size()));

    QVector<ProgramFile> files;
    for (int i = headLines; i < lines.size() - endLines; i += blockLines) {
        between(lines[i], "\t<file>", "");
        ProgramFile file;
        file.name = between(lines[i + 1], "\t\t<name>", "</name>");
        file.sha1 = between(lines[i + 2], "\t\t<sha1>", "</sha1>");
        file.size = between(lines[i + 3], "\t\t<size>", "</size>").toULongLong();
        between(lines[i + 4], "\t</file>", "");
        files.append(file);
    }
    return files;
}

} // namespace tree
