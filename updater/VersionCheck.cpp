// The version check: fetches the version file, reports it to the host, and prepares the downloads
// when the published version is not the installed one.

#include "updater/Updater.h"

#include "updater/Digest.h"
#include "updater/Paths.h"
#include "updater/Toolkit.h"

#include <QCoreApplication>
#include <QFileInfo>
#include <QNetworkReply>
#include <QProgressDialog>
#include <QStandardPaths>

#include <algorithm>
#include <iterator>

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
    return sha1 && sha1->compare(file.sha1, Qt::CaseInsensitive) == 0;
}

} // namespace

void Updater::getVersion()
{
    QNetworkReply* reply = netManager.get(toolkit::networkRequest(QUrl(updateUrl)));
    connect(reply, SIGNAL(finished()), this, SLOT(getVersionFinished()));
}

void Updater::getVersionFinished()
{
    // The transfer's error is ignored on purpose: the body decides, even that of an error page.
    auto* reply = qobject_cast<QNetworkReply*>(sender());
    const QByteArray body = reply->readAll();
    reply->deleteLater();

    if (!xmlToProgramData(programName, toolkit::textFromBytes(body), programData)) {
        writeVersionToSHM(QStringLiteral("ERROR"), false);
        QCoreApplication::exit(1);
        // Going on is intended: the report below replaces this one, and the exit status of what
        // follows replaces 1. Hosts take an empty version for a version file that was unreadable.
    }
    writeVersionToSHM(programData.version, programData.required);
    writeChangelogFile(programData);

    const bool upToDate = programVersion.compare(programData.version, Qt::CaseInsensitive) == 0;
    if (checkOnly || upToDate) {
        QCoreApplication::exit(0);
        return;
    }
    prepareDownloads();
    downloadNewProgramData();
}

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

void Updater::openProgressDialog()
{
    progressDialog = new QProgressDialog(tr("Update is in progress"), tr("Cancel"), 0,
                                         static_cast<int>(programData.files.size()));
    updateProgressLabel();
    connect(progressDialog, SIGNAL(canceled()), this, SLOT(cancelUpdate()));
    progressDialog->setWindowFlags(progressDialog->windowFlags() | Qt::WindowStaysOnTopHint);
    progressDialog->show();
}
