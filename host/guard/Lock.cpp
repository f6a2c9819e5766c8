// The lock on a directory.

#include "host/guard/Lock.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

DirectoryLock::~DirectoryLock()
{
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

DirectoryLock::Result DirectoryLock::take(const QByteArray& path)
{
    m_descriptor = ::open(path.constData(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (m_descriptor < 0)
        return Failed;
    if (::flock(m_descriptor, LOCK_EX | LOCK_NB) != 0)
        return errno == EWOULDBLOCK ? Busy : Failed;
    // Another guard may have exchanged the directory after it was opened here. Then the lock is on
    // the old one.
    struct stat locked;
    struct stat named;
    const bool isSame = ::fstat(m_descriptor, &locked) == 0 &&
                        ::stat(path.constData(), &named) == 0 && locked.st_dev == named.st_dev &&
                        locked.st_ino == named.st_ino;
    return isSame ? Taken : Busy;
}
