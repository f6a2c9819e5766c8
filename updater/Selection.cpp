// What an update has to download, and where to: drops every file that is in place already.

#include "updater/Updater.h"

#include "manifest/Digest.h"
#include "manifest/Paths.h"

#include <QFileInfo>
#include <QStandardPaths>

#include <algorithm>

namespace {

/// Where the files of one release are saved until all of them are there.
QString downloadDirectory(const ProgramData& data)
{
    return paths::withSeparator(QStandardPaths::writableLocation(QStandardPaths::TempLocation)) +
           QStringLiteral("wUp%1%2").arg(data.name).arg(data.version);
}

/// True when the file at @p path has the size and the digest of @p file.
bool isInPlace(const ProgramFile& file, const QString& path)
{
    const QFileInfo installed(path);
    if (!installed.exists() || static_cast<quint64>(installed.size()) != file.size)
        return false;
    const std::optional<QString> sha1 = digest::sha1OfFile(path);
    return sha1 && digest::isSame(*sha1, file.sha1);
}

} // namespace

void Updater::prepareDownloads()
{
    tempDir = downloadDirectory(programData);
    QDir().mkpath(tempDir);
    selectFiles();
    currentFile = 0;
    downloadedFiles = 0;
    if (!progressDialog && !programData.files.isEmpty())
        openProgressDialog();
}

void Updater::selectFiles()
{
    const QString baseDir = paths::withSeparator(programBaseDir);
    QVector<ProgramFile>& files = programData.files;
    // From the last entry to the first; what stays gathers at the end of the list.
    const auto gone = std::remove_if(files.rbegin(), files.rend(), [&](const ProgramFile& file) {
        return isInPlace(file, baseDir + file.name);
    });
    files.erase(files.begin(), gone.base());
}
