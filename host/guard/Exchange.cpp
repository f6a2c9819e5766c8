// The exchange of two directories: renameat2() on Linux, renamex_np() on macOS.

#include "host/guard/Exchange.h"

#include "host/guard/FsTree.h"

#include <QFile>

#include <cstdio>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace exchange {

namespace {

QByteArray parentOf(const QByteArray& path)
{
    return path.left(qMax(path.lastIndexOf('/'), decltype(path.lastIndexOf('/'))(1)));
}

bool isMountPoint(const QByteArray& path)
{
#ifdef STATX_ATTR_MOUNT_ROOT
    struct statx status;
    return ::statx(AT_FDCWD, path.constData(), AT_SYMLINK_NOFOLLOW, 0, &status) == 0 &&
           (status.stx_attributes & STATX_ATTR_MOUNT_ROOT) != 0;
#else
    Q_UNUSED(path)
    return false; // Then the exchange itself fails.
#endif
}

bool isOnSameDevice(const QByteArray& one, const QByteArray& other)
{
    struct stat a;
    struct stat b;
    return ::stat(one.constData(), &a) == 0 && ::stat(other.constData(), &b) == 0 &&
           a.st_dev == b.st_dev;
}

bool swapNames(const QByteArray& one, const QByteArray& other)
{
#ifdef __APPLE__
    return ::renamex_np(one.constData(), other.constData(), RENAME_SWAP) == 0;
#else
    return ::renameat2(AT_FDCWD, one.constData(), AT_FDCWD, other.constData(), RENAME_EXCHANGE) ==
           0;
#endif
}

/// Calls @p write with the open directory or file @p path.
template <typename Write> bool withOpen(const QByteArray& path, QString& why, Write write)
{
    const int descriptor = ::open(path.constData(), O_RDONLY | O_CLOEXEC);
    const bool isDone = descriptor >= 0 && write(descriptor) == 0;
    if (!isDone)
        why = fstree::systemError(path);
    if (descriptor >= 0)
        ::close(descriptor);
    return isDone;
}

} // namespace

bool isPossible(const QByteArray& scratch, const QByteArray& directory, QString& why)
{
    if (!isOnSameDevice(scratch, directory) || isMountPoint(directory)) {
        why = QFile::decodeName(directory) + QStringLiteral(": a file system of its own");
        return false;
    }
    // To move a directory into another one, its ".." must be written.
    if (::access(directory.constData(), W_OK) != 0) {
        why = fstree::systemError(directory);
        return false;
    }
    const QByteArray one = scratch + "/one";
    const QByteArray other = scratch + "/other";
    const bool isDone = ::mkdir(one.constData(), S_IRWXU) == 0 &&
                        ::mkdir(other.constData(), S_IRWXU) == 0 && swapNames(one, other);
    if (!isDone)
        why = fstree::systemError(scratch);
    ::rmdir(one.constData());
    ::rmdir(other.constData());
    return isDone;
}

bool sync(const QByteArray& path, QString& why)
{
    return withOpen(path, why, [](int descriptor) {
#ifdef __APPLE__
        return ::fcntl(descriptor, F_FULLFSYNC);
#else
        return ::syncfs(descriptor);
#endif
    });
}

bool exchange(const QByteArray& one, const QByteArray& other, QString& why)
{
    if (!swapNames(one, other)) {
        why = fstree::systemError(other);
        return false;
    }
    // From here on the new release is installed, whether or not the disk has been told.
    QString ignored;
    for (const QByteArray& parent : {parentOf(one), parentOf(other)})
        withOpen(parent, ignored, [](int descriptor) { return ::fsync(descriptor); });
    return true;
}

} // namespace exchange
