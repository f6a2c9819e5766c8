#include "tests/support/LiteralReader.h"

namespace literal {

QString tagValue(const QString& tag, QString& source, bool remove, bool* found)
{
    const QString opening = QString("<%1>").arg(tag);
    const QString closing = QString("</%1>").arg(tag);

    const auto openingAt = source.indexOf(opening, 0, Qt::CaseInsensitive);
    const auto valueAt = openingAt + opening.length();
    const auto closingAt =
        openingAt == -1 ? -1 : source.indexOf(closing, valueAt, Qt::CaseInsensitive);
    if (closingAt == -1) {
        if (found != nullptr)
            *found = false;
        return QString();
    }

    if (found != nullptr)
        *found = true;
    const QString value = source.mid(valueAt, closingAt - valueAt);

    if (remove) {
        const auto afterAt = closingAt + closing.length();
        QString rebuilt;
        if (openingAt != 0)
            rebuilt += source.left(openingAt).trimmed();
        if (afterAt != source.length())
            rebuilt += source.mid(afterAt).trimmed();
        source = rebuilt;
    }
    return value;
}

bool read(const QString& rootTag, const QString& xml, ProgramData& data)
{
    bool found = false;

    QString copy = xml;
    QString body = tagValue(rootTag, copy, true, &found).trimmed();
    if (!found || body.isEmpty())
        return false;

    data.name = rootTag.trimmed();

    const QString version = tagValue("version", body, true, &found).trimmed();
    if (!found || version.isEmpty())
        return false;
    data.version = version;

    const QString required = tagValue("required", body, true, &found).trimmed();
    data.required = found && required.compare("true", Qt::CaseInsensitive) == 0;

    const QString changelog = tagValue("changelog", body, true, &found).trimmed();
    if (found && !changelog.isEmpty())
        data.changelog = changelog;

    while (true) {
        QString block = tagValue("file", body, true, &found).trimmed();
        if (!found || block.isEmpty())
            break;
        const QString name = tagValue("name", block, true, &found).trimmed();
        if (!found || name.isEmpty())
            break;
        const QString sha1 = tagValue("sha1", block, true, &found).trimmed();
        if (!found || sha1.isEmpty())
            break;
        const QString sizeText = tagValue("size", block, true, &found).trimmed();
        if (!found || sizeText.isEmpty())
            break;
        bool converted = false;
        const quint64 size = sizeText.toULongLong(&converted, 10);
        if (!converted)
            continue;
        ProgramFile file;
        file.name = name;
        file.sha1 = sha1;
        file.size = size;
        data.files.append(file);
    }
    return true;
}

} // namespace literal
