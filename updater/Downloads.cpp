// The downloads: one file after the other, each verified before it is saved. Three failures in a
// row end the update.

#include "updater/Updater.h"

#include "manifest/Digest.h"
#include "manifest/Paths.h"
#include "updater/Requests.h"

#include <QCoreApplication>
#include <QFile>
#include <QMessageBox>
#include <QNetworkReply>
#include <QProgressDialog>

namespace {

/// How often in a row downloads may fail, the first attempt included.
constexpr int maxFailures = 3;

bool isIntact(const QByteArray& body, const ProgramFile& file)
{
    return static_cast<quint64>(body.size()) == file.size &&
           digest::isSame(digest::sha1(body), file.sha1);
}

/// Fills @p body with the body of @p reply, which has finished. What is known to be there is read
/// first, into the memory that @p body has: readAll() alone makes room for twice as much.
void readBody(QNetworkReply& reply, QByteArray& body)
{
    using Size = decltype(body.size());
    body.resize(static_cast<Size>(reply.bytesAvailable()));
    const qint64 count = reply.read(body.data(), body.size());
    body.resize(static_cast<Size>(qMax<qint64>(count, 0)));
    body += reply.readAll();
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
    const QUrl url(paths::besideVersionFile(updateUrl, programData.files.at(currentFile).name));
    QNetworkReply* reply = netManager.get(requests::requestFor(url));
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
    readBody(*reply, body);
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
