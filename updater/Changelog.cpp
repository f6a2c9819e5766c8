// The changelog payload: made from the publisher's release notes, and dropped into a file for the
// host application, which decodes it.

#include "updater/Updater.h"

#include "manifest/Paths.h"
#include "manifest/QtVersions.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

namespace {

/// Named after the version alone, so that a host which knows the version finds it.
QString changelogFilePath(const QString& version)
{
    return paths::withSeparator(QDir::tempPath()) + QLatin1String("velmora_cl_") +
           version.trimmed() + QLatin1String(".dat");
}

} // namespace

QString Updater::changelogData(const QString& fileName) const
{
    if (fileName.isEmpty())
        return QString();
    QFile file(fileName);
    if (!file.open(QIODevice::ReadOnly | QIODevice::Text))
        return QString();

    QTextStream stream(&file);
    qtversions::useUtf8(stream);
    const QString text = stream.readAll();
    file.close();
    if (text.isEmpty())
        return QString();
    return QString::fromLatin1(text.toUtf8().toBase64());
}

bool Updater::writeChangelogFile(const ProgramData& data) const
{
    const QString path = changelogFilePath(data.version);
    // Remove it even if there is no changelog: the host must not find that of an earlier check.
    QFile::remove(path);
    if (data.changelog.isEmpty())
        return true;

    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;
    QTextStream stream(&file);
    qtversions::useUtf8(stream);
    stream << data.changelog;
    file.close(); // Flushes the stream.
    return true;
}
