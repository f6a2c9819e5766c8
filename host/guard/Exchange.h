// Two directories change places in one system call.
//
//   exchange::exchange("/opt/.hidden/clone", "/opt/editor", why);
#ifndef HOST_GUARD_EXCHANGE_H
#define HOST_GUARD_EXCHANGE_H

#include <QByteArray>
#include <QString>

namespace exchange {

/// Tries whether directories below @p scratch, an empty directory beside @p directory, can be
/// exchanged with it. False, and @p why says what is wrong, when they cannot: another file system,
/// a mount point, a system or file system without the call, no permission.
bool isPossible(const QByteArray& scratch, const QByteArray& directory, QString& why);

/// Writes what is in memory of the file system of @p path to the disk.
bool sync(const QByteArray& path, QString& why);

/// Exchanges the directories @p one and @p other, and writes that to the disk.
bool exchange(const QByteArray& one, const QByteArray& other, QString& why);

} // namespace exchange

#endif // HOST_GUARD_EXCHANGE_H
