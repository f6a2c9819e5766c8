// The object itself: construction and destruction, the start of a run, cancelling, and the members
// that touch no state.

#include "updater/Updater.h"

#include "manifest/ManifestText.h"
#include "manifest/Paths.h"

#include <QCoreApplication>
#include <QProgressDialog>

Updater::Updater(const QString& programName, const QString& programBaseDir,
                 const QString& programVersion, const QString& updateUrl,
                 const QString& sharedMemKey, const QString& programExe, QObject* parent)
    : QObject(parent)
    , programName(programName)
    , programBaseDir(programBaseDir)
    , programVersion(programVersion)
    , updateUrl(updateUrl)
    , sharedMemKey(sharedMemKey)
    , programExe(programExe)
{
}

Updater::~Updater()
{
    if (!progressDialog)
        return;
    progressDialog->close();
    progressDialog->deleteLater();
    progressDialog = nullptr;
}

bool Updater::start(bool checkOnly)
{
    this->checkOnly = checkOnly;
    getVersion();
    return true;
}

void Updater::cancelUpdate()
{
    QCoreApplication::exit(0);
}

bool Updater::updateInstallVersionNumber()
{
    return false;
}

void Updater::endWithSeparator(QString& path) const
{
    path = paths::withSeparator(path);
}

void Updater::endWithoutSeparator(QString& path) const
{
    path = paths::withoutSeparator(path);
}

bool Updater::programDataToXml(const ProgramData& data, QString& text)
{
    return manifest::write(data, text);
}

bool Updater::xmlToProgramData(const QString& rootTag, const QString& xml, ProgramData& data)
{
    return manifest::read(rootTag, xml, data);
}

QString Updater::tagValue(const QString& tag, QString& source, bool remove, bool* found)
{
    return manifest::tagValue(tag, source, remove, found);
}
