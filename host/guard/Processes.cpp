// Waits for processes, and ends them: by pidfd and /proc on Linux, by kqueue on macOS.

#include "host/guard/Processes.h"

#include <QDeadlineTimer>
#include <QDir>
#include <QFile>

#include <cerrno>
#include <csignal>

#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#ifdef __linux__
#include <sys/prctl.h>
#include <sys/syscall.h>
#elif defined(__APPLE__)
#include <sys/event.h>
#endif

namespace processes {

namespace {

constexpr int pollInterval = 50; // Milliseconds, where the system does not report the end.

#ifdef __linux__

/// A field of /proc/PID/stat, from the third on: the second may have spaces and parentheses.
QByteArray statusField(const QByteArray& pid, int number)
{
    QFile file(QLatin1String("/proc/") + QString::fromLatin1(pid) + QLatin1String("/stat"));
    if (!file.open(QIODevice::ReadOnly))
        return QByteArray();
    const QByteArray line = file.readAll();
    return line.mid(line.lastIndexOf(')') + 2).split(' ').value(number - 3);
}

bool runs(qint64 pid)
{
    const QByteArray number = QByteArray::number(pid);
    const QByteArray state = statusField(number, 3);
    constexpr int startField = 22; // Clock ticks since the system was started.
    return !state.isEmpty() && state != "Z" && state != "X" &&
           statusField(number, startField).toULongLong() <=
               statusField("self", startField).toULongLong();
}

/// A descriptor that poll() reports when the process has ended; negative where there is none.
int openProcess(qint64 pid)
{
#ifdef SYS_pidfd_open
    return static_cast<int>(::syscall(SYS_pidfd_open, static_cast<pid_t>(pid), 0));
#else
    Q_UNUSED(pid)
    return -1;
#endif
}

#else

bool runs(qint64 pid)
{
    return ::kill(static_cast<pid_t>(pid), 0) == 0 || errno == EPERM;
}

int openProcess(qint64 pid)
{
#ifdef __APPLE__
    const int queue = ::kqueue();
    struct kevent event;
    EV_SET(&event, static_cast<uintptr_t>(pid), EVFILT_PROC, EV_ADD, NOTE_EXIT, 0, nullptr);
    if (queue >= 0 && ::kevent(queue, &event, 1, nullptr, 0, nullptr) == 0)
        return queue;
    if (queue >= 0)
        ::close(queue);
#else
    Q_UNUSED(pid)
#endif
    return -1;
}

#endif

} // namespace

bool waitForEnd(qint64 pid, int seconds)
{
    const QDeadlineTimer deadline(1000LL * seconds);
    pollfd process{openProcess(pid), POLLIN, 0};
    // Asked after the descriptor was opened: if it is the process meant, so is the descriptor.
    while (runs(pid) && !deadline.hasExpired()) {
        const auto left = static_cast<int>(deadline.remainingTime());
        ::poll(&process, 1, process.fd >= 0 ? left : qMin(left, pollInterval));
        if ((process.revents & POLLIN) != 0)
            break;
    }
    const bool hasEnded = (process.revents & POLLIN) != 0 || !runs(pid);
    if (process.fd >= 0)
        ::close(process.fd);
    return hasEnded;
}

bool hasElevatedRights()
{
    return ::geteuid() != ::getuid() || ::getegid() != ::getgid() ||
           qEnvironmentVariableIsSet("SUDO_UID") || qEnvironmentVariableIsSet("PKEXEC_UID");
}

void endThoseIn(const QByteArray& directory)
{
#ifdef __linux__
    struct stat wanted;
    if (::stat(directory.constData(), &wanted) != 0)
        return;
    const QStringList names = QDir(QStringLiteral("/proc")).entryList(QDir::Dirs);
    for (const QString& name : names) {
        bool isNumber = false;
        const qint64 pid = name.toLongLong(&isNumber);
        struct stat current;
        const QByteArray link = "/proc/" + name.toLatin1() + "/cwd";
        if (!isNumber || ::stat(link.constData(), &current) != 0 ||
            current.st_dev != wanted.st_dev || current.st_ino != wanted.st_ino)
            continue;
        ::kill(static_cast<pid_t>(pid), SIGKILL);
        constexpr int mostSeconds = 10;
        waitForEnd(pid, mostSeconds);
    }
#else
    Q_UNUSED(directory)
#endif
}

void endWith(qint64 parent)
{
#ifdef __linux__
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    // The parent may have ended before that call.
    if (::getppid() != static_cast<pid_t>(parent))
        ::_exit(1);
#else
    Q_UNUSED(parent)
#endif
}

} // namespace processes
