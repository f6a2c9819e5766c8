// Lists and removes directories, through open directories and without following links.

#include "host/guard/FsTree.h"

#include <QFile>

#include <algorithm>
#include <cerrno>

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

namespace fstree {

namespace {

constexpr int openDirectory = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

Kind kindOf(mode_t mode)
{
    switch (mode & S_IFMT) {
    case S_IFDIR:
        return Kind::Directory;
    case S_IFREG:
        return Kind::File;
    case S_IFLNK:
        return Kind::Link;
    default:
        return Kind::Other;
    }
}

#ifdef __APPLE__
timespec modifiedAt(const struct stat& status)
{
    return status.st_mtimespec;
}
timespec changedAt(const struct stat& status)
{
    return status.st_ctimespec;
}
#else
timespec modifiedAt(const struct stat& status)
{
    return status.st_mtim;
}
timespec changedAt(const struct stat& status)
{
    return status.st_ctim;
}
#endif

bool isSameTime(const timespec& one, const timespec& other)
{
    return one.tv_sec == other.tv_sec && one.tv_nsec == other.tv_nsec;
}

bool readTarget(int directory, const char* name, Entry& entry)
{
    QByteArray target(static_cast<int>(qMax<off_t>(entry.status.st_size, 4096)) + 1, '\0');
    const ssize_t length =
        ::readlinkat(directory, name, target.data(), static_cast<size_t>(target.size()));
    entry.target = target.left(static_cast<int>(qMax<ssize_t>(length, 0)));
    return length >= 0;
}

bool readEntryAt(int directory, const char* name, Entry& entry)
{
    if (::fstatat(directory, name, &entry.status, AT_SYMLINK_NOFOLLOW) != 0)
        return false;
    entry.kind = kindOf(entry.status.st_mode);
    return entry.kind != Kind::Link || readTarget(directory, name, entry);
}

/// An open directory.
class Listing
{
public:
    Listing(int parent, const char* name)
    {
        m_descriptor = ::openat(parent, name, openDirectory);
        if (m_descriptor < 0)
            return;
        m_directory = ::fdopendir(m_descriptor);
        if (m_directory == nullptr)
            ::close(m_descriptor);
    }
    ~Listing()
    {
        if (m_directory != nullptr)
            ::closedir(m_directory);
    }
    Q_DISABLE_COPY(Listing)

    bool isOpen() const { return m_directory != nullptr && m_descriptor >= 0; }
    int descriptor() const { return m_descriptor; }

    /// All names, read before anything is removed: some systems skip names otherwise.
    std::vector<QByteArray> names()
    {
        std::vector<QByteArray> found;
        while (const dirent* entry = ::readdir(m_directory)) {
            const QByteArray name(entry->d_name);
            if (name != "." && name != "..")
                found.push_back(name);
        }
        return found;
    }

private:
    int m_descriptor = -1; ///< Belongs to m_directory.
    DIR* m_directory = nullptr;
};

/// Adds what the directory @p name in @p parent holds. @p path is its path in @p entries.
bool readDirectory(int parent, const char* name, const QByteArray& path, Entries& entries,
                   QString& why)
{
    Listing listing(parent, name);
    if (!listing.isOpen()) {
        why = systemError(path);
        return false;
    }
    for (const QByteArray& found : listing.names()) {
        Entry entry;
        // What disappears at this moment was never there.
        if (!readEntryAt(listing.descriptor(), found.constData(), entry))
            continue;
        const QByteArray foundPath = path.isEmpty() ? found : path + '/' + found;
        const bool isDirectory = entry.kind == Kind::Directory;
        entries[foundPath] = std::move(entry);
        if (isDirectory &&
            !readDirectory(listing.descriptor(), found.constData(), foundPath, entries, why))
            return false;
    }
    return true;
}

bool removeAt(int parent, const char* name);

bool removeContents(int parent, const char* name)
{
    Listing listing(parent, name);
    if (!listing.isOpen())
        return false;
    // Without write permission nothing in it can be removed. A directory has no other links that
    // would see its mode change.
    ::fchmod(listing.descriptor(), S_IRWXU);
    const std::vector<QByteArray> names = listing.names();
    return std::all_of(names.begin(), names.end(), [&listing](const QByteArray& found) {
        return removeAt(listing.descriptor(), found.constData());
    });
}

bool removeAt(int parent, const char* name)
{
    if (::unlinkat(parent, name, 0) == 0 || errno == ENOENT)
        return true;
    struct stat status;
    if (::fstatat(parent, name, &status, AT_SYMLINK_NOFOLLOW) != 0 || !S_ISDIR(status.st_mode))
        return false;
    return removeContents(parent, name) && ::unlinkat(parent, name, AT_REMOVEDIR) == 0;
}

} // namespace

bool read(const QByteArray& top, Entries& entries, QString& why)
{
    Entry entry;
    if (!readEntry(top, entry)) {
        why = systemError(top);
        return false;
    }
    entries[QByteArray()] = entry;
    return readDirectory(AT_FDCWD, top.constData(), QByteArray(), entries, why);
}

bool readEntry(const QByteArray& path, Entry& entry)
{
    return readEntryAt(AT_FDCWD, path.constData(), entry);
}

std::vector<QByteArray> names(const QByteArray& path)
{
    Listing listing(AT_FDCWD, path.constData());
    return listing.isOpen() ? listing.names() : std::vector<QByteArray>();
}

bool isUnchanged(const Entry& one, const Entry& other)
{
    const struct stat& a = one.status;
    const struct stat& b = other.status;
    if (one.kind != other.kind || a.st_mode != b.st_mode || a.st_uid != b.st_uid ||
        a.st_gid != b.st_gid)
        return false;
    if (one.kind == Kind::Directory)
        return true;
    return a.st_dev == b.st_dev && a.st_ino == b.st_ino && a.st_size == b.st_size &&
           isSameTime(modifiedAt(a), modifiedAt(b)) && one.target == other.target;
}

bool isUntouched(const Entry& one, const Entry& other)
{
    return one.kind == Kind::File && isUnchanged(one, other) &&
           isSameTime(changedAt(one.status), changedAt(other.status));
}

bool wasQuiet(const Entry& entry)
{
    constexpr time_t enough = 2; // Seconds.
    return changedAt(entry.status).tv_sec - modifiedAt(entry.status).tv_sec >= enough;
}

bool remove(const QByteArray& path, QString& why)
{
    if (removeAt(AT_FDCWD, path.constData()))
        return true;
    why = systemError(path);
    return false;
}

QByteArray joined(const QByteArray& path, const QByteArray& name)
{
    return name.isEmpty() ? path : path + '/' + name;
}

QString systemError(const QByteArray& path)
{
    const int error = errno;
    return QFile::decodeName(path) + QStringLiteral(": ") + qt_error_string(error);
}

} // namespace fstree
