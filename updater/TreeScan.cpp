// Publisher side: walks a release tree and lists its files.

#include "updater/Updater.h"

#include "updater/Digest.h"
#include "updater/Paths.h"

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

/// Two steps on purpose: a place marker in a directory's name takes part in the second one, and
/// published version files name such files that way.
QString entryName(const QString& prefix, const QString& fileName)
{
    return QStringLiteral("%1%2").arg(prefix).arg(fileName);
}

} // namespace

bool Updater::collectFiles(QDir dir, ProgramData& data, const QString& prefix)
{
    // Hidden files belong to a release; links are followed.
    const QFileInfoList entries = dir.entryInfoList(QDir::Dirs | QDir::Files | QDir::Hidden |
                                                        QDir::System | QDir::NoDotAndDotDot,
                                                    QDir::NoSort);
    const QString ownPrefix = namePrefix(prefix);

    bool allRead = true;
    for (const QFileInfo& entry : entries) {
        if (entry.isDir()) {
            if (!collectFiles(QDir(entry.filePath()), data, ownPrefix + entry.fileName()))
                allRead = false;
        } else if (entry.isFile()) {
            // A file that cannot be read is listed too, without a digest; the result tells.
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
