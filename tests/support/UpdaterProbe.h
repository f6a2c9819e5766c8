// Lets a test see, and set, the state of a run, which Updater keeps to itself.
#ifndef TESTS_SUPPORT_UPDATERPROBE_H
#define TESTS_SUPPORT_UPDATERPROBE_H

#include "updater/Updater.h"

class UpdaterProbe
{
public:
    explicit UpdaterProbe(Updater& updater)
        : m_updater(updater)
        , programName(updater.programName)
        , programBaseDir(updater.programBaseDir)
        , programVersion(updater.programVersion)
        , updateUrl(updater.updateUrl)
        , sharedMemKey(updater.sharedMemKey)
        , programExe(updater.programExe)
        , netManager(updater.netManager)
        , tempCopies(updater.tempCopies)
        , programData(updater.programData)
        , tempDir(updater.tempDir)
        , checkOnly(updater.checkOnly)
        , currentFile(updater.currentFile)
        , downloadedFiles(updater.downloadedFiles)
        , progressDialog(updater.progressDialog)
    {
    }

    /// Drops the files from the manifest that are in place.
    void selectFiles() { m_updater.selectFiles(); }

    /// The sizes that the progress label adds up.
    quint32 bytesLeft() { return m_updater.bytesLeft(); }

private:
    Updater& m_updater;

public:
    QString& programName;
    QString& programBaseDir;
    QString& programVersion;
    QString& updateUrl;
    QString& sharedMemKey;
    QString& programExe;
    QNetworkAccessManager& netManager;
    QStringList& tempCopies;
    ProgramData& programData;
    QString& tempDir;
    bool& checkOnly;
    int& currentFile;
    int& downloadedFiles;
    QProgressDialog*& progressDialog;
};

#endif // TESTS_SUPPORT_UPDATERPROBE_H
