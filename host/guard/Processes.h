// Other processes: waiting until one has ended, and ending those that were left behind.
//
//   if (!processes::waitForEnd(hostPid, 60))
//       return; // It still runs.
#ifndef HOST_GUARD_PROCESSES_H
#define HOST_GUARD_PROCESSES_H

#include <QByteArray>
#include <QtGlobal>

namespace processes {

/// Waits until the process @p pid has ended, at most @p seconds. A process that began after this
/// one is another one that got the number, and has not to be waited for. A zombie has ended.
/// @return False when it still runs.
bool waitForEnd(qint64 pid, int seconds);

/// True when this process has more rights than the user who started it: a set-uid program, sudo,
/// pkexec.
bool hasElevatedRights();

/// Ends this user's processes whose working directory is @p directory, and waits for that. Nothing
/// on systems that do not tell the working directory.
void endThoseIn(const QByteArray& directory);

/// To be called in a child between fork() and exec(): the system ends it when the process @p parent
/// ends. Nothing on systems other than Linux.
void endWith(qint64 parent);

} // namespace processes

#endif // HOST_GUARD_PROCESSES_H
