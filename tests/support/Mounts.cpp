#include "tests/support/Mounts.h"

#include "tests/support/Files.h"

#include <QProcess>

namespace {

/// True when @p command can be run and ends with 0.
bool succeeds(const QStringList& command)
{
    QProcess process;
    process.start(command.first(), command.mid(1));
    return process.waitForFinished() && process.exitStatus() == QProcess::NormalExit &&
           process.exitCode() == 0;
}

} // namespace

namespace mounts {

std::optional<QStringList> commandInNamespace()
{
    const QList<QStringList> namespaces{{"unshare", "--mount"},
                                        {"unshare", "--map-root-user", "--mount"}};
    const TestDir trial;
    for (const QStringList& command : namespaces) {
        if (succeeds(command + QStringList{"mount", "-t", "tmpfs", "none", trial.path()}))
            return command;
    }
    return std::nullopt;
}

std::optional<QStringList> commandWithTmpfs(const QString& point, const QString& mountOptions,
                                            const QString& copy)
{
    const auto command = commandInNamespace();
    if (!command)
        return std::nullopt;
    const QString script = "mkdir \"$0.before\" && cp -a \"$0/.\" \"$0.before\" &&\n"
                           "mount -t tmpfs -o \"$1\" none \"$0\" &&\n"
                           "cp -a \"$0.before/.\" \"$0\" || exit 99\n"
                           "copy=$2\n"
                           "shift 2\n"
                           "[ -n \"$copy\" ] || exec \"$@\"\n"
                           "\"$@\"\n"
                           "status=$?\n"
                           "cp -a \"$0/.\" \"$copy\"\n"
                           "exit $status\n";
    return *command + QStringList{"sh", "-c", script, point, mountOptions, copy};
}

std::optional<QStringList> commandWithDirectory(const QString& source, const QString& point)
{
    const auto command = commandInNamespace();
    if (!command)
        return std::nullopt;
    const QString script = "mount --bind \"$0\" \"$1\" && shift && exec \"$@\"";
    return *command + QStringList{"sh", "-c", script, source, point};
}

} // namespace mounts
