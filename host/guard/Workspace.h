// The hidden directory beside an installation that an update works in: "clone", "tmp" (the
// updater's temporary directory), "downloads". Others cannot look into it.
//
//   Workspace workspace("/opt/editor");
//   workspace.recover(); // What guards have left that were killed.
//   if (workspace.make(why))
//       workspace.clone(); // "/opt/.updater-guard-6f1d8a02c4e7b935-Xa81Pq/clone"
//   workspace.remove(Workspace::Downloads::Keep);
//
// Only the guard that has the lock on the installation may use this class.
#ifndef HOST_GUARD_WORKSPACE_H
#define HOST_GUARD_WORKSPACE_H

#include <QByteArray>
#include <QString>
#include <QVector>

class Workspace
{
public:
    enum class Downloads { Keep, Remove };

    /// Does nothing yet. @p directory is the installation, by its canonical path.
    explicit Workspace(const QByteArray& directory);

    /// Takes over the hidden directories of guards that were killed: ends an updater that still
    /// runs in one, and removes all but the downloads. Those that are not a directory of this user,
    /// with mode 0700, are left alone.
    void recover();

    /// Makes the directory, and moves into it the downloads that were recovered. False, and @p why
    /// says what is wrong, when it cannot be made.
    bool make(QString& why);

    QByteArray path() const { return m_path; } ///< Empty before make().
    QByteArray clone() const { return m_path + "/clone"; }
    QByteArray downloads() const { return m_path + "/downloads"; }

    /// Removes the directory; with Downloads::Keep all but the downloads, for the next recover().
    /// What was recovered before is removed as well.
    void remove(Downloads downloads);

private:
    void moveDownloads(const QByteArray& from) const;

    const QByteArray m_prefix; ///< Path of the hidden directories of this installation.
    QByteArray m_path;
    QVector<QByteArray> m_recovered; ///< Directories with downloads.
};

#endif // HOST_GUARD_WORKSPACE_H
