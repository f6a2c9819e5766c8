// Compares the version files of two releases.

#include "publisher/Diff.h"

#include "manifest/Digest.h"
#include "publisher/Manifest.h"
#include "publisher/Output.h"

#include <QFile>
#include <QHash>
#include <QSet>

namespace publisher {

namespace {

/// The files of one kind of change, in the order of their version file.
struct Group
{
    QString title;
    QVector<ProgramFile> files;
};

/// What an update does to an installation.
struct Change
{
    Group added{QStringLiteral("added"), {}};
    Group changed{QStringLiteral("changed"), {}};
    Group removed{QStringLiteral("removed"), {}};
};

std::optional<QByteArray> contentsOf(const QString& path, Output& output)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly)) {
        output.finding(path, QStringLiteral("cannot be read; ") + file.errorString());
        return std::nullopt;
    }
    return file.readAll();
}

bool isSame(const ProgramFile& one, const ProgramFile& other)
{
    return one.size == other.size && digest::isSame(one.sha1, other.sha1);
}

Change changeBetween(const ProgramData& before, const ProgramData& after)
{
    QHash<QString, ProgramFile> installed;
    for (const ProgramFile& file : before.files)
        installed.insert(file.name, file);

    Change change;
    QSet<QString> published;
    for (const ProgramFile& file : after.files) {
        published.insert(file.name);
        const auto old = installed.constFind(file.name);
        if (old == installed.constEnd())
            change.added.files.append(file);
        else if (!isSame(*old, file))
            change.changed.files.append(file);
    }
    for (const ProgramFile& file : before.files) {
        if (!published.contains(file.name))
            change.removed.files.append(file);
    }
    return change;
}

void write(const Group& group, Output& output)
{
    for (const ProgramFile& file : group.files)
        output.line(QStringLiteral("%1 %2 (%3 bytes)")
                        .arg(group.title.leftJustified(7), file.name, QString::number(file.size)));
}

quint64 bytesOf(const Group& group)
{
    quint64 bytes = 0;
    for (const ProgramFile& file : group.files)
        bytes += file.size;
    return bytes;
}

void writeSummary(const Change& change, const ProgramData& before, const ProgramData& after,
                  Output& output)
{
    const auto downloads = change.added.files.size() + change.changed.files.size();
    output.line(QStringLiteral("%1 %2 to %3: %4 added, %5 changed, %6 removed")
                    .arg(after.name, before.version, after.version,
                         QString::number(change.added.files.size()),
                         QString::number(change.changed.files.size()),
                         QString::number(change.removed.files.size())));
    output.line(QStringLiteral("A user of %1 downloads %2 files, %3 bytes.")
                    .arg(before.version, QString::number(downloads),
                         QString::number(bytesOf(change.added) + bytesOf(change.changed))));
    if (!change.removed.files.isEmpty())
        output.line(QStringLiteral("Removed files stay on users' machines: the updater deletes "
                                   "nothing."));
    if (before.version.compare(after.version, Qt::CaseInsensitive) == 0)
        output.line(QStringLiteral("Both have the same version: no installation will be updated."));
}

} // namespace

void diff(const QString& oldPath, const QString& newPath, const QString& program, Output& output)
{
    const std::optional<QByteArray> oldBytes = contentsOf(oldPath, output);
    const std::optional<QByteArray> newBytes = contentsOf(newPath, output);
    if (!oldBytes || !newBytes)
        return;
    // The installed program asks for its own name, whatever the new release is called.
    const QString name = program.isEmpty() ? programNameIn(*oldBytes) : program;
    const std::optional<ProgramData> before = readManifest(*oldBytes, name, oldPath, output);
    const std::optional<ProgramData> after = readManifest(*newBytes, name, newPath, output);
    if (!before || !after)
        return;

    const Change change = changeBetween(*before, *after);
    for (const Group* group : {&change.added, &change.changed, &change.removed})
        write(*group, output);
    writeSummary(change, *before, *after, output);
}

} // namespace publisher
