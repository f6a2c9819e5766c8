#include "tests/support/SystemIpc.h"

#include <unistd.h>

#ifdef __linux__
#include <sched.h>
#endif

namespace {

bool ownNamespace = false;

#ifdef __linux__

/// Keeps the user and group: in a new user namespace a process is "nobody" until it maps them.
void keepUser(uid_t user, gid_t group)
{
    const auto identity = [](auto id) {
        return QByteArray::number(id) + ' ' + QByteArray::number(id) + " 1";
    };
    const QList<QPair<QString, QByteArray>> lines{
        {"setgroups", "deny"}, {"uid_map", identity(user)}, {"gid_map", identity(group)}};
    for (const auto& [name, line] : lines) {
        QFile file("/proc/self/" + name);
        if (!file.open(QIODevice::WriteOnly | QIODevice::Unbuffered) || file.write(line) < 0)
            qFatal("test fixture: cannot write %s", qPrintable(file.fileName()));
    }
}

#endif

/// The fields of each line but the first of a list of the kernel's.
QList<QList<QByteArray>> table(const QString& name)
{
    QFile file("/proc/sysvipc/" + name);
    if (!file.open(QIODevice::ReadOnly))
        return {};
    QList<QList<QByteArray>> rows;
    const QList<QByteArray> lines = file.readAll().split('\n').mid(1);
    for (const QByteArray& line : lines) {
        if (!line.isEmpty())
            rows.append(line.simplified().split(' '));
    }
    return rows;
}

} // namespace

namespace systemipc {

bool enterOwnNamespace()
{
#ifdef __linux__
    const uid_t user = ::geteuid();
    const gid_t group = ::getegid();
    ownNamespace = ::unshare(CLONE_NEWIPC) == 0;
    if (!ownNamespace && ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) == 0) {
        keepUser(user, group);
        ownNamespace = true;
    }
#endif
    return ownNamespace;
}

bool inOwnNamespace()
{
    return ownNamespace;
}

QStringList everything()
{
    QStringList lines;
    for (const QString& kind : {QStringLiteral("shm"), QStringLiteral("sem")}) {
        const QList<QList<QByteArray>> rows = table(kind);
        for (const QList<QByteArray>& row : rows)
            lines.append(kind + ' ' + QString::fromLatin1(row.value(1)));
    }
    return lines;
}

std::optional<Segment> segmentMadeBy(qint64 pid)
{
    // key shmid perms size cpid lpid nattch ...
    const QList<QList<QByteArray>> rows = table(QStringLiteral("shm"));
    for (const QList<QByteArray>& row : rows) {
        if (row.value(4).toLongLong() == pid)
            return Segment{row.value(1).toInt(), row.value(6).toInt()};
    }
    return std::nullopt;
}

} // namespace systemipc
