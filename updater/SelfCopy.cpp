// For an installation that restarts from a copy of the updater: where does this process run, and a
// copy of its executable in the temporary directory. No run of the program uses these yet.

#include "updater/Updater.h"

#include "manifest/Paths.h"

#include <QCoreApplication>
#include <QFile>
#include <QStandardPaths>

bool Updater::runningFromTemp() const
{
    return paths::isInside(QCoreApplication::applicationDirPath(),
                           QStandardPaths::writableLocation(QStandardPaths::TempLocation));
}

bool Updater::selfCopyToTemp(QString& target)
{
    target = paths::withSeparator(QStandardPaths::writableLocation(QStandardPaths::TempLocation)) +
             programName + QLatin1String("Updater");
    // A copy never overwrites, so an old one must go first.
    if (QFile::exists(target))
        QFile::remove(target);
    if (QFile::copy(QCoreApplication::applicationFilePath(), target))
        tempCopies.append(target);
    return false; // Always, intended: callers look for the file.
}
