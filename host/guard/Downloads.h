// Fetches the files that an update needs, several at once, each to a file of its own in a
// directory, in constant memory. A file gets its final name there only when its size and its digest
// are right.
//
//   Downloads downloads({url, directory, 6, 60}, files);
//   QObject::connect(&downloads, &Downloads::settled, [&](const QString& key) { ... });
//   downloads.start();
//   ...
//   if (downloads.stateOf(file) == Downloads::State::Ready)
//       use(downloads.pathOf(file));
#ifndef HOST_GUARD_DOWNLOADS_H
#define HOST_GUARD_DOWNLOADS_H

#include "manifest/ProgramData.h"

#include <QObject>
#include <QString>
#include <QVector>

#include <memory>

class Downloads : public QObject
{
    Q_OBJECT

public:
    struct Settings
    {
        QString versionFileUrl; ///< The files are beside it.
        QString directory;      ///< Where files are put, and where those of earlier runs may be.
        int jobs;               ///< Transfers at once.
        int stallSeconds;       ///< A transfer that brings nothing for so long is cut.
    };

    enum class State { Waiting, Ready, Failed };

    /// Does nothing yet. The order of @p files is the order of the transfers; entries of the same
    /// digest and size are fetched once.
    Downloads(const Settings& settings, const QVector<ProgramFile>& files,
              QObject* parent = nullptr);
    ~Downloads() override;

    /// Begins, in the event loop. What an earlier run has verified is checked again and used; what
    /// it has begun is continued with a range request, or fetched whole when the server does not
    /// allow that or the whole does not have the digest. Each file is tried three times in all.
    void start();

    /// True when @p file was given to the constructor.
    bool contains(const ProgramFile& file) const;

    /// The state of @p file; Failed also for a file that was not given to the constructor.
    State stateOf(const ProgramFile& file) const;

    /// Where the verified contents of @p file are, once its state is Ready.
    QString pathOf(const ProgramFile& file) const;

    /// Why the first file that failed did; empty while none has.
    QString failure() const;

    /// True when a file failed because the disk is full. Then all that were not ready have failed.
    bool isDiskFull() const;

    qint64 bytesDownloaded() const; ///< From the server, in this run, as they are on disk.
    qint64 bytesReused() const;     ///< Of earlier runs.

    /// Under which name contents are in the directory: "<digest>-<size>"; while they are
    /// incomplete, with ".part". Empty for an entry whose digest is not 40 hexadecimal digits.
    static QString keyOf(const ProgramFile& file);

Q_SIGNALS:
    /// The state of all files of this key is final. Emitted from the event loop, once for each key,
    /// and once for all files without a key.
    void settled(const QString& key);

private:
    class Transfers;
    std::unique_ptr<Transfers> m_transfers;
};

#endif // HOST_GUARD_DOWNLOADS_H
