// What a directory holds, entry by entry. No link is followed on the way.
//
//   fstree::Entries entries;
//   QString why;
//   if (fstree::read("/opt/editor", entries, why))
//       entries.at("Contents/Info.txt").size;
//   fstree::remove("/opt/editor.old", why);
//
// Paths are bytes, as the system has them: a name need not be text.
#ifndef HOST_GUARD_FSTREE_H
#define HOST_GUARD_FSTREE_H

#include <QByteArray>
#include <QString>

#include <map>
#include <vector>

#include <sys/stat.h>

namespace fstree {

enum class Kind { Directory, File, Link, Other };

struct Entry
{
    Kind kind = Kind::Other;
    struct stat status{};
    QByteArray target; ///< Of a link.
};

/// By path relative to the top; the top itself is "". A directory is before what it holds.
using Entries = std::map<QByteArray, Entry>;

/// Fills @p entries with what the directory @p top holds. False, and @p why says what is wrong,
/// when a directory cannot be listed.
bool read(const QByteArray& top, Entries& entries, QString& why);

/// Reads the entry at @p path alone. False when there is none.
bool readEntry(const QByteArray& path, Entry& entry);

/// Returns the names in the directory @p path; none when it cannot be read.
std::vector<QByteArray> names(const QByteArray& path);

/// True when @p one and @p other are the same entry and nobody has written it in between.
/// Directories are the same whatever they hold.
bool isUnchanged(const Entry& one, const Entry& other);

/// True when @p one and @p other are the same file, and no time of it has changed.
bool isUntouched(const Entry& one, const Entry& other);

/// True when the last change of the file @p entry, such as a new link, came some time after it was
/// last written. The clock of a file system stands still for some milliseconds: a file that has
/// just been written may be written again without a trace.
bool wasQuiet(const Entry& entry);

/// Removes @p path and all below it; nothing there is fine. Directories without write permission
/// are removed as well. The mode of a file, which other links may share, is never changed.
bool remove(const QByteArray& path, QString& why);

/// Returns @p path with the relative path @p name added; an empty name adds nothing.
QByteArray joined(const QByteArray& path, const QByteArray& name);

/// Returns "PATH: MESSAGE" for the error that the last system call left in errno.
QString systemError(const QByteArray& path);

} // namespace fstree

#endif // HOST_GUARD_FSTREE_H
