// The installation: moves what was downloaded into the program's directory and starts the program.

#include "updater/Updater.h"

#include "manifest/Paths.h"

#include <QCoreApplication>
#include <QFile>
#include <QProcess>

namespace {

/// rwxr-xr-x, for the executable and for icon files.
constexpr QFile::Permissions executablePermissions =
    QFile::ReadOwner | QFile::WriteOwner | QFile::ExeOwner | QFile::ReadGroup | QFile::ExeGroup |
    QFile::ReadOther | QFile::ExeOther;

/// Moves the file @p from to @p to, over the old one or into directories made for it.
void moveIntoPlace(const QString& from, const QString& to)
{
    if (QFile::exists(to)) {
        QFile::remove(to);
    } else if (const std::optional<QString> directory = paths::directoryPart(to)) {
        QDir().mkpath(*directory);
    }
    QFile::rename(from, to);
}

/// Removes the directory of the file @p path and its parents, as far as they are empty.
void removeEmptyDirectories(const QString& path)
{
    if (const std::optional<QString> directory = paths::directoryPart(path))
        QDir().rmpath(*directory);
}

bool fileGiven(const QString& path)
{
    return !path.isEmpty() && QFile::exists(path);
}

} // namespace

void Updater::allFilesDownloaded()
{
    // All or nothing: as long as a file is missing, none is installed.
    if (currentFile != programData.files.size()) {
        QCoreApplication::exit(1);
        return;
    }
    const QString bundleExe = installFiles();
    if (!fileGiven(programExe) && fileGiven(bundleExe))
        programExe = bundleExe;
    startProgram(programExe);
    QCoreApplication::exit(0);
}

QString Updater::installFiles()
{
    const QString downloadDir = paths::withSeparator(tempDir);
    const QString baseDir = paths::withSeparator(programBaseDir);
    const QString exeEnding = QStringLiteral("Contents/MacOS/%1").arg(programName);

    QString bundleExe;
    const QVector<ProgramFile> files = programData.files;
    for (const ProgramFile& file : files) {
        const QString downloaded = downloadDir + file.name;
        const QString installed = baseDir + file.name;
        moveIntoPlace(downloaded, installed);
        // Icon files become executable on purpose (docs/quirks.md).
        if (installed.endsWith(QLatin1String(".icns"), Qt::CaseInsensitive))
            QFile::setPermissions(installed, executablePermissions);
        removeEmptyDirectories(downloaded);
        if (bundleExe.isEmpty() && installed.endsWith(exeEnding, Qt::CaseInsensitive)) {
            bundleExe = installed;
            QFile::setPermissions(installed, executablePermissions);
        }
    }
    return bundleExe;
}

bool Updater::startProgram(const QString& path) const
{
    static bool started = false;

    if (started)
        return true;
    if (!fileGiven(path))
        return false;
    const QString directory = paths::directoryPart(path).value_or(programBaseDir);
    started = QProcess::startDetached(path, QStringList(), directory);
    return started;
}
