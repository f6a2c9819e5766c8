#include "tests/support/SystemCalls.h"

#include "tests/support/Command.h"

#include <QRegularExpression>
#include <QSet>

#include <signal.h>

namespace {

/// Calls with paths that change nothing. Whatever is not here counts as a change.
bool onlyLooks(const SystemCall& call)
{
    static const QSet<QString> looking{"access",     "chdir",    "execve",     "faccessat",
                                       "faccessat2", "getcwd",   "getxattr",   "lstat",
                                       "newfstatat", "readlink", "readlinkat", "inotify_add_watch",
                                       "lgetxattr",  "statfs",   "stat",       "statx"};
    return looking.contains(call.name);
}

bool isOpenForReading(const SystemCall& call)
{
    static const QRegularExpression writing("O_(WRONLY|RDWR|CREAT|TRUNC|APPEND|TMPFILE)");
    return call.name.startsWith("open") && call.arguments.contains("O_RDONLY") &&
           !call.arguments.contains(writing);
}

/// Calls that concern something other than files. (A socket may be bound to a path.)
bool isElsewhere(const SystemCall& call)
{
    return call.name == "connect" || call.name == "shmget" || call.name == "semget" ||
           (call.name == "bind" && !call.arguments.contains("sun_path"));
}

/// The paths in the arguments of a call: those in quotes or else those of its open files. A
/// relative one is completed with the directory argument before it.
QStringList pathsIn(const QString& arguments)
{
    static const QRegularExpression item("(?<open>(?:AT_FDCWD|\\d+)<(?<file>[^>]*)>)|"
                                         "\"(?<quoted>(?:[^\"\\\\]|\\\\.)*)\"");
    QStringList quoted;
    QStringList open;
    QString directory;
    for (auto found = item.globalMatch(arguments); found.hasNext();) {
        const QRegularExpressionMatch match = found.next();
        if (!match.captured("open").isEmpty()) {
            directory = match.captured("file");
            open.append(directory);
            continue;
        }
        const QString path = match.captured("quoted");
        quoted.append(path.startsWith('/') || directory.isEmpty() ? path : directory + '/' + path);
    }
    return quoted.isEmpty() ? open : quoted;
}

} // namespace

bool SystemCalls::canBeTraced()
{
    return runCommand({"strace", "-f", "-qq", "-e", "trace=%file", "-o", "/dev/null", "true"})
               .status == 0;
}

QStringList SystemCalls::command() const
{
    return {"strace",
            "-f",
            "-y",
            "-qq",
            "-s",
            "4096",
            "-b",
            "execve",
            "-e",
            "signal=none",
            "-e",
            "trace=%file,fallocate,fchmod,fchown,fsetxattr,ftruncate,bind,connect,shmget,semget",
            "-o",
            m_dir / "calls"};
}

void SystemCalls::killProgram() const
{
    // Every line begins with the number of the process; the first is the program's own.
    const QByteArray record = files::read(m_dir / "calls");
    const int pid = record.left(record.indexOf(' ')).toInt();
    if (pid > 0)
        ::kill(pid, SIGKILL);
}

QList<SystemCall> SystemCalls::changes() const
{
    QList<SystemCall> calls;
    for (const SystemCall& call : all()) {
        if (!onlyLooks(call) && !isOpenForReading(call) && !isElsewhere(call))
            calls.append(call);
    }
    return calls;
}

QList<SystemCall> SystemCalls::named(const QString& name) const
{
    QList<SystemCall> calls;
    for (const SystemCall& call : all()) {
        if (call.name == name)
            calls.append(call);
    }
    return calls;
}

QList<SystemCall> SystemCalls::all() const
{
    // Calls of threads that run side by side come in two lines; the first has the arguments. A
    // child is let go when it becomes another program, which strace 6 may not have seen.
    static const QRegularExpression beginning("^\\d+ +(?<name>\\w+)\\((?<arguments>.*)$");
    QList<SystemCall> calls;
    const QString record = QString::fromLocal8Bit(files::read(m_dir / "calls"));
    for (const QString& line : record.split('\n', Qt::SkipEmptyParts)) {
        if (line.contains("<... "))
            continue;
        if (line.endsWith("<detached ...>") && !line.contains("execve")) {
            calls.append({"execve", {}, "(let go before it was seen)"});
            continue;
        }
        const QRegularExpressionMatch match = beginning.match(line);
        if (!match.hasMatch())
            qFatal("test fixture: cannot read strace's line \"%s\"", qPrintable(line));
        const QString arguments = match.captured("arguments");
        calls.append({match.captured("name"), pathsIn(arguments), arguments});
    }
    return calls;
}
