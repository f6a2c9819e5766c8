// What a process asks of the system, as strace records it.
#ifndef TESTS_SUPPORT_SYSTEMCALLS_H
#define TESTS_SUPPORT_SYSTEMCALLS_H

#include "tests/support/Files.h"

#include <QList>

/// One system call that can change something outside the process.
struct SystemCall
{
    QString name;      ///< Such as "rename".
    QStringList paths; ///< Absolute, as the call or an open file names them.
    QString arguments; ///< As strace prints them, the result included.
};

/// Records the system calls of a program and of its children, up to the moment that a child becomes
/// another program.
class SystemCalls
{
public:
    /// True where strace is installed and may trace.
    static bool canBeTraced();

    /// Returns the command (see UpdaterProcess::setWrapper()) under which a program's calls are
    /// recorded here.
    QStringList command() const;

    /// Kills the program, which outlives strace.
    void killProgram() const;

    /// The recorded calls that change files, or that are not known to leave them alone. A call
    /// counts whether or not it succeeded.
    QList<SystemCall> changes() const;

    /// The recorded calls of the name @p name.
    QList<SystemCall> named(const QString& name) const;

private:
    QList<SystemCall> all() const;

    TestDir m_dir;
};

#endif // TESTS_SUPPORT_SYSTEMCALLS_H
