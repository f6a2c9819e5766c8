// The progress dialog: opens it, and says which file is being downloaded and how much is left.

#include "updater/Updater.h"

#include <QProgressDialog>

namespace {

constexpr double mebibytesPerByte = 9.5367431640625e-07;

} // namespace

void Updater::openProgressDialog()
{
    progressDialog = new QProgressDialog(tr("Update is in progress"), tr("Cancel"), 0,
                                         static_cast<int>(programData.files.size()));
    updateProgressLabel();
    connect(progressDialog, SIGNAL(canceled()), this, SLOT(cancelUpdate()));
    progressDialog->setWindowFlags(progressDialog->windowFlags() | Qt::WindowStaysOnTopHint);
    progressDialog->show();
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
