// The one class of the program. Its member functions are the subsystems; each has a source of its
// own beside this header.
//
//   Updater updater(fProgramName, fProgramBaseDir, fProgramVersion, fUpdateUrl, fSharedMemKey,
//                   fProgramExe);
//   updater.start(fCheckVerOnly);
//   return QApplication::exec(); // The exit status of the run.
#ifndef UPDATER_UPDATER_H
#define UPDATER_UPDATER_H

#include "manifest/ProgramData.h"

#include <QByteArray>
#include <QDir>
#include <QNetworkAccessManager>
#include <QObject>
#include <QString>
#include <QStringList>

class QProgressDialog;

/// One run of the updater, and all of its state: the options, the manifest, the position in the
/// downloads and the progress dialog.
///
/// main() makes one, on its stack, and calls either buildVersionFile(), which does its work at
/// once, or start(), after which replies and the Cancel button drive the object from the event
/// loop until something calls QCoreApplication::exit(). The exit code asked for last is the
/// process's exit status.
///
/// Everything happens on the main thread. The object owns all of its members; replies are children
/// of the network access manager.
class Updater : public QObject
{
    Q_OBJECT

public:
    /// Copies the options of a run. Nothing happens before start() or buildVersionFile().
    ///
    /// @param programName    the program's name, which is the manifest's root element
    /// @param programBaseDir the installation directory, or the release tree of a build
    /// @param programVersion the installed version, or the version being published
    /// @param updateUrl      URL of the version file; the files are beside it
    /// @param sharedMemKey   key of the host's shared-memory segment; empty for no report
    /// @param programExe     the executable to start after an update; empty to start the one that
    ///                       the update brings
    /// @param parent         the owner, if any
    Updater(const QString& programName, const QString& programBaseDir,
            const QString& programVersion, const QString& updateUrl, const QString& sharedMemKey,
            const QString& programExe, QObject* parent = nullptr);

    /// Closes the progress dialog, if there is one, and drops any transfer that is under way.
    ~Updater() override;

    /// Sends the request for the version file; the rest of the run follows from the event loop.
    ///
    /// @param checkOnly true to report the published version and end, false to update too
    /// @return Always true.
    bool start(bool checkOnly);

    /// A reserved hook of the class: does nothing and returns false. No run calls it.
    bool updateInstallVersionNumber();

    /// Appends the platform's directory separator to @p path unless it ends with "/" or "\".
    void endWithSeparator(QString& path) const;

    /// Removes every "/" and "\" from the end of @p path; nothing may be left of it.
    void endWithoutSeparator(QString& path) const;

    // Manifest text: the functions of manifest/ManifestText.h.

    /// As manifest::write().
    bool programDataToXml(const ProgramData& data, QString& text);

    /// As manifest::read().
    bool xmlToProgramData(const QString& rootTag, const QString& xml, ProgramData& data);

    /// As manifest::tagValue().
    QString tagValue(const QString& tag, QString& source, bool remove, bool* found);

    // Changelog payload (Changelog.cpp).

    /// Returns the text of the UTF-8 file @p fileName in base64, without line breaks, as a manifest
    /// carries it. Empty when the name is empty, the file cannot be opened, or it has no text.
    QString changelogData(const QString& fileName) const;

    /// Writes the payload of @p data, still in base64, to the file in the temporary directory that
    /// the host reads: "velmora_cl_", the trimmed version, ".dat". A file that an earlier run left
    /// there is always removed; without a payload no new one is written.
    ///
    /// @return False when there is a payload and the file cannot be opened for writing.
    bool writeChangelogFile(const ProgramData& data) const;

    // Version file (TreeScan.cpp, VersionFile.cpp).

    /// Appends an entry to the files of @p data for every regular file in @p dir and below, hidden
    /// ones included, depth first in the order of the listing. Links are followed.
    ///
    /// @param prefix path of @p dir below the top of the scan; empty at the top
    /// @return False when a file could not be opened; its entry then has an empty digest, and the
    ///         scan goes on. A directory that cannot be listed counts as empty (intended).
    bool collectFiles(QDir dir, ProgramData& data, const QString& prefix);

    /// Describes the release tree in the base directory in the file "index.txt" at its top.
    ///
    /// @param versionFilePath receives the path of the written file, on success; may be null
    /// @param required        whether the manifest marks the update as required
    /// @param changelogFile   path of the release notes; may be empty
    /// @return False, with an earlier version file untouched, when the name or the version is
    ///         empty, the base directory is missing or a file in it cannot be read. Also false,
    ///         with the earlier file removed, when the new one cannot be opened for writing.
    bool buildVersionFile(QString* versionFilePath, bool required, const QString& changelogFile);

    // Version check (VersionCheck.cpp).

    /// Sends the request for the version file; the reply goes to getVersionFinished().
    void getVersion();

    /// Writes a report to the host into the shared-memory segment: @p text in Latin-1, a zero byte,
    /// "1" or "0" for @p flag, a zero byte; the rest of the segment becomes zero.
    ///
    /// Does nothing when the key is empty, and silently gives up when the segment cannot be
    /// attached or is too small. Waits for the segment's lock.
    void writeVersionToSHM(const QString& text, bool flag);

    // Downloads (Downloads.cpp).

    /// Sends the request for the file at the current index; once all are saved, installs them.
    void downloadNewProgramData();

    /// Shows in the progress dialog, if there is one, which file is being downloaded and how many
    /// MiB are left, the current file included. From 2 GiB on the figure wraps (intended).
    void updateProgressLabel();

    // Installation (Installation.cpp).

    /// Moves the downloaded files into the base directory, starts the program and asks for exit
    /// status 0. Failures on the way are not reported. Asks for status 1, and installs nothing,
    /// while files are missing.
    void allFilesDownloaded();

    /// Starts the program at @p path as a detached process in its own directory (in the base
    /// directory when @p path has none), without arguments.
    ///
    /// @return True when it was started, now or by an earlier call: a process of the updater starts
    ///         one program. False when there is no such file or the start failed.
    bool startProgram(const QString& path) const;

    // Running location and self copy (SelfCopy.cpp). No run of the program uses these yet.

    /// True when the running executable is in the temporary directory or below it.
    bool runningFromTemp() const;

    /// Copies the running executable into the temporary directory, as the program's name followed
    /// by "Updater", over an earlier copy. Adds the path of a copy that succeeded to the list of
    /// copies.
    ///
    /// @param target receives the path, whether or not the copy succeeded
    /// @return Always false (intended): look for the file at @p target.
    bool selfCopyToTemp(QString& target);

    // The order of the slots is a contract: it is their index in the class's slot table.
private Q_SLOTS:
    /// The version file has arrived, or the transfer has failed.
    void getVersionFinished();

    /// The transfer of one program file has ended.
    void fileDownloadFinished();

    /// Ends the run with exit status 0. Transfers under way end with the object.
    void cancelUpdate();

private:
    /// Sets the download directory, selects the files and opens the progress dialog.
    void prepareDownloads();

    /// Drops every file from the manifest whose installed copy has the right size and digest.
    void selectFiles();

    void openProgressDialog();

    /// Returns the sizes of the files not yet saved, added up in 32 bits. While the list stays the
    /// same it continues from the last sum: adding up all sizes for each file would be quadratic.
    quint32 bytesLeft();

    /// Tells the user that a transfer failed with the network error @p code; exit status 1.
    void abortAfterTransferError(int code);

    /// Tells the user that the file @p name arrived damaged; exit status 1.
    void abortAfterDamage(const QString& name);

    /// Moves the downloaded files into place.
    /// @return The installed path of the first one that is the bundle's executable, or nothing.
    QString installFiles();

    friend class UpdaterProbe; // How the tests see the state of a run.

    QString programName;
    QString programBaseDir;
    QString programVersion;
    QString updateUrl;
    QString sharedMemKey;
    QString programExe;
    QNetworkAccessManager netManager; ///< Sends every request of the run.
    QStringList tempCopies;           ///< Copies of the updater made in the temporary directory.
    ProgramData programData;          ///< The manifest that the server sent.
    QString tempDir;                  ///< Download directory; set when an update begins.
    bool checkOnly = false;           ///< Report the published version and end.
    int currentFile = 0;              ///< Index of the file being downloaded.
    QByteArray body;                  ///< Of the last file; the next one uses its memory again.
    int downloadedFiles = 0;          ///< Files saved so far; kept, though nothing reads it.
    QProgressDialog* progressDialog = nullptr; ///< Owned; has no parent.

    /// The sum that bytesLeft() returned last.
    struct
    {
        QVector<ProgramFile> files; ///< Shares its data with the list as long as that is the same.
        int file = 0;               ///< The index at which the sum begins.
        quint32 bytes = 0;          ///< Wraps.
    } left;
};

#endif // UPDATER_UPDATER_H
