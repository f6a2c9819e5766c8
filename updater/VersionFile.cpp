// Publisher side: the build mode, which describes a release tree in its version file.

#include "updater/Updater.h"

#include "manifest/Paths.h"
#include "manifest/QtVersions.h"

#include <QDir>
#include <QFile>
#include <QTextStream>

bool Updater::buildVersionFile(QString* versionFilePath, bool required,
                               const QString& changelogFile)
{
    ProgramData data;
    data.name = programName.trimmed();
    data.version = programVersion.trimmed();
    data.required = required;
    data.changelog = changelogData(changelogFile);
    if (data.name.isEmpty() || data.version.isEmpty())
        return false;

    const QDir baseDir(programBaseDir);
    if (!baseDir.exists())
        return false;
    const QString path = paths::withSeparator(programBaseDir) + QLatin1String("index.txt");

    // Scanning before the old version file is removed is intended: a version file that an earlier
    // build left in the tree is listed in the new one like any other file.
    if (!collectFiles(baseDir, data, QString()))
        return false;

    if (QFile::exists(path))
        QFile::remove(path);
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly | QIODevice::Truncate | QIODevice::Text))
        return false;

    QString text;
    // Cannot fail here: the writer refuses only an empty name or version, which was checked above.
    if (!programDataToXml(data, text)) {
        file.remove();
        return false;
    }
    QTextStream stream(&file);
    qtversions::useSystemEncoding(stream);
    stream << text;
    file.close(); // Flushes the stream.

    if (versionFilePath)
        *versionFilePath = path;
    return true;
}
