// The downloads: one file after the other, each verified before it is saved, with the progress
// dialog kept up to date. Three failures in a row end the update.

#include "updater/Updater.h"

#include "updater/Digest.h"
#include "updater/Paths.h"
#include "updater/Toolkit.h"

#include <QCoreApplication>
#include <QFile>
#include <QMessageBox>
#include <QNetworkReply>
#include <QProgressDialog>

namespace {

/// How often in a row downloads may fail, the first attempt included.
constexpr int maxFailures = 3;

constexpr double mebibytesPerByte = 9.5367431640625e-07;

bool isIntact(const QByteArray& body, const ProgramFile& file)
{
    return static_cast<quint64>(body.size()) == file.size &&
           digest::sha1(body).compare(file.sha1, Qt::CaseInsensitive) == 0;
}

bool save(const QByteArray& body, const QString& path)
{
    QFile file(path);
    if (!file.open(QIODevice::WriteOnly))
        return false;
    file.write(body);
    return true;
}

/// The name to show for an entry: without its directories, unless it ends with a separator.
QString shownName(const QString& name)
{
    return paths::endsWithSeparator(name) ? name : name.mid(paths::lastSeparator(name) + 1);
}

} // namespace

void Updater::downloadNewProgramData()
{
    if (currentFile == programData.files.size()) {
        allFilesDownloaded();
        return;
    }
    const QString baseUrl = updateUrl.left(updateUrl.lastIndexOf(QLatin1String("/")) + 1);
    const QUrl url(baseUrl + programData.files.at(currentFile).name);
    QNetworkReply* reply = netManager.get(toolkit::networkRequest(url));
    connect(reply, SIGNAL(finished()), this, SLOT(fileDownloadFinished()));
}

void Updater::fileDownloadFinished()
{
    // Shared by all files and both kinds of failure; only a file that was saved resets it.
    static int nRetry = 0;

    auto* reply = qobject_cast<QNetworkReply*>(sender());
    if (reply->error() != QNetworkReply::NoError) {
        if (++nRetry < maxFailures) {
            reply->deleteLater();
            downloadNewProgramData();
        } else {
            abortAfterTransferError(static_cast<int>(reply->error()));
        }
        return;
    }

    const ProgramFile file = programData.files.at(currentFile);
    const QString path = paths::withSeparator(tempDir) + file.name;
    if (const std::optional<QString> directory = paths::directoryPart(path))
        QDir().mkpath(*directory);
    const QByteArray body = reply->readAll();
    reply->deleteLater();

    if (!isIntact(body, file)) {
        if (++nRetry < maxFailures)
            downloadNewProgramData();
        else
            abortAfterDamage(file.name);
        return;
    }
    if (save(body, path)) {
        ++downloadedFiles;
        ++currentFile;
        nRetry = 0;
    }
    // A file that could not be saved is fetched again, without end, and counts as no failure: this
    // is intended; the user has the Cancel button.
    if (progressDialog) {
        progressDialog->setValue(currentFile);
        updateProgressLabel();
    }
    downloadNewProgramData();
}

void Updater::abortAfterTransferError(int code)
{
    if (progressDialog)
        progressDialog->setVisible(false);
    QMessageBox::warning(
        nullptr, tr("Error"),
        tr("An error occured while downloading the update.\nError code: %1").arg(code),
        QMessageBox::Ok, QMessageBox::NoButton);
    QCoreApplication::exit(1);
}

void Updater::abortAfterDamage(const QString& name)
{
    if (progressDialog)
        progressDialog->setVisible(false);
    QMessageBox::critical(
        nullptr, tr("Error"),
        tr("An error occured while downloading the file \"%1\"\n\nAborting the update.")
            .arg(shownName(name)),
        QMessageBox::Ok, QMessageBox::NoButton);
    QCoreApplication::exit(1);
}

void Updater::updateProgressLabel()
{
    if (!progressDialog)
        return;
    const double mebibytesLeft = static_cast<qint32>(bytesLeft()) * mebibytesPerByte;
    progressDialog->setLabelText(QStringLiteral("Downloading file %1 of %2 (%3 MB left)")
                                     .arg(currentFile + 1)
                                     .arg(programData.files.size())
                                     .arg(mebibytesLeft, 0, 'f', 2));
}

quint32 Updater::bytesLeft()
{
    const QVector<ProgramFile>& files = programData.files;
    // 32 bits on purpose: from 2 GiB on the figure wraps. Summed without a sign, which may wrap.
    const auto bytes = [](const ProgramFile& file) {
        return static_cast<quint32>(file.size);
    };
    const bool sameList =
        left.files.constData() == files.constData() && left.files.size() == files.size();
    if (!sameList || currentFile < left.file) {
        left.files = files;
        left.file = 0;
        left.bytes = 0;
        for (const ProgramFile& file : files)
            left.bytes += bytes(file);
    }
    for (; left.file < currentFile && left.file < files.size(); ++left.file)
        left.bytes -= bytes(files.at(left.file));
    return left.bytes;
}
