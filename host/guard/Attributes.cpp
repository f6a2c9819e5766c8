// Copies files and their attributes by system calls, because Qt and the standard library leave out
// groups, extended attributes and times.

#include "host/guard/Attributes.h"

#include "host/guard/FsTree.h"

#include <cerrno>
#include <cstring>
#include <vector>

#include <fcntl.h>
#include <sys/xattr.h>
#include <unistd.h>

namespace attributes {

namespace {

#ifdef __APPLE__
ssize_t listed(int file, char* names, size_t size)
{
    return ::flistxattr(file, names, size, 0);
}
ssize_t valueOf(int file, const char* name, char* value, size_t size)
{
    return ::fgetxattr(file, name, value, size, 0, 0);
}
int setValue(int file, const char* name, const char* value, size_t size)
{
    return ::fsetxattr(file, name, value, size, 0, 0);
}
#else
ssize_t listed(int file, char* names, size_t size)
{
    return ::flistxattr(file, names, size);
}
ssize_t valueOf(int file, const char* name, char* value, size_t size)
{
    return ::fgetxattr(file, name, value, size);
}
int setValue(int file, const char* name, const char* value, size_t size)
{
    return ::fsetxattr(file, name, value, size, 0);
}
#endif

constexpr int longestAttribute = 65536; // Linux allows no more, and names no longer.

/// Copies what can be copied: a file system may have none, and some are for the system alone.
void copyExtended(int from, int to)
{
    std::vector<char> names(longestAttribute);
    const ssize_t length = listed(from, names.data(), names.size());
    if (length <= 0)
        return;
    std::vector<char> value(longestAttribute);
    const char* const end = names.data() + length;
    for (const char* name = names.data(); name < end; name += std::strlen(name) + 1) {
        const ssize_t size = valueOf(from, name, value.data(), value.size());
        if (size >= 0)
            setValue(to, name, value.data(), static_cast<size_t>(size));
    }
}

class Descriptor
{
public:
    explicit Descriptor(int descriptor) : m_descriptor(descriptor) {}
    ~Descriptor()
    {
        if (m_descriptor >= 0)
            ::close(m_descriptor);
    }
    Q_DISABLE_COPY(Descriptor)
    operator int() const { return m_descriptor; }

private:
    const int m_descriptor;
};

bool writeAll(int to, const char* bytes, ssize_t count)
{
    while (count > 0) {
        const ssize_t written = ::write(to, bytes, static_cast<size_t>(count));
        if (written < 0 && errno != EINTR)
            return false;
        if (written > 0) {
            bytes += written;
            count -= written;
        }
    }
    return true;
}

bool copyContents(int from, int to)
{
    QByteArray block(262144, '\0');
    for (;;) {
        const ssize_t count = ::read(from, block.data(), static_cast<size_t>(block.size()));
        if (count == 0)
            return true;
        if ((count < 0 && errno != EINTR) || !writeAll(to, block.constData(), count))
            return false;
    }
}

void setTimes(int file, const struct stat& status)
{
#ifdef __APPLE__
    const timespec times[] = {status.st_atimespec, status.st_mtimespec};
#else
    const timespec times[] = {status.st_atim, status.st_mtim};
#endif
    ::futimens(file, times);
}

/// Gives @p to the owner and the group of @p from, as far as this user may, and its attributes.
void copy(int from, const struct stat& status, int to)
{
    if (::fchown(to, status.st_uid, status.st_gid) != 0 &&
        ::fchown(to, static_cast<uid_t>(-1), status.st_gid) != 0)
        errno = 0; // Somebody else's group: the user's own is the best there is.
    copyExtended(from, to);
}

} // namespace

bool copyDirectory(const QByteArray& from, const QByteArray& to, mode_t mode, QString& why)
{
    const Descriptor target(
        ::open(to.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (target < 0) {
        why = fstree::systemError(to);
        return false;
    }
    const Descriptor source(
        ::open(from.constData(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (source >= 0 && ::fstat(source, &status) == 0)
        copy(source, status, target);
    ::fchmod(target, mode);
    return true;
}

bool copyFile(const QByteArray& from, const QByteArray& to, QString& why)
{
    const Descriptor source(::open(from.constData(), O_RDONLY | O_NOFOLLOW | O_CLOEXEC));
    struct stat status;
    if (source < 0 || ::fstat(source, &status) != 0) {
        why = fstree::systemError(from);
        return false;
    }
    const Descriptor target(::open(to.constData(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600));
    if (target < 0 || !copyContents(source, target)) {
        why = fstree::systemError(to);
        return false;
    }
    copy(source, status, target);
    ::fchmod(target, status.st_mode & 07777);
    setTimes(target, status);
    return true;
}

} // namespace attributes
