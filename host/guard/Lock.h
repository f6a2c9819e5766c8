// One update of an installation at a time: a lock on the directory itself, so that no lock file is
// left anywhere. The system releases it when the process ends, however that happens.
//
//   DirectoryLock lock;
//   if (lock.take("/opt/editor") == DirectoryLock::Busy)
//       return;
#ifndef HOST_GUARD_LOCK_H
#define HOST_GUARD_LOCK_H

#include <QByteArray>
#include <QtGlobal>

class DirectoryLock
{
public:
    enum Result { Taken, Busy, Failed };

    DirectoryLock() = default;
    ~DirectoryLock();
    Q_DISABLE_COPY(DirectoryLock)

    /// Leaves the lock to the end of the process.
    void keep() { m_descriptor = -1; }

    /// Locks the directory at the canonical path @p path until this object or the process ends.
    /// Busy when another process has it, also when it has exchanged the directory at this moment;
    /// Failed when it cannot be opened.
    Result take(const QByteArray& path);

private:
    int m_descriptor = -1;
};

#endif // HOST_GUARD_LOCK_H
