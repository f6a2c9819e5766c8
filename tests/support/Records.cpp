#include "tests/support/Records.h"

#include <algorithm>

namespace {

bool sameFile(const ProgramFile& one, const ProgramFile& other)
{
    return one.name == other.name && one.sha1 == other.sha1 && one.size == other.size;
}

QString fileLine(const ProgramFile& file)
{
    return file.name + '|' + file.sha1 + '|' + QString::number(file.size);
}

} // namespace

namespace records {

bool same(const ProgramData& one, const ProgramData& other)
{
    return one.name == other.name && one.version == other.version &&
           one.required == other.required && one.changelog == other.changelog &&
           std::equal(one.files.begin(), one.files.end(), other.files.begin(), other.files.end(),
                      sameFile);
}

QString escaped(const QString& text)
{
    QString printable;
    for (const QChar c : text) {
        if (c == '"' || c == '\\')
            printable += QString('\\') + c;
        else if (c == '\n')
            printable += "\\n";
        else if (c == '\t')
            printable += "\\t";
        else if (c < ' ' || c > '~')
            printable += "\\u" + QString::number(c.unicode(), 16).rightJustified(4, '0');
        else
            printable += c;
    }
    return printable;
}

QString described(const ProgramData& data)
{
    QString lines = "name      \"" + escaped(data.name) + "\"\n";
    lines += "version   \"" + escaped(data.version) + "\"\n";
    lines += QString("required  ") + (data.required ? "true\n" : "false\n");
    lines += "changelog \"" + escaped(data.changelog) + "\"\n";
    for (const ProgramFile& file : data.files)
        lines += "file      \"" + escaped(fileLine(file)) + "\"\n";
    return lines;
}

QString difference(const ProgramData& actual, const ProgramData& expected, const QByteArray& text)
{
    if (same(actual, expected))
        return QString();
    QString lines = "read:\n" + described(actual) + "expected:\n" + described(expected);
    if (!text.isEmpty())
        lines += "text:\n" + escaped(QString::fromLatin1(text));
    return lines;
}

QStringList files(const ProgramData& data)
{
    QStringList lines;
    for (const ProgramFile& file : data.files)
        lines.append(fileLine(file));
    return lines;
}

} // namespace records
