// Publisher side: walks a release tree and lists its files.

#include "updater/Updater.h"

#include "manifest/Digest.h"
#include "manifest/Paths.h"

#include <QDir>
#include <QFileInfo>

#include <utility>

namespace {

/// The prefix of every name in one directory: empty at the top, else ending with "/" and without
/// a backslash.
QString namePrefix(const QString& prefix)
{
    if (prefix.isEmpty())
        return prefix;
    return paths::withSeparator(prefix).replace(QLatin1Char('\\'), QLatin1Char('/'));
}

/// Two arg() calls on purpose: a %1 in a directory name is replaced by the second call. Published
/// version files depend on it.
QString entryName(const QString& prefix, const QString& fileName)
{
    return QStringLiteral("%1%2").arg(prefix).arg(fileName);
}

} // namespace

bool Updater::collectFiles(QDir dir, ProgramData& data, const QString& prefix)
{
    const QFileInfoList entries = paths::releaseEntries(dir);
    const QString ownPrefix = namePrefix(prefix);

    bool allRead = true;
    for (const QFileInfo& entry : entries) {
        if (entry.isDir()) {
            if (!collectFiles(QDir(entry.filePath()), data, ownPrefix + entry.fileName()))
                allRead = false;
        } else if (entry.isFile()) {
            // A file that cannot be read is listed without a digest, and the scan goes on.
            const std::optional<QString> sha1 = digest::sha1OfFile(entry.filePath());
            if (!sha1)
                allRead = false;
            ProgramFile file;
            file.name = entryName(ownPrefix, entry.fileName());
            file.sha1 = sha1.value_or(QString());
            file.size = static_cast<quint64>(entry.size());
            data.files.append(std::move(file));
        }
    }
    return allRead;
}
