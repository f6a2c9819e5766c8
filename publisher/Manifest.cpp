// Reads a version file as the updater does, and reports the problems that the updater ignores
// silently.

#include "publisher/Manifest.h"

#include "manifest/ManifestText.h"
#include "publisher/Output.h"

#include <QRegularExpression>

#include <algorithm>

namespace publisher {

namespace {

void checkBytes(const QByteArray& bytes, const QString& where, Output& output)
{
    const auto zero = bytes.indexOf('\0');
    if (zero >= 0)
        output.finding(where, QStringLiteral("has a zero byte at position %1; the updater reads "
                                             "nothing from there on")
                                  .arg(zero));
    if (std::any_of(bytes.begin(), bytes.end(), [](char byte) { return (byte & 0x80) != 0; }))
        output.finding(where, QStringLiteral("has characters outside ASCII; the updater reads one "
                                             "character per byte, so they become others"));
}

/// Compares the number of file blocks in the record with the number of files that were read.
void checkList(const QString& record, const ProgramData& data, const QString& where, Output& output)
{
    const auto listed = record.count(QLatin1String("<file>"), Qt::CaseInsensitive);
    const auto read = data.files.size();
    if (listed == read)
        return;
    const QString last =
        read == 0 ? QStringLiteral("none")
                  : QStringLiteral("the last is \"%1\"").arg(data.files.constLast().name);
    output.finding(
        where, QStringLiteral("lists %1 files, of which the updater sees %2 (%3); its list ends "
                              "silently at the first incomplete entry and leaves out one whose "
                              "size is not a number")
                   .arg(QString::number(listed), QString::number(read), last));
}

} // namespace

QString programNameIn(const QByteArray& bytes)
{
    static const QRegularExpression tag(QStringLiteral("<([^<>/][^<>]*)>"));
    return tag.match(manifest::textFromBytes(bytes)).captured(1);
}

std::optional<ProgramData> readManifest(const QByteArray& bytes, const QString& program,
                                        const QString& where, Output& output)
{
    checkBytes(bytes, where, output);

    QString text = manifest::textFromBytes(bytes);
    ProgramData data;
    if (!manifest::read(program, text, data)) {
        const QString what =
            program.isEmpty()
                ? QStringLiteral("is no version file")
                : QStringLiteral("has no record of \"%1\" with a version").arg(program);
        output.finding(where, what + QLatin1String("; the updater finds nothing to update"));
        return std::nullopt;
    }
    checkList(manifest::tagValue(program, text, false, nullptr), data, where, output);
    return data;
}

} // namespace publisher
