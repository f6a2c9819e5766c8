// A second installation, made of hard links to the first, that an update can work on. It is
// checked, and takes the place of the first in one system call.
//
//   Clone clone("/opt/editor", release);
//   if (!clone.findDifferences().isEmpty() && clone.make("/opt/.hidden/clone", why)) {
//       ... // The updater works on it.
//       if (clone.isWhole(why) && clone.setModes(rules, why) && clone.catchUp(why) &&
//           clone.exchange(why))
//           ... // "/opt/editor" is the new release, and the clone the old one.
//   }
//
// The links are safe, because nothing writes into a file of the clone: the updater removes a file
// before it moves the new one in, and here only files are changed that have no link in the
// installation.
#ifndef HOST_GUARD_CLONE_H
#define HOST_GUARD_CLONE_H

#include "host/guard/FsTree.h"
#include "manifest/ProgramData.h"

#include <QByteArray>
#include <QString>
#include <QVector>

#include <functional>
#include <map>
#include <set>

class Clone
{
public:
    /// Does nothing yet.
    /// @param directory the installation, by its canonical path
    /// @param release   what the new version file says
    Clone(const QByteArray& directory, const ProgramData& release);

    /// Compares the installation with the release.
    /// @return The entries that are missing or different, in the order of the version file.
    QVector<ProgramFile> findDifferences();

    /// Makes the clone at @p path, on the same file system, where nothing is yet. It has no files
    /// that findDifferences() found. False, and @p why says what is wrong, when something in the
    /// installation cannot be cloned (a FIFO, a socket, a device, a set-uid file).
    bool make(const QByteArray& path, QString& why);

    /// Checks the clone after the updater has worked on it: every file of the release is there with
    /// its size and digest, all else is as in the installation, and nothing was added. False, and
    /// @p why names an entry, when it is not so.
    bool isWhole(QString& why);

    /// Gives replaced files the mode and group that they had, new ones 0644, and makes those
    /// executable that must be. @p mustBeExecutable is asked with paths relative to the clone.
    bool setModes(const std::function<bool(const QByteArray& path)>& mustBeExecutable,
                  QString& why);

    /// Removes from the clone the files of @p earlier, the release that was installed, which the
    /// new one does not list, if they still have the size and digest listed there.
    bool removeObsolete(const ProgramData& earlier, QString& why);

    /// Brings into the clone what other programs have changed in the installation since make().
    /// False when a file of the release is among it, or on a failure.
    bool catchUp(QString& why);

    /// Writes everything to the disk and exchanges clone and installation.
    bool exchange(QString& why);

private:
    QByteArray sourcePath(const QByteArray& name) const
    {
        return fstree::joined(m_directory, name);
    }
    QByteArray clonePath(const QByteArray& name) const { return fstree::joined(m_path, name); }
    QByteArray pathOf(const QString& name) const;
    QByteArray realDirectory(const QByteArray& name) const;
    bool add(const QByteArray& name, const fstree::Entry& entry, QString& why);
    bool addFile(const QByteArray& name, QString& why);
    bool isTheSame(const QByteArray& name, const fstree::Entry& source,
                   const fstree::Entry& clone) const;
    bool isStillIntact(const QByteArray& name, const fstree::Entries& clone) const;
    bool isExpected(const QByteArray& name) const;
    bool setMode(const QByteArray& name, mode_t mode, QString& why);
    bool makeOwn(const QByteArray& name, QString& why);
    bool removeGone(const fstree::Entries& now, QString& why);
    bool setModesOfDirectories(QString& why);

    const QByteArray m_directory;
    const ProgramData m_release;
    QByteArray m_path;
    std::set<QByteArray> m_listed;   ///< Files of the release.
    std::set<QByteArray> m_parents;  ///< Directories that these are in.
    std::set<QByteArray> m_replaced; ///< Files that are missing or different.
    std::set<QByteArray> m_removed;  ///< Obsolete files.
    fstree::Entries m_intact;        ///< Files of the release that were found intact, as they were.
    fstree::Entries m_source;        ///< The installation as it was cloned.
    fstree::Entries m_copies;        ///< Files of the clone that could not be links.
    mutable std::map<QByteArray, QByteArray> m_realDirectories; ///< By the names in the release.
};

#endif // HOST_GUARD_CLONE_H
